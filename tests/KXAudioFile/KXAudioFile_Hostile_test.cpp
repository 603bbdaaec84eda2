// Files made the way an attacker or an unlucky user makes them: huge counts, values that
// describe no samples, split sets that disagree. Each must open correctly or be refused
// cleanly; how long the big ones take is measured in bench/, not here.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXLabels/KXLoopList.h"
#include "KXAudioFile/KXLabels/KXMarkerList.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXResourceFile.h"
#include "support/KXTestSupport.h"

namespace {

// Appends `value` in `order` as `size` bytes.
void put(KXData& bytes, std::uint64_t value, int size, KXByteOrder order = KXByteOrder::little) {
    for (int i = 0; i < size; ++i) {
        const int shift = order == KXByteOrder::little ? 8 * i : 8 * (size - 1 - i);
        bytes.push_back(std::uint8_t(value >> shift));
    }
}

KXData fmt(std::uint16_t channels, std::uint32_t rate) {
    KXData bytes;
    for (auto [value, size] : {std::pair<std::uint64_t, int>{1, 2}, {channels, 2}, {rate, 4}, {rate * 2u * channels, 4},
                               {2u * channels, 2}, {16, 2}})
        put(bytes, value, size);
    return bytes;
}

KXTestFile monoWave(std::uint32_t frames = 10) {
    return KXTestFile::riff().chunk("fmt ", fmt(1, 44100)).chunk("data", KXData(2 * frames, 0));
}

// An AIFF file of `channels` × `frames` 16-bit frames at the 80-bit `rate`, with `ssnd` bytes.
KXData aiff(std::uint16_t channels, std::uint32_t frames, const KXData& rate, std::size_t ssnd) {
    KXData comm;
    put(comm, channels, 2, KXByteOrder::big);
    put(comm, frames, 4, KXByteOrder::big);
    put(comm, 16, 2, KXByteOrder::big);
    comm.insert(comm.end(), rate.begin(), rate.end());
    return KXTestFile::aiff().chunk("COMM", comm).chunk("SSND", KXData(8 + ssnd, 0)).finish().data();
}

const KXData k44100Hz{0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0};

}  // namespace

TEST(KXAudioFileHostile, ManyUnnamedCuesNamedLoopsAndLabelledTextsKeepTheirRules) {
    // 20,000 cue points, half of them named by 'labl' and turned into regions by 'ltxt'; 10,000
    // loops. Default names count on from the largest number, IDs come from the file.
    constexpr std::uint32_t kCues = 20000, kLoops = 10000;
    KXData cue, adtl = bytesOf("adtl"), smpl(28, 0);
    put(cue, kCues, 4);
    for (std::uint32_t i = 0; i < kCues; ++i)
        for (std::uint32_t field : {i + 1, i, 0u, 0u, 0u, i}) put(cue, field, 4);
    for (std::uint32_t i = 0; i < kCues; i += 2) {
        const std::string name = "Take " + std::to_string(i + 1);
        KXData labl, ltxt;
        put(labl, i + 1, 4);
        labl.insert(labl.end(), name.begin(), name.end());
        labl.push_back(0);
        put(ltxt, i + 1, 4);
        put(ltxt, 5, 4);
        ltxt.resize(20, 0);
        for (const auto& [type, payload] : {std::pair<const char*, KXData&>{"labl", labl}, {"ltxt", ltxt}}) {
            adtl.insert(adtl.end(), type, type + 4);
            put(adtl, payload.size(), 4);
            adtl.insert(adtl.end(), payload.begin(), payload.end());
            if (payload.size() % 2) adtl.push_back(0);
        }
    }
    put(smpl, kLoops, 4);
    put(smpl, 0, 4);
    for (std::uint32_t i = 0; i < kLoops; ++i)
        for (std::uint32_t field : {0u, 0u, i, i + 10, 0u, 0u}) put(smpl, field, 4);
    KXTemporaryFolder folder;
    const std::string path = folder.write(
        "cues.wav", monoWave().chunk("cue ", cue).chunk("LIST", adtl).chunk("smpl", smpl).finish().data());
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    ASSERT_EQ(file->regionList()->count(), kCues / 2);
    EXPECT_EQ(file->regionList()->labelAtIndex(kCues / 2 - 1)->name(), "Take 19999");
    ASSERT_EQ(file->markerList()->count(), kCues / 2);
    // The unnamed markers were named on reading, each one past the largest so far.
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->labelID(), 2u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Marker 2");
    EXPECT_EQ(file->markerList()->labelAtIndex(kCues / 2 - 1)->name(), "Marker 20000");
    ASSERT_EQ(file->loopList()->count(), kLoops);
    EXPECT_EQ(file->loopList()->labelAtIndex(kLoops - 1)->labelID(), kLoops);
    EXPECT_EQ(file->markerList()->nextMarkerID(), 1u);
}

TEST(KXAudioFileHostile, LargeIXMLDocumentsAndTextThatIsNotUTF8) {
    std::string xml = "<BWFXML><NOTE>caf\xE9</NOTE>";
    for (int i = 0; i < 20000; ++i) xml += "<TAKE>" + std::to_string(i) + "</TAKE><N" + std::to_string(i) + ">x</N" + std::to_string(i) + ">";
    xml += "</BWFXML>";
    KXTemporaryFolder folder;
    auto file = KXAudioFile::audioFileWithPath(folder.write("x.wav", monoWave().chunk("iXML", bytesOf(xml)).finish().data()));
    ASSERT_TRUE(file);
    const KXArray& takes = file->metadata().objectForKey("take").array();
    ASSERT_EQ(takes.size(), 20000u);
    EXPECT_EQ(takes.back().string(), "19999");
    EXPECT_EQ(file->metadata().objectForKey("n19999").string(), "x");
    // Not UTF-8, so Windows-1252, as RIFF text before UTF-8 was.
    EXPECT_EQ(file->metadata().objectForKey("note").string(), "caf\xC3\xA9");
}

TEST(KXAudioFileHostile, ValuesThatDescribeNoSamplesAreRefused) {
    struct Case {
        const char* what;
        KXData bytes;
    };
    const Case cases[] = {
        {"AIFF rate NaN", aiff(1, 2, {0x7F, 0xFF, 0xC0, 0, 0, 0, 0, 0, 0, 0}, 4)},
        {"AIFF rate infinite", aiff(1, 2, {0x7F, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 0}, 4)},
        {"AIFF rate negative", aiff(1, 2, {0xC0, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}, 4)},
        {"AIFF rate 0.5 Hz", aiff(1, 2, {0x3F, 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0}, 4)},
        {"AIFF 32767 channels over 6 bytes", aiff(32767, 0, k44100Hz, 6)},
    };
    KXTemporaryFolder folder;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        KXError error;
        EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("bad.aif", c.bytes), &error));
        EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, "Parsing the AIFF file"));
    }
    KXData au = bytesOf(".snd");
    for (std::uint32_t field : {24u, 6u, 3u, 44100u, 32767u}) put(au, field, 4, KXByteOrder::big);
    au.resize(au.size() + 6, 0);
    KXError error;
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("wide.au", au), &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);

    // One whole frame of a very wide file opens, and reading it allocates by what there is.
    auto wide = KXAudioFile::audioFileWithPath(folder.write("wide.aif", aiff(4096, 1, k44100Hz, 8192)));
    ASSERT_TRUE(wide);
    EXPECT_LT(std::uint64_t(wide->readBufferFrames()) * wide->numberOfChannels() * sizeof(float), std::uint64_t(65 << 20));
    EXPECT_EQ(wide->readBufferFrames() % 256, 0u);
    EXPECT_EQ(wide->readSample(0, 4095), 0.0f);
}

// The doubling of a beat count of 2^31 − 1 overflowed (UndefinedBehaviorSanitizer stops the
// sanitized suite there); now it wraps as 32-bit arithmetic does.
TEST(KXAudioFileHostile, LoopLibraryBeatCountsWrapInsteadOfOverflowing) {
    KXData acid;
    for (auto [value, size] : {std::pair<std::uint64_t, int>{0, 4}, {0, 2}, {0, 2}, {0, 4}, {0x7FFFFFFF, 4}, {4, 2}, {4, 2}})
        put(acid, value, size);
    put(acid, std::bit_cast<std::uint32_t>(120.0f), 4);
    KXTemporaryFolder folder;
    auto file = KXAudioFile::audioFileWithPath(folder.write("acid.wav", monoWave().chunk("acid", acid).finish().data()));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("ACID"));
    EXPECT_NE(file->eighthBeats(), 0);
}

TEST(KXAudioFileHostile, AWalkStopsAtAMillionChunks) {
    KXTestFile many = monoWave();
    KXData empty;
    for (std::size_t i = 0; i < (std::size_t(1) << 20); ++i) many.chunk("abcd", empty);
    KXTemporaryFolder folder;
    KXError error;
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("many.wav", many.finish().data()), &error));
    EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorChunkVerificationFailed, "Verifying the chunks"));
}

TEST(KXAudioFileHostile, SplitSetsWhoseFilesDisagreeAreRefusedByName) {
    KXTemporaryFolder folder;
    const KXData left = monoWave(10).finish().data();
    folder.write("A.L.wav", left);
    folder.write("A.R.wav", KXTestFile::riff().chunk("fmt ", fmt(1, 48000)).chunk("data", KXData(20, 0)).finish().data());
    KXError error;
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.pathFor("A.L.wav"), &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
    EXPECT_NE(error.reason().find("A.R.wav"), std::string::npos);
    EXPECT_NE(error.reason().find("rate"), std::string::npos);

    // An empty member, a folder and a FIFO: refused, never read as silence or waited on.
    folder.write("B.L.wav", left);
    folder.write("B.R.wav", {});
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.pathFor("B.L.wav"), &error));
    EXPECT_NE(error.reason().find("B.R.wav"), std::string::npos);
    folder.write("C.L.wav", left);
    ASSERT_EQ(mkdir(folder.pathFor("C.R.wav").c_str(), 0755), 0);
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.pathFor("C.L.wav"), &error));
    folder.write("D.L.wav", left);
    ASSERT_EQ(mkfifo(folder.pathFor("D.R.wav").c_str(), 0644), 0);
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.pathFor("D.L.wav"), &error));
    EXPECT_NE(error.reason().find("D.R.wav"), std::string::npos);

    // Files that agree but whose samples start at different offsets each read their own.
    KXData rightSamples;
    for (std::uint16_t i = 0; i < 10; ++i) put(rightSamples, 1000u + i, 2);
    folder.write("E.L.wav", left);
    folder.write("E.R.wav", KXTestFile::riff().chunk("fmt ", fmt(1, 44100)).chunk("JUNK", KXData(30, 0))
                                .chunk("data", rightSamples).finish().data());
    auto pair = KXAudioFile::audioFileWithPath(folder.pathFor("E.L.wav"), &error);
    ASSERT_TRUE(pair);
    EXPECT_FLOAT_EQ(pair->readSample(3, 1), 1003.0f / 32768.0f);
    EXPECT_EQ(pair->readSample(3, 0), 0.0f);
}

TEST(KXResourceFileHostile, ReferencesSharingOneLargeResourceMayNotCopyPastTheFork) {
    // One 64 KiB resource and 2,000 references to it: 125 MiB of copies from a 90 KiB fork.
    constexpr std::uint32_t kLength = 1 << 16, kReferences = 2000;
    KXData fork(256, 0);
    put(fork, kLength, 4, KXByteOrder::big);
    fork.resize(fork.size() + kLength, 0);
    const std::uint32_t mapOffset = std::uint32_t(fork.size());
    KXData map(22, 0);
    put(map, 0, 2, KXByteOrder::big);    // attributes
    put(map, 28, 2, KXByteOrder::big);   // type list
    put(map, 28 + 2 + 8 + 12 * kReferences, 2, KXByteOrder::big);  // name list
    put(map, 0, 2, KXByteOrder::big);    // one type
    map.insert(map.end(), {'d', 'a', 't', 'a'});
    put(map, kReferences - 1, 2, KXByteOrder::big);
    put(map, 2 + 8, 2, KXByteOrder::big);
    for (std::uint32_t r = 0; r < kReferences; ++r) {
        put(map, r, 2, KXByteOrder::big);
        put(map, 0xFFFF, 2, KXByteOrder::big);
        put(map, 0, 4, KXByteOrder::big);  // attributes 0, data offset 0
        put(map, 0, 4, KXByteOrder::big);
    }
    fork.insert(fork.end(), map.begin(), map.end());
    std::size_t at = 0;
    for (std::uint32_t field : {256u, mapOffset, kLength + 4, std::uint32_t(map.size())}) {
        KXData word;
        put(word, field, 4, KXByteOrder::big);
        std::copy(word.begin(), word.end(), fork.begin() + std::ptrdiff_t(at));
        at += 4;
    }
    EXPECT_FALSE(KXResourceFile::resourcesFromForkData(fork));
    // A handful of references to it is fine.
    KXData few = fork;
    few[mapOffset + 28 + 2 + 4] = 0;
    few[mapOffset + 28 + 2 + 5] = 0;  // one reference
    EXPECT_TRUE(KXResourceFile::resourcesFromForkData(few));
}

TEST(KXAudioFileHostile, LargeSizesOfRF64FilesAreHeldToTheFile) {
    KXTemporaryFolder folder;
    // An RF64 file: 'ds64' (container size, data size, sample count, table count, no table), then
    // 'fmt ' and a 'data' chunk whose 32-bit size defers to 'ds64'.
    const auto rf64 = [&](std::uint64_t container, std::uint64_t data, std::uint32_t tableCount) {
        KXPayload ds64 = KXPayload::little();
        ds64.u64(container).u64(data).u64(0).u32(tableCount);
        KXData bytes = KXTestFile::riff().chunk("ds64", ds64.bytes).chunk("fmt ", fmt(1, 44100)).chunk("data", KXData(20, 0)).finish().data();
        std::copy_n("RF64", 4, bytes.begin());
        kx::store32(bytes.data() + 4, 0xFFFFFFFFu, KXByteOrder::little);
        kx::store32(bytes.data() + bytes.size() - 24, 0xFFFFFFFFu, KXByteOrder::little);
        return folder.write("long.wav", bytes);
    };
    const std::uint64_t whole = 12 + 36 + 24 + 28 - 8;
    KXError error;
    // A table that claims four billion entries reads the entries the chunk holds: none.
    auto file = KXAudioFile::audioFileWithPath(rf64(whole, 20, 0xFFFFFFFFu), &error);
    ASSERT_TRUE(file) << error.description();
    EXPECT_EQ(file->frames(), 10u);
    EXPECT_FALSE(file->unusedChunkList());  // 'ds64' served the walk
    // A container past the file's end, and samples past the container's, are refused.
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(rf64(std::uint64_t(1) << 40, 20, 0), &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorIncorrectFileSize);
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(rf64(whole, std::uint64_t(1) << 40, 0), &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorChunkVerificationFailed);
    // A container size below the file's: the walk keeps to it, with the warning.
    file = KXAudioFile::audioFileWithPath(rf64(whole - 10, 10, 0), &error);
    ASSERT_TRUE(file);
    EXPECT_EQ(error.code(), KXAudioFileErrorFileSizeAdjusted);
    EXPECT_EQ(file->frames(), 5u);
}

TEST(KXAudioFileHostile, EditorDocumentHeadersThatDescribeNothingOrPointAnywhere) {
    KXTemporaryFolder folder;
    const KXArray mono{KXDictionary{{"Name", "Mono"}}};
    const auto open = [&](const KXDictionary& header, KXError* error = nullptr) {
        folder.write("Doc.info", KXPropertyList::xmlData(header));
        return KXAudioFile::audioFileWithPath(folder.pathFor("Doc.info"), error);
    };
    for (const KXValue& rate : {KXValue(-5), KXValue(0), KXValue(1e12), KXValue("fast")}) {
        KXError error;
        EXPECT_FALSE(open({{"Channels", mono}, {"Rate", rate}}, &error));
        EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
    }
    KXError error;
    EXPECT_FALSE(open({{"Channels", "Mono"}, {"Rate", 44100}}, &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorMissingRequiredData);

    // Blocks far out, and sources that are no plain files (a folder, a device, a FIFO that no one
    // writes): the document opens, its length is bounded by the model's, and what cannot be read
    // plays silence without waiting.
    ASSERT_EQ(::mkfifo(folder.pathFor("fifo").c_str(), 0600), 0);
    KXArray blocks;
    std::uint32_t at = 0;
    for (const std::string& source : {folder.path(), std::string("/dev/zero"), folder.pathFor("fifo")}) {
        auto block = KXEditBlock::editBlock();
        block->setSourcePath(source);
        block->setSourceType(KXEditList::kSourceRemote);
        block->setSourceTotalChannels(1);
        block->setSourceEnd(1000);
        block->setSampleRange({at, 1000});
        at += 1000;
        blocks.emplace_back(block->state());
    }
    auto far = KXEditBlock::editBlock();
    far->setSampleRange({4294967000u, 1000});
    blocks.emplace_back(far->state());
    auto file = open({{"Channels", mono}, {"Rate", 44100}, {"Edit List", KXArray{blocks}}});
    ASSERT_TRUE(file);
    EXPECT_EQ(file->frames(), 4294967295u);
    std::vector<float> samples(3000, 1.0f);
    std::int32_t size = 3000;
    file->readSamplesToBuffer(samples.data(), 0, size, 0);
    EXPECT_EQ(size, 3000);
    EXPECT_EQ(samples, std::vector<float>(3000, 0.0f));
    EXPECT_EQ(file->readSample(4294967294, 0), 0.0f);
}

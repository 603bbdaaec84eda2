#include <gtest/gtest.h>

#include <cstring>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "support/KXTestSupport.h"

namespace {

KXPayload be() { return KXPayload::big(); }

KXPayload& f64(KXPayload& p, double v) {
    std::uint64_t u;
    std::memcpy(&u, &v, 8);
    return p.u64(u);
}

KXData desc(double rate, const char* format, std::uint32_t flags, std::uint32_t channels, std::uint32_t bits) {
    KXPayload p = be();
    f64(p, rate).raw(bytesOf(std::string(format, 4))).u32(flags).u32(bits / 8 * channels).u32(1).u32(channels).u32(bits);
    return p.bytes;
}

// 'data' with its edit count and `bytes` bytes of samples.
KXData data(std::size_t bytes) {
    KXData payload(4 + bytes, 0);
    for (std::size_t i = 0; i < bytes; ++i) payload[4 + i] = std::uint8_t(i);
    return payload;
}

// A marker record: type, frame position, string ID, SMPTE time, channel.
KXPayload& marker(KXPayload& p, const char* type, double frames, std::uint32_t id) {
    if (type) p.raw(bytesOf(std::string(type, 4)));
    else p.u32(0);
    return f64(p, frames).u32(id).u64(0).u32(0);
}

// A string table of the names, IDs 1, 2 ….
KXData strings(const std::vector<std::string>& names) {
    KXPayload p = be();
    p.u32(std::uint32_t(names.size()));
    std::uint64_t offset = 0;
    for (std::size_t i = 0; i < names.size(); ++i, offset += names[i - 1].size() + 1) p.u32(std::uint32_t(i + 1)).u64(offset);
    for (const std::string& name : names) p.raw(bytesOf(name)).u8(0);
    return p.bytes;
}

std::shared_ptr<KXAudioFile> open(const KXTemporaryFolder& folder, const KXData& bytes, KXError* error = nullptr) {
    return KXAudioFile::audioFileWithPath(folder.write("take.caf", bytes), error);
}

}  // namespace

TEST(KXAudioFileParseCAF, TheDescriptionSaysWhatTheSamplesAre) {
    KXTemporaryFolder folder;
    auto file = open(folder, KXTestFile::caf().chunk("desc", desc(48000, "lpcm", 1, 2, 32)).chunk("data", data(80)).data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("caff"));
    EXPECT_TRUE(file->isFloatingPoint());
    EXPECT_EQ(file->audioDataByteOrder(), KXByteOrderBigValue);
    EXPECT_EQ(file->rate(), 48000u);
    EXPECT_EQ(file->frames(), 10u);
    EXPECT_EQ(file->editList()->blockAtIndex(0, 0)->sourceOffset(), 8u + 12 + 32 + 12 + 4);
    file = open(folder, KXTestFile::caf().chunk("desc", desc(44100, "lpcm", 3, 1, 64)).chunk("data", data(80)).data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->audioDataByteOrder(), KXByteOrderLittleValue);
    EXPECT_EQ(file->depth(), 64u);
    // G.711 samples are one byte each, whatever the bits per channel and the flags say.
    for (const std::uint32_t law : {KXFourCC("ulaw"), KXFourCC("alaw")}) {
        file = open(folder, KXTestFile::caf().chunk("desc", desc(8000, law == KXFourCC("ulaw") ? "ulaw" : "alaw", 1, 2, 16))
                                .chunk("data", data(80))
                                .data());
        ASSERT_TRUE(file) << law;
        EXPECT_EQ(file->encoding(), law);
        EXPECT_EQ(file->depth(), 8u);
        EXPECT_FALSE(file->isFloatingPoint());
        EXPECT_EQ(file->frames(), 40u);
    }
}

TEST(KXAudioFileParseCAF, CompressedSamplesAndValuesThatDescribeNoSamplesAreRefused) {
    KXTemporaryFolder folder;
    const struct {
        KXData desc;
        std::int64_t code;
    } cases[] = {
        {desc(44100, "aac ", 0, 2, 16), KXAudioFileErrorUnsupportedFormat},
        {desc(44100, "ima4", 0, 2, 16), KXAudioFileErrorUnsupportedFormat},
        {desc(44100, "lpcm", 0, 0, 16), KXAudioFileErrorUnsupportedFormat},
        {desc(44100, "lpcm", 0, 2, 12), KXAudioFileErrorUnsupportedFormat},
        {desc(44100, "lpcm", 0, 2, 4), KXAudioFileErrorUnsupportedFormat},
        {desc(0, "lpcm", 0, 2, 16), KXAudioFileErrorUnsupportedFormat},
        {desc(44100, "lpcm", 0, 100000, 16), KXAudioFileErrorUnsupportedFormat},
    };
    for (const auto& c : cases) {
        KXError error;
        EXPECT_FALSE(open(folder, KXTestFile::caf().chunk("desc", c.desc).chunk("data", data(8)).data(), &error));
        EXPECT_EQ(error, KXAudioFileError::errorWithCode(c.code, "Parsing the CoreAudio file"));
    }
    KXError error;
    EXPECT_FALSE(open(folder, KXTestFile::caf().chunk("desc", desc(44100, "lpcm", 0, 2, 16)).data(), &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorMissingRequiredData);
    EXPECT_FALSE(open(folder, KXTestFile::caf().chunk("data", data(8)).data(), &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorMissingRequiredData);
}

TEST(KXAudioFileParseCAF, ADataSizeOfAllOnesRunsToTheEndOfTheFile) {
    KXTemporaryFolder folder;
    KXData bytes = KXTestFile::caf().chunk("desc", desc(44100, "lpcm", 0, 1, 16)).chunk("data", data(20)).data();
    kx::store64(bytes.data() + bytes.size() - 24 - 8, ~std::uint64_t(0), KXByteOrder::big);
    bytes.insert(bytes.end(), 6, 0);  // three frames more than any size said
    auto file = open(folder, bytes);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->frames(), 13u);
}

TEST(KXAudioFileParseCAF, InstrumentValuesComeFromTheBaseNoteWithItsFraction) {
    KXTemporaryFolder folder;
    for (const auto& [note, midi, detune] : {std::tuple{60.25f, 60, 25}, std::tuple{60.75f, 61, -25}}) {
        KXPayload inst = be();
        inst.f32(note).u8(10).u8(100).u8(5).u8(120).f32(-3.7f).u32(0).u32(0).u32(0).u32(0);
        auto file = open(folder, KXTestFile::caf()
                                     .chunk("desc", desc(44100, "lpcm", 0, 1, 16))
                                     .chunk("inst", inst.bytes)
                                     .chunk("data", data(20))
                                     .data());
        ASSERT_TRUE(file);
        EXPECT_EQ(file->MIDIBaseNote(), midi);
        EXPECT_EQ(file->detune(), detune);
        EXPECT_EQ(file->MIDILowNote(), 10);
        EXPECT_EQ(file->MIDIHighVelocity(), 120);
        EXPECT_EQ(file->gain(), -3);
    }
}

TEST(KXAudioFileParseCAF, MarkersRegionsAndLoopsTakeTheirNamesFromTheStrings) {
    KXTemporaryFolder folder;
    KXPayload mark = be();
    mark.u32(0).u32(2);
    marker(mark, nullptr, 4410, 1);
    marker(mark, "rbeg", 100, 2);  // only generic markers are markers
    KXPayload regn = be();
    regn.u32(0).u32(3);
    for (const auto& [type, flags, start, end, id] :
         {std::tuple{"rbeg", 0u, 0.0, 44100.0, 2u}, std::tuple{"slbg", 7u, 100.0, 200.0, 0u}, std::tuple{"rlbg", 9u, 300.0, 400.0, 0u}}) {
        regn.u32(1).u32(flags).u32(2);
        marker(regn, type, start, id);
        marker(regn, "rend", end, id);
    }
    auto file = open(folder, KXTestFile::caf()
                                 .chunk("desc", desc(44100, "lpcm", 0, 1, 16))
                                 .chunk("strg", strings({"Cue", "Caf\xC3\xA9 verse"}))
                                 .chunk("mark", mark.bytes)
                                 .chunk("regn", regn.bytes)
                                 .chunk("data", data(100000))
                                 .data());
    ASSERT_TRUE(file);
    ASSERT_EQ(file->markerList()->count(), 1u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Cue");
    EXPECT_DOUBLE_EQ(file->markerList()->labelAtIndex(0)->position(), 0.1);
    ASSERT_EQ(file->regionList()->count(), 1u);
    EXPECT_EQ(file->regionList()->labelAtIndex(0)->name(), "Caf\xC3\xA9 verse");
    ASSERT_EQ(file->loopList()->count(), 2u);
    const auto sustain = std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(0));
    EXPECT_EQ(sustain->loopType(), 1u);
    EXPECT_DOUBLE_EQ(sustain->end(), 200.0 / 44100);
    EXPECT_EQ(std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(1))->loopType(), KXLoop::kNone);
    EXPECT_FALSE(file->unusedChunkList());  // 'strg' went with the labels
}

TEST(KXAudioFileParseCAF, InfoEntriesAreReadAndKept) {
    KXTemporaryFolder folder;
    KXPayload info = be();
    info.u32(2).raw(bytesOf(std::string("title\0Take 5\0mood\0calm\0", 23)));
    auto file = open(folder, KXTestFile::caf()
                                 .chunk("desc", desc(44100, "lpcm", 0, 1, 16))
                                 .chunk("info", info.bytes)
                                 .chunk("data", data(20))
                                 .data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Take 5");
    EXPECT_EQ(file->metadata().objectForKey("mood").string(), "calm");
    ASSERT_TRUE(file->unusedChunkList());
    EXPECT_EQ(file->unusedChunkList()->front()->type(), KXFourCC("info"));
}

TEST(KXAudioFileParseCAF, AChannelBitmapGivesTheChannelsTheirSpeakers) {
    KXTemporaryFolder folder;
    auto file = open(folder, KXTestFile::caf()
                                 .chunk("desc", desc(48000, "lpcm", 0, 6, 16))
                                 .chunk("chan", be().u32(0x10000).u32(0x60F).u32(0).bytes)
                                 .chunk("data", data(120))
                                 .data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->channelsList()->speakerMask(), 0x60Fu);
    EXPECT_FALSE(file->unusedChunkList());
}

TEST(KXAudioFileParseCAF, ALayoutTagGivesTheChannelsTheirSpeakersInItsOrder) {
    KXTemporaryFolder folder;
    const auto namesOf = [](const KXAudioFile& file) {
        std::vector<std::string> names;
        for (std::uint32_t c = 0; c < file.numberOfChannels(); ++c) names.push_back(file.channelsList()->channel(c)->name());
        return names;
    };
    const struct {
        std::uint32_t tag, channels, mask;
        std::vector<std::string> names;
    } cases[] = {
        // ITU_2_2, L R Ls Rs: the WAVE quad layout, not this format's L C R S.
        {132u << 16 | 4, 4, 0x33, {"Left", "Right", "Left Surround", "Right Surround"}},
        // MPEG_5_1_A, the WAVE 5.1 order.
        {121u << 16 | 6, 6, 0x3F, {"Left", "Right", "Center", "LFE", "Left Surround", "Right Surround"}},
        // MPEG_5_1_C, L C R Ls Rs LFE: an order no mask has.
        {123u << 16 | 6, 6, 0, {"Left", "Center", "Right", "Left Surround Back", "Right Surround Back", "LFE"}},
        // DVD_4, L R LFE.
        {133u << 16 | 3, 3, 0xB, {"Left", "Right", "LFE"}},
        // MPEG_7_1_C: with rear surrounds, the surrounds are the sides.
        {128u << 16 | 8, 8, 0,
         {"Left", "Right", "Center", "LFE", "Left Surround", "Right Surround", "Left Surround Back", "Right Surround Back"}},
        // A tag of another channel count, and one not read, name nothing.
        {121u << 16 | 6, 5, 0, {"Channel 1", "Channel 2", "Channel 3", "Channel 4", "Channel 5"}},
        {147u << 16 | 3, 3, 0, {"Channel 1", "Channel 2", "Channel 3"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.tag);
        auto file = open(folder, KXTestFile::caf()
                                     .chunk("desc", desc(48000, "lpcm", 0, c.channels, 16))
                                     .chunk("chan", be().u32(c.tag).u32(0).u32(0).bytes)
                                     .chunk("data", data(c.channels * 20))
                                     .data());
        ASSERT_TRUE(file);
        EXPECT_EQ(file->channelsList()->speakerMask(), c.mask);
        EXPECT_EQ(namesOf(*file), c.names);
    }
}

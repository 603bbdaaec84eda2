#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXResourceFile.h"
#include "KXBase/KXUserDefaults.h"
#include "support/KXTestSupport.h"

namespace {

// A two-channel list after a full pass over 700 frames of two different signals.
std::shared_ptr<KXChannelsList> analysedList(std::uint32_t channels = 2) {
    auto list = KXChannelsList::channelsListWithChannelCount(channels);
    list->loadDefaultNamesForFormat(KXFourCC("WAVE"));
    list->beginAnalysis(false);
    for (std::uint32_t at = 0; at < 700; at += 256) {
        const std::uint32_t frames = std::min(256u, 700 - at);
        KXNativeAudioBuffer buffer(channels, frames);
        buffer.setFrames(frames);
        buffer.setRange({at, frames});
        for (std::uint32_t c = 0; c < channels; ++c)
            for (std::uint32_t i = 0; i < frames; ++i) buffer.channel(c)[i] = float(std::sin((at + i) * 0.01 * (c + 1)));
        list->analyzeBuffer(buffer);
    }
    list->endAnalysis();
    return list;
}

std::shared_ptr<KXAudioFile> objectFor(const std::string& path, const char* format, std::int32_t order,
                                       std::shared_ptr<KXChannelsList> list, bool interleaved = true) {
    auto file = KXAudioFile::audioFile();
    file->setPath(path);
    file->setFormat(fourCC(format));
    file->setBlockSizeByteOrder(order);
    file->setIsInterleaved(interleaved);
    file->setNumberOfChannels(list->count());
    file->setChannelsList(std::move(list));
    return file;
}

// Opens the file again as a fresh object with unanalysed channels and reads its analysis.
std::shared_ptr<KXAudioFile> reread(const std::string& path, const char* format, std::int32_t order,
                                    std::uint32_t channels = 2, bool interleaved = true) {
    auto file = objectFor(path, format, order, KXChannelsList::channelsListWithChannelCount(channels), interleaved);
    auto list = KXChunkList::chunkListForAudioFile(*file);
    EXPECT_TRUE(list);
    if (list) file->parseAnalysis(*list);
    return file;
}

void expectSameAnalysis(const KXChannelsList& a, const KXChannelsList& b) {
    ASSERT_EQ(a.count(), b.count());
    for (std::uint32_t c = 0; c < a.count(); ++c) EXPECT_EQ(a.channel(c)->state(), b.channel(c)->state()) << c;
    EXPECT_EQ(a.difference(), b.difference());
}

class AnalysisFixture : public ::testing::Test {
protected:
    void SetUp() override {
        auto& defaults = KXUserDefaults::standardUserDefaults();
        defaults.setStoragePath(folder.pathFor("defaults.plist"));
        defaults.setVolatileObject(folder.pathFor("Cache"), KXWaveformCache::kLocationKey);
        KXWaveformCache::sharedInstance().loadWaveformCache();
    }
    void TearDown() override {
        auto& defaults = KXUserDefaults::standardUserDefaults();
        for (const char* key : {KXWaveformCache::kLocationKey, KXWaveformCache::kEnabledKey, KXWaveformCache::kExclusiveKey})
            defaults.removeVolatileObjectForKey(key);
    }
    static void setDefault(const char* key, bool value) {
        KXUserDefaults::standardUserDefaults().setVolatileObject(value, key);
    }
    KXTemporaryFolder folder;
};

KXTestFile wave() { return KXTestFile::riff().chunk("fmt ", KXData(16, 0)).chunk("data", KXData(10, 0)).finish(); }
KXTestFile aiff() { return KXTestFile::aiff().chunk("COMM", KXData(18, 0)).chunk("SSND", KXData(9, 0)).finish(); }

}  // namespace

TEST_F(AnalysisFixture, KXAnChunkRoundTripsThroughRealFiles) {
    struct Case {
        const char* format;
        std::int32_t order;
        KXData bytes;
    } cases[] = {{"WAVE", 1, wave().data()}, {"AIFF", 2, aiff().data()}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        const std::string path = folder.write("take", c.bytes);
        auto list = analysedList();
        auto file = objectFor(path, c.format, c.order, list);
        EXPECT_EQ(file->writeAnalysisHeader(), KXAudioFile::KXAnalysisPlace::file);
        const KXData written = readWholeFile(path);
        const KXByteOrder order = c.order == 1 ? KXByteOrder::little : KXByteOrder::big;
        EXPECT_EQ(kx::load32(written.data() + 4, order), written.size() - 8);  // outer size brought up to date
        expectSameAnalysis(*reread(path, c.format, c.order)->channelsList(), *list);

        // Writing again turns the earlier chunk into 'JUNK'; readers find the new one.
        list->channel(0)->setMax(0.125f);
        EXPECT_EQ(file->writeAnalysisHeader(), KXAudioFile::KXAnalysisPlace::file);
        auto again = reread(path, c.format, c.order);
        EXPECT_EQ(again->channelsList()->channel(0)->max(), 0.125f);
        auto chunks = KXChunkList::chunkListForAudioFile(*again);
        EXPECT_EQ(std::count_if(chunks->chunks()[0].begin(), chunks->chunks()[0].end(),
                                [](const auto& chunk) { return chunk->type() == KXFourCC("KXAn"); }),
                  1);
    }
}

TEST_F(AnalysisFixture, CafUuidAndSoundDesignerResource) {
    const std::string caf = folder.write("take.caf", KXTestFile::caf().chunk("desc", KXData(32, 0)).data());
    auto list = analysedList(1);
    EXPECT_EQ(objectFor(caf, "caff", 2, list)->writeAnalysisHeader(), KXAudioFile::KXAnalysisPlace::file);
    auto cafFile = objectFor(caf, "caff", 2, KXChannelsList::channelsListWithChannelCount(1));
    auto chunks = KXChunkList::chunkListForAudioFile(*cafFile);
    ASSERT_TRUE(chunks);
    auto uuid = chunks->chunkWithUUID(KXUUID::cafAnalysisUUID());
    ASSERT_TRUE(uuid);
    cafFile->parseKXAnChunk(*uuid);
    expectSameAnalysis(*cafFile->channelsList(), *list);

    // A Sound Designer file without a resource fork gets one.
    const std::string sd2 = folder.write("take.sd2", KXData(64, 0));
    EXPECT_EQ(objectFor(sd2, "SDII", 2, list)->writeAnalysisHeader(), KXAudioFile::KXAnalysisPlace::resourceFork);
    auto resource = KXResourceFile::resourceFileWithPath(sd2)->resourceForType(KXFourCC("KXAn"), 1000);
    ASSERT_TRUE(resource);
    EXPECT_EQ(readWholeFile(sd2), KXData(64, 0));  // the samples are not touched
}

TEST_F(AnalysisFixture, TheCacheTakesWhatAFileCannotHold) {
    const std::string w64 = folder.write("take.w64", KXTestFile::wave64().chunk("fmt ", KXData(16, 0)).finish().data());
    auto list = analysedList();
    // Disabled: nowhere to go, and nothing to read back.
    EXPECT_EQ(objectFor(w64, "WV64", 1, list)->writeAnalysisHeader(), KXAudioFile::KXAnalysisPlace::cache);
    EXPECT_EQ(reread(w64, "WV64", 1)->channelsList()->analysisState(), 0);

    setDefault(KXWaveformCache::kEnabledKey, true);
    EXPECT_EQ(objectFor(w64, "WV64", 1, list)->writeAnalysisHeader(), KXAudioFile::KXAnalysisPlace::cache);
    expectSameAnalysis(*reread(w64, "WV64", 1)->channelsList(), *list);

    // "Exclusive" keeps the analysis out of files that could hold it.
    setDefault(KXWaveformCache::kExclusiveKey, true);
    const KXData original = wave().data();
    const std::string wav = folder.write("take.wav", original);
    EXPECT_EQ(objectFor(wav, "WAVE", 1, list)->writeAnalysisHeader(), KXAudioFile::KXAnalysisPlace::cache);
    EXPECT_EQ(readWholeFile(wav), original);
    expectSameAnalysis(*reread(wav, "WAVE", 1)->channelsList(), *list);
}

TEST_F(AnalysisFixture, SplitFilesGetOneChunkPerChannelFile) {
    folder.write("t.L.wav", wave().data());
    folder.write("t.R.wav", wave().data());
    auto list = analysedList();
    EXPECT_EQ(objectFor(folder.pathFor("t.L.wav"), "WAVE", 1, list, false)->writeAnalysisHeader(),
              KXAudioFile::KXAnalysisPlace::file);
    expectSameAnalysis(*reread(folder.pathFor("t.R.wav"), "WAVE", 1, 2, false)->channelsList(), *list);
}

namespace {
// An 'anal' body: max, difference, clipped count, then big-endian entries.
KXData analBody(float max, float difference, std::int32_t clipped, std::initializer_list<float> entries) {
    KXData body(12);
    kx::store32(body.data(), std::bit_cast<std::uint32_t>(max), KXByteOrder::big);
    kx::store32(body.data() + 4, std::bit_cast<std::uint32_t>(difference), KXByteOrder::big);
    kx::store32(body.data() + 8, std::uint32_t(clipped), KXByteOrder::big);
    for (float entry : entries) {
        body.resize(body.size() + 4);
        kx::store32(body.data() + body.size() - 4, std::bit_cast<std::uint32_t>(entry), KXByteOrder::big);
    }
    return body;
}
}  // namespace

TEST_F(AnalysisFixture, AnalChunksInterleavedAndSplit) {
    // Two channels, entries alternating: left 0.5, 0.25; right 0.75, 1.0. Clipped 7 → 3 each.
    const std::string aif = folder.write(
        "a.aif", KXTestFile::aiff().chunk("anal", analBody(0.9f, 12.5f, 7, {0.5f, 0.75f, 0.25f, 1.0f})).finish().data());
    auto file = reread(aif, "AIFF", 2);
    const auto& list = *file->channelsList();
    EXPECT_EQ(list.channel(0)->clipped(), 3);
    EXPECT_EQ(list.channel(1)->max(), 0.9f);
    EXPECT_EQ(list.difference(), 12.5f);
    const auto right = list.channel(1)->waveformForType(KXWaveform::kMax)->entries();
    ASSERT_EQ(right.size(), 2u);
    EXPECT_EQ(right[0], 0.75f);
    EXPECT_EQ(right[1], 1.0f);

    // Split: the second file lacks its chunk, so the channels end with no analysis.
    folder.write("s.L.aif", KXTestFile::aiff().chunk("anal", analBody(0.5f, 0, 2, {0.5f})).finish().data());
    folder.write("s.R.aif", aiff().data());
    EXPECT_EQ(reread(folder.pathFor("s.L.aif"), "AIFF", 2, 2, false)->channelsList()->analysisState(), 0);
    folder.write("s.R.aif", KXTestFile::aiff().chunk("anal", analBody(0.25f, 0, 5, {0.25f})).finish().data());
    auto split = reread(folder.pathFor("s.L.aif"), "AIFF", 2, 2, false);
    EXPECT_EQ(split->channelsList()->channel(1)->clipped(), 5);  // not divided
    EXPECT_EQ(split->channelsList()->channel(1)->waveformForType(KXWaveform::kMax)->entries()[0], 0.25f);
}

TEST_F(AnalysisFixture, KXAnWithoutTheByteOrderKeyHasBigEndianTables) {
    KXData bigEndianTable(4);
    kx::store32(bigEndianTable.data(), std::bit_cast<std::uint32_t>(0.5f), KXByteOrder::big);
    const KXValue contents(KXDictionary{
        {"Channels", KXArray{KXDictionary{{"Max", 0.5f}, {"Clipped", 0}, {"Magnitude Maxima", bigEndianTable}}}},
        {"Difference", -2.0f}});
    auto chunk = KXChunk::chunk();
    chunk->setType(KXFourCC("KXAn"));
    chunk->mutableData() = KXPropertyList::xmlData(contents);  // the XML form is read too
    auto file = objectFor(folder.pathFor("x"), "WAVE", 1, KXChannelsList::channelsListWithChannelCount(1));
    file->parseKXAnChunk(*chunk);
    EXPECT_EQ(file->channelsList()->channel(0)->waveformForType(KXWaveform::kMax)->entries()[0], 0.5f);
    EXPECT_EQ(file->channelsList()->analysisState(), 1);
    // Contents that do not unarchive give no channel states.
    chunk->mutableData() = bytesOf("not a property list");
    auto other = objectFor(folder.pathFor("y"), "WAVE", 1, KXChannelsList::channelsListWithChannelCount(1));
    other->parseKXAnChunk(*chunk);
    EXPECT_EQ(other->channelsList()->analysisState(), 0);
}

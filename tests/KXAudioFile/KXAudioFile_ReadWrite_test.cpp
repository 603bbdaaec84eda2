#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"
#include "support/KXTestSupport.h"

namespace {

using KXTestSamples::sample;

// A headerless 16-bit little-endian file set up as a parser sets up a plain file.
std::shared_ptr<KXAudioFile> sixteenBitFile(const std::string& path, std::uint32_t channels, std::uint32_t frames,
                                            std::uint32_t offset) {
    auto file = KXAudioFile::audioFile();
    file->setPath(path);
    file->setNumberOfChannels(channels);
    file->setFrames(frames);
    file->setDepth(16);
    file->setRate(44100);
    file->setIsInterleaved(true);
    file->setEncoding(KXFourCC("lpcm"));
    file->setAudioDataByteOrder(1);
    file->setUpAudioConverter();
    file->setEditList(KXEditList::editListWithAudioFile(*file, offset));
    return file;
}

struct KXAudioFileReading : ::testing::Test {
    KXTemporaryFolder folder;
    std::shared_ptr<KXAudioFile> stereo = sixteenBitFile(KXTestSamples::writeFile(folder, "long.raw", 2, 100000, 12), 2, 100000, 12);
    std::shared_ptr<KXAudioFile> mono = sixteenBitFile(KXTestSamples::writeFile(folder, "short.raw", 1, 1000), 1, 1000, 0);
};

}  // namespace

TEST_F(KXAudioFileReading, SingleSamplesAndWhereTheBufferLands) {
    EXPECT_EQ(stereo->readSample(100000, 0), 0.0f);
    EXPECT_EQ(stereo->readSample(-1, 0), 0.0f);
    EXPECT_EQ(stereo->readSample(5, 2), 0.0f);
    EXPECT_EQ(stereo->readBuffer(), nullptr);  // nothing was loaded
    EXPECT_EQ(stereo->readSample(40000, 1), sample(40000, 1));
    EXPECT_EQ(stereo->readBuffer()->range(), (KXSampleRange{40000, 30720}));
    // At the end of a long file the buffer ends at the file's end.
    EXPECT_EQ(stereo->readSample(99990, 0), sample(99990, 0));
    EXPECT_EQ(stereo->readBuffer()->range(), (KXSampleRange{100000 - 30720, 30720}));
    // Stepping backwards loads buffers that end at the stepped frame.
    EXPECT_EQ(stereo->readSample(69279, 0), sample(69279, 0));
    EXPECT_EQ(stereo->readBuffer()->range(), (KXSampleRange{69279 - 30719, 30720}));
    // A file shorter than the buffer loads from the requested frame.
    EXPECT_EQ(mono->readSample(300, 0), sample(300, 0));
    EXPECT_EQ(mono->readBuffer()->range(), (KXSampleRange{300, 30720}));
    // Reversed loads never start before frame 0.
    KXNativeAudioBuffer any(2, 30720);
    EXPECT_EQ(stereo->loadBuffer(any, 10, true), (KXSampleRange{0, 30720}));
    EXPECT_EQ(any.channel(1)[10], sample(10, 1));
}

TEST_F(KXAudioFileReading, BlockReadsClampAndRedirect) {
    std::vector<float> out(200, 9.0f);
    std::int32_t size = 200;
    mono->readSamplesToBuffer(out.data(), 900, size, 0);
    EXPECT_EQ(size, 100);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(out[std::size_t(i)], sample(900 + std::uint32_t(i), 0));
    for (int i = 100; i < 200; ++i) ASSERT_EQ(out[std::size_t(i)], 0.0f);

    std::vector<float> big(122881, 9.0f);
    size = 122881;
    stereo->readSamplesToBuffer(big.data(), 0, size, 0);
    EXPECT_EQ(size, 0);
    for (float v : big) ASSERT_EQ(v, 0.0f);
    // 40,000 passes the size test and is cut to what the buffer holds from the start.
    size = 40000;
    stereo->readSamplesToBuffer(big.data(), 5000, size, 1);
    EXPECT_EQ(size, 30720);
    EXPECT_EQ(big[30719], sample(5000 + 30719, 1));
    EXPECT_EQ(big[30720], 0.0f);
    size = 10;
    stereo->readSamplesToBuffer(out.data(), -3, size, 0);
    EXPECT_EQ(size, 0);

    // Channel 1 of a mono file reads channel 0; channel 2 is not redirected.
    size = 10;
    mono->readSamplesToBuffer(out.data(), 0, size, 1);
    EXPECT_EQ(out[3], sample(3, 0));
    size = 10;
    mono->readSamplesToBuffer(out.data(), 0, size, 2);
    EXPECT_EQ(size, 10);
    EXPECT_EQ(out[3], 0.0f);
}

TEST_F(KXAudioFileReading, WholeChannelReadsGiveTheSameFramesWithOrWithoutTheReadBuffer) {
    auto three = sixteenBitFile(KXTestSamples::writeFile(folder, "three.raw", 3, 70000, 6), 3, 70000, 6);
    struct Read {
        std::int64_t start;
        std::uint32_t frames, expected;
    } reads[] = {{0, 30720, 30720}, {30720, 30720, 30720}, {100, 50000, 30720}, {69990, 30, 10},
                 {5, 1, 1},         {69999, 4, 1},         {70000, 8, 0},        {-1, 8, 0}};
    for (const bool loadedFirst : {false, true})
        for (const Read& read : reads) {
            SCOPED_TRACE(std::to_string(read.start) + " " + std::to_string(read.frames) + (loadedFirst ? " loaded" : ""));
            // Either straight into the caller's arrays, or (the buffer holding the frames) copied from it.
            if (loadedFirst && read.expected) (void)three->offsetInBufferForRange({std::uint32_t(read.start), read.expected});
            KXNativeAudioBuffer all(3, read.frames + 16);
            all.setFrames(read.frames);
            for (std::uint32_t c = 0; c < 3; ++c) std::fill_n(all.channel(c), read.frames + 16, 9.0f);
            ASSERT_EQ(three->readSamplesToBuffer(all, read.start), std::int32_t(read.expected));
            KXNativeAudioBuffer pair(2, read.frames);
            ASSERT_EQ(three->readSamplesToBuffer(pair, read.start, KXIndexSet{0, 2}), std::int32_t(read.expected));
            for (std::uint32_t i = 0; i < read.frames + 16; ++i)
                for (std::uint32_t c = 0; c < 3; ++c) {
                    // Past what was read: the first channel silent up to the frames asked for (the
                    // cut it makes applies to the later ones), everything else untouched.
                    const bool silenced = c == 0 && i < read.frames;
                    const float wanted = i < read.expected ? sample(std::uint32_t(read.start) + i, c) : silenced ? 0.0f : 9.0f;
                    ASSERT_EQ(all.channel(c)[i], wanted) << "frame " << i << " channel " << c;
                    if (i < read.expected && c != 1) ASSERT_EQ(pair.channel(c / 2)[i], wanted);
                }
        }
}

TEST_F(KXAudioFileReading, WholeBuffersChannelSetsAndRangePreparation) {
    KXNativeAudioBuffer two(2, 5000);
    EXPECT_EQ(stereo->readSamplesToBuffer(two, 97000), 3000);
    EXPECT_EQ(two.channel(1)[2999], sample(99999, 1));
    EXPECT_EQ(two.channel(1)[3000], 0.0f);
    KXNativeAudioBuffer three(3, 100);
    EXPECT_EQ(stereo->readSamplesToBuffer(three, 0, KXIndexSet{0, 1}), 0);
    KXNativeAudioBuffer one(1, 100);
    EXPECT_EQ(stereo->readSamplesToBuffer(one, 50, KXIndexSet{1}), 100);
    EXPECT_EQ(one.channel(0)[7], sample(57, 1));

    EXPECT_EQ(stereo->offsetInBufferForRange({99000, 1001}), 0u);
    EXPECT_EQ(stereo->offsetInBufferForRange({0, 30721}), 0u);
    const std::uint32_t offset = stereo->offsetInBufferForRange({80000, 100});
    EXPECT_EQ(stereo->readBuffer()->channel(0)[offset + 5], sample(80005, 0));
    // A range the buffer already holds does not reload it.
    const KXSampleRange held = stereo->readBuffer()->range();
    EXPECT_EQ(stereo->offsetInBufferForRange({80050, 10}), 80050 - held.location);
    EXPECT_EQ(stereo->readBuffer()->range(), held);

    stereo->resetBuffers();
    EXPECT_EQ(stereo->readBuffer()->range(), (KXSampleRange{0, 0}));
    EXPECT_EQ(stereo->readBuffer()->channel(0)[0], 0.0f);
}

TEST_F(KXAudioFileReading, ReadsFollowTheEditList) {
    // Reversing the only block of channel 0 plays the file backwards.
    stereo->editList()->blockAtIndex(0, 0)->setReverse(true);
    stereo->resetBuffers();
    EXPECT_EQ(stereo->readSample(0, 0), sample(99999, 0));
    EXPECT_EQ(stereo->readSample(0, 1), sample(0, 1));
}

TEST_F(KXAudioFileReading, AnOverviewIsMadeByAnalysingThroughTheReadPath) {
    stereo->setChannelsList(KXChannelsList::channelsListWithChannelCount(2));
    EXPECT_FALSE(stereo->waveformOfType(KXWaveform::kMax, 2));
    const std::optional<KXData> maxima = stereo->waveformOfType(KXWaveform::kMax, 1);
    ASSERT_TRUE(maxima);
    // One entry per 256 frames: the largest magnitude of that block.
    ASSERT_EQ(maxima->size(), std::size_t((100000 + 255) / 256) * sizeof(float));
    float expected = 0;
    for (std::uint32_t f = 256; f < 512; ++f) expected = std::max(expected, std::fabs(sample(f, 1)));
    float entry;
    std::memcpy(&entry, maxima->data() + sizeof(float), sizeof entry);
    EXPECT_EQ(entry, expected);
    EXPECT_EQ(stereo->channelsList()->analysisState(), 1);
    EXPECT_GT(stereo->max(), 0.9f);
}

TEST(KXAudioFileLongFiles, FramesPast2To31AreReadUpToTheModelsLimit) {
    KXTemporaryFolder folder;
    // 8-bit mono: one byte a frame, so a 4 GiB 'data' chunk holds nearly 2^32 frames.
    const std::uint64_t frames = 0xFFFFFFDAu;  // the most that leaves the RIFF size within 32 bits
    KXData header = KXTestFile::riff().chunk("fmt ", {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x40, 0x1F, 0, 0, 1, 0, 8, 0}).data();
    header.insert(header.end(), {'d', 'a', 't', 'a'});
    header.resize(header.size() + 4);
    kx::store32(header.data() + header.size() - 4, std::uint32_t(frames), KXByteOrder::little);
    kx::store32(header.data() + 4, std::uint32_t(header.size() - 8 + frames), KXByteOrder::little);
    const std::string path = folder.writeSparse("long.wav", header, frames, {{3000000000u, 0xC0}, {frames - 1, 0x40}});
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    ASSERT_TRUE(file) << error.description();
    EXPECT_EQ(file->frames(), frames);
    EXPECT_EQ(file->readSample(3000000000ll, 0), 0.5f);  // 0xC0 unsigned is +64 of 128
    EXPECT_EQ(file->readSample(std::int64_t(frames - 1), 0), -0.5f);
    EXPECT_EQ(file->readSample(std::int64_t(frames), 0), 0.0f);
    KXNativeAudioBuffer buffer(1, 4);
    ASSERT_EQ(file->readSamplesToBuffer(buffer, 2999999999ll), 4);
    EXPECT_EQ(buffer.channel(0)[1], 0.5f);
    EXPECT_EQ(file->readSamplesToBuffer(buffer, std::int64_t(frames) - 2), 2);
}

TEST(KXAudioFileLongFiles, MoreFramesThanTheModelCountsAreRefused) {
    KXTemporaryFolder folder;
    const std::uint64_t frames = 0x100000010ull;
    KXData header = KXTestFile::wave64().chunk("fmt ", {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x40, 0x1F, 0, 0, 1, 0, 8, 0}).data();
    const KXData dataHeader = KXTestFile::wave64().chunk("data", {}).data();
    header.insert(header.end(), dataHeader.begin() + 40, dataHeader.end());
    kx::store64(header.data() + header.size() - 8, frames + 24, KXByteOrder::little);
    kx::store64(header.data() + 16, header.size() + frames, KXByteOrder::little);
    const std::string path = folder.writeSparse("long.w64", header, frames, {});
    KXError error;
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(path, &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
    EXPECT_NE(error.reason().find("4294967295 frames"), std::string::npos) << error.description();
}

// Recordings cut short: what opening refuses, what recovery keeps, and a last chunk that lacks
// only its pad byte.

#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"
#include "support/KXTestSupport.h"

namespace {

// Stereo 16-bit 8000 Hz.
const KXData kStereoFormat = {1, 0, 2, 0, 0x40, 0x1F, 0, 0, 0, 0x7D, 0, 0, 4, 0, 16, 0};
// Mono 8-bit 8000 Hz.
const KXData kMonoBytesFormat = {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x40, 0x1F, 0, 0, 1, 0, 8, 0};

KXData ramp(std::size_t bytes) {
    KXData data(bytes);
    for (std::size_t i = 0; i < bytes; ++i) data[i] = std::uint8_t(i * 7);
    return data;
}

KXData cut(KXData bytes, std::size_t length) {
    bytes.resize(length);
    return bytes;
}

std::int64_t openingCode(const std::string& path) {
    KXError error;
    return KXAudioFile::audioFileWithPath(path, &error) ? 0 : error.code();
}

}  // namespace

TEST(KXAudioFileRecover, ACutWAVEKeepsItsWholeFramesAndItsSamples) {
    KXTemporaryFolder folder;
    const KXData whole = KXTestFile::riff().chunk("fmt ", kStereoFormat).chunk("data", ramp(400)).finish().data();
    // 50 frames and a quarter of one.
    const std::string path = folder.write("cut.wav", cut(whole, 12 + 24 + 8 + 201));
    EXPECT_EQ(openingCode(path), KXAudioFileErrorIncorrectFileSize);
    KXError error;
    EXPECT_TRUE(KXAudioFile::recoverAtPath(path, &error)) << error.description();
    const KXData mended = readWholeFile(path);
    ASSERT_EQ(mended.size(), 12u + 24 + 8 + 200);
    EXPECT_EQ(kx::load32(mended.data() + 4, KXByteOrder::little), mended.size() - 8);
    EXPECT_EQ(kx::load32(mended.data() + 40, KXByteOrder::little), 200u);
    EXPECT_TRUE(std::equal(mended.begin() + 44, mended.end(), whole.begin() + 44));
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    ASSERT_TRUE(file) << error.description();
    EXPECT_EQ(file->frames(), 50u);
    // A second recovery has nothing to mend and leaves the file alone.
    EXPECT_FALSE(KXAudioFile::recoverAtPath(path, &error));
    EXPECT_EQ(error.code(), 0);
    EXPECT_EQ(readWholeFile(path), mended);
    EXPECT_EQ(KXFile::contentsOfDirectoryAtPath(folder.path()), std::vector<std::string>{"cut.wav"});
}

TEST(KXAudioFileRecover, SizesAWriterNeverPatchedAreTakenFromTheSamples) {
    KXTemporaryFolder folder;
    // An odd count of 8-bit samples: the mended 'data' chunk gets its pad byte.
    const std::string path = folder.write(
        "placeholder.wav", KXTestFile::riff().chunk("fmt ", kMonoBytesFormat).chunk("data", KXData()).bytes(ramp(301)).data());
    KXError error;
    EXPECT_TRUE(KXAudioFile::recoverAtPath(path, &error)) << error.description();
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    ASSERT_TRUE(file) << error.description();
    EXPECT_EQ(file->frames(), 301u);
    EXPECT_EQ(KXFile::lengthOfFileAtPath(path), 12u + 24 + 8 + 302);
}

TEST(KXAudioFileRecover, ACutAIFFGetsAFrameCountThatMatches) {
    KXTemporaryFolder folder;
    const KXData comm = {0, 1, 0, 0, 0, 100, 0, 16, 0x40, 0x0B, 0xFA, 0, 0, 0, 0, 0, 0, 0};  // mono, 100 frames, 16-bit, 8000 Hz
    KXData ssnd(8, 0);
    const KXData samples = ramp(200);
    ssnd.insert(ssnd.end(), samples.begin(), samples.end());
    const KXData whole = KXTestFile::aiff().chunk("COMM", comm).chunk("SSND", ssnd).finish().data();
    const std::string path = folder.write("cut.aif", cut(whole, whole.size() - 61));
    EXPECT_EQ(openingCode(path), KXAudioFileErrorIncorrectFileSize);
    KXError error;
    EXPECT_TRUE(KXAudioFile::recoverAtPath(path, &error)) << error.description();
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    ASSERT_TRUE(file) << error.description();
    EXPECT_EQ(file->frames(), 69u);  // 139 bytes of samples
    EXPECT_EQ(KXFile::lengthOfFileAtPath(path), 12u + 26 + 16 + 138);
}

TEST(KXAudioFileRecover, AChunkCutShortAfterTheSamplesIsDropped) {
    KXTemporaryFolder folder;
    const KXData whole =
        KXTestFile::riff().chunk("fmt ", kStereoFormat).chunk("data", ramp(40)).chunk("LIST", ramp(100)).finish().data();
    const std::string path = folder.write("tail.wav", cut(whole, whole.size() - 50));
    KXError error;
    EXPECT_TRUE(KXAudioFile::recoverAtPath(path, &error)) << error.description();
    EXPECT_EQ(KXFile::lengthOfFileAtPath(path), 12u + 24 + 48);
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    ASSERT_TRUE(file) << error.description();
    EXPECT_EQ(file->frames(), 10u);
}

TEST(KXAudioFileRecover, OtherFilesAreRefusedAndLeftAlone) {
    KXTemporaryFolder folder;
    const std::string text = folder.write("notes.txt", bytesOf("not a recording at all"));
    KXError error;
    EXPECT_FALSE(KXAudioFile::recoverAtPath(text, &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
    EXPECT_EQ(readWholeFile(text), bytesOf("not a recording at all"));
    const std::string noSamples = folder.write("empty.wav", KXTestFile::riff().chunk("fmt ", kStereoFormat).finish().data());
    EXPECT_FALSE(KXAudioFile::recoverAtPath(noSamples, &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorMissingRequiredData);
    EXPECT_FALSE(KXAudioFile::recoverAtPath(folder.pathFor("missing.wav"), &error));
    EXPECT_NE(error.code(), 0);
}

TEST(KXAudioFileMissingPadByte, AnOddLastChunkWithoutItsPadByteOpensWithAWarning) {
    KXTemporaryFolder folder;
    const KXData unpadded = KXTestFile::riff().chunk("fmt ", kMonoBytesFormat).chunk("data", ramp(7), false).finish().data();
    // The container size counts what is there, or the missing pad byte too.
    for (const std::uint32_t extra : {0u, 1u}) {
        KXData bytes = unpadded;
        kx::store32(bytes.data() + 4, std::uint32_t(bytes.size() - 8 + extra), KXByteOrder::little);
        KXError error;
        auto file = KXAudioFile::audioFileWithPath(folder.write("odd.wav", bytes), &error);
        ASSERT_TRUE(file) << extra << " " << error.description();
        EXPECT_EQ(error.code(), KXAudioFileErrorFileSizeAdjusted);
        EXPECT_EQ(file->frames(), 7u);
    }
    // The pad byte is there but the container size leaves it out.
    KXData padded = KXTestFile::riff().chunk("fmt ", kMonoBytesFormat).chunk("data", ramp(7)).data();
    kx::store32(padded.data() + 4, std::uint32_t(padded.size() - 9), KXByteOrder::little);
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(folder.write("outside.wav", padded), &error);
    ASSERT_TRUE(file) << error.description();
    EXPECT_EQ(file->frames(), 7u);
    // Two bytes past the file is more than a pad byte.
    KXData short2 = unpadded;
    kx::store32(short2.data() + 4, std::uint32_t(short2.size() - 6), KXByteOrder::little);
    EXPECT_EQ(openingCode(folder.write("short.wav", short2)), KXAudioFileErrorIncorrectFileSize);
}

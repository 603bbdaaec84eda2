#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "support/KXTestSupport.h"

TEST(KXAudioFileWriterAU, HeaderEncodingsAndTheDataOffset) {
    KXTemporaryFolder folder;
    struct Case {
        std::int32_t depth;
        bool floatingPoint;
        std::uint32_t encoding;
        std::uint32_t code;
    } cases[] = {{16, false, KXFourCC("lpcm"), 3}, {32, true, KXFourCC("lpcm"), 6}, {32, false, KXFourCC("lpcm"), 5},
                 {8, false, KXFourCC("ulaw"), 1},  {8, false, KXFourCC("alaw"), 27}, {24, false, KXFourCC("lpcm"), 4},
                 {64, true, KXFourCC("lpcm"), 7}};
    for (const Case& c : cases) {
        KXAudioFileWriter writer;
        writer.setFormat(KXFourCC("ULAW"));
        writer.setDepth(c.depth);
        writer.setIsFloatingPoint(c.floatingPoint);
        writer.setEncoding(c.encoding);
        writer.setChannels(2);
        writer.setRate(22050);
        writer.setTempDirectory(folder.path());
        ASSERT_TRUE(writer.beginWrite());
        for (int f = 0; f < 5; ++f) writer.writeSample(0.5f, 0), writer.writeSample(-0.5f, 1);
        ASSERT_TRUE(writer.endWrite());
        const KXData bytes = readWholeFile(writer.filePath());
        const std::uint32_t bytesPerSample = c.encoding == KXFourCC("lpcm") ? std::uint32_t(c.depth / 8) : 1;
        ASSERT_EQ(bytes.size(), 24u + 10 * bytesPerSample);
        EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), ".snd");
        EXPECT_EQ(kx::load32(bytes.data() + 4, KXByteOrder::big), 24u);  // where the samples begin
        EXPECT_EQ(kx::load32(bytes.data() + 8, KXByteOrder::big), 10 * bytesPerSample);
        EXPECT_EQ(kx::load32(bytes.data() + 12, KXByteOrder::big), c.code);
        EXPECT_EQ(kx::load32(bytes.data() + 16, KXByteOrder::big), 22050u);
        EXPECT_EQ(kx::load32(bytes.data() + 20, KXByteOrder::big), 2u);
        auto file = KXAudioFile::audioFileWithPath(writer.filePath());
        ASSERT_TRUE(file);
        EXPECT_EQ(file->frames(), 5u);
        EXPECT_NEAR(file->readSample(4, 1), -0.5f, c.encoding == KXFourCC("lpcm") ? 0.0f : 0.02f);  // G.711 quantises
    }
    // A depth no AU encoding holds is refused.
    KXAudioFileWriter odd;
    odd.setFormat(KXFourCC("ULAW"));
    odd.setEncoding(KXFourCC("lpcm"));
    odd.setDepth(20);
    odd.setTempDirectory(folder.path());
    KXError error;
    EXPECT_FALSE(odd.beginWrite(&error));
    EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, "Writing the AU header"));
}

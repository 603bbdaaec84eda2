#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "support/KXTestSupport.h"

namespace {

KXWalkedChunks walk(const KXData& bytes) { return walkChunks(bytes, KXByteOrder::big); }

const KXData* find(const KXWalkedChunks& walked, const std::string& type) { return walked.find(type); }

KXData write(KXAudioFileWriter& writer, const KXTemporaryFolder& folder, std::uint32_t frames) {
    writer.setTempDirectory(folder.path());
    writer.setWriteAnalysis(false);
    EXPECT_TRUE(writer.beginWrite());
    for (std::uint32_t f = 0; f < frames; ++f)
        for (std::int32_t c = 0; c < writer.channels(); ++c) writer.writeSample(0.25f, c);
    EXPECT_TRUE(writer.endWrite());
    return readWholeFile(writer.filePaths().front());
}

}  // namespace

TEST(KXAudioFileWriterAIFF, FormTypeCommonChunkAndCounts) {
    KXTemporaryFolder folder;
    KXAudioFileWriter plain;
    plain.setFormat(KXFourCC("AIFF"));
    plain.setDepth(16);
    plain.setChannels(2);
    const KXData bytes = write(plain, folder, 7);
    EXPECT_EQ(std::string(bytes.begin() + 8, bytes.begin() + 12), "AIFF");
    const auto chunks = walk(bytes);
    ASSERT_EQ(chunks.chunks.front().first, "COMM");
    EXPECT_EQ(chunks.chunks.front().second.size(), 18u);
    EXPECT_EQ(kx::load32(bytes.data() + 22, KXByteOrder::big), 7u);  // the frame count
    EXPECT_EQ(find(chunks, "SSND")->size(), 8u + 28);
    EXPECT_EQ(kx::load32(bytes.data() + 4, KXByteOrder::big), bytes.size() - 8);

    KXAudioFileWriter little;
    little.setFormat(KXFourCC("AIFF"));
    little.setDepth(16);
    little.setByteOrder(1);
    const KXData sowt = write(little, folder, 3);
    EXPECT_EQ(std::string(sowt.begin() + 8, sowt.begin() + 12), "AIFC");
    const auto sowtChunks = walk(sowt);
    const KXData& sowtCommon = *find(sowtChunks, "COMM");
    EXPECT_EQ(std::string(sowtCommon.begin() + 18, sowtCommon.begin() + 22), "sowt");
    KXAudioFileWriter floats;
    floats.setFormat(KXFourCC("AIFF"));
    floats.setIsFloatingPoint(true);
    const auto floatChunks = walk(write(floats, folder, 3));
    const KXData& floatCommon = *find(floatChunks, "COMM");
    EXPECT_EQ(std::string(floatCommon.begin() + 18, floatCommon.begin() + 22), "fl32");
}

TEST(KXAudioFileWriterAIFF, LoopsRegionsAndMarkersShareTheMarkerIDs) {
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("AIFF"));
    writer.setDepth(16);
    writer.setChannels(1);
    writer.loopList()->addLoopWithType(0, KXRange::rangeWithStart(0.1, 0.2));
    writer.loopList()->addLoopWithType(1, KXRange::rangeWithStart(0.3, 0.4));
    writer.regionList()->addRegionWithRange(KXRange::rangeWithStart(0.5, 0.6), std::string("Verse"));
    writer.markerList()->addMarkerWithPosition(0.7, std::string("Hit"));
    writer.addMetadataObject(120.0, "tempo");
    const auto chunks = walk(write(writer, folder, 44100));
    const KXData& mark = *find(chunks, "MARK");
    EXPECT_EQ(kx::load16(mark.data(), KXByteOrder::big), 7);
    EXPECT_EQ(kx::load16(mark.data() + 2, KXByteOrder::big), 1);
    EXPECT_EQ(kx::load32(mark.data() + 4, KXByteOrder::big), 4410u);
    const KXData& inst = *find(chunks, "INST");
    EXPECT_EQ(kx::load16(inst.data() + 8, KXByteOrder::big), 1);   // sustain: forward
    EXPECT_EQ(kx::load16(inst.data() + 10, KXByteOrder::big), 1);
    EXPECT_EQ(kx::load16(inst.data() + 12, KXByteOrder::big), 2);
    EXPECT_EQ(kx::load16(inst.data() + 14, KXByteOrder::big), 2);  // release: forward/backward
    EXPECT_EQ(kx::load16(inst.data() + 16, KXByteOrder::big), 3);
    EXPECT_EQ(kx::load16(inst.data() + 18, KXByteOrder::big), 4);
    const KXData& regions = *find(chunks, "APPL");
    EXPECT_EQ(std::string(regions.begin(), regions.begin() + 4), "auFM");
    EXPECT_TRUE(find(chunks, "KXmd"));  // "tempo" has no AIFF chunk of its own

    ASSERT_TRUE(writer.saveToPath(folder.pathFor("labels")));
    auto file = KXAudioFile::audioFileWithPath(folder.pathFor("labels.aif"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->loopList()->count(), 2u);
    EXPECT_EQ(file->regionList()->count(), 1u);
    EXPECT_EQ(file->regionList()->labelAtIndex(0)->name(), "Verse");
    ASSERT_EQ(file->markerList()->count(), 1u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Hit");
    EXPECT_FLOAT_EQ(file->tempo(), 120.0f);
}

TEST(KXAudioFileWriterAIFF, AppleLoopDefaults) {
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("REX2"));
    EXPECT_EQ(writer.format(), KXFourCC("APLL"));
    writer.setDepth(16);
    writer.setChannels(1);
    writer.sliceList()->addSliceWithPosition(0.25);
    const auto chunks = walk(write(writer, folder, 100));
    const KXData& basc = *find(chunks, "basc");
    EXPECT_EQ(kx::load16(basc.data() + 8, KXByteOrder::big), 0xFFFF);  // no key: root note −1
    EXPECT_EQ(kx::load16(basc.data() + 10, KXByteOrder::big), 3);       // scale: neither
    const KXData& trns = *find(chunks, "trns");
    EXPECT_EQ(kx::load32(trns.data() + 72, KXByteOrder::big), 1u);
    EXPECT_EQ(kx::load32(trns.data() + 80, KXByteOrder::big), 11025u);
    EXPECT_FALSE(find(chunks, "cate"));
}

TEST(KXAudioFileWriterAIFF, FloatsAreBigEndianFl32OrFl64AndReadBack) {
    KXTemporaryFolder folder;
    for (const std::int32_t depth : {32, 64}) {
        for (const std::int32_t order : {KXByteOrderBigValue, KXByteOrderLittleValue}) {
            SCOPED_TRACE(std::to_string(depth) + (order == KXByteOrderLittleValue ? " little" : " big"));
            KXAudioFileWriter writer;
            writer.setFormat(KXFourCC("AIFF"));
            writer.setChannels(1);
            writer.setInterleaved(true);
            writer.setDepth(depth);
            writer.setIsFloatingPoint(true);
            writer.setByteOrder(order);
            const auto chunks = walk(write(writer, folder, 3));
            const KXData& common = *find(chunks, "COMM");
            EXPECT_EQ(kx::load16(common.data() + 6, KXByteOrder::big), depth);
            EXPECT_EQ(std::string(common.begin() + 18, common.begin() + 22), depth == 64 ? "fl64" : "fl32");
            // 0.25 stored big-endian.
            const KXData& samples = *find(chunks, "SSND");
            EXPECT_EQ(samples[8], depth == 64 ? 0x3F : 0x3E);
            ASSERT_TRUE(writer.saveToPath(folder.pathFor("f.aif")));
            auto file = KXAudioFile::audioFileWithPath(writer.filePath());
            ASSERT_TRUE(file);
            EXPECT_TRUE(file->isFloatingPoint());
            EXPECT_EQ(file->depth(), std::uint32_t(depth));
            KXNativeAudioBuffer buffer(1, 3);
            ASSERT_EQ(file->readSamplesToBuffer(buffer, 0), 3);
            EXPECT_EQ(buffer.channel(0)[2], 0.25f);
        }
    }
}

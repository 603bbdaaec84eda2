#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRangeLabel.h"
#include "support/KXTestSupport.h"

namespace {

// The chunks of a CAF file (64-bit sizes from 8), payloads whole.
std::vector<std::pair<std::string, KXData>> walkCAF(const KXData& bytes) {
    std::vector<std::pair<std::string, KXData>> chunks;
    for (std::size_t at = 8; at + 12 <= bytes.size();) {
        std::uint64_t size = kx::load64(bytes.data() + at + 4, KXByteOrder::big);
        size = std::min<std::uint64_t>(size, bytes.size() - at - 12);
        chunks.emplace_back(std::string(bytes.begin() + std::ptrdiff_t(at), bytes.begin() + std::ptrdiff_t(at + 4)),
                            KXData(bytes.begin() + std::ptrdiff_t(at + 12), bytes.begin() + std::ptrdiff_t(at + 12 + size)));
        at += 12 + size;
    }
    return chunks;
}

std::shared_ptr<KXAudioFileWriter> cafWriter(const KXTemporaryFolder& folder, std::int32_t channels, std::int32_t depth,
                                             bool floatingPoint) {
    auto writer = KXAudioFileWriter::writer();
    writer->setFormat(KXFourCC("CAFF"));
    writer->setChannels(channels);
    writer->setDepth(depth);
    writer->setIsFloatingPoint(floatingPoint);
    writer->setRate(48000);
    writer->setTempDirectory(folder.path());
    return writer;
}

std::shared_ptr<KXAudioFile> writeAndOpen(KXAudioFileWriter& writer, const KXTemporaryFolder& folder, std::uint32_t frames) {
    EXPECT_TRUE(writer.beginWrite());
    KXNativeAudioBuffer buffer(std::uint32_t(writer.channels()), frames);
    for (std::uint32_t c = 0; c < buffer.numberOfChannels(); ++c)
        for (std::uint32_t i = 0; i < frames; ++i) buffer.channel(c)[i] = float(int(i % 200) - 100) / 128.0f;
    writer.writeBuffer(buffer);
    EXPECT_TRUE(writer.endWrite());
    EXPECT_TRUE(writer.saveToPath(folder.pathFor("take.caf")));
    return KXAudioFile::audioFileWithPath(writer.filePath());
}

}  // namespace

TEST(KXAudioFileWriterCAF, TheHeaderDescribesTheSamplesAndTheDataSizeIsPatched) {
    KXTemporaryFolder folder;
    auto writer = cafWriter(folder, 2, 24, false);
    auto file = writeAndOpen(*writer, folder, 1000);
    ASSERT_TRUE(file);
    const KXData bytes = readWholeFile(writer->filePath());
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "caff");
    EXPECT_EQ(kx::load16(bytes.data() + 4, KXByteOrder::big), 1);
    const auto chunks = walkCAF(bytes);
    ASSERT_EQ(chunks.front().first, "desc");
    const KXData& desc = chunks.front().second;
    EXPECT_EQ(std::string(desc.begin() + 8, desc.begin() + 12), "lpcm");
    EXPECT_EQ(kx::load32(desc.data() + 16, KXByteOrder::big), 6u);  // bytes per packet
    EXPECT_EQ(kx::load32(desc.data() + 24, KXByteOrder::big), 2u);
    EXPECT_EQ(kx::load32(desc.data() + 28, KXByteOrder::big), 24u);
    const auto data = std::find_if(chunks.begin(), chunks.end(), [](const auto& chunk) { return chunk.first == "data"; });
    ASSERT_NE(data, chunks.end());
    EXPECT_EQ(data->second.size(), 4u + 6000);
    EXPECT_EQ(chunks.back().first, "uuid");  // the analysis, after the samples
    EXPECT_EQ(file->frames(), 1000u);
    EXPECT_EQ(file->depth(), 24u);
    EXPECT_EQ(file->channelsList()->analysisState(), 1);
}

TEST(KXAudioFileWriterCAF, FloatsInEitherByteOrderReadBackExactly) {
    KXTemporaryFolder folder;
    for (const std::int32_t depth : {32, 64})
        for (const std::int32_t order : {KXByteOrderBigValue, KXByteOrderLittleValue}) {
            auto writer = cafWriter(folder, 1, depth, true);
            writer->setByteOrder(order);
            auto file = writeAndOpen(*writer, folder, 300);
            ASSERT_TRUE(file);
            EXPECT_TRUE(file->isFloatingPoint());
            EXPECT_EQ(file->audioDataByteOrder(), order);
            KXNativeAudioBuffer buffer(1, 300);
            ASSERT_EQ(file->readSamplesToBuffer(buffer, 0), 300);
            EXPECT_EQ(buffer.channel(0)[250], float(50 - 100) / 128.0f);
        }
}

TEST(KXAudioFileWriterCAF, LabelsMIDIAndMetadataReadBack) {
    KXTemporaryFolder folder;
    auto writer = cafWriter(folder, 1, 16, false);
    writer->markerList()->addMarkerWithPosition(0.25, std::string("Caf\xC3\xA9"));
    writer->markerList()->addMarkerWithPosition(0.5, std::nullopt);
    writer->regionList()->addRegionWithRange(KXRange::rangeWithStart(0.1, 0.3), std::string("Verse"));
    writer->loopList()->addLoopWithType(1, KXRange::rangeWithStart(0.2, 0.4));
    writer->loopList()->addLoopWithType(2, KXRange::rangeWithStart(0.5, 0.6));
    writer->addMetadata({{"baseNote", 61}, {"detune", -20}, {"lowNote", 12}, {"highVelocity", 99}, {"gain", -6},
                         {"metaName", "Title"}, {"copyright", "(c) us"}, {"tempo", 98.5}},
                        true);
    auto file = writeAndOpen(*writer, folder, 48000);
    ASSERT_TRUE(file);
    ASSERT_EQ(file->markerList()->count(), 2u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Caf\xC3\xA9");
    EXPECT_DOUBLE_EQ(file->markerList()->labelAtIndex(0)->position(), 0.25);
    ASSERT_EQ(file->regionList()->count(), 1u);
    EXPECT_EQ(file->regionList()->labelAtIndex(0)->name(), "Verse");
    EXPECT_DOUBLE_EQ(std::dynamic_pointer_cast<KXRangeLabel>(file->regionList()->labelAtIndex(0))->end(), 0.3);
    ASSERT_EQ(file->loopList()->count(), 2u);
    EXPECT_EQ(std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(0))->loopType(), 1u);
    EXPECT_EQ(std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(1))->loopType(), 2u);
    EXPECT_EQ(file->MIDIBaseNote(), 61);
    EXPECT_EQ(file->detune(), -20);
    EXPECT_EQ(file->MIDILowNote(), 12);
    EXPECT_EQ(file->MIDIHighVelocity(), 99);
    EXPECT_EQ(file->gain(), -6);
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Title");
    EXPECT_EQ(file->metadata().objectForKey("copyright").string(), "(c) us");
    EXPECT_FLOAT_EQ(file->tempo(), 98.5f);
}

#include <gtest/gtest.h>

#include <map>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXResourceFile.h"
#include "support/KXTestSupport.h"

namespace {

std::shared_ptr<KXAudioFileWriter> writerFor(const KXTemporaryFolder& folder, std::uint32_t format, std::int32_t channels,
                                             std::int32_t depth, std::int32_t rate = 44100) {
    auto writer = KXAudioFileWriter::writer();
    writer->setFormat(format);
    writer->setChannels(channels);
    writer->setDepth(depth);
    writer->setRate(rate);
    writer->setTempDirectory(folder.path());
    return writer;
}

float sampleAt(std::uint32_t channel, std::uint32_t i) {
    return float(std::int32_t((i * 37 + channel * 1000) % 4096) - 2048) / 2048.0f;
}

// Writes `frames` frames of sampleAt and saves under `name`.
void writeAndSave(KXAudioFileWriter& writer, const KXTemporaryFolder& folder, const std::string& name,
                  std::uint32_t frames) {
    ASSERT_TRUE(writer.beginWrite());
    KXNativeAudioBuffer buffer(std::uint32_t(writer.channels()), frames);
    for (std::uint32_t c = 0; c < buffer.numberOfChannels(); ++c)
        for (std::uint32_t i = 0; i < frames; ++i) buffer.channel(c)[i] = sampleAt(c, i);
    writer.writeBuffer(buffer);
    ASSERT_TRUE(writer.endWrite());
    ASSERT_TRUE(writer.saveToPath(folder.pathFor(name)));
}

void expectSamples(KXAudioFile& file, std::uint32_t frames) {
    KXNativeAudioBuffer buffer(file.numberOfChannels(), 1000);
    for (std::uint32_t start = 0; start < frames; start += 1000) {
        const std::uint32_t length = std::min(frames - start, 1000u);
        buffer.setFrames(length);
        ASSERT_EQ(file.readSamplesToBuffer(buffer, start), std::int32_t(length));
        for (std::uint32_t c = 0; c < file.numberOfChannels(); ++c)
            for (std::uint32_t i = 0; i < length; ++i)
                ASSERT_EQ(buffer.channel(c)[i], sampleAt(c, start + i)) << c << " " << start + i;
    }
}

std::uint32_t be32(const KXData& bytes, std::size_t at) { return kx::load32(bytes.data() + at, KXByteOrder::big); }
std::uint16_t be16(const KXData& bytes, std::size_t at) { return kx::load16(bytes.data() + at, KXByteOrder::big); }

}  // namespace

TEST(KXAudioFileWriterSFIL, TheHeaderLayoutIsFixed) {
    KXTemporaryFolder folder;
    auto writer = writerFor(folder, KXFourCC("SFIL"), 1, 16, 22050);
    writer->setWriteAnalysis(false);
    writeAndSave(*writer, folder, "plain.sd", 300);
    const KXData bytes = readWholeFile(writer->filePath());
    ASSERT_EQ(bytes.size(), 1336u + 600);
    EXPECT_EQ(be16(bytes, 0), 1336u);
    EXPECT_EQ(be16(bytes, 2), 32u);
    EXPECT_EQ(be32(bytes, 184), 600u);  // the data byte count, patched
    for (std::size_t slot = 0; slot < 10; ++slot) EXPECT_EQ(bytes[348 + 40 * slot], 1) << slot;  // all unused
    for (std::size_t at : {752, 756, 1324, 1328}) EXPECT_EQ(be32(bytes, at), 0xFFFFFFFFu) << at;
    EXPECT_EQ(be32(bytes, 1020), 22050u);
    EXPECT_EQ(be32(bytes, 1024), 45u);  // the sample period in microseconds
    EXPECT_EQ(be16(bytes, 1028), 16u);
    EXPECT_EQ(be16(bytes, 1336), std::uint16_t(std::int16_t(sampleAt(0, 0) * 32768.0f)));  // the first sample
    EXPECT_FALSE(KXFile::existsAtPath(KXFile::sidecarPathForPath(writer->filePath())));  // nothing for the fork
}

TEST(KXAudioFileWriterSFIL, TenMarkersAndTwoLoopsFitAndEverythingReadsBack) {
    KXTemporaryFolder folder;
    auto writer = writerFor(folder, KXFourCC("SFIL"), 1, 16);
    writer->markerList()->addMarkerWithPosition(1.0, std::string("One second"));
    writer->markerList()->addMarkerWithPosition(0.5, std::string(40, 'n'));  // cut to 33 characters
    for (int i = 2; i < 11; ++i) writer->markerList()->addMarkerWithPosition(0.01 * i, std::nullopt);
    writer->loopList()->addLoopWithType(1, KXRange::rangeWithStart(0.25, 0.5));
    writer->loopList()->addLoopWithType(1, KXRange::rangeWithStart(0.75, 1.0));
    writer->addMetadata({{"metaName", "Take"}, {"tempo", 99.0}}, true);
    writeAndSave(*writer, folder, "marked.sd", 44100 + 100);
    const KXData bytes = readWholeFile(writer->filePath());
    ASSERT_EQ(bytes.size(), 1336u + 2 * 44200);  // the header does not grow with the markers
    std::size_t oneSecond = 10;
    for (std::size_t slot = 0; slot < 10; ++slot) {
        EXPECT_EQ(bytes[348 + 40 * slot], 0) << slot;
        if (bytes[348 + 40 * slot + 6] == 10) oneSecond = slot;
    }
    ASSERT_LT(oneSecond, 10u);
    EXPECT_EQ(be32(bytes, 348 + 40 * oneSecond + 2), 88200u);  // byte offset of 1.0 s at 16 bits
    EXPECT_EQ(be32(bytes, 752), 22050u);
    EXPECT_EQ(be32(bytes, 1332 - 4), 88200u);
    EXPECT_EQ(bytes[1332], 2);
    EXPECT_EQ(be32(bytes, 1020), 44100u);  // still in its place

    auto file = KXAudioFile::audioFileWithPath(writer->filePath());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->frames(), 44200u);
    ASSERT_EQ(file->markerList()->count(), 10u);  // the eleventh is not written
    std::map<std::string, double> positions;
    for (std::size_t i = 0; i < 10; ++i) {
        const auto marker = file->markerList()->labelAtIndex(i);
        positions[marker->name().value_or("")] = marker->position();
    }
    EXPECT_DOUBLE_EQ(positions[std::string(33, 'n')], 0.5);
    EXPECT_DOUBLE_EQ(positions["One second"], 1.0);
    ASSERT_EQ(file->loopList()->count(), 2u);
    EXPECT_EQ(file->loopList()->loopAtIndex(1)->loopType(), 1u);
    EXPECT_DOUBLE_EQ(file->loopList()->loopAtIndex(1)->start(), 0.75);
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Take");
    EXPECT_EQ(file->channelsList()->analysisState(), 1);  // from the 'KXAn' resource
    expectSamples(*file, 44200);
}

TEST(KXAudioFileWriterSFIL, MoreChannelsBecomeASetOfMonoFiles) {
    KXTemporaryFolder folder;
    auto writer = writerFor(folder, KXFourCC("SFIL"), 2, 24);
    writeAndSave(*writer, folder, "pair.sd", 500);
    ASSERT_EQ(writer->filePaths().size(), 2u);
    EXPECT_EQ(KXFile::lastPathComponent(writer->filePaths()[0]), "pair.L.sd");
    auto file = KXAudioFile::audioFileWithPath(writer->filePaths()[1]);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->numberOfChannels(), 2u);
    EXPECT_EQ(file->frames(), 500u);
    expectSamples(*file, 500);
}

TEST(KXAudioFileWriterSDII, EveryLabelAndMetadataKeyReadsBack) {
    KXTemporaryFolder folder;
    auto writer = writerFor(folder, KXFourCC("SDII"), 2, 24, 48000);
    writer->markerList()->addMarkerWithPosition(0.25, std::string("Caf\xC3\xA9"));
    writer->markerList()->addMarkerWithPosition(0.5, std::nullopt);
    writer->regionList()->addRegionWithRange(KXRange::rangeWithStart(0.1, 0.3), 4800, 987654321, std::string("Verse"));
    writer->loopList()->addLoopWithType(0, KXRange::rangeWithStart(0.2, 0.4));
    writer->loopList()->addLoopWithType(1, KXRange::rangeWithStart(0.5, 0.6));
    writer->addMetadata({{"metaName", "Title"}, {"originalArtist", "Band"}, {"creationDate", "2026-11-23"},
                         {"comments", "Notes"}, {"scene", "12"}, {"tempo", 98.5}},
                        true);
    writeAndSave(*writer, folder, "take.sd2", 48000);
    EXPECT_EQ(readWholeFile(writer->filePath()).size(), 48000u * 6);  // nothing but samples
    auto fork = KXResourceFile::resourceFileWithPath(writer->filePath());
    ASSERT_TRUE(fork);
    EXPECT_EQ(fork->resources().front()->type(), KXFourCC("STR "));  // first, for libsndfile
    EXPECT_EQ(fork->resourceForType(KXFourCC("STR "), 1001)->data(), bytesOf("\x0C" "48000.000000"));
    EXPECT_EQ(fork->resourceForTypeName(KXFourCC("STR "), "Original Artist")->data(), bytesOf("\x04" "Band"));

    auto file = KXAudioFile::audioFileWithPath(writer->filePath());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("SDII"));
    EXPECT_EQ(file->numberOfChannels(), 2u);
    EXPECT_EQ(file->depth(), 24u);
    EXPECT_EQ(file->rate(), 48000u);
    ASSERT_EQ(file->markerList()->count(), 2u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Caf\xC3\xA9");
    EXPECT_DOUBLE_EQ(file->markerList()->labelAtIndex(0)->position(), 0.25);
    ASSERT_EQ(file->regionList()->count(), 1u);
    const auto region = std::dynamic_pointer_cast<KXRegion>(file->regionList()->labelAtIndex(0));
    EXPECT_EQ(region->name(), "Verse");
    EXPECT_EQ(region->sync(), 4800u);
    EXPECT_EQ(region->timeStamp(), 987654321u);
    EXPECT_DOUBLE_EQ(region->end(), 0.3);
    ASSERT_EQ(file->loopList()->count(), 2u);
    EXPECT_EQ(file->loopList()->loopAtIndex(1)->loopType(), 1u);
    EXPECT_DOUBLE_EQ(file->loopList()->loopAtIndex(1)->end(), 0.6);
    for (const auto& [key, value] : {std::pair{"metaName", "Title"}, {"originalArtist", "Band"},
                                     {"creationDate", "2026-11-23"}, {"comments", "Notes"}, {"scene", "12"}})
        EXPECT_EQ(file->metadata().objectForKey(key).string(), value) << key;
    EXPECT_FLOAT_EQ(file->tempo(), 98.5f);
    EXPECT_EQ(file->channelsList()->analysisState(), 1);
    EXPECT_FALSE(file->unusedChunkList());  // every resource written is read
    expectSamples(*file, 48000);
}

TEST(KXAudioFileWriterSDII, SplitSetsHoldOneChannelPerFile) {
    KXTemporaryFolder folder;
    auto writer = writerFor(folder, KXAudioFileWriter::kSplitSDII, 2, 16);
    writer->markerList()->addMarkerWithPosition(0.001, std::string("Start"));
    writer->addMetadata({{"metaName", "Pair"}}, true);
    writeAndSave(*writer, folder, "pair.sd2", 1000);
    ASSERT_EQ(writer->filePaths().size(), 2u);
    for (const std::string& path : writer->filePaths()) {
        EXPECT_EQ(readWholeFile(path).size(), 2000u);
        EXPECT_EQ(KXResourceFile::resourceFileWithPath(path)->resourceForType(KXFourCC("STR "), 1002)->data(),
                  bytesOf("\x01" "1"));
    }
    auto file = KXAudioFile::audioFileWithPath(writer->filePaths()[0]);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->numberOfChannels(), 2u);
    EXPECT_FALSE(file->isInterleaved());
    EXPECT_EQ(file->frames(), 1000u);
    EXPECT_EQ(file->markerList()->count(), 1u);
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Pair");
    expectSamples(*file, 1000);
}

#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXResourceFile.h"
#include "support/KXTestSupport.h"

namespace {

// A Sound Designer I header: 16-bit, 44100 Hz, no markers, no loops, followed by `samples` bytes.
struct SFILFile {
    KXData bytes = KXData(1336, 0);
    explicit SFILFile(std::uint32_t dataSize, std::uint32_t samples = 0) {
        put16(0, 1336);
        put32(184, dataSize);
        for (std::uint32_t i = 0; i < 10; ++i) bytes[348 + 40 * i] = 1;
        put32(752, 0xFFFFFFFF);
        put32(1324, 0xFFFFFFFF);
        put32(1020, 44100);
        put16(1028, 16);
        bytes.resize(bytes.size() + samples, 0);
    }
    SFILFile& put16(std::size_t at, std::uint16_t v) { return kx::store16(bytes.data() + at, v, KXByteOrder::big), *this; }
    SFILFile& put32(std::size_t at, std::uint32_t v) { return kx::store32(bytes.data() + at, v, KXByteOrder::big), *this; }
    SFILFile& marker(std::size_t slot, std::uint8_t flag, std::uint32_t position, const std::string& name) {
        const std::size_t at = 348 + 40 * slot;
        bytes[at] = flag;
        put32(at + 2, position);
        bytes[at + 6] = std::uint8_t(name.size());
        std::copy(name.begin(), name.end(), bytes.begin() + std::ptrdiff_t(at + 7));
        return *this;
    }
};

std::shared_ptr<KXResource> resource(const char* type, std::int16_t id, std::optional<std::string> name, const KXData& data) {
    return std::make_shared<KXResource>(fourCC(type), id, std::move(name), data);
}

KXData pascal(const std::string& text) {
    KXData data{std::uint8_t(text.size())};
    data.insert(data.end(), text.begin(), text.end());
    return data;
}

// A Sound Designer II file: the data fork and a resource fork of these resources.
std::string writeSDII(const KXTemporaryFolder& folder, const std::string& name, const KXData& samples,
                      std::vector<std::shared_ptr<KXResource>> resources) {
    const std::string path = folder.write(name, samples);
    auto fork = KXResourceFile::createResourceFileAtPath(path);
    EXPECT_TRUE(fork && fork->setResources(std::move(resources)));
    return path;
}

std::vector<std::shared_ptr<KXResource>> sampleFormat(const char* bytes, const char* rate, const char* channels) {
    return {resource("STR ", 1000, std::nullopt, pascal(bytes)), resource("STR ", 1001, std::nullopt, pascal(rate)),
            resource("STR ", 1002, std::nullopt, pascal(channels))};
}

}  // namespace

TEST(KXAudioFileParseSFIL, HeaderFieldsMarkersAndLoops) {
    KXTemporaryFolder folder;
    SFILFile sfil(88200, 88200);
    sfil.marker(0, 0, 2000, "Hit").marker(1, 1, 4000, "Skipped").marker(9, 0, 8000, "Last");
    sfil.put32(752, 200).put32(756, 4000).put32(1324, 8000).put32(1328, 16000);
    sfil.bytes[1332] = 1;  // both loops take this mode
    sfil.bytes[1333] = 3;
    auto file = KXAudioFile::audioFileWithPath(folder.write("a.sd", sfil.bytes));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("SFIL"));
    EXPECT_EQ(file->frames(), 44100u);
    EXPECT_EQ(file->rate(), 44100u);
    EXPECT_EQ(file->depth(), 16u);
    EXPECT_EQ(file->numberOfChannels(), 1u);
    EXPECT_EQ(file->audioDataByteOrder(), KXByteOrderBigValue);
    ASSERT_EQ(file->markerList()->count(), 2u);
    EXPECT_DOUBLE_EQ(file->markerList()->labelAtIndex(0)->position(), 1000.0 / 44100);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Hit");
    EXPECT_EQ(file->markerList()->labelAtIndex(1)->name(), "Last");
    ASSERT_EQ(file->loopList()->count(), 2u);
    for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(file->loopList()->loopAtIndex(i)->loopType(), 0u);
    EXPECT_DOUBLE_EQ(file->loopList()->loopAtIndex(0)->start(), 100.0 / 44100);
    EXPECT_DOUBLE_EQ(file->loopList()->loopAtIndex(1)->end(), 8000.0 / 44100);
    // No resource fork: no analysis and no archived metadata, and no error.
    EXPECT_TRUE(file->metadata().empty());
    EXPECT_NE(file->channelsList()->analysisState(), 1);
}

TEST(KXAudioFileParseSFIL, TheResourceForkGivesMetadataAndNothingIsKept) {
    KXTemporaryFolder folder;
    const std::string path = folder.write("a.sd", SFILFile(400, 400).bytes);
    auto fork = KXResourceFile::createResourceFileAtPath(path);
    ASSERT_TRUE(fork->setResources({resource("KXmd", 1000, std::nullopt, KXPropertyList::binaryData(KXDictionary{{"author", "Me"}})),
                                    resource("JUNK", 5, std::nullopt, bytesOf("x"))}));
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->metadata().objectForKey("author").string(), "Me");
    EXPECT_FALSE(file->unusedChunkList());
}

TEST(KXAudioFileParseSFIL, ValuesThatDivideByZeroAreRefusedAndShortDataIsCounted) {
    KXTemporaryFolder folder;
    for (const auto& [depth, rate] : {std::pair<std::uint16_t, std::uint32_t>{4, 44100}, {12, 44100}, {0, 44100}, {16, 0}}) {
        SFILFile sfil(100, 100);
        sfil.put16(1028, depth).put32(1020, rate);
        KXError error;
        EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("bad.sd", sfil.bytes), &error));
        EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
        EXPECT_EQ(error.action(), "Parsing the Sound Designer I file");
    }
    // A data size past the end of the file: the frames there are, with the warning -10.
    KXError warning;
    auto file = KXAudioFile::audioFileWithPath(folder.write("short.sd", SFILFile(0xFFFFFFF0, 10).bytes), &warning);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->frames(), 5u);
    EXPECT_EQ(warning.code(), KXAudioFileErrorFileSizeAdjusted);
}

TEST(KXAudioFileParseSDII, SampleFormatLabelsAndText) {
    KXTemporaryFolder folder;
    auto resources = sampleFormat("2", "44100.000000", "2");
    resources.push_back(resource("sdML", 1000, std::nullopt,
                                 KXPayload::big().u32(0).u16(0).u16(2)
                                     .u32(0).u32(4410).u32(0).u32(0).u32(5).raw(bytesOf("Verse"))
                                     .u32(0).u32(22050).u32(0).u32(0).u32(0).bytes));
    KXPayload regions = KXPayload::big();
    regions.bytes.resize(18, 0);
    regions.u32(0).u32(100).u32(200).u32(150).u64(123456789).raw(pascal("Bridge"));
    regions.bytes.resize(18 + 56, 0);
    resources.push_back(resource("ddRL", 1000, std::nullopt, regions.bytes));
    resources.push_back(resource("sdLL", 1000, std::nullopt,
                                 KXPayload::big().u32(0).u16(0).u16(2)
                                     .u32(10).u32(20).u16(0).u16(117).u16(0)
                                     .u32(30).u32(40).u16(0).u16(118).u16(0).bytes));
    resources.push_back(resource("STR ", 2000, "Original Artist", pascal("Someone")));
    resources.push_back(resource("STR ", 2001, "Name", pascal("Take")));
    resources.push_back(resource("STR ", 2002, "Comments", {}));  // empty: sets nothing, kept
    resources.push_back(resource("KXmd", 1000, std::nullopt, KXPropertyList::binaryData(KXDictionary{{"tempo", 120.0}})));
    const std::string path = writeSDII(folder, "take.sd2", KXData(4 * 1000, 0), std::move(resources));
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("SDII"));
    EXPECT_EQ(file->depth(), 16u);
    EXPECT_EQ(file->rate(), 44100u);
    EXPECT_EQ(file->numberOfChannels(), 2u);
    EXPECT_EQ(file->frames(), 1000u);
    ASSERT_EQ(file->markerList()->count(), 2u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Verse");
    EXPECT_DOUBLE_EQ(file->markerList()->labelAtIndex(1)->position(), 0.5);
    ASSERT_EQ(file->regionList()->count(), 1u);
    const auto region = std::dynamic_pointer_cast<KXRegion>(file->regionList()->labelAtIndex(0));
    EXPECT_EQ(region->name(), "Bridge");
    EXPECT_EQ(region->sync(), 150u);
    EXPECT_EQ(region->timeStamp(), 123456789u);
    EXPECT_DOUBLE_EQ(region->end(), 200.0 / 44100);
    ASSERT_EQ(file->loopList()->count(), 2u);
    EXPECT_EQ(file->loopList()->loopAtIndex(0)->loopType(), 0u);
    EXPECT_EQ(file->loopList()->loopAtIndex(1)->loopType(), 1u);
    EXPECT_EQ(file->metadata().objectForKey("originalArtist").string(), "Someone");
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Take");
    EXPECT_FALSE(file->metadata().contains("comments"));
    EXPECT_DOUBLE_EQ(file->metadata().objectForKey("tempo").doubleValue(), 120.0);
    ASSERT_TRUE(file->unusedChunkList());
    ASSERT_EQ(file->unusedChunkList()->size(), 1u);
    EXPECT_EQ(file->unusedChunkList()->front()->name(), "Comments");
}

TEST(KXAudioFileParseSDII, MissingOrUnusableDescriptionsAreRefused) {
    KXTemporaryFolder folder;
    KXError error;
    // Leading bytes that match no format and no resource fork: the file layer's error.
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("plain.sd2", bytesOf("just some bytes")), &error));
    EXPECT_EQ(error.code(), ENOENT);
    EXPECT_NE(error.domain(), KXAudioFileError::domain);

    auto withoutRate = sampleFormat("2", "44100", "1");
    withoutRate.erase(withoutRate.begin() + 1);
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(writeSDII(folder, "a.sd2", KXData(8, 0), withoutRate), &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorMissingRequiredData);
    EXPECT_EQ(error.action(), "Parsing the SDII file");

    for (const auto& [bytes, rate, channels] : {std::tuple{"0", "44100", "1"}, std::tuple{"2", "0", "1"},
                                               std::tuple{"2", "44100", "0"}, std::tuple{"5", "44100", "1"},
                                               std::tuple{"2", "fast", "1"}, std::tuple{"2", "44100", "99999"}}) {
        EXPECT_FALSE(KXAudioFile::audioFileWithPath(writeSDII(folder, "b.sd2", KXData(8, 0), sampleFormat(bytes, rate, channels)), &error));
        EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
    }
}

#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "support/KXTestSupport.h"

namespace {

// COMM of `channels`, `frames`, `bits` at 44100 Hz (80-bit 0x400E AC44 …), with a compression type when given.
KXData comm(std::uint16_t channels, std::uint32_t frames, std::uint16_t bits, const char* compression = nullptr) {
    KXPayload p = KXPayload::big();
    p.u16(channels).u32(frames).u16(bits).raw({0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0});
    if (compression) p.raw(bytesOf(std::string(compression, 4))).u8(0).u8(0);
    return p.bytes;
}

}  // namespace

TEST(KXAudioFileParseAIFF, FormatCompressionAndSampleChecks) {
    KXTemporaryFolder folder;
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(
        folder.write("a.aif", KXTestFile::aiff().chunk("COMM", comm(1, 1000, 8)).chunk("SSND", KXData(1008, 0)).finish().data()));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->rate(), 44100u);
    EXPECT_EQ(file->audioDataByteOrder(), 2);
    EXPECT_EQ(file->editList()->blockAtIndex(0, 0)->sourceOffset(), 12u + 8 + 18 + 8 + 8);
    // One byte short of the samples.
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(
        folder.write("b.aif", KXTestFile::aiff().chunk("COMM", comm(1, 1000, 8)).chunk("SSND", KXData(1007, 0)).finish().data()), &error));
    EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorMissingRequiredData, "Parsing the AIFF file"));
    file = KXAudioFile::audioFileWithPath(folder.write(
        "c.aif", KXTestFile::aiff("AIFC").chunk("COMM", comm(2, 10, 16, "sowt")).chunk("SSND", KXData(48, 0)).finish().data()));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->audioDataByteOrder(), 1);
    // 'twos' reads as 'NONE'; µ-law takes one byte a sample whatever 'COMM' says; compressed types are refused.
    file = KXAudioFile::audioFileWithPath(folder.write(
        "d.aif", KXTestFile::aiff("AIFC").chunk("COMM", comm(2, 10, 16, "twos")).chunk("SSND", KXData(48, 0)).finish().data()));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->audioDataByteOrder(), 2);
    file = KXAudioFile::audioFileWithPath(folder.write(
        "e.aif", KXTestFile::aiff("AIFC").chunk("COMM", comm(1, 10, 16, "ulaw")).chunk("SSND", KXData(18, 0)).finish().data()));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->depth(), 8u);
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write(
        "f.aif", KXTestFile::aiff("AIFC").chunk("COMM", comm(1, 10, 16, "ima4")).chunk("SSND", KXData(48, 0)).finish().data()), &error));
    EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, "Parsing the AIFF file"));
}

TEST(KXAudioFileParseAIFF, MarkersLoopsRegionsAndText) {
    KXTemporaryFolder folder;
    // Four markers; the loop takes 1 and 2, the region 3 and 4. The count says five: the walk
    // stops at the payload's end.
    const KXData mark = KXPayload::big().u16(5).u16(1).u32(4410).pascal("a").u16(2).u32(8820).pascal("bb")
                            .u16(3).u32(100).pascal("").u16(4).u32(200).pascal("end").bytes;
    const KXData inst = KXPayload::big().u8(60).u8(std::uint8_t(-5)).u8(0).u8(127).u8(1).u8(127).u16(std::uint16_t(-3))
                            .u16(2).u16(1).u16(2).u16(0).u16(0).u16(0).bytes;
    const KXData regions = KXPayload::big().raw(bytesOf("auFM")).u16(1).u16(0).u8(3).raw(bytesOf("Hey")).u16(3).u16(4)
                               .u32(0).u32(0).bytes;
    const KXData comt = KXPayload::big().u16(1).u32(0).u16(0).u16(5).raw(bytesOf("notes")).u8(0).bytes;
    auto file = KXAudioFile::audioFileWithPath(folder.write("labels.aif", KXTestFile::aiff()
                                                                              .chunk("COMM", comm(1, 10000, 16))
                                                                              .chunk("MARK", mark)
                                                                              .chunk("INST", inst)
                                                                              .chunk("APPL", regions)
                                                                              .chunk("NAME", bytesOf("Title"))
                                                                              .chunk("AUTH", KXData())
                                                                              .chunk("COMT", comt)
                                                                              .chunk("FAKE", bytesOf("kept"))
                                                                              .chunk("SSND", KXData(20008, 0))
                                                                              .finish()
                                                                              .data()));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->markerList()->count(), 0u);  // every marker went into the loop or the region
    ASSERT_EQ(file->loopList()->count(), 1u);
    const auto loop = std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(0));
    EXPECT_EQ(loop->loopType(), 1u);  // play mode 2
    EXPECT_DOUBLE_EQ(loop->start(), 0.1);
    EXPECT_DOUBLE_EQ(loop->end(), 0.2);
    ASSERT_EQ(file->regionList()->count(), 1u);
    EXPECT_EQ(file->regionList()->labelAtIndex(0)->name(), "Hey");
    EXPECT_EQ(file->MIDIBaseNote(), 60);
    EXPECT_EQ(file->detune(), -5);
    EXPECT_EQ(file->gain(), -3);
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Title");
    EXPECT_FALSE(file->metadata().contains("author"));
    EXPECT_EQ(file->metadata().objectForKey("comments").string(), "notes");
    ASSERT_TRUE(file->unusedChunkList());
    ASSERT_EQ(file->unusedChunkList()->size(), 1u);
    EXPECT_EQ(file->unusedChunkList()->front()->type(), KXFourCC("FAKE"));
}

TEST(KXAudioFileParseAIFF, AppleLoopBeatsAndKey) {
    KXTemporaryFolder folder;
    // 'basc': 8 beats, key note 60, scale 2, 4/4, playback 1 — over 4 seconds that is 120 bpm.
    const KXData basc = KXPayload::big().u32(1).u32(8).u16(60).u16(2).u16(4).u16(4).u16(1).raw(KXData(66, 0)).bytes;
    auto file = KXAudioFile::audioFileWithPath(folder.write(
        "loop.aif", KXTestFile::aiff().chunk("COMM", comm(1, 176400, 8)).chunk("basc", basc).chunk("SSND", KXData(176408, 0)).finish().data()));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("APLL"));
    EXPECT_EQ(file->key(), 12);
    EXPECT_EQ(file->eighthBeats(), 16);
    EXPECT_FLOAT_EQ(file->tempo(), 120.0f);
    EXPECT_EQ(file->scaleType(), 2);
}

TEST(KXAudioFileParseAIFF, MacRomanTextIsDecodedOnce) {
    KXTemporaryFolder folder;
    const KXData mark = KXPayload::big().u16(1).u16(1).u32(10).pascal("Caf\x8E").bytes;
    const KXData regions = KXPayload::big().raw(bytesOf("auFM")).u16(0).bytes;
    const KXData comt = KXPayload::big().u16(1).u32(0).u16(0).u16(4).raw(bytesOf("cr\x8F" "me")).bytes;
    auto file = KXAudioFile::audioFileWithPath(folder.write("text.aif", KXTestFile::aiff()
                                                                            .chunk("COMM", comm(1, 100, 16))
                                                                            .chunk("MARK", mark)
                                                                            .chunk("NAME", bytesOf("\xA5 Title"))
                                                                            .chunk("COMT", comt)
                                                                            .chunk("SSND", KXData(208, 0))
                                                                            .finish()
                                                                            .data()));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Caf\xC3\xA9");
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "\xE2\x80\xA2 Title");
    EXPECT_EQ(file->metadata().objectForKey("comments").string(), "cr\xC3\xA8m");
}

TEST(KXAudioFileParseAIFF, AMarkerWithoutANameGetsTheDefaultName) {
    KXTemporaryFolder folder;
    // An empty name, then a count that runs past the chunk's end.
    const KXData mark = KXPayload::big().u16(2).u16(1).u32(10).pascal("").u16(2).u32(20).u8(40).raw(bytesOf("short")).bytes;
    auto file = KXAudioFile::audioFileWithPath(folder.write(
        "names.aif", KXTestFile::aiff().chunk("COMM", comm(1, 100, 16)).chunk("MARK", mark).chunk("SSND", KXData(208, 0)).finish().data()));
    ASSERT_TRUE(file);
    ASSERT_EQ(file->markerList()->count(), 2u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Marker 1");
    EXPECT_EQ(file->markerList()->labelAtIndex(1)->name(), "Marker 2");
}

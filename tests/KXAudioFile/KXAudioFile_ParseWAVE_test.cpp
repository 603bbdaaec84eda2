#include <gtest/gtest.h>

#include <cstring>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXPropertyList.h"
#include "support/KXTestSupport.h"

namespace {

KXData fmtChunk(std::uint16_t tag, std::uint16_t channels, std::uint32_t rate, std::uint16_t bits) {
    return KXPayload::little().u16(tag).u16(channels).u32(rate).u32(rate * channels * bits / 8).u16(std::uint16_t(channels * bits / 8)).u16(bits).bytes;
}

std::shared_ptr<KXAudioFile> open(const KXTemporaryFolder& folder, const KXData& bytes, KXError* error = nullptr) {
    return KXAudioFile::audioFileWithPath(folder.write("take.wav", bytes), error);
}

}  // namespace

TEST(KXAudioFileParseWAVE, FormatDataAndRefusals) {
    KXTemporaryFolder folder;
    KXError error;
    auto file = open(folder, KXTestFile::riff().chunk("fmt ", fmtChunk(1, 2, 48000, 24)).chunk("data", KXData(60, 0)).finish().data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("WAVE"));
    EXPECT_EQ(file->frames(), 10u);
    EXPECT_EQ(file->channelsList()->count(), 2u);
    EXPECT_EQ(file->editList()->blockAtIndex(0, 1)->sourceOffset(), 12u + 8 + 16 + 8);
    EXPECT_FALSE(file->unusedChunkList());

    // A 3-byte 'data' in 16-bit stereo is 0 frames; a missing 'fmt ' is missing data too.
    EXPECT_FALSE(open(folder, KXTestFile::riff().chunk("fmt ", fmtChunk(1, 2, 44100, 16)).chunk("data", KXData(3, 0)).finish().data(), &error));
    EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorMissingRequiredData, "Parsing the WAVE file"));
    // Compressed tags, and values that describe no samples, are refused.
    for (const KXData& fmt : {fmtChunk(2, 1, 44100, 4), fmtChunk(1, 0, 44100, 16), fmtChunk(1, 1, 44100, 4),
                              fmtChunk(1, 1, 0, 16), fmtChunk(3, 1, 44100, 16), fmtChunk(7, 1, 8000, 16)}) {
        EXPECT_FALSE(open(folder, KXTestFile::riff().chunk("fmt ", fmt).chunk("data", KXData(64, 0)).finish().data(), &error));
        EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, "Parsing the WAVE file"));
    }
    // Extensible with the PCM sub-format reads as PCM of the container width; another sub-format is refused.
    const auto extensible = [](std::uint8_t subFormat) {
        return KXPayload::little().raw(fmtChunk(0xFFFE, 2, 48000, 24)).u16(22).u16(24).u32(3).u16(subFormat).raw(
            {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}).bytes;
    };
    file = open(folder, KXTestFile::riff().chunk("fmt ", extensible(1)).chunk("data", KXData(60, 0)).finish().data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->depth(), 24u);
    EXPECT_FALSE(file->isFloatingPoint());
    EXPECT_FALSE(open(folder, KXTestFile::riff().chunk("fmt ", extensible(2)).chunk("data", KXData(60, 0)).finish().data(), &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
    file = open(folder, KXTestFile::riff().chunk("fmt ", fmtChunk(6, 1, 8000, 8)).chunk("data", KXData(5, 0)).finish().data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->encoding(), KXFourCC("alaw"));
}

TEST(KXAudioFileParseWAVE, LabelsFromCuesListsLoopsAndSlices) {
    KXTemporaryFolder folder;
    const KXData cue = KXPayload::little().u32(3)
                           .u32(1).u32(4410).u32(0).raw(bytesOf("data")).u32(0).u32(4410)
                           .u32(2).u32(8820).u32(0).raw(bytesOf("data")).u32(0).u32(8820)
                           .u32(3).u32(100).u32(0).raw(bytesOf("data")).u32(0).u32(100).bytes;
    // 'labl' with an odd size is followed by a pad byte; the next sub-chunk is still found.
    const KXData adtl = KXPayload::little().raw(bytesOf("adtl"))
                            .sub("labl", KXPayload::little().u32(1).raw(bytesOf("Verse\0")).bytes)
                            .sub("labl", KXPayload::little().u32(2).raw(bytesOf("Hook")).u8(0).bytes)
                            .sub("ltxt", KXPayload::little().u32(2).u32(4410).raw(bytesOf("rgn ")).u16(0).u16(0).u16(0).u16(0).bytes)
                            .sub("ltxt", KXPayload::little().u32(3).u32(0).raw(bytesOf("rgn ")).u16(0).u16(0).u16(0).u16(0).bytes)
                            .bytes;
    KXPayload smpl = KXPayload::little();
    smpl.u32(0).u32(0).u32(0).u32(60).u32(0).u32(0).u32(0).u32(1).u32(0);
    smpl.u32(7).u32(1).u32(441).u32(44100).u32(0).u32(0);
    KXPayload strc = KXPayload::little();
    strc.u32(0).u32(3).bytes.resize(28, 0);
    strc.u32(2).u32(0).u32(4410).u32(0).u32(0).u32(0).u32(0).u32(0);  // kind 2, flag 0: skipped
    strc.u32(2).u32(0).u32(4410).u32(0).u32(1).u32(0).u32(0).u32(0);  // flag 1: a slice
    strc.u32(2).u32(0).u32(0).u32(0).u32(0).u32(0).u32(0).u32(0);     // position 0: a slice
    const KXData acid = KXPayload::little().u32(1).u16(60).u16(0x8000).u32(0).u32(8).u16(4).u16(4).f32(128.0f).bytes;
    auto file = open(folder, KXTestFile::riff()
                                 .chunk("fmt ", fmtChunk(1, 1, 44100, 16))
                                 .chunk("cue ", cue)
                                 .chunk("LIST", adtl)
                                 .chunk("smpl", smpl.bytes)
                                 .chunk("acid", acid)
                                 .chunk("strc", strc.bytes)
                                 .chunk("data", KXData(88200 * 2, 0))
                                 .finish()
                                 .data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("ACID"));
    ASSERT_EQ(file->markerList()->count(), 2u);  // cue 2 became a region
    EXPECT_EQ(file->markerList()->markerWithID(1)->name(), "Verse");
    EXPECT_DOUBLE_EQ(file->markerList()->markerWithID(1)->position(), 0.1);
    EXPECT_TRUE(file->markerList()->markerWithID(3));  // an 'ltxt' of length 0 leaves a marker
    ASSERT_EQ(file->regionList()->count(), 1u);
    const auto region = std::dynamic_pointer_cast<KXRegion>(file->regionList()->labelAtIndex(0));
    EXPECT_EQ(region->name(), "Hook");
    EXPECT_DOUBLE_EQ(region->start(), 0.2);
    EXPECT_DOUBLE_EQ(region->end(), 0.3);
    ASSERT_EQ(file->loopList()->count(), 1u);
    const auto loop = std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(0));
    EXPECT_EQ(loop->loopType(), 1u);
    EXPECT_DOUBLE_EQ(loop->start(), 0.01);
    EXPECT_DOUBLE_EQ(loop->end(), 1.0);
    EXPECT_EQ(file->sliceList()->count(), 2u);
    EXPECT_EQ(file->playbackType(), 2);
    EXPECT_EQ(file->eighthBeats(), 16);
    EXPECT_EQ(file->meterNumerator(), 4);
    EXPECT_FLOAT_EQ(file->tempo(), 128.0f);
}

TEST(KXAudioFileParseWAVE, BroadcastInfoIXMLArchivedMetadataAndKeptChunks) {
    KXTemporaryFolder folder;
    KXPayload bext = KXPayload::little();
    bext.text("A take", 256).text("Recorder", 32).text("REF-1", 32).text("2026-11-22", 10).text("05:20:00", 8);
    bext.u64(48000 * 60).u16(1);
    KXData umid(64, 0x11);
    bext.raw(umid).text("", 190).raw(bytesOf("A=PCM,F=48000\r\n"));
    const KXData info = KXPayload::little().raw(bytesOf("INFO"))
                            .sub("INAM", bytesOf("Title\0"))
                            .sub("IART", bytesOf("Me\0"))     // odd: padded
                            .sub("IXYZ", bytesOf("skipped\0"))
                            .sub("ICMT", bytesOf("Notes\0"))
                            .bytes;
    const std::string ixml =
        "<?xml version=\"1.0\"?><BWFXML><IXML_VERSION>1.5</IXML_VERSION><PROJECT>Film</PROJECT>"
        "<STEINBERG><X>1</X></STEINBERG><SPEED><NOTE>n</NOTE><MASTER_SPEED>25/1</MASTER_SPEED></SPEED>"
        "<TRACK_LIST><TRACK_COUNT>2</TRACK_COUNT><TRACK><NAME>L</NAME></TRACK><TRACK><NAME>R</NAME></TRACK></TRACK_LIST>"
        "<BEXT><BWF_ORIGINATOR>iXML wins</BWF_ORIGINATOR><BWF_TIME_REFERENCE_HIGH>1</BWF_TIME_REFERENCE_HIGH>"
        "<BWF_TIME_REFERENCE_LOW>5</BWF_TIME_REFERENCE_LOW></BEXT></BWFXML>";
    const KXData archived = KXPropertyList::binaryData(KXDictionary{{"mood", "calm"}});
    auto file = open(folder, KXTestFile::riff()
                                 .chunk("fmt ", fmtChunk(1, 2, 48000, 16))
                                 .chunk("bext", bext.bytes)
                                 .chunk("LIST", info)
                                 .chunk("iXML", bytesOf(ixml))
                                 .chunk("KXmd", archived)
                                 .chunk("JUNK", KXData(12, 0))
                                 .chunk("FAKE", bytesOf("kept"))
                                 .chunk("data", KXData(400, 0))
                                 .finish()
                                 .data());
    ASSERT_TRUE(file);
    const KXDictionary& m = file->metadata();
    EXPECT_EQ(m.objectForKey("description").string(), "A take");
    EXPECT_EQ(m.objectForKey("originator").string(), "iXML wins");
    EXPECT_EQ(m.objectForKey("originatorReference").string(), "REF-1");
    EXPECT_EQ(m.objectForKey("originationTime").string(), "05:20:00");
    EXPECT_EQ(m.objectForKey("timeReference").longLongValue(), 4294967296ll + 5);
    EXPECT_EQ(m.objectForKey("smpteUMID").data(), umid);
    EXPECT_EQ(m.objectForKey("codingHistory").string(), "A=PCM,F=48000\r\n");
    EXPECT_EQ(m.objectForKey("metaName").string(), "Title");
    EXPECT_EQ(m.objectForKey("originalArtist").string(), "Me");
    EXPECT_EQ(m.objectForKey("comments").string(), "Notes");
    EXPECT_EQ(m.objectForKey("project").string(), "Film");
    EXPECT_FALSE(m.contains("ixml_version"));
    EXPECT_FALSE(m.contains("steinberg"));
    EXPECT_FALSE(m.contains("bext"));
    EXPECT_EQ(m.objectForKey("speed").dictionary().objectForKey("master_speed").string(), "25/1");
    EXPECT_EQ(m.objectForKey("track_list").dictionary().objectForKey("track").array().size(), 2u);
    EXPECT_EQ(m.objectForKey("mood").string(), "calm");
    ASSERT_TRUE(file->unusedChunkList());
    ASSERT_EQ(file->unusedChunkList()->size(), 1u);  // 'JUNK' is dropped
    EXPECT_EQ(file->unusedChunkList()->front()->type(), KXFourCC("FAKE"));

    // A version-0 'bext' gives no UMID; a time reference of 0 gives none.
    KXPayload plain = KXPayload::little();
    plain.text("", 338).u64(0).u16(0).raw(umid);
    file = open(folder, KXTestFile::riff().chunk("fmt ", fmtChunk(1, 1, 8000, 8)).chunk("bext", plain.bytes).chunk("data", KXData(8, 0)).finish().data());
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->metadata().contains("smpteUMID"));
    EXPECT_FALSE(file->metadata().contains("timeReference"));
}

TEST(KXAudioFileParseWAVE, Wave64AndAU) {
    KXTemporaryFolder folder;
    auto w64 = KXAudioFile::audioFileWithPath(
        folder.write("take.w64", KXTestFile::wave64().chunk("fmt ", fmtChunk(3, 2, 96000, 32)).chunk("data", KXData(80, 0)).chunk("FAKE", bytesOf("kept")).finish().data()));
    ASSERT_TRUE(w64);
    EXPECT_EQ(w64->format(), KXFourCC("WV64"));
    EXPECT_TRUE(w64->isFloatingPoint());
    EXPECT_EQ(w64->frames(), 10u);
    EXPECT_EQ(w64->editList()->blockAtIndex(0, 0)->sourceOffset(), 40u + 24 + 16 + 24);
    ASSERT_TRUE(w64->unusedChunkList());
    EXPECT_EQ(w64->unusedChunkList()->size(), 1u);

    const auto au = [](std::uint32_t encoding, std::uint32_t dataSize, std::size_t sampleBytes) {
        KXData bytes = bytesOf(".snd");
        for (std::uint32_t v : {24u, dataSize, encoding, 8000u, 1u})
            for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(std::uint8_t(v >> shift));
        bytes.resize(24 + sampleBytes, 0);
        return bytes;
    };
    KXError error;
    auto alaw = KXAudioFile::audioFileWithPath(folder.write("a.au", au(27, 4, 100)), &error);
    ASSERT_TRUE(alaw);
    EXPECT_EQ(alaw->format(), KXFourCC("ULAW"));
    EXPECT_EQ(alaw->encoding(), KXFourCC("alaw"));
    EXPECT_EQ(alaw->frames(), 100u);  // the data size field is not read
    EXPECT_EQ(alaw->audioDataByteOrder(), 2);
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(folder.write("g.au", au(23, 4, 100)), &error));
    EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, "Parsing the AU file"));
}

TEST(KXAudioFileParseWAVE, ASplitPairReadsAsTwoChannels) {
    // Each file holds one channel, also where its 'fmt ' says two (as the design's writer put it):
    // the frames are its data over one sample's bytes.
    for (const std::uint16_t declared : {1, 2}) {
        SCOPED_TRACE(declared);
        KXTemporaryFolder folder;
        const KXData mono =
            KXTestFile::riff().chunk("fmt ", fmtChunk(1, declared, 44100, 16)).chunk("data", KXData(20, 0)).finish().data();
        folder.write("Take.L.wav", mono);
        folder.write("Take.R.wav", mono);
        auto file = KXAudioFile::audioFileWithPath(folder.pathFor("Take.R.wav"));
        ASSERT_TRUE(file);
        EXPECT_EQ(file->numberOfChannels(), 2u);
        EXPECT_FALSE(file->isInterleaved());
        EXPECT_EQ(file->frames(), 10u);
        EXPECT_EQ(file->channelsList()->channel(1)->extension(), "R");
        EXPECT_EQ(file->editList()->blockAtIndex(0, 1)->sourcePath(), folder.pathFor("Take.R.wav"));
        EXPECT_EQ(file->editList()->blockAtIndex(0, 1)->sourceTotalChannels(), 1u);
    }
}


TEST(KXAudioFileParseWAVE, TextIsUTF8ElseWindows1252) {
    KXTemporaryFolder folder;
    const KXData info = KXPayload::little().raw(bytesOf("INFO")).sub("INAM", bytesOf(std::string("Caf\xC3\xA9 \xE2\x99\xAA", 10)))
                            .sub("IART", bytesOf(std::string("Caf\xE9 \x80\0", 7))).bytes;
    const KXData cue = KXPayload::little().u32(1).u32(1).u32(4).raw(bytesOf("data")).u32(0).u32(0).u32(4).bytes;
    const KXData adtl = KXPayload::little().raw(bytesOf("adtl")).sub("labl", KXPayload::little().u32(1).raw(bytesOf(std::string("Cr\xE8me\0", 6))).bytes).bytes;
    auto file = open(folder, KXTestFile::riff()
                                 .chunk("fmt ", fmtChunk(1, 1, 44100, 16))
                                 .chunk("data", KXData(20, 0))
                                 .chunk("LIST", info)
                                 .chunk("cue ", cue)
                                 .chunk("LIST", adtl)
                                 .finish()
                                 .data());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Caf\xC3\xA9 \xE2\x99\xAA");
    EXPECT_EQ(file->metadata().objectForKey("originalArtist").string(), "Caf\xC3\xA9 \xE2\x82\xAC");
    ASSERT_EQ(file->markerList()->count(), 1u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Cr\xC3\xA8me");
}

TEST(KXAudioFileParseWAVE, TheChannelMaskNamesTheChannelsAndIsKept) {
    KXTemporaryFolder folder;
    const auto extensible = [](std::uint16_t channels, std::uint32_t mask) {
        return KXPayload::little().u16(0xFFFE).u16(channels).u32(48000).u32(48000 * 2 * channels).u16(std::uint16_t(2 * channels))
            .u16(16).u16(22).u16(16).u32(mask).u16(1).raw({0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71}).bytes;
    };
    auto side = open(folder, KXTestFile::riff().chunk("fmt ", extensible(6, 0x60F)).chunk("data", KXData(24, 0)).finish().data());
    ASSERT_TRUE(side);
    EXPECT_EQ(side->channelsList()->speakerMask(), 0x60Fu);
    EXPECT_EQ(side->channelsList()->channel(4)->name(), "Left Surround");
    EXPECT_EQ(side->channelsList()->channel(5)->abbreviation(), "RS");
    // The layout's own mask keeps the layout's names; a mask short of the channels names none.
    auto back = open(folder, KXTestFile::riff().chunk("fmt ", extensible(6, 0x3F)).chunk("data", KXData(24, 0)).finish().data());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->channelsList()->speakerMask(), 0x3Fu);
    EXPECT_EQ(back->channelsList()->channel(4)->name(), "Left Surround");
    auto partial = open(folder, KXTestFile::riff().chunk("fmt ", extensible(4, 0x3)).chunk("data", KXData(16, 0)).finish().data());
    ASSERT_TRUE(partial);
    EXPECT_EQ(partial->channelsList()->speakerMask(), 0u);
    EXPECT_EQ(partial->channelsList()->channel(3)->name(), "Right Surround");
}

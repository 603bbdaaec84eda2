#include <gtest/gtest.h>

#include <map>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "support/KXTestSupport.h"

namespace {

KXWalkedChunks walk(const KXData& bytes) { return walkChunks(bytes, KXByteOrder::little); }

std::uint32_t u32(const KXData& d, std::size_t at) { return kx::load32(d.data() + at, KXByteOrder::little); }
std::uint16_t u16(const KXData& d, std::size_t at) { return kx::load16(d.data() + at, KXByteOrder::little); }

std::shared_ptr<KXAudioFileWriter> waveWriter(const KXTemporaryFolder& folder, std::int32_t channels, std::int32_t rate,
                                              std::int32_t depth) {
    auto writer = KXAudioFileWriter::writer();
    writer->setFormat(KXFourCC("WAVE"));
    writer->setDepth(depth);
    writer->setChannels(channels);
    writer->setRate(rate);
    writer->setTempDirectory(folder.path());
    writer->setWriteAnalysis(false);
    return writer;
}

// Writes `frames` frames of a ramp and answers the bytes of each output file.
std::vector<KXData> write(KXAudioFileWriter& writer, std::uint32_t frames) {
    EXPECT_TRUE(writer.beginWrite());
    for (std::uint32_t f = 0; f < frames; ++f)
        for (std::int32_t c = 0; c < writer.channels(); ++c) writer.writeSample(float(f % 100) / 128.0f - 0.25f, c);
    KXError error;
    EXPECT_TRUE(writer.endWrite(&error)) << error.description();
    std::vector<KXData> files;
    for (const std::string& path : writer.filePaths()) files.push_back(readWholeFile(path));
    return files;
}

}  // namespace

TEST(KXAudioFileWriterWAVE, FormatChunkDataSizeAndPadByte) {
    KXTemporaryFolder folder;
    auto stereo = waveWriter(folder, 2, 44100, 16);
    const KXData bytes = write(*stereo, 10).front();
    const KXWalkedChunks riff = walk(bytes);
    EXPECT_EQ(riff.order(), (std::vector<std::string>{"JUNK", "fmt ", "data"}));
    const KXData& fmt = *riff.find("fmt ");
    EXPECT_EQ(u16(fmt, 0), 1);
    EXPECT_EQ(u16(fmt, 2), 2);
    EXPECT_EQ(u32(fmt, 4), 44100u);
    EXPECT_EQ(u32(fmt, 8), 176400u);
    EXPECT_EQ(u16(fmt, 12), 4);
    EXPECT_EQ(u16(fmt, 14), 16);
    EXPECT_EQ(riff.find("data")->size(), 40u);
    EXPECT_EQ(riff.containerSize, bytes.size() - 8);

    // 8-bit mono with an odd count: one zero pad byte after the data, not counted in its size.
    auto odd = waveWriter(folder, 1, 8000, 8);
    const KXData oddBytes = write(*odd, 7).front();
    EXPECT_EQ(oddBytes.size(), 12u + 36 + 24 + 8 + 7 + 1);
    EXPECT_EQ(walk(oddBytes).find("data")->size(), 7u);
    EXPECT_EQ(oddBytes.back(), 0);
    // Split 8-bit: every channel file gets its pad byte.
    auto split = waveWriter(folder, 2, 8000, 8);
    split->setInterleaved(false);
    for (const KXData& file : write(*split, 5)) {
        EXPECT_EQ(file.size(), 12u + 36 + 24 + 8 + 5 + 1);
        // Each file of the set says what it holds: one channel.
        EXPECT_EQ(u16(*walk(file).find("fmt "), 2), 1);
        EXPECT_EQ(u16(*walk(file).find("fmt "), 12), 1);
    }
    // 16-bit data is never odd.
    EXPECT_EQ(write(*waveWriter(folder, 1, 8000, 16), 7).front().size(), 12u + 36 + 24 + 8 + 14);
    // Floats and µ-law.
    auto floats = waveWriter(folder, 1, 8000, 32);
    floats->setIsFloatingPoint(true);
    EXPECT_EQ(u16(*walk(write(*floats, 2).front()).find("fmt "), 0), 3);
    auto ulaw = waveWriter(folder, 1, 8000, 8);
    ulaw->setFormat(KXFourCC("ULAW"));
    ulaw->setFormat(KXFourCC("WAVE"));
    EXPECT_EQ(ulaw->encoding(), KXFourCC("lpcm"));
}

TEST(KXAudioFileWriterWAVE, LabelsBecomeLoopsCuePointsAndNames) {
    KXTemporaryFolder folder;
    auto writer = waveWriter(folder, 1, 48000, 16);
    writer->loopList()->addLoopWithType(0, KXRange::rangeWithStart(1.0, 2.0));
    writer->markerList()->addMarkerWithPosition(0.5, std::string("abc"));
    writer->regionList()->addRegionWithRange(KXRange::rangeWithStart(0.25, 0.75), std::string("abcd"));
    writer->addMetadata({{"detune", 25}, {"key", 0}}, true);
    const KXWalkedChunks riff = walk(write(*writer, 100).front());
    // "key" is musical metadata, which only a loop-library file writes: it goes to the archive.
    EXPECT_EQ(riff.order(), (std::vector<std::string>{"JUNK", "fmt ", "smpl", "inst", "cue ", "LIST", "data", "KXmd"}));
    const KXData& smpl = *riff.find("smpl");
    EXPECT_EQ(u32(smpl, 8), 1000000000u / 48000);
    EXPECT_EQ(u32(smpl, 12), 60u);  // "key" 0 with no base note
    EXPECT_EQ(u32(smpl, 16), 0x40000000u);
    EXPECT_EQ(u32(smpl, 28), 1u);
    EXPECT_EQ(u32(smpl, 36), 1u);  // cue id
    EXPECT_EQ(u32(smpl, 44), 48000u);
    EXPECT_EQ(u32(smpl, 48), 96000u);
    const KXData& cue = *riff.find("cue ");
    EXPECT_EQ(u32(cue, 0), 2u);
    EXPECT_EQ(u32(cue, 4), 2u);  // the marker continues the loop's count
    EXPECT_EQ(u32(cue, 8), 24000u);
    EXPECT_EQ(u32(cue, 28), 3u);
    EXPECT_EQ(u32(cue, 32), 12000u);
    const KXData& adtl = *riff.find("LIST");
    ASSERT_EQ(std::string(adtl.begin(), adtl.begin() + 4), "adtl");
    EXPECT_EQ(std::string(adtl.begin() + 4, adtl.begin() + 8), "labl");
    EXPECT_EQ(u32(adtl, 8), 8u);   // a three-letter name
    EXPECT_EQ(u32(adtl, 8 + 4 + 8 + 4), 10u);  // a four-letter name: the pad byte counted
    const KXData& inst = *riff.find("inst");
    EXPECT_EQ(inst.size(), 8u);
    EXPECT_EQ(inst[0], 60);
    EXPECT_EQ(inst[1], 25);

    // The library reads it all back.
    ASSERT_TRUE(writer->saveToPath(folder.pathFor("labels")));
    auto file = KXAudioFile::audioFileWithPath(folder.pathFor("labels.wav"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->markerList()->markerWithID(2)->name(), "abc");
    EXPECT_EQ(file->regionList()->count(), 1u);
    EXPECT_EQ(file->regionList()->labelAtIndex(0)->name(), "abcd");
    EXPECT_DOUBLE_EQ(std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(0))->end(), 2.0);
    EXPECT_EQ(file->detune(), 25);
}

TEST(KXAudioFileWriterWAVE, BroadcastInfoIXMLAndTheArchiveOfTheRest) {
    KXTemporaryFolder folder;
    auto writer = waveWriter(folder, 2, 48000, 24);
    writer->addMetadata({{"description", std::string(300, 'd')},
                         {"originator", "Recorder"},
                         {"originationDate", "2026-11-22"},
                         {"timeReference", 0x100000005ull},
                         {"codingHistory", "A=PCM"},
                         {"metaName", "Title"},
                         {"comments", "odd"},
                         {"project", "Film"},
                         {"sync_point_list", KXArray{KXDictionary{{"sync_point_type", "RELATIVE"}}, KXDictionary{}}},
                         {"tempo", 96.0}},
                        true);
    const KXWalkedChunks riff = walk(write(*writer, 10).front());
    EXPECT_EQ(riff.order(), (std::vector<std::string>{"JUNK", "bext", "fmt ", "LIST", "iXML", "data", "KXmd"}));
    const KXData& bext = *riff.find("bext");
    EXPECT_EQ(std::string(bext.begin(), bext.begin() + 255), std::string(255, 'd'));
    EXPECT_EQ(bext[255], 0);
    EXPECT_EQ(std::string(bext.begin() + 320, bext.begin() + 330), "2026-11-22");
    EXPECT_EQ(kx::load64(bext.data() + 338, KXByteOrder::little), 0x100000005ull);
    EXPECT_EQ(u16(bext, 346), 0);  // no UMID: version and UMID area zero
    EXPECT_EQ(std::string(bext.begin() + 602, bext.begin() + 607), "A=PCM");
    const KXData& info = *riff.find("LIST");
    EXPECT_EQ(std::string(info.begin(), info.begin() + 8), "INFOINAM");
    EXPECT_EQ(u32(info, 8), 6u);  // "Title": odd, terminator counted
    const std::string ixml(riff.find("iXML")->begin(), riff.find("iXML")->end());
    EXPECT_NE(ixml.find("<PROJECT>Film</PROJECT>\r"), std::string::npos);
    EXPECT_NE(ixml.find("<SYNC_POINT_LIST><SYNC_POINT_COUNT>2</SYNC_POINT_COUNT>\r<SYNC_POINT><SYNC_POINT_TYPE>RELATIVE"),
              std::string::npos)
        << ixml;
    EXPECT_NE(ixml.find("<BWF_TIME_REFERENCE_LOW>5</BWF_TIME_REFERENCE_LOW>\r<BWF_TIME_REFERENCE_HIGH>1</BWF_TIME_REFERENCE_HIGH>"),
              std::string::npos);
    EXPECT_EQ(riff.find("iXML")->size() % 2, 0u);
    // Only the tempo is left for the archive, after the samples; every written key is gone.
    EXPECT_EQ(writer->metadata().keys(), (std::vector<std::string>{"tempo"}));

    ASSERT_TRUE(writer->saveToPath(folder.pathFor("bwf")));
    auto file = KXAudioFile::audioFileWithPath(folder.pathFor("bwf.wav"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->metadata().objectForKey("originator").string(), "Recorder");
    EXPECT_EQ(file->metadata().objectForKey("timeReference").longLongValue(), 0x100000005ll);
    EXPECT_FLOAT_EQ(file->tempo(), 96.0f);
    EXPECT_EQ(file->metadata().objectForKey("comments").string(), "odd");
}

TEST(KXAudioFileWriterWAVE, LoopLibraryChunksAndTheAnalysisAfterTheSamples) {
    KXTemporaryFolder folder;
    auto writer = waveWriter(folder, 1, 44100, 16);
    writer->setFormat(KXFourCC("ACID"));
    writer->setDepth(16);
    writer->setWriteAnalysis(true);
    writer->sliceList()->addSliceWithPosition(0.5);
    writer->sliceList()->addSliceWithPosition(0.0);
    writer->addMetadata({{"timeSignature", 0x0304}, {"barsBeats", 0x0100}, {"tempo", 140.0}, {"playbackType", 2}}, true);
    const KXWalkedChunks riff = walk(write(*writer, 44100).front());
    EXPECT_EQ(riff.order(), (std::vector<std::string>{"JUNK", "fmt ", "data", "KXAn", "acid", "strc"}));
    const KXData& acid = *riff.find("acid");
    EXPECT_EQ(u32(acid, 0), 1u);
    EXPECT_EQ(u32(acid, 12), 3u);  // eighth beats 6, halved
    EXPECT_EQ(u16(acid, 16), 3);
    EXPECT_EQ(u16(acid, 18), 4);
    const KXData& strc = *riff.find("strc");
    EXPECT_EQ(u32(strc, 4), 2u);
    EXPECT_EQ(u32(strc, 28), 2u);           // the first slice (sorted): kind 2
    EXPECT_EQ(u32(strc, 28 + 32 + 8), 22050u);

    ASSERT_TRUE(writer->saveToPath(folder.pathFor("loop")));
    auto file = KXAudioFile::audioFileWithPath(folder.pathFor("loop.wav"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), KXFourCC("ACID"));
    EXPECT_EQ(file->sliceList()->count(), 2u);
    EXPECT_EQ(file->channelsList()->analysisState(), 1);
    EXPECT_EQ(file->channelsList()->channel(0)->name(), "Mono");
}

TEST(KXAudioFileWriterWAVE, ManyChannelsAndWideIntegersTakeTheExtensibleFormatWithTheirSpeakers) {
    KXTemporaryFolder folder;
    const auto expectExtensible = [](const KXData& fmt, std::uint16_t channels, std::uint16_t bits, std::uint32_t mask,
                                     std::uint16_t subFormat) {
        ASSERT_EQ(fmt.size(), 40u);
        EXPECT_EQ(u16(fmt, 0), 0xFFFE);
        EXPECT_EQ(u16(fmt, 2), channels);
        EXPECT_EQ(u16(fmt, 14), bits);
        EXPECT_EQ(u16(fmt, 16), 22);
        EXPECT_EQ(u16(fmt, 18), bits);
        EXPECT_EQ(u32(fmt, 20), mask);
        EXPECT_EQ(u16(fmt, 24), subFormat);
        EXPECT_EQ(fmt[39], 0x71);
    };
    expectExtensible(*walk(write(*waveWriter(folder, 2, 48000, 24), 4).front()).find("fmt "), 2, 24, 0x3, 1);
    auto surround = waveWriter(folder, 6, 48000, 16);
    expectExtensible(*walk(write(*surround, 4).front()).find("fmt "), 6, 16, 0x3F, 1);
    auto floats = waveWriter(folder, 6, 48000, 32);
    floats->setIsFloatingPoint(true);
    expectExtensible(*walk(write(*floats, 4).front()).find("fmt "), 6, 32, 0x3F, 3);
    // A mask that names every channel wins over the layout's; each file of a split set carries
    // its own channel's speaker.
    auto side = waveWriter(folder, 6, 48000, 24);
    side->setChannelMask(0x60F);
    side->setInterleaved(false);
    const std::vector<KXData> files = write(*side, 4);
    ASSERT_EQ(files.size(), 6u);
    const std::uint32_t speakers[] = {0x1, 0x2, 0x4, 0x8, 0x200, 0x400};
    for (std::size_t i = 0; i < files.size(); ++i) expectExtensible(*walk(files[i]).find("fmt "), 1, 24, speakers[i], 1);
    // 16-bit stereo stays plain.
    EXPECT_EQ(walk(write(*waveWriter(folder, 2, 48000, 16), 4).front()).find("fmt ")->size(), 16u);
}

// What a file holds that the library does not consume survives reading and writing back.

#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "support/KXTestSupport.h"

namespace {

// Reads every sample of `file` into `writer` and saves the result under `name`.
std::shared_ptr<KXAudioFile> rewriteWith(KXAudioFileWriter& writerRef, KXAudioFile& file, const KXTemporaryFolder& folder,
                                         const std::string& name) {
    KXAudioFileWriter* writer = &writerRef;
    writer->setTempDirectory(folder.path());
    EXPECT_TRUE(writer->beginWrite());
    KXNativeAudioBuffer buffer(file.numberOfChannels(), KXAudioFile::kReadBufferFrames);
    for (std::uint32_t start = 0; start < file.frames(); start += buffer.capacity()) {
        const std::int32_t read = file.readSamplesToBuffer(buffer, std::int32_t(start));
        writer->writeBuffer(buffer, {0, std::uint32_t(read)});
    }
    EXPECT_TRUE(writer->endWrite());
    EXPECT_TRUE(writer->saveToPath(folder.pathFor(name)));
    return KXAudioFile::audioFileWithPath(writer->filePath());
}

// The same through a writer made from the file.
std::shared_ptr<KXAudioFile> rewrite(KXAudioFile& file, const KXTemporaryFolder& folder, const std::string& name) {
    return rewriteWith(*KXAudioFileWriter::writerWithAudioFile(file), file, folder, name);
}

void expectSameKeptChunks(const KXAudioFile& a, const KXAudioFile& b) {
    ASSERT_TRUE(a.unusedChunkList() && b.unusedChunkList());
    ASSERT_EQ(a.unusedChunkList()->size(), b.unusedChunkList()->size());
    for (std::size_t i = 0; i < a.unusedChunkList()->size(); ++i) {
        const KXChunk& x = *(*a.unusedChunkList())[i];
        const KXChunk& y = *(*b.unusedChunkList())[i];
        EXPECT_EQ(x.type(), y.type()) << i;
        EXPECT_EQ(x.subtype(), y.subtype()) << i;
        EXPECT_EQ(x.uuid(), y.uuid()) << i;
        EXPECT_EQ(x.data(), y.data()) << i;
    }
}

}  // namespace

TEST(KXWriterRoundTrip, KeptChunksSurviveInWAVEAndAIFF) {
    KXTemporaryFolder folder;
    const KXData fmt = {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x80, 0x3E, 0, 0, 2, 0, 16, 0};
    KXData uuid(16, 0xAB);
    uuid.insert(uuid.end(), {1, 2, 3});
    const std::string wav = folder.write("kept.wav", KXTestFile::riff()
                                                       .chunk("fmt ", fmt)
                                                       .chunk("LIST", bytesOf("exif\x00\x01odd"))
                                                       .chunk("uuid", uuid)
                                                       .chunk("abcd", bytesOf("x"))
                                                       .chunk("data", KXData(200, 7))
                                                       .finish()
                                                       .data());
    auto original = KXAudioFile::audioFileWithPath(wav);
    ASSERT_TRUE(original);
    ASSERT_EQ(original->unusedChunkList()->size(), 3u);
    auto copy = rewrite(*original, folder, "copy");
    ASSERT_TRUE(copy);
    expectSameKeptChunks(*original, *copy);

    const KXData comm = {0, 1, 0, 0, 0, 100, 0, 16, 0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0};
    const std::string aif = folder.write("kept.aif", KXTestFile::aiff()
                                                       .chunk("COMM", comm)
                                                       .chunk("APPL", bytesOf("TOOLsomething"))
                                                       .chunk("FVER", bytesOf("\xA2\x80\x51\x40"))
                                                       .chunk("SSND", KXData(208, 0))
                                                       .finish()
                                                       .data());
    auto aiff = KXAudioFile::audioFileWithPath(aif);
    ASSERT_TRUE(aiff);
    ASSERT_EQ(aiff->unusedChunkList()->size(), 2u);
    auto aiffCopy = rewrite(*aiff, folder, "copy");
    ASSERT_TRUE(aiffCopy);
    expectSameKeptChunks(*aiff, *aiffCopy);
}

TEST(KXWriterRoundTrip, SplitAIFFPutsConsumedMetadataInTheFirstFileOnly) {
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("AIFF"));
    writer.setDepth(16);
    writer.setChannels(2);
    writer.setInterleaved(false);
    writer.setRate(44100);
    writer.setTempDirectory(folder.path());
    writer.setWriteAnalysis(false);
    writer.loopList()->addLoopWithType(0, KXRange::rangeWithStart(0.001, 0.002));
    writer.addMetadata({{"metaName", "Take"}, {"baseNote", 60}}, true);
    ASSERT_TRUE(writer.beginWrite());
    KXNativeAudioBuffer buffer(2, 100);
    writer.writeBuffer(buffer);
    ASSERT_TRUE(writer.endWrite());
    ASSERT_TRUE(writer.saveToPath(folder.pathFor("Take.aif")));
    ASSERT_EQ(writer.filePaths().size(), 2u);
    auto first = KXAudioFile::audioFile();
    first->setFormat(KXFourCC("AIFF"));
    first->setBlockSizeByteOrder(2);
    const auto nameIn = [&](std::size_t file) { return first->chunkOfTypeAtPath(KXFourCC("NAME"), writer.filePaths()[file]); };
    const auto instIn = [&](std::size_t file) { return first->chunkOfTypeAtPath(KXFourCC("INST"), writer.filePaths()[file]); };
    const auto markIn = [&](std::size_t file) { return first->chunkOfTypeAtPath(KXFourCC("MARK"), writer.filePaths()[file]); };
    EXPECT_TRUE(nameIn(0));
    EXPECT_FALSE(nameIn(1));
    ASSERT_TRUE(instIn(0) && instIn(1));
    EXPECT_EQ(instIn(0)->charValueAtByte(0), 60);
    EXPECT_EQ(instIn(1)->charValueAtByte(0), 0);  // the MIDI values went with the first file
    EXPECT_TRUE(markIn(0) && markIn(1));
    // The set opens as one two-channel file.
    auto set = KXAudioFile::audioFileWithPath(writer.filePaths()[1]);
    ASSERT_TRUE(set);
    EXPECT_EQ(set->numberOfChannels(), 2u);
    EXPECT_FALSE(set->isInterleaved());
}

TEST(KXWriterRoundTrip, AnyTextComesBackFromEveryWriter) {
    KXTemporaryFolder folder;
    // Latin letters that Mac OS Roman holds, a note and an ideograph that it does not, and Mac OS
    // Roman bytes that would form UTF-8.
    const std::vector<std::string> texts = {"Caf\xC3\xA9 cr\xC3\xA8me \xE2\x99\xAA", "\xE6\x97\xA5\xE6\x9C\xAC",
                                            "\xC2\xAC\xC3\x84", "cr\xC3\xA8me"};
    for (const std::uint32_t format : {KXFourCC("WAVE"), KXFourCC("AIFF")}) {
        auto writer = KXAudioFileWriter::writer();
        writer->setFormat(format);
        writer->setChannels(1);
        writer->setDepth(16);
        writer->setInterleaved(true);
        writer->setTempDirectory(folder.path());
        KXDictionary& metadata = writer->mutableMetadata();
        metadata.setObject(texts[0], "metaName");
        metadata.setObject(texts[1], "comments");
        metadata.setObject(texts[2], "copyright");
        if (format == KXFourCC("WAVE")) metadata.setObject(texts[3], "description");
        writer->markerList()->addMarkerWithPosition(0.001, texts[0]);
        writer->regionList()->addRegionWithRange(KXRange::rangeWithStart(0.002, 0.003), texts[1]);
        ASSERT_TRUE(writer->beginWrite());
        for (int i = 0; i < 441; ++i) writer->writeSample(0.0f, 0);
        ASSERT_TRUE(writer->endWrite());
        ASSERT_TRUE(writer->saveToPath(folder.pathFor(format == KXFourCC("WAVE") ? "text.wav" : "text.aif")));
        auto file = KXAudioFile::audioFileWithPath(writer->filePath());
        ASSERT_TRUE(file);
        SCOPED_TRACE(KXFourCCString(format));
        EXPECT_EQ(file->metadata().objectForKey("metaName").string(), texts[0]);
        EXPECT_EQ(file->metadata().objectForKey("comments").string(), texts[1]);
        EXPECT_EQ(file->metadata().objectForKey("copyright").string(), texts[2]);
        if (format == KXFourCC("WAVE")) {
            EXPECT_EQ(file->metadata().objectForKey("description").string(), texts[3]);
        }
        ASSERT_EQ(file->markerList()->count(), 1u);
        EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), texts[0]);
        ASSERT_EQ(file->regionList()->count(), 1u);
        EXPECT_EQ(file->regionList()->labelAtIndex(0)->name(), texts[1]);
    }
}

TEST(KXWriterRoundTrip, WAVEThroughCAFAndBackKeepsSamplesLabelsMIDIAndMetadata) {
    KXTemporaryFolder folder;
    auto writer = KXAudioFileWriter::writer();
    writer->setFormat(KXFourCC("WAVE"));
    writer->setChannels(2);
    writer->setDepth(24);
    writer->setRate(48000);
    writer->setTempDirectory(folder.path());
    writer->markerList()->addMarkerWithPosition(0.125, std::string("Hit"));
    writer->regionList()->addRegionWithRange(KXRange::rangeWithStart(0.25, 0.5), std::string("Verse"));
    writer->loopList()->addLoopWithType(0, KXRange::rangeWithStart(0.5, 0.75));
    writer->addMetadata({{"baseNote", 57}, {"detune", 12}, {"metaName", "Take"}, {"comments", "Fine"}, {"scene", "4"}},
                        true);
    ASSERT_TRUE(writer->beginWrite());
    KXNativeAudioBuffer buffer(2, 48000);
    for (std::uint32_t c = 0; c < 2; ++c)
        for (std::uint32_t i = 0; i < 48000; ++i) buffer.channel(c)[i] = float(std::int32_t(i * 37 % 4096) - 2048) / 2048.0f;
    writer->writeBuffer(buffer);
    ASSERT_TRUE(writer->endWrite());
    ASSERT_TRUE(writer->saveToPath(folder.pathFor("take.wav")));
    auto original = KXAudioFile::audioFileWithPath(writer->filePath());
    ASSERT_TRUE(original);

    auto toCAF = KXAudioFileWriter::writerWithAudioFile(*original);
    toCAF->setFormat(KXFourCC("CAFF"));
    toCAF->setDepth(24);
    auto caf = rewriteWith(*toCAF, *original, folder, "take.caf");
    ASSERT_TRUE(caf);
    EXPECT_EQ(caf->format(), KXFourCC("caff"));
    auto toWAVE = KXAudioFileWriter::writerWithAudioFile(*caf);
    toWAVE->setFormat(KXFourCC("WAVE"));
    toWAVE->setDepth(24);
    auto back = rewriteWith(*toWAVE, *caf, folder, "back.wav");
    ASSERT_TRUE(back);
    EXPECT_EQ(back->format(), KXFourCC("WAVE"));

    for (const auto* file : {caf.get(), back.get()}) {
        SCOPED_TRACE(KXFourCCString(file->format()));
        EXPECT_EQ(file->frames(), 48000u);
        ASSERT_EQ(file->markerList()->count(), 1u);
        EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Hit");
        ASSERT_EQ(file->regionList()->count(), 1u);
        EXPECT_EQ(file->regionList()->labelAtIndex(0)->name(), "Verse");
        EXPECT_EQ(file->loopList()->count(), 1u);
        EXPECT_EQ(file->MIDIBaseNote(), 57);
        EXPECT_EQ(file->detune(), 12);
        EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Take");
        EXPECT_EQ(file->metadata().objectForKey("comments").string(), "Fine");
        EXPECT_EQ(file->metadata().objectForKey("scene").string(), "4");
    }
    KXNativeAudioBuffer a(2, 1000), b(2, 1000);
    for (std::int64_t start = 0; start < 48000; start += 1000) {
        ASSERT_EQ(original->readSamplesToBuffer(a, start), 1000);
        ASSERT_EQ(back->readSamplesToBuffer(b, start), 1000);
        for (std::uint32_t c = 0; c < 2; ++c)
            ASSERT_TRUE(std::equal(a.channel(c), a.channel(c) + 1000, b.channel(c))) << start << " " << c;
    }
}

TEST(KXWriterRoundTrip, ChannelNamesFollowTheSpeakersIntoEveryFormat) {
    // A 5.0 file (FL FR FC BL BR), a quad one (FL FR BL BR) and a 5.1 one in the order L C R Ls Rs
    // LFE, which no WAVE mask has and a CAF layout tag names. CAF says the speakers in its header
    // (a bitmap, or the tag); AIFF keeps them in the names stored with the analysis. A quad file
    // is never named L C R S, the four-channel layout of the formats that say nothing of speakers.
    KXTemporaryFolder folder;
    const struct {
        std::vector<std::uint32_t> speakers;
        std::vector<std::string> names;
    } sources[] = {
        {{0x1, 0x2, 0x4, 0x10, 0x20}, {"Left", "Right", "Center", "Left Surround Back", "Right Surround Back"}},
        {{0x1, 0x2, 0x10, 0x20}, {"Left", "Right", "Left Surround", "Right Surround"}},
        {{0x1, 0x4, 0x2, 0x10, 0x20, 0x8}, {"Left", "Center", "Right", "Left Surround Back", "Right Surround Back", "LFE"}},
    };
    for (const auto& source : sources) {
        const auto channels = std::uint32_t(source.names.size());
        auto writer = KXAudioFileWriter::writer();
        writer->setFormat(KXFourCC("CAFF"));
        writer->setChannels(std::int32_t(channels));
        writer->setDepth(16);
        writer->setRate(8000);
        writer->setSpeakers(source.speakers);
        writer->setTempDirectory(folder.path());
        ASSERT_TRUE(writer->beginWrite());
        writer->writeBuffer(KXNativeAudioBuffer(channels, 800));
        ASSERT_TRUE(writer->endWrite());
        ASSERT_TRUE(writer->saveToPath(folder.pathFor("source.caf")));
        auto original = KXAudioFile::audioFileWithPath(writer->filePath());
        ASSERT_TRUE(original);
        for (const auto& [format, name] : {std::pair{KXFourCC("CAFF"), "out.caf"}, std::pair{KXFourCC("AIFF"), "out.aif"}}) {
            SCOPED_TRACE(std::string(name) + " from " + std::to_string(channels) + " channels");
            auto converter = KXAudioFileWriter::writerWithAudioFile(*original);
            converter->setFormat(format);
            converter->setDepth(16);
            converter->setWriteAnalysis(format == KXFourCC("AIFF"));
            auto file = rewriteWith(*converter, *original, folder, name);
            ASSERT_TRUE(file);
            for (std::uint32_t c = 0; c < channels; ++c) {
                EXPECT_EQ(file->channelsList()->channel(c)->name(), source.names[c]) << c;
                if (format == KXFourCC("CAFF")) EXPECT_EQ(file->channelsList()->channel(c)->speaker(), source.speakers[c]) << c;
            }
        }
    }
}

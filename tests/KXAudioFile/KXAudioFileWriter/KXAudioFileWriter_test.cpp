#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cmath>
#include <filesystem>
#include <optional>
#include <thread>
#include <regex>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXApplicationLog.h"
#include "KXBase/KXFile.h"
#include "support/KXTestSupport.h"

namespace {

// A test signal that no two frames or channels share.
float testSignal(std::uint32_t frame, std::uint32_t channel) {
    return std::sin(float(frame) * 0.001f + float(channel)) * 0.9f;
}

// A headerless float file set written by `writer`, opened through its edit list.
std::shared_ptr<KXAudioFile> audioFileOver(const KXAudioFileWriter& writer) {
    auto file = KXAudioFile::audioFile();
    file->setNumberOfChannels(std::uint32_t(writer.channels()));
    file->setFrames(writer.frames());
    file->setRate(std::uint32_t(writer.rate()));
    file->setDepth(32);
    file->setIsFloatingPoint(true);
    file->setIsInterleaved(writer.isInterleaved());
    file->setEncoding(KXFourCC("lpcm"));
    file->setAudioDataByteOrder(writer.byteOrder());
    file->setUpAudioConverter();
    file->setEditList(KXEditList::editListWithWriter(writer));
    return file;
}

// Reads every frame of every channel back and compares it with `expected`.
template <typename Expected>
void expectSamples(KXAudioFile& file, std::uint32_t frames, Expected expected) {
    KXNativeAudioBuffer buffer(file.numberOfChannels(), KXAudioFile::kReadBufferFrames);
    for (std::uint32_t start = 0; start < frames; start += buffer.capacity()) {
        const std::int32_t read = file.readSamplesToBuffer(buffer, std::int32_t(start));
        ASSERT_EQ(std::uint32_t(read), std::min(buffer.capacity(), frames - start));
        for (std::uint32_t c = 0; c < file.numberOfChannels(); ++c)
            for (std::int32_t i = 0; i < read; ++i)
                ASSERT_EQ(buffer.channel(c)[i], expected(start + std::uint32_t(i), c)) << "frame " << start + i;
    }
}

std::shared_ptr<KXAudioFileWriter> rawWriter(const KXTemporaryFolder& folder, std::int32_t channels, std::int32_t rate) {
    auto writer = KXAudioFileWriter::writer();
    writer->setFormat(KXFourCC("RAW "));
    writer->setChannels(channels);
    writer->setRate(rate);
    writer->setTempDirectory(folder.path());
    return writer;
}

struct CollectingSink : KXLogSink {
    std::vector<KXLogRecord> records;
    void write(const KXLogRecord& record) override { records.push_back(record); }
};

}  // namespace

TEST(KXAudioFileWriterSettings, DefaultsAndTheCorrectingSetters) {
    auto writer = KXAudioFileWriter::writer();
    EXPECT_EQ(writer->format(), KXFourCC("TESS"));
    EXPECT_EQ(writer->depth(), 32);
    EXPECT_TRUE(writer->isFloatingPoint());
    EXPECT_FALSE(writer->isInterleaved());
    EXPECT_EQ(writer->byteOrder(), 2);
    EXPECT_EQ(writer->rate(), 44100);
    EXPECT_EQ(writer->channels(), 2);
    EXPECT_TRUE(writer->writeAnalysis());
    EXPECT_FALSE(writer->formatExtension());
    writer->setInterleaved(true);
    EXPECT_FALSE(writer->isInterleaved());

    writer->setFormat(KXFourCC("WAVE"));
    EXPECT_TRUE(writer->isFloatingPoint());
    EXPECT_EQ(writer->byteOrder(), 1);
    EXPECT_TRUE(writer->isInterleaved());
    writer->setFormat(KXFourCC("CAFF"));
    EXPECT_FALSE(writer->isFloatingPoint());
    writer->setDepth(24);
    writer->setIsFloatingPoint(true);
    EXPECT_FALSE(writer->isFloatingPoint());
    writer->setFormat(KXFourCC("RAW "));
    writer->setDepth(16);
    EXPECT_EQ(writer->depth(), 32);
    writer->setFormat(KXFourCC("RCY "));
    EXPECT_EQ(writer->format(), KXFourCC("APLL"));
    EXPECT_EQ(writer->formatExtension(), "aif");
    writer->setFormat(KXFourCC("ULAW"));
    EXPECT_EQ(writer->encoding(), KXFourCC("ulaw"));
    writer->setFormat(KXAudioFileWriter::kSplitSDII);
    EXPECT_FALSE(writer->isInterleaved());
    EXPECT_EQ(writer->formatExtension(), "sd2");
    writer->setFormat(KXFourCC("AIFF"));
    writer->setByteOrder(1);
    writer->setDepth(24);
    EXPECT_EQ(writer->byteOrder(), 2);

    EXPECT_EQ(KXAudioFileWriter::blockSizeForRate(44100), 45056u);
    EXPECT_EQ(KXAudioFileWriter::blockSizeForRate(48000), 48128u);
    EXPECT_EQ(KXAudioFileWriter::blockSizeForRate(8000), 8192u);
    EXPECT_EQ(KXAudioFileWriter::blockSizeForRate(1024), 1024u);
}

TEST(KXAudioFileWriterSettings, MetadataFamiliesAndTypedReaders) {
    auto writer = KXAudioFileWriter::writer();
    writer->addMetadata({{"timeSignature", 0x0604}, {"barsBeats", 0x0203}, {"MIDI Base Note", 60}}, false);
    EXPECT_EQ(writer->meterNumerator(), 6);
    EXPECT_EQ(writer->meterDenominator(), 4);
    EXPECT_EQ(writer->eighthBeats(), 30);
    EXPECT_EQ(writer->baseNote(), 60);
    writer->addMetadata({{"baseNote", 61}, {"MIDI Base Note", 1}}, false);
    EXPECT_EQ(writer->baseNote(), 61);
    EXPECT_EQ(writer->metadata().objectForKey("MIDI Base Note").intValue(), 60);
    // A denominator of 16 gives 8 ÷ 16 = 0: whole bars count nothing.
    writer->addMetadataObject(0x0610, "timeSignature");
    EXPECT_EQ(writer->eighthBeats(), 6);
    writer->addMetadata({{"Key", "F#"}, {"Scale", "Major"}, {"Playback Type", "7"}}, true);
    EXPECT_EQ(writer->key(), 6);
    EXPECT_EQ(writer->scaleType(), 2);
    EXPECT_EQ(writer->playbackType(), 7);

    writer->addMetadataObject(100, "MIDI High Velocity");
    EXPECT_TRUE(writer->hasMIDIMetadata());
    writer->removeMIDIMetadata();
    EXPECT_TRUE(writer->metadata().contains("MIDI High Velocity"));
    EXPECT_EQ(writer->highVelocity(), 100);
    EXPECT_FALSE(writer->metadata().contains("baseNote"));
    writer->addMetadata({{"Tempo", 120.0}, {"tempo", 121.0}}, true);
    writer->removeMusicalMetadata();
    EXPECT_TRUE(writer->metadata().contains("Tempo"));
    EXPECT_FALSE(writer->metadata().contains("tempo"));
    writer->addMetadata({{"originator", "me"}, {"scene", "1"}}, true);
    EXPECT_TRUE(writer->hasBroadcastWaveMetadata());
    writer->removeIXMLMetadata();
    EXPECT_FALSE(writer->hasBroadcastWaveMetadata());
    EXPECT_FALSE(writer->hasIXMLMetadata());
}

TEST(KXAudioFileWriterLifecycle, SamplesCountByFramesAndComeBackExactly) {
    KXTemporaryFolder folder;
    auto sink = std::make_shared<CollectingSink>();
    KXApplicationLog::setSink(sink);
    auto writer = rawWriter(folder, 2, 8000);
    ASSERT_TRUE(writer->beginWrite());
    // Temporary files: "kxaudio-temp-<microseconds>.00" and ".01" in the temporary directory.
    ASSERT_EQ(writer->filePaths().size(), 2u);
    EXPECT_TRUE(std::regex_match(writer->filePaths()[1], std::regex(folder.path() + "/kxaudio-temp-[0-9]{16,}\\.01")));
    // Channel 5 is ignored; a frame counts when its last channel arrives.
    writer->writeSample(0.5f, 0);
    writer->writeSample(0.5f, 5);
    const std::uint32_t frames = 20000;  // two full blocks of 8192 and a part
    for (std::uint32_t f = 0; f < frames; ++f) {
        writer->writeSample(testSignal(f, 0), 0);
        writer->writeSample(testSignal(f, 1), 1);
    }
    // A buffer of another channel count is ignored.
    KXNativeAudioBuffer mono(1, 100);
    writer->writeBuffer(mono);
    EXPECT_EQ(writer->frames(), 16384u);
    ASSERT_TRUE(writer->endWrite());
    EXPECT_EQ(writer->frames(), frames);
    EXPECT_EQ(KXFile::lengthOfFileAtPath(writer->filePaths()[0]), frames * 4u);
    auto file = audioFileOver(*writer);
    expectSamples(*file, frames, testSignal);
    KXApplicationLog::setSink(nullptr);
    ASSERT_GE(sink->records.size(), 3u);
    std::vector<std::string> messages;
    for (const auto& record : sink->records) messages.push_back(record.message);
    EXPECT_NE(std::find(messages.begin(), messages.end(), "beginWrite"), messages.end());
    const auto end = std::find_if(sink->records.begin(), sink->records.end(),
                                  [](const KXLogRecord& r) { return r.message == "endWrite"; });
    ASSERT_NE(end, sink->records.end());
    EXPECT_EQ(end->domain, "Writing");
    EXPECT_STREQ(end->function, "-[KXAudioFileWriter endWrite:]");
    EXPECT_STREQ(end->file, "KXCore/KXAudioFile/KXAudioFileWriter/KXAudioFileWriter");
}

TEST(KXAudioFileWriterLifecycle, BuffersAcrossBlocksSynchronouslyAndOnTheWriterThread) {
    for (const bool asynchronous : {false, true}) {
        KXTemporaryFolder folder;
        auto writer = rawWriter(folder, 3, 1024);
        writer->setWriteAsynchronous(asynchronous);
        ASSERT_TRUE(writer->beginWrite());
        const std::uint32_t frames = 50 * 1024 + 333, piece = 700;
        KXNativeAudioBuffer buffer(3, piece);
        for (std::uint32_t start = 0; start < frames; start += piece) {
            for (std::uint32_t c = 0; c < 3; ++c)
                for (std::uint32_t i = 0; i < piece; ++i) buffer.channel(c)[i] = testSignal(start + i, c);
            // The last piece is given as a range of the buffer.
            writer->writeBuffer(buffer, {0, std::min(piece, frames - start)});
        }
        ASSERT_TRUE(writer->endWrite());
        EXPECT_EQ(writer->frames(), frames) << asynchronous;
        auto file = audioFileOver(*writer);
        expectSamples(*file, frames, testSignal);
    }
}

TEST(KXAudioFileWriterSaving, ExistsActionsNamesAndTemporarySaves) {
    KXTemporaryFolder folder;
    const auto written = [&](float value) {
        auto writer = rawWriter(folder, 1, 1024);
        EXPECT_TRUE(writer->beginWrite());
        writer->writeSample(value, 0);
        EXPECT_TRUE(writer->endWrite());
        return writer;
    };
    const std::string target = folder.pathFor("Take.raw");
    const KXDictionary instructions{{"path", target}, {"forcedExtension", "raw"}};
    ASSERT_TRUE(written(0.25f)->saveWithInstructions(instructions));
    EXPECT_EQ(readWholeFile(target).size(), 4u);

    // 0: the new file replaces the old one in one rename (a new inode, the new bytes).
    struct stat before {};
    stat(target.c_str(), &before);
    KXDictionary replace = instructions;
    replace.setObject(0, "existsAction");
    auto replacing = written(0.5f);
    ASSERT_TRUE(replacing->saveWithInstructions(replace));
    struct stat after {};
    stat(target.c_str(), &after);
    EXPECT_NE(before.st_ino, after.st_ino);
    EXPECT_EQ(readWholeFile(target), (KXData{0x3F, 0x00, 0x00, 0x00}));
    EXPECT_EQ(replacing->filePath(), target);

    // 1: the next free number of the naming scheme.
    KXDictionary number = instructions;
    number.setObject(1, "existsAction");
    ASSERT_TRUE(written(0.5f)->saveWithInstructions(number));
    ASSERT_TRUE(written(0.5f)->saveWithInstructions(number));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("Take_000.raw")));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("Take_001.raw")));

    // 2: the existing file stays and the new recording is deleted.
    KXDictionary keep = instructions;
    keep.setObject(2, "existsAction");
    auto kept = written(-1.0f);
    const std::string temporary = kept->filePaths()[0];
    ASSERT_TRUE(kept->saveWithInstructions(keep));
    EXPECT_FALSE(KXFile::existsAtPath(temporary));
    EXPECT_TRUE(kept->files().empty());
    EXPECT_EQ(readWholeFile(target), (KXData{0x3F, 0x00, 0x00, 0x00}));

    // "ignoreExtension" wins over "forcedExtension"; no "path" saves nothing.
    KXDictionary bare = instructions;
    bare.setObject(true, "ignoreExtension");
    ASSERT_TRUE(written(0.0f)->saveWithInstructions(bare));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("Take")));
    EXPECT_FALSE(written(0.0f)->saveWithInstructions({{"forcedExtension", "raw"}}));

    // Split sets are named by the scheme; the temporary save names the set ".L".
    auto stereo = rawWriter(folder, 2, 1024);
    ASSERT_TRUE(stereo->beginWrite());
    ASSERT_TRUE(stereo->endWrite());
    const std::optional<std::string> temporarySet = stereo->saveToTempDirectory();
    ASSERT_TRUE(temporarySet);
    EXPECT_EQ(*temporarySet, folder.pathFor("TSTemp_" + stereo->tempFileName() + ".L"));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("TSTemp_" + stereo->tempFileName() + ".01")));
    ASSERT_TRUE(stereo->saveToPath(folder.pathFor("Pair")));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("Pair.L")));
    EXPECT_TRUE(KXFile::existsAtPath(folder.pathFor("Pair.R")));
    auto dropped = rawWriter(folder, 2, 1024);
    ASSERT_TRUE(dropped->beginWrite());
    ASSERT_TRUE(dropped->endWrite());
    EXPECT_EQ(dropped->dropToPath(folder.path(), "Pair.wav"), (std::vector<std::string>{"Pair_000.L", "Pair_000.R"}));
}

TEST(KXAudioFileWriterSaving, TheEditorDocumentIsAnalysedAndItsHeaderWrittenLast) {
    KXTemporaryFolder folder;
    KXError error;
    auto document = KXAudioFileWriter::writer();
    document->setTempDirectory(folder.path());
    document->setRate(1024);
    ASSERT_TRUE(document->beginWrite());
    KXNativeAudioBuffer buffer(2, 3000);
    for (std::uint32_t i = 0; i < 3000; ++i) buffer.channel(0)[i] = testSignal(i, 0), buffer.channel(1)[i] = 0.25f;
    document->writeBuffer(buffer);
    ASSERT_TRUE(document->endWrite(&error)) << error.description();
    ASSERT_EQ(document->filePaths().size(), 3u);
    EXPECT_EQ(KXFile::pathExtension(document->filePaths()[2]), "info");
    EXPECT_EQ(document->channelsList()->analysisState(), 1);
    const KXDictionary analysis = document->analysisForChannels(KXIndexSet{1});
    ASSERT_EQ(analysis.objectForKey("Channels").array().size(), 1u);
    const KXDictionary& channel = analysis.objectForKey("Channels").array()[0].dictionary();
    EXPECT_FLOAT_EQ(channel.objectForKey("Max").floatValue(), 0.25f);
    EXPECT_EQ(channel.objectForKey("Magnitude Maxima").data().size(), std::size_t(3000 / 256 + 1) * 4);
    EXPECT_TRUE(analysis.contains("Difference"));
}

TEST(KXAudioFileWriterFeeders, BufferExtensionsAndBlocksWithHandles) {
    KXTemporaryFolder folder;
    // The selected channels are packed onto the writer's channels in order.
    auto writer = rawWriter(folder, 2, 1024);
    ASSERT_TRUE(writer->beginWrite());
    KXNativeAudioBuffer buffer(3, 10);
    for (std::uint32_t c = 0; c < 3; ++c)
        for (std::uint32_t i = 0; i < 10; ++i) buffer.channel(c)[i] = testSignal(i, c);
    KXNativeAudioBufferWriting::writeToWriter(buffer, *writer, {2, 100}, KXIndexSet{0, 2});
    KXNativeAudioBufferWriting::writeToWriter(buffer, *writer);  // three channels: nothing
    ASSERT_TRUE(writer->endWrite());
    EXPECT_EQ(writer->frames(), 8u);
    expectSamples(*audioFileOver(*writer), 8, [](std::uint32_t f, std::uint32_t c) { return testSignal(f + 2, c ? 2 : 0); });

    // A block writes its source with its fades and the extra frames, as far as the source goes.
    const std::string source = KXTestSamples::writeFile(folder, "stereo.raw", 2, 1000);
    auto block = KXEditBlock::editBlock();
    block->setSourcePath(source);
    block->setSourceChannel(1);
    block->setSourceTotalChannels(2);
    block->setSourceEnd(1000);
    block->setSourceLocation(100);
    block->setSampleRange({5000, 200});
    block->setStartFadeLength(10);
    block->setEndFadeLength(20);
    KXAudioStreamDescription stored;
    stored.setRange(16);
    stored.setFlags(KXAudioStreamDescription::kFlagIsSignedInteger);
    auto converter = KXConverter::converterWithSourceFormat(stored, KXAudioStreamDescription::description());
    auto handles = KXAudioFileWriter::writer();
    handles->setTempDirectory(folder.path());
    ASSERT_TRUE(block->writeToWriter(*handles, 95, *converter, nullptr));
    EXPECT_EQ(handles->format(), KXFourCC("RAW "));
    // From 100 − 10 − 95 (clamped to 0) to 100 + 200 + 20 + 95.
    EXPECT_EQ(handles->frames(), 415u);
    expectSamples(*audioFileOver(*handles), 415, [](std::uint32_t f, std::uint32_t) { return KXTestSamples::sample(f, 1); });
}

TEST(KXAudioFileWriterFailures, AFailedBlockWriteFailsEndWriteAndNothingIsSaved) {
    // A file-size limit makes every write past it fail (EFBIG), as a full disk does (ENOSPC).
    KXTemporaryFolder folder;
    const std::string target = folder.write("take.au", bytesOf("the old take"));
    for (bool asynchronous : {false, true}) {
        SCOPED_TRACE(asynchronous ? "on the writer thread" : "synchronously");
        auto writer = KXAudioFileWriter::writer();
        writer->setFormat(KXFourCC("ULAW"));
        writer->setDepth(16);
        writer->setIsFloatingPoint(false);
        writer->setInterleaved(true);
        writer->setChannels(1);
        writer->setRate(8000);
        writer->setTempDirectory(folder.path());
        writer->setWriteAsynchronous(asynchronous);
        ASSERT_TRUE(writer->beginWrite());
        struct rlimit old {};
        getrlimit(RLIMIT_FSIZE, &old);
        const auto previous = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit small = old;
        small.rlim_cur = 4096;
        setrlimit(RLIMIT_FSIZE, &small);
        KXNativeAudioBuffer buffer(1, 8192);
        for (int i = 0; i < 4; ++i) writer->writeBuffer(buffer);
        KXError error;
        const bool ended = writer->endWrite(&error);
        setrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, previous);
        EXPECT_FALSE(ended);
        EXPECT_EQ(error.code(), EFBIG);
        writer->deleteFiles();
        EXPECT_EQ(readWholeFile(target), bytesOf("the old take"));
    }
}

TEST(KXAudioFileWriterFailures, G711WhereTheHeaderCannotSayItIsRefused) {
    // Sound Designer headers and the editor document say nothing of G.711: their samples would
    // read back as 8-bit integers. Nothing is left in the folder.
    KXTemporaryFolder folder;
    const struct {
        std::uint32_t format;
        const char* action;
    } refused[] = {{KXFourCC("SDII"), "Writing the SDII header"},
                   {KXFourCC("SFIL"), "Writing the SFIL header"},
                   {KXFourCC("TESS"), "Writing"}};
    for (const auto& r : refused) {
        KXAudioFileWriter writer;
        writer.setFormat(r.format);
        writer.setDepth(8);
        writer.setEncoding(KXFourCC("alaw"));
        writer.setChannels(1);
        writer.setRate(8000);
        writer.setTempDirectory(folder.path());
        KXError error;
        EXPECT_FALSE(writer.beginWrite(&error)) << r.action;
        EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, r.action));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    for (const std::uint32_t format : {KXFourCC("WAVE"), KXFourCC("AIFF"), KXFourCC("ULAW"), KXFourCC("CAFF"), KXFourCC("RAW ")})
        EXPECT_TRUE(KXAudioFileWriter::formatHoldsEncoding(format, KXFourCC("ulaw")));
    EXPECT_FALSE(KXAudioFileWriter::formatHoldsEncoding(KXFourCC("WAVE"), KXFourCC("ima4")));
}

TEST(KXAudioFileWriterFailures, TheBlockGrowsWithTheSamplesNotWithTheRate) {
    // 200 MHz asks for blocks of 200 million frames. The block starts small and grows past its
    // first size (4 Mi samples) with every sample kept, by buffers and frame by frame.
    KXTemporaryFolder folder;
    auto writer = rawWriter(folder, 1, 200000000);
    ASSERT_TRUE(writer->beginWrite());
    constexpr std::uint32_t kPiece = 1000000, kPieces = 5;
    KXNativeAudioBuffer buffer(1, kPiece);
    for (std::uint32_t p = 0; p < kPieces; ++p) {
        for (std::uint32_t i = 0; i < kPiece; ++i) buffer.channel(0)[i] = testSignal(p * kPiece + i, 0);
        writer->writeBuffer(buffer);
    }
    for (std::uint32_t i = 0; i < 3; ++i) writer->writeSample(testSignal(kPiece * kPieces + i, 0), 0);
    ASSERT_TRUE(writer->endWrite());
    auto file = audioFileOver(*writer);
    expectSamples(*file, kPiece * kPieces + 3, [](std::uint32_t frame, std::uint32_t c) { return testSignal(frame, c); });
}

TEST(KXAudioFileWriterThreads, ProgressMayBeReadWhileTheWriterThreadWrites) {
    // ThreadSanitizer checks this one: frames() is read here while the writer thread counts.
    KXTemporaryFolder folder;
    auto writer = rawWriter(folder, 2, 8000);
    writer->setWriteAsynchronous(true);
    ASSERT_TRUE(writer->beginWrite());
    std::atomic<bool> done = false;
    std::uint32_t lastSeen = 0;
    std::thread poll([&] {
        while (!done) lastSeen = std::max(lastSeen, writer->frames());
    });
    KXNativeAudioBuffer buffer(2, 5000);
    for (std::uint32_t i = 0; i < buffer.capacity(); ++i) buffer.channel(0)[i] = buffer.channel(1)[i] = testSignal(i, 0);
    for (int i = 0; i < 20; ++i) writer->writeBuffer(buffer);
    ASSERT_TRUE(writer->endWrite());
    done = true;
    poll.join();
    EXPECT_LE(lastSeen, 100000u);
    EXPECT_EQ(writer->frames(), 100000u);
}

namespace {

// A writer of every chunk its format has: labels, slices, MIDI, Broadcast WAVE, INFO or AIFF
// text, iXML, loop-library data, metadata for the archive, and the analysis.
std::shared_ptr<KXAudioFileWriter> everyChunkWriter(const KXTemporaryFolder& folder, std::uint32_t format) {
    auto writer = KXAudioFileWriter::writer();
    writer->setFormat(format);
    writer->setDepth(16);
    writer->setChannels(2);
    writer->setRate(8000);
    writer->setTempDirectory(folder.path());
    writer->markerList()->addMarkerWithPosition(0.001, std::string("Mark"));
    writer->regionList()->addRegionWithRange(KXRange::rangeWithStart(0.002, 0.004), std::string("Verse"));
    writer->loopList()->addLoopWithType(0, KXRange::rangeWithStart(0.001, 0.005));
    writer->sliceList()->addSliceWithPosition(0.002);
    writer->addMetadata({{"description", "Take"}, {"metaName", "Title"}, {"comments", "Notes"}, {"scene", "12"},
                         {"MIDI Base Note", 60}, {"instrument", "Bass"}, {"somethingElse", "kept"}},
                        true);
    return writer;
}

// Writes 100 frames through `make`'s writer in a child process whose files may not grow past
// `limit` bytes: 0 when everything succeeded, 2 when a step failed with an error, 3 when one
// failed without saying why, or −1 when the child did not exit normally.
template <typename Make>
int writeUnderSizeLimit(Make make, rlim_t limit) {
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit small {limit, limit};
        setrlimit(RLIMIT_FSIZE, &small);
        auto writer = make();
        KXError error;
        bool ok = writer->beginWrite(&error);
        if (ok) {
            KXNativeAudioBuffer buffer(2, 100);
            writer->writeBuffer(buffer);
            ok = writer->endWrite(&error);
        }
        _exit(ok ? 0 : error.code() != 0 ? 2 : 3);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(KXAudioFileWriterFailures, AWriteThatFailsAtAnyByteFailsTheWriteWithItsError) {
    // Every step of the header writers, the samples and the analysis meets a failed write at
    // some limit; each must answer false with the file layer's error, and nothing may crash.
    for (const std::uint32_t format : {KXFourCC("ACID"), KXFourCC("APLL")}) {
        SCOPED_TRACE(KXFourCCString(format));
        KXTemporaryFolder folder;
        const auto make = [&] { return everyChunkWriter(folder, format); };
        auto whole = make();
        ASSERT_TRUE(whole->beginWrite());
        KXNativeAudioBuffer buffer(2, 100);
        whole->writeBuffer(buffer);
        ASSERT_TRUE(whole->endWrite());
        const std::uint64_t length = KXFile::lengthOfFileAtPath(whole->filePath());
        whole->deleteFiles();
        for (std::uint64_t limit = 0; limit < length; limit += 7)
            ASSERT_EQ(writeUnderSizeLimit(make, rlim_t(limit)), 2) << "limit " << limit << " of " << length;
        EXPECT_EQ(writeUnderSizeLimit(make, rlim_t(length)), 0);
    }
}

TEST(KXAudioFileWriterLifecycle, ExpectedFramesOnlyChangeWhereTheTablesAreAllocated) {
    // The same analysis whatever the caller expects: nothing, too few, exactly, too many.
    const std::uint32_t frames = 20 * 1024 + 333, piece = 700;
    std::optional<std::vector<KXData>> first;
    for (const std::uint64_t expected : {std::uint64_t(0), std::uint64_t(5000), std::uint64_t(frames), std::uint64_t(1) << 20}) {
        SCOPED_TRACE(expected);
        KXTemporaryFolder folder;
        auto writer = KXAudioFileWriter::writer();
        writer->setFormat(KXFourCC("WAVE"));
        writer->setChannels(2);
        writer->setRate(1024);
        writer->setTempDirectory(folder.path());
        writer->setExpectedFrames(expected);
        ASSERT_TRUE(writer->beginWrite());
        KXNativeAudioBuffer buffer(2, piece);
        for (std::uint32_t start = 0; start < frames; start += piece) {
            for (std::uint32_t c = 0; c < 2; ++c)
                for (std::uint32_t i = 0; i < piece; ++i) buffer.channel(c)[i] = testSignal(start + i, c);
            writer->writeBuffer(buffer, {0, std::min(piece, frames - start)});
        }
        ASSERT_TRUE(writer->endWrite());
        std::vector<KXData> tables;
        for (std::uint32_t c = 0; c < 2; ++c)
            for (const auto& waveform : writer->channelsList()->channel(c)->waveforms()) {
                ASSERT_EQ(waveform->numberOfEntries(), (frames + 255) / 256);
                tables.push_back(waveform->table().value_or(KXData()));
            }
        if (!first) first = tables;
        EXPECT_EQ(tables, *first);
        writer->deleteFiles();
    }
}

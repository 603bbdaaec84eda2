// Interoperability with the tools users have: files that sox, ffmpeg and libsndfile write read
// here with their format and every sample bit for bit as libsndfile decodes them, and their labels
// and metadata; files the library writes read back in libsndfile with equal samples and labels,
// and sox and ffprobe accept them. The tools are installed by the project (scripts/install-deps.sh);
// a missing tool fails the suite rather than skipping it.

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/statvfs.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXBase/KXFile.h"
#include "interop/KXInteropSupport.h"
#include "support/KXTestSupport.h"

using namespace KXInterop;

namespace {

struct Variant {
    const char* name;
    const char* options;
};

}  // namespace

TEST(KXInterop, ToolsAreInstalled) {
    EXPECT_TRUE(run("sox --version"));
    EXPECT_TRUE(run("ffmpeg -version"));
    EXPECT_TRUE(run("ffprobe -version"));
}

TEST(KXInterop, SoxFilesReadAsLibsndfileReadsThem) {
    KXTemporaryFolder folder;
    const Variant encodings[] = {{"u8", "-b 8"},      {"s16", "-b 16"},    {"s24", "-b 24"},     {"s32", "-b 32"},
                                 {"f32", "-b 32 -e floating-point"}, {"f64", "-b 64 -e floating-point"},
                                 {"ulaw", "-e mu-law"}, {"alaw", "-e a-law"}};
    for (const char* container : {"wav", "au", "w64"}) {
        for (const Variant& e : encodings) {
            for (int channels : {1, 2, 6}) {
                const std::string path = folder.pathFor(std::string(e.name) + "-" + std::to_string(channels) + "." + container);
                ASSERT_TRUE(run("sox -n -r 44100 -c " + std::to_string(channels) + " " + e.options + " " + quoted(path) +
                                " synth 0.3 sine 300 sine 440 square 100"))
                    << path;
                expectSameAsLibsndfile(path);
            }
        }
    }
}

TEST(KXInterop, FfmpegFilesReadAsLibsndfileReadsThem) {
    KXTemporaryFolder folder;
    const Variant codecs[] = {{"u8", "pcm_u8"},     {"s16", "pcm_s16le"}, {"s24", "pcm_s24le"}, {"s32", "pcm_s32le"},
                              {"f32", "pcm_f32le"}, {"f64", "pcm_f64le"}, {"ulaw", "pcm_mulaw"}, {"alaw", "pcm_alaw"}};
    for (const Variant& c : codecs) {
        for (int channels : {1, 2, 6}) {
            const std::string base = folder.pathFor(std::string(c.name) + "-" + std::to_string(channels));
            const std::string generate = "ffmpeg -v error -y -f lavfi -i 'sine=f=440:d=0.3:r=48000' -ac " +
                                         std::to_string(channels) + " -c:a " + c.options;
            ASSERT_TRUE(run(generate + " " + quoted(base + ".wav")));
            ASSERT_TRUE(run(generate + " -f w64 " + quoted(base + ".w64")));
            // ffmpeg writes G.711 files of more than two channels as extensible files with a G.711
            // sub-format.
            expectSameAsLibsndfile(base + ".wav");
            // libsndfile takes extensible float and G.711 Wave64 files for integers (and 64-bit
            // floats not at all); the WAVE file of the same samples is the reference.
            const std::string name = c.name;
            const bool reference = name == "f32" || name == "f64" || ((name == "ulaw" || name == "alaw") && channels > 2);
            expectSameAsLibsndfile(base + ".w64", reference ? base + ".wav" : std::string());
        }
    }
    // AU from ffmpeg: big-endian PCM and G.711.
    for (const char* codec :
         {"pcm_s16be", "pcm_s24be", "pcm_s32be", "pcm_f32be", "pcm_f64be", "pcm_mulaw", "pcm_alaw", "pcm_s8"}) {
        const std::string path = folder.pathFor(std::string(codec) + ".au");
        ASSERT_TRUE(run("ffmpeg -v error -y -f lavfi -i 'sine=f=440:d=0.3' -ac 2 -c:a " + std::string(codec) + " " + quoted(path)))
            << path;
        expectSameAsLibsndfile(path);
    }
}

TEST(KXInterop, CompressedVariantsAreRefused) {
    KXTemporaryFolder folder;
    for (const char* options : {"-e ima-adpcm", "-e ms-adpcm", "-e gsm-full-rate"}) {
        const std::string path = folder.pathFor("compressed.wav");
        ASSERT_TRUE(run("sox -n -r 8000 -c 1 " + std::string(options) + " " + quoted(path) + " synth 0.2 sine 440"));
        KXError error;
        EXPECT_FALSE(KXAudioFile::audioFileWithPath(path, &error)) << options;
        EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat) << options;
    }
}

TEST(KXInterop, LibsndfileCuesLoopsAndBroadcastInfoAreRead) {
    KXTemporaryFolder folder;
    const std::string path = folder.pathFor("labels.wav");
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* out = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_TRUE(out);
    SF_CUES cues{};
    cues.cue_count = 2;
    cues.cue_points[0] = {1, 4410, ('d' | 'a' << 8 | 't' << 16 | 'a' << 24), 0, 0, 4410, "first"};
    cues.cue_points[1] = {2, 22050, ('d' | 'a' << 8 | 't' << 16 | 'a' << 24), 0, 0, 22050, "second"};
    ASSERT_EQ(sf_command(out, SFC_SET_CUE, &cues, sizeof cues), SF_TRUE);
    SF_INSTRUMENT instrument{};
    instrument.basenote = 60;
    instrument.velocity_hi = 127;
    instrument.key_hi = 127;
    instrument.loop_count = 1;
    instrument.loops[0] = {SF_LOOP_FORWARD, 1000, 30000, 0};
    ASSERT_EQ(sf_command(out, SFC_SET_INSTRUMENT, &instrument, sizeof instrument), SF_TRUE);
    SF_BROADCAST_INFO bext{};
    std::strcpy(bext.description, "A take");
    std::strcpy(bext.originator, "libsndfile");
    std::strcpy(bext.originator_reference, "REF");
    std::memcpy(bext.origination_date, "2026-11-22", 10);
    std::memcpy(bext.origination_time, "05:50:00", 8);
    bext.time_reference_low = 48000;
    bext.time_reference_high = 1;
    bext.version = 1;
    ASSERT_EQ(sf_command(out, SFC_SET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
    sf_set_string(out, SF_STR_TITLE, "Title");
    std::vector<short> samples(44100 * 2);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = short((i * 37) % 20000 - 10000);
    sf_writef_short(out, samples.data(), 44100);
    sf_close(out);

    expectSameAsLibsndfile(path);
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    ASSERT_EQ(file->markerList()->count(), 2u);
    EXPECT_DOUBLE_EQ(file->markerList()->markerWithID(1)->position(), 0.1);
    EXPECT_DOUBLE_EQ(file->markerList()->markerWithID(2)->position(), 0.5);
    ASSERT_EQ(file->loopList()->count(), 1u);
    const auto loop = std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(0));
    // libsndfile's own reading of its loop is the reference for the stored frames.
    SNDFILE* in = sf_open(path.c_str(), SFM_READ, &info);
    SF_INSTRUMENT stored{};
    ASSERT_EQ(sf_command(in, SFC_GET_INSTRUMENT, &stored, sizeof stored), SF_TRUE);
    sf_close(in);
    // The 'smpl' end field holds the loop's last frame, which the library takes as the end as it
    // stands; libsndfile's interface answers one frame past it.
    EXPECT_EQ(std::lround(loop->start() * 44100), stored.loops[0].start);
    EXPECT_EQ(std::lround(loop->end() * 44100), stored.loops[0].end - 1);
    const KXDictionary& metadata = file->metadata();
    EXPECT_EQ(metadata.objectForKey("description").string(), "A take");
    EXPECT_EQ(metadata.objectForKey("originator").string(), "libsndfile");
    EXPECT_EQ(metadata.objectForKey("originatorReference").string(), "REF");
    EXPECT_EQ(metadata.objectForKey("originationDate").string(), "2026-11-22");
    EXPECT_EQ(metadata.objectForKey("timeReference").longLongValue(), 4294967296ll + 48000);
    EXPECT_EQ(metadata.objectForKey("metaName").string(), "Title");
}

TEST(KXInterop, FilesWeWriteReadInLibsndfileSoxAndFfprobe) {
    KXTemporaryFolder folder;
    struct Case {
        const char* name;
        std::uint32_t format;
        std::int32_t depth;
        bool floatingPoint;
        std::uint32_t encoding;
        std::int32_t channels;
    } cases[] = {
        {"u8.wav", KXFourCC("WAVE"), 8, false, KXFourCC("lpcm"), 1},   {"s16.wav", KXFourCC("WAVE"), 16, false, KXFourCC("lpcm"), 2},
        {"s24.wav", KXFourCC("WAVE"), 24, false, KXFourCC("lpcm"), 6}, {"s32.wav", KXFourCC("WAVE"), 32, false, KXFourCC("lpcm"), 2},
        {"f32.wav", KXFourCC("WAVE"), 32, true, KXFourCC("lpcm"), 2},  {"ulaw.wav", KXFourCC("WAVE"), 8, false, KXFourCC("ulaw"), 1},
        {"alaw.wav", KXFourCC("WAVE"), 8, false, KXFourCC("alaw"), 2}, {"s8.au", KXFourCC("ULAW"), 8, false, KXFourCC("lpcm"), 1},
        {"s16.au", KXFourCC("ULAW"), 16, false, KXFourCC("lpcm"), 2},  {"s24.au", KXFourCC("ULAW"), 24, false, KXFourCC("lpcm"), 2},
        {"f32.au", KXFourCC("ULAW"), 32, true, KXFourCC("lpcm"), 1},   {"ulaw.au", KXFourCC("ULAW"), 8, false, KXFourCC("ulaw"), 2},
        {"f64.au", KXFourCC("ULAW"), 64, true, KXFourCC("lpcm"), 2},   {"ulaw.aif", KXFourCC("AIFF"), 8, false, KXFourCC("ulaw"), 2},
        {"alaw.aif", KXFourCC("AIFF"), 8, false, KXFourCC("alaw"), 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        KXAudioFileWriter writer;
        writer.setFormat(c.format);
        writer.setDepth(c.depth);
        writer.setIsFloatingPoint(c.floatingPoint);
        writer.setEncoding(c.encoding);
        writer.setChannels(c.channels);
        writer.setRate(48000);
        writer.setTempDirectory(folder.path());
        writer.setWriteAnalysis(false);
        if (c.format == KXFourCC("WAVE")) {
            writer.markerList()->addMarkerWithPosition(0.125, std::string("Start"));
            writer.markerList()->addMarkerWithPosition(0.25, std::string("Odd"));
            writer.regionList()->addRegionWithRange(KXRange::rangeWithStart(0.05, 0.15), std::string("Chorus"));
            writer.loopList()->addLoopWithType(0, KXRange::rangeWithStart(0.1, 0.3));
            writer.addMetadata({{"description", "Ours"}, {"originator", "KXAudioFile"}, {"timeReference", 96000},
                                {"metaName", "Title"}, {"comments", "Written here"}},
                               true);
        }
        ASSERT_TRUE(writer.beginWrite());
        KXNativeAudioBuffer buffer(std::uint32_t(c.channels), 24001);
        for (std::int32_t ch = 0; ch < c.channels; ++ch)
            for (std::uint32_t i = 0; i < buffer.frames(); ++i)
                buffer.channel(std::uint32_t(ch))[i] = 0.9f * std::sin(float(i) * 0.01f * float(ch + 1));
        writer.writeBuffer(buffer);
        ASSERT_TRUE(writer.endWrite());
        const std::string path = folder.pathFor(c.name);
        ASSERT_TRUE(writer.saveWithInstructions({{"path", path}, {"forcedExtension", std::string(c.name).substr(std::string(c.name).find('.') + 1)}}));

        expectSameAsLibsndfile(path);
        // sox reads no G.711 AIFF-C file, libsndfile's and ffmpeg's neither.
        if (c.format != KXFourCC("AIFF")) EXPECT_TRUE(run("sox --i " + quoted(path)));
        EXPECT_TRUE(run("ffprobe -v error " + quoted(path)));
        if (c.format != KXFourCC("WAVE")) continue;
        SF_INFO info{};
        SNDFILE* in = sf_open(path.c_str(), SFM_READ, &info);
        ASSERT_TRUE(in);
        SF_CUES cues{};
        ASSERT_EQ(sf_command(in, SFC_GET_CUE, &cues, sizeof cues), SF_TRUE);
        ASSERT_EQ(cues.cue_count, 3u);
        EXPECT_EQ(cues.cue_points[0].position, 6000u);
        EXPECT_EQ(cues.cue_points[2].position, 2400u);  // the region's start, after the markers
        SF_INSTRUMENT instrument{};
        ASSERT_EQ(sf_command(in, SFC_GET_INSTRUMENT, &instrument, sizeof instrument), SF_TRUE);
        ASSERT_EQ(instrument.loop_count, 1);
        EXPECT_EQ(instrument.loops[0].start, 4800u);
        EXPECT_EQ(instrument.loops[0].end, 14400u + 1);  // one past the stored field, as libsndfile answers
        SF_BROADCAST_INFO bext{};
        ASSERT_EQ(sf_command(in, SFC_GET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
        EXPECT_STREQ(bext.description, "Ours");
        EXPECT_STREQ(bext.originator, "KXAudioFile");
        EXPECT_EQ(bext.time_reference_low, 96000u);
        const char* title = sf_get_string(in, SF_STR_TITLE);
        EXPECT_STREQ(title ? title : "", "Title");
        sf_close(in);
    }
}

namespace {

// Writes `file`'s samples, labels and metadata through a writer made from it, in `format` at
// `depth` (floats at 32), and saves the result at `path`.
bool rewrite(const KXAudioFile& file, const std::string& path, std::int32_t depth, bool floatingPoint) {
    auto writer = KXAudioFileWriter::writerWithAudioFile(file);
    writer->setDepth(depth);
    writer->setIsFloatingPoint(floatingPoint);
    writer->setTempDirectory(KXFile::directoryOfPath(path));
    if (!writer->beginWrite()) return false;
    KXAudioFile& source = const_cast<KXAudioFile&>(file);
    KXNativeAudioBuffer buffer(file.numberOfChannels(), KXAudioFile::kReadBufferFrames);
    for (std::uint32_t start = 0; start < file.frames(); start += buffer.capacity()) {
        const std::int32_t read = source.readSamplesToBuffer(buffer, std::int32_t(start));
        writer->writeBuffer(buffer, {0, std::uint32_t(read)});
    }
    return writer->endWrite() && writer->saveWithInstructions({{"path", path}, {"forcedExtension", "wav"}});
}

// The bytes of a WAVE file's 'data' chunk.
KXData dataChunkOf(const std::string& path) {
    const KXWalkedChunks chunks = walkChunks(readWholeFile(path), KXByteOrder::little);
    const KXData* data = chunks.find("data");
    return data ? *data : KXData();
}

}  // namespace

TEST(KXInterop, SixteenBitsThroughFloatsAndBackChangeNoSample) {
    KXTemporaryFolder folder;
    const std::string original = folder.pathFor("original.wav");
    ASSERT_TRUE(run("sox -n -r 44100 -c 2 -b 16 " + quoted(original) + " synth 1 sine 300 sine 440 square 90 gain -1"));
    auto file = KXAudioFile::audioFileWithPath(original);
    ASSERT_TRUE(file);
    ASSERT_TRUE(rewrite(*file, folder.pathFor("float.wav"), 32, true));
    auto floats = KXAudioFile::audioFileWithPath(folder.pathFor("float.wav"));
    ASSERT_TRUE(floats);
    EXPECT_TRUE(floats->isFloatingPoint());
    ASSERT_TRUE(rewrite(*floats, folder.pathFor("back.wav"), 16, false));
    const KXData before = dataChunkOf(original), after = dataChunkOf(folder.pathFor("back.wav"));
    ASSERT_EQ(before.size(), 44100u * 4);
    EXPECT_EQ(before, after);
}

TEST(KXInterop, BroadcastWaveFieldsSurviveWriteReadWrite) {
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("WAVE"));
    writer.setDepth(24);
    writer.setChannels(2);
    writer.setRate(48000);
    writer.setTempDirectory(folder.path());
    const KXDictionary fields{{"description", "Scene 4, take 2"},
                              {"originator", "Recorder"},
                              {"originatorReference", "USID-0042"},
                              {"originationDate", "2026-11-22"},
                              {"originationTime", "05:55:00"},
                              {"timeReference", 172800000ll},
                              {"codingHistory", "A=PCM,F=48000,W=24,M=stereo"},
                              {"project", "Film"},
                              {"scene", "4"},
                              {"take", "2"},
                              {"note", "wind"},
                              {"metaName", "Take 2"},
                              {"comments", "good"},
                              {"copyright", "2026"}};
    writer.addMetadata(fields, true);
    ASSERT_TRUE(writer.beginWrite());
    KXNativeAudioBuffer buffer(2, 4800);
    writer.writeBuffer(buffer);
    ASSERT_TRUE(writer.endWrite());
    ASSERT_TRUE(writer.saveToPath(folder.pathFor("first")));
    auto first = KXAudioFile::audioFileWithPath(folder.pathFor("first.wav"));
    ASSERT_TRUE(first);
    ASSERT_TRUE(rewrite(*first, folder.pathFor("second.wav"), 24, false));
    auto second = KXAudioFile::audioFileWithPath(folder.pathFor("second.wav"));
    ASSERT_TRUE(second);
    for (std::size_t i = 0; i < fields.count(); ++i) {
        const std::string& key = fields.keys()[i];
        EXPECT_EQ(first->metadata().objectForKey(key).stringValue(), fields.valueAtIndex(i).stringValue()) << key;
        EXPECT_EQ(second->metadata().objectForKey(key).stringValue(), fields.valueAtIndex(i).stringValue()) << key;
    }
    SF_INFO info{};
    SNDFILE* in = sf_open(folder.pathFor("second.wav").c_str(), SFM_READ, &info);
    ASSERT_TRUE(in);
    SF_BROADCAST_INFO bext{};
    ASSERT_EQ(sf_command(in, SFC_GET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
    EXPECT_STREQ(bext.description, "Scene 4, take 2");
    EXPECT_EQ(std::string(bext.originator_reference, 9), "USID-0042");
    EXPECT_EQ(bext.time_reference_low, 172800000u);
    EXPECT_EQ(std::string(bext.coding_history, bext.coding_history_size).substr(0, 27), "A=PCM,F=48000,W=24,M=stereo");
    sf_close(in);
}

TEST(KXInteropAIFF, SoxAndFfmpegFilesReadAsLibsndfileReadsThem) {
    KXTemporaryFolder folder;
    const Variant soxVariants[] = {{"s8.aif", "-b 8"},   {"s16.aif", "-b 16"}, {"s24.aif", "-b 24"},
                                   {"s32.aif", "-b 32"}, {"f32.aifc", "-b 32 -e floating-point"},
                                   {"f64.aifc", "-b 64 -e floating-point"}};
    for (const Variant& v : soxVariants)
        for (int channels : {1, 2, 6}) {
            const std::string path = folder.pathFor(std::to_string(channels) + v.name);
            ASSERT_TRUE(run("sox -n -r 44100 -c " + std::to_string(channels) + " " + v.options + " " + quoted(path) +
                            " synth 0.3 sine 300 sine 440 square 100"))
                << path;
            expectSameAsLibsndfile(path);
        }
    const Variant ffmpegCodecs[] = {{"s8", "pcm_s8"},       {"s16", "pcm_s16be"}, {"s24", "pcm_s24be"},
                                    {"s32", "pcm_s32be"},   {"sowt", "pcm_s16le"}, {"f32", "pcm_f32be"},
                                    {"f64", "pcm_f64be"},   {"ulaw", "pcm_mulaw"}, {"alaw", "pcm_alaw"}};
    for (const Variant& c : ffmpegCodecs)
        for (int channels : {1, 2}) {
            const std::string path = folder.pathFor(std::string(c.name) + "-" + std::to_string(channels) + ".aiff");
            ASSERT_TRUE(run("ffmpeg -v error -y -f lavfi -i 'sine=f=440:d=0.3:r=48000' -ac " + std::to_string(channels) +
                            " -c:a " + c.options + " " + quoted(path)))
                << path;
            expectSameAsLibsndfile(path);
        }
    // 'twos' (big-endian integers under another name), as ffmpeg writes it when asked.
    const std::string twos = folder.pathFor("twos.aifc");
    ASSERT_TRUE(run("ffmpeg -v error -y -f lavfi -i 'sine=f=440:d=0.3' -c:a pcm_s16be -tag:a twos -f aiff " + quoted(twos)));
    expectSameAsLibsndfile(twos);
    // Compressed AIFF-C is refused.
    const std::string ima = folder.pathFor("ima.aifc");
    ASSERT_TRUE(run("ffmpeg -v error -y -f lavfi -i 'sine=f=440:d=0.3' -c:a adpcm_ima_qt " + quoted(ima)));
    KXError error;
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(ima, &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
}

TEST(KXInteropAIFF, OurMarkersAndLoopsReadInLibsndfileAndBackHere) {
    // libsndfile accepts an instrument for AIFF but does not write it: the library's own file,
    // checked by libsndfile's reading, is the label fixture here.
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("AIFF"));
    writer.setDepth(16);
    writer.setChannels(1);
    writer.setRate(44100);
    writer.setTempDirectory(folder.path());
    writer.loopList()->addLoopWithType(0, KXRange::rangeWithStart(1000 / 44100.0, 20000 / 44100.0));
    writer.loopList()->addLoopWithType(1, KXRange::rangeWithStart(25000 / 44100.0, 40000 / 44100.0));
    writer.markerList()->addMarkerWithPosition(441 / 44100.0, std::string("Downbeat"));
    writer.addMetadata({{"baseNote", 62}, {"detune", -7}, {"highNote", 100}, {"highVelocity", 120}}, true);
    ASSERT_TRUE(writer.beginWrite());
    KXNativeAudioBuffer buffer(1, 44100);
    for (std::uint32_t i = 0; i < buffer.frames(); ++i) buffer.channel(0)[i] = float(std::int32_t(i * 91 % 30000) - 15000) / 32768.0f;
    writer.writeBuffer(buffer);
    ASSERT_TRUE(writer.endWrite());
    const std::string path = folder.pathFor("loops.aif");
    ASSERT_TRUE(writer.saveWithInstructions({{"path", path}}));

    expectSameAsLibsndfile(path);
    EXPECT_TRUE(run("sox --i " + quoted(path)));
    EXPECT_TRUE(run("ffprobe -v error " + quoted(path)));
    SF_INFO info{};
    SNDFILE* in = sf_open(path.c_str(), SFM_READ, &info);
    ASSERT_TRUE(in);
    SF_INSTRUMENT stored{};
    ASSERT_EQ(sf_command(in, SFC_GET_INSTRUMENT, &stored, sizeof stored), SF_TRUE);
    SF_CUES cues{};
    const bool hasCues = sf_command(in, SFC_GET_CUE, &cues, sizeof cues) == SF_TRUE;
    sf_close(in);
    EXPECT_EQ(stored.basenote, 62);
    EXPECT_EQ(stored.detune, -7);
    ASSERT_EQ(stored.loop_count, 2);
    EXPECT_EQ(stored.loops[0].mode, SF_LOOP_FORWARD);
    EXPECT_EQ(stored.loops[0].start, 1000u);
    EXPECT_EQ(stored.loops[0].end, 20000u);
    // (libsndfile answers every release loop as forward, whatever its play mode.)
    EXPECT_EQ(stored.loops[1].start, 25000u);
    EXPECT_EQ(stored.loops[1].end, 40000u);
    ASSERT_TRUE(hasCues);
    bool downbeat = false;
    // libsndfile answers an AIFF marker's position as its sample offset.
    for (std::uint32_t i = 0; i < cues.cue_count; ++i)
        downbeat |= cues.cue_points[i].sample_offset == 441 && std::string(cues.cue_points[i].name) == "Downbeat";
    EXPECT_TRUE(downbeat);

    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->MIDIBaseNote(), 62);
    ASSERT_EQ(file->loopList()->count(), 2u);
    EXPECT_EQ(std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(1))->loopType(), 1u);
    ASSERT_EQ(file->markerList()->count(), 1u);  // the loops took theirs
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Downbeat");
}

namespace {

// A writer of `channels` channels of sines at 48 kHz, saved at `path` after `frames` frames.
bool writeSines(KXAudioFileWriter& writer, const std::string& path, std::uint32_t frames) {
    writer.setRate(48000);
    writer.setTempDirectory(KXFile::directoryOfPath(path));
    writer.setWriteAnalysis(false);
    if (!writer.beginWrite()) return false;
    KXNativeAudioBuffer buffer(std::uint32_t(writer.channels()), frames);
    for (std::uint32_t ch = 0; ch < buffer.numberOfChannels(); ++ch)
        for (std::uint32_t i = 0; i < frames; ++i) buffer.channel(ch)[i] = 0.8f * std::sin(float(i) * 0.01f * float(ch + 1));
    writer.writeBuffer(buffer);
    const std::string extension = path.substr(path.rfind('.') + 1);
    return writer.endWrite() && writer.saveWithInstructions({{"path", path}, {"forcedExtension", extension}});
}

}  // namespace

TEST(KXInterop, EachFileOfOurSplitWAVESetReadsElsewhereAsAMonoFileOfTheFullLength) {
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("WAVE"));
    writer.setDepth(24);
    writer.setChannels(2);
    writer.setInterleaved(false);
    ASSERT_TRUE(writeSines(writer, folder.pathFor("split.wav"), 24000));
    ASSERT_EQ(writer.filePaths().size(), 2u);
    for (const std::string& path : writer.filePaths()) {
        SCOPED_TRACE(path);
        const Reference reference = readWithLibsndfile(path);
        EXPECT_EQ(reference.info.channels, 1);
        EXPECT_EQ(reference.info.frames, 24000);
        EXPECT_EQ(output("soxi -s " + quoted(path)), "24000");
        EXPECT_EQ(output("ffprobe -v error -show_entries stream=channels,duration_ts -of csv=p=0 " + quoted(path)), "1,24000");
    }
    auto file = KXAudioFile::audioFileWithPath(writer.filePaths().front());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->numberOfChannels(), 2u);
    EXPECT_EQ(file->frames(), 24000u);
}

TEST(KXInterop, FfprobeReportsTheLayoutOfOurSurroundFiles) {
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("WAVE"));
    writer.setDepth(16);
    writer.setChannels(6);
    const std::string path = folder.pathFor("51.wav");
    ASSERT_TRUE(writeSines(writer, path, 4800));
    EXPECT_EQ(output("ffprobe -v error -show_entries stream=channel_layout -of csv=p=0 " + quoted(path)), "5.1");
    expectSameAsLibsndfile(path);
    // ffmpeg's side-surround layout comes back as it was after a pass through the library.
    const std::string side = folder.pathFor("side.wav"), copy = folder.pathFor("copy.wav");
    ASSERT_TRUE(run("ffmpeg -v error -f lavfi -i sine=frequency=440:duration=0.1 -af 'pan=5.1(side)|c0=c0|c1=c0|c2=c0|c3=c0|c4=c0|c5=c0' " +
                    quoted(side)));
    auto file = KXAudioFile::audioFileWithPath(side);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->channelsList()->speakerMask(), 0x60Fu);
    ASSERT_TRUE(rewrite(*file, copy, 24, false));
    EXPECT_EQ(output("ffprobe -v error -show_entries stream=channel_layout -of csv=p=0 " + quoted(copy)), "5.1(side)");
}

TEST(KXInterop, EveryToolReadsOur64BitFloatAIFFC) {
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("AIFF"));
    writer.setChannels(2);
    writer.setDepth(64);
    writer.setIsFloatingPoint(true);
    const std::string path = folder.pathFor("f64.aif");
    ASSERT_TRUE(writeSines(writer, path, 4800));
    expectSameAsLibsndfile(path);
    EXPECT_EQ(output("soxi -s " + quoted(path)), "4800");
    EXPECT_EQ(output("ffprobe -v error -show_entries stream=codec_name -of csv=p=0 " + quoted(path)), "pcm_f64be");
}

TEST(KXInterop, AUTF8TitleWrittenByFfmpegReadsBackEqualAfterAConversion) {
    KXTemporaryFolder folder;
    const std::string title = "Caf\xC3\xA9 cr\xC3\xA8me \xE2\x99\xAA";
    const std::string path = folder.pathFor("title.wav"), copy = folder.pathFor("copy.wav");
    ASSERT_TRUE(run("ffmpeg -v error -f lavfi -i sine=duration=0.1 -metadata title=" + quoted(title) + " " + quoted(path)));
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->metadata().objectForKey("metaName").string(), title);
    ASSERT_TRUE(rewrite(*file, copy, 16, false));
    auto converted = KXAudioFile::audioFileWithPath(copy);
    ASSERT_TRUE(converted);
    EXPECT_EQ(converted->metadata().objectForKey("metaName").string(), title);
    EXPECT_EQ(output("ffprobe -v error -show_entries format_tags=title -of csv=p=0 " + quoted(copy)), title);
}

TEST(KXInterop, RF64AndBW64FilesReadAsLibsndfileReadsThem) {
    KXTemporaryFolder folder;
    for (const char* codec : {"pcm_s16le", "pcm_s24le", "pcm_f32le"}) {
        const std::string path = folder.pathFor(std::string(codec) + ".rf64.wav");
        ASSERT_TRUE(run("ffmpeg -v error -y -f lavfi -i 'sine=d=0.2' -ac 2 -c:a " + std::string(codec) +
                        " -rf64 always -metadata title=Long " + quoted(path)));
        expectSameAsLibsndfile(path);
        auto file = KXAudioFile::audioFileWithPath(path);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->metadata().objectForKey("metaName").string(), "Long");
        // Written back, a short file is plain RIFF again, without the old 'ds64'.
        const std::string copy = folder.pathFor(std::string(codec) + ".copy.wav");
        ASSERT_TRUE(rewrite(*file, copy, int(file->depth()), file->isFloatingPoint()));
        const KXData bytes = readWholeFile(copy);
        EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "RIFF");
        EXPECT_FALSE(walkChunks(bytes, KXByteOrder::little).find("ds64"));
        expectSameAsLibsndfile(copy);
    }
    // libsndfile's RF64, and the same bytes under the BW64 name.
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 3;
    info.format = SF_FORMAT_RF64 | SF_FORMAT_PCM_24;
    const std::string rf64 = folder.pathFor("sndfile.rf64");
    SNDFILE* out = sf_open(rf64.c_str(), SFM_WRITE, &info);
    ASSERT_TRUE(out);
    std::vector<float> samples(3 * 4800);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = 0.5f * std::sin(float(i) * 0.02f);
    sf_writef_float(out, samples.data(), 4800);
    sf_close(out);
    expectSameAsLibsndfile(rf64);
    KXData bytes = readWholeFile(rf64);
    std::copy_n("BW64", 4, bytes.begin());
    const std::string bw64 = folder.write("bw64.wav", bytes);
    expectSameAsLibsndfile(bw64, rf64);
}

TEST(KXInterop, BroadcastWaveLoudnessIsVersion2BothWays) {
    KXTemporaryFolder folder;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("WAVE"));
    writer.setDepth(16);
    writer.setChannels(2);
    writer.setTempDirectory(folder.path());
    writer.addMetadata({{"description", "Mix"}, {"loudnessValue", -23.0}, {"loudnessRange", 7.5},
                        {"maxTruePeakLevel", -1.25}, {"maxMomentaryLoudness", -18.0}, {"maxShortTermLoudness", -20.5}},
                       true);
    ASSERT_TRUE(writer.beginWrite());
    writer.writeBuffer(KXNativeAudioBuffer(2, 4800));
    ASSERT_TRUE(writer.endWrite());
    const std::string path = folder.pathFor("loud.wav");
    ASSERT_TRUE(writer.saveToPath(path));
    SF_INFO info{};
    SNDFILE* in = sf_open(writer.filePath().c_str(), SFM_READ, &info);
    ASSERT_TRUE(in);
    SF_BROADCAST_INFO bext{};
    ASSERT_EQ(sf_command(in, SFC_GET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
    sf_close(in);
    EXPECT_EQ(bext.version, 2);
    EXPECT_EQ(bext.loudness_value, -2300);
    EXPECT_EQ(bext.loudness_range, 750);
    EXPECT_EQ(bext.max_true_peak_level, -125);
    EXPECT_EQ(bext.max_momentary_loudness, -1800);
    EXPECT_EQ(bext.max_shortterm_loudness, -2050);
    auto file = KXAudioFile::audioFileWithPath(writer.filePath());
    ASSERT_TRUE(file);
    EXPECT_DOUBLE_EQ(file->metadata().objectForKey("loudnessValue").doubleValue(), -23.0);
    EXPECT_DOUBLE_EQ(file->metadata().objectForKey("maxTruePeakLevel").doubleValue(), -1.25);
    EXPECT_DOUBLE_EQ(file->metadata().objectForKey("maxShortTermLoudness").doubleValue(), -20.5);
}

TEST(KXInterop, OurRF64AndBW64FilesReadInLibsndfileAndFfprobe) {
    KXTemporaryFolder folder;
    std::string rf64;
    for (const std::uint32_t container : {KXFourCC("RF64"), KXFourCC("BW64")}) {
        SCOPED_TRACE(KXFourCCString(container));
        KXAudioFileWriter writer;
        writer.setFormat(KXFourCC("WAVE"));
        writer.setDepth(24);
        writer.setChannels(2);
        writer.setRate(48000);
        writer.setWAVEContainer(container);
        writer.setTempDirectory(folder.path());
        writer.markerList()->addMarkerWithPosition(0.05, std::string("Cue"));
        writer.addMetadata({{"description", "Long take"}, {"metaName", "Field"}}, true);
        ASSERT_TRUE(writer.beginWrite());
        KXNativeAudioBuffer buffer(2, 9600);
        for (std::uint32_t c = 0; c < 2; ++c)
            for (std::uint32_t i = 0; i < 9600; ++i) buffer.channel(c)[i] = 0.7f * std::sin(float(i) * 0.03f * float(c + 1));
        writer.writeBuffer(buffer);
        ASSERT_TRUE(writer.endWrite());
        const std::string path = folder.pathFor(KXFourCCString(container) + ".wav");
        ASSERT_TRUE(writer.saveToPath(path));
        const KXData bytes = readWholeFile(writer.filePath());
        EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), KXFourCCString(container));
        EXPECT_EQ(kx::load32(bytes.data() + 4, KXByteOrder::little), 0xFFFFFFFFu);
        EXPECT_EQ(std::string(bytes.begin() + 12, bytes.begin() + 16), "ds64");
        EXPECT_EQ(kx::load64(bytes.data() + 20, KXByteOrder::little), bytes.size() - 8);
        EXPECT_EQ(kx::load64(bytes.data() + 28, KXByteOrder::little), 9600u * 6);
        EXPECT_EQ(kx::load64(bytes.data() + 36, KXByteOrder::little), 9600u);
        // libsndfile does not know the BW64 name: the RF64 file of the same samples is the reference.
        if (container == KXFourCC("RF64")) rf64 = writer.filePath();
        expectSameAsLibsndfile(writer.filePath(), rf64);
        EXPECT_EQ(output("ffprobe -v error -show_entries stream=duration_ts -of csv=p=0 " + quoted(writer.filePath())), "9600");
        auto file = KXAudioFile::audioFileWithPath(writer.filePath());
        ASSERT_TRUE(file);
        EXPECT_EQ(file->markerList()->count(), 1u);
        EXPECT_EQ(file->metadata().objectForKey("description").string(), "Long take");
    }
}

TEST(KXInterop, AFileOfMoreThanFourGiBIsWrittenAsRF64AndReadsBack) {
#ifdef KX_SANITIZED_BUILD
    GTEST_SKIP() << "4.3 GB through a sanitizer takes minutes; the plain build runs this test";
#endif
    KXTemporaryFolder folder;
    struct statvfs room {};
    if (statvfs(folder.path().c_str(), &room) != 0 || std::uint64_t(room.f_bavail) * room.f_frsize < (6ull << 30))
        GTEST_SKIP() << "the temporary folder lacks the 6 GB this test needs";
    // 8 channels of 16 bits: 2^28 + 48,000 frames are 4,295,735,296 bytes of samples.
    constexpr std::uint32_t kChannels = 8, kBlock = 30720;
    constexpr std::uint64_t kFrames = (std::uint64_t(1) << 28) + 48000;
    // Channel c at frame f; whole 16-bit values, so that they read back exactly.
    const auto expected = [](std::uint64_t f, std::uint32_t c) {
        return float(std::int32_t((f * 7 + c * 1013) % 65521) - 32768) / 32768.0f;
    };
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("WAVE"));
    writer.setDepth(16);
    writer.setChannels(kChannels);
    writer.setRate(48000);
    writer.setTempDirectory(folder.path());
    ASSERT_TRUE(writer.beginWrite());
    KXNativeAudioBuffer buffer(kChannels, kBlock);
    for (std::uint64_t start = 0; start < kFrames; start += kBlock) {
        const auto frames = std::uint32_t(std::min<std::uint64_t>(kBlock, kFrames - start));
        for (std::uint32_t c = 0; c < kChannels; ++c)
            for (std::uint32_t i = 0; i < frames; ++i) buffer.channel(c)[i] = expected(start + i, c);
        writer.writeBuffer(buffer, {0, frames});
    }
    ASSERT_TRUE(writer.endWrite());
    const std::string path = folder.pathFor("long.wav");
    ASSERT_TRUE(writer.saveToPath(path));
    ASSERT_GT(KXFile::lengthOfFileAtPath(path), 1ull << 32);

    const auto header = KXFile::fileWithPath(path);
    std::uint8_t bytes[44] = {};
    ASSERT_TRUE(header && header->readBytes(bytes, sizeof bytes, 0) == sizeof bytes);
    EXPECT_EQ(std::string(bytes, bytes + 4), "RF64");
    EXPECT_EQ(std::string(bytes + 12, bytes + 16), "ds64");
    EXPECT_EQ(kx::load64(bytes + 28, KXByteOrder::little), kFrames * kChannels * 2);

    // Frames across the 4 GiB boundary of the data and at the file's end, here and in libsndfile.
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    ASSERT_EQ(file->frames(), kFrames);
    SF_INFO info{};
    SNDFILE* reference = sf_open(path.c_str(), SFM_READ, &info);
    ASSERT_TRUE(reference);
    EXPECT_EQ(std::uint64_t(info.frames), kFrames);
    for (const std::uint64_t start : {(std::uint64_t(1) << 28) - 1000, kFrames - 2000}) {
        KXNativeAudioBuffer ours(kChannels, 2000);
        ASSERT_EQ(file->readSamplesToBuffer(ours, std::int64_t(start)), 2000);
        std::vector<float> theirs(2000 * kChannels);
        ASSERT_EQ(sf_seek(reference, sf_count_t(start), SEEK_SET), sf_count_t(start));
        ASSERT_EQ(sf_readf_float(reference, theirs.data(), 2000), 2000);
        for (std::uint32_t i = 0; i < 2000; ++i)
            for (std::uint32_t c = 0; c < kChannels; ++c) {
                ASSERT_EQ(ours.channel(c)[i], expected(start + i, c)) << start + i << " " << c;
                ASSERT_EQ(theirs[i * kChannels + c], expected(start + i, c)) << start + i << " " << c;
            }
    }
    sf_close(reference);
}

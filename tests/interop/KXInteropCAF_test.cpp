// CAF files that libsndfile, ffmpeg and libambix write read here sample for sample as libsndfile
// decodes them, with libambix's markers and regions; the CAF files written here read in
// libsndfile, ffmpeg, sox and libambix.

#include <ambix/ambix.h>
#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstring>

#include <cmath>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXFile.h"
#include "interop/KXInteropSupport.h"
#include "support/KXTestSupport.h"

using namespace KXInterop;

namespace {

// libsndfile writes a CAF file of `channels` channels of sines in `format`.
bool writeWithLibsndfile(const std::string& path, int format, int channels) {
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = channels;
    info.format = SF_FORMAT_CAF | format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return false;
    std::vector<float> samples(std::size_t(4410) * std::size_t(channels));
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = 0.8f * std::sin(float(i) * 0.013f);
    sf_writef_float(file, samples.data(), 4410);
    sf_set_string(file, SF_STR_TITLE, "From libsndfile");
    return sf_close(file) == 0;
}

}  // namespace

TEST(KXInteropCAF, LibsndfileAndFfmpegFilesReadAsLibsndfileReadsThem) {
    KXTemporaryFolder folder;
    const struct {
        const char* name;
        int format;
    } formats[] = {{"s8", SF_FORMAT_PCM_S8},    {"s16", SF_FORMAT_PCM_16}, {"s24", SF_FORMAT_PCM_24},
                   {"s32", SF_FORMAT_PCM_32},   {"f32", SF_FORMAT_FLOAT},  {"f64", SF_FORMAT_DOUBLE}};
    for (const auto& f : formats)
        for (const int endian : {SF_ENDIAN_BIG, SF_ENDIAN_LITTLE})
            for (const int channels : {1, 2, 6}) {
                const std::string path = folder.pathFor(std::string(f.name) + (endian == SF_ENDIAN_BIG ? "be" : "le") +
                                                        std::to_string(channels) + ".caf");
                ASSERT_TRUE(writeWithLibsndfile(path, f.format | endian, channels)) << path;
                expectSameAsLibsndfile(path);
            }
    for (const char* codec :
         {"pcm_s16be", "pcm_s16le", "pcm_s24be", "pcm_s32le", "pcm_f32be", "pcm_f64le", "pcm_s8", "pcm_mulaw", "pcm_alaw"}) {
        for (const int channels : {1, 2, 6}) {
            const std::string path = folder.pathFor(std::string(codec) + std::to_string(channels) + ".caf");
            ASSERT_TRUE(run("ffmpeg -v error -y -f lavfi -i 'sine=f=440:d=0.3' -ac " + std::to_string(channels) + " -c:a " +
                            codec + " -metadata title=Ffmpeg " + quoted(path)))
                << path;
            expectSameAsLibsndfile(path);
        }
    }
    auto titled = KXAudioFile::audioFileWithPath(folder.pathFor("pcm_s16be2.caf"));
    ASSERT_TRUE(titled);
    EXPECT_EQ(titled->metadata().objectForKey("metaName").string(), "Ffmpeg");
}

TEST(KXInteropCAF, CompressedCAFFilesAreRefused) {
    KXTemporaryFolder folder;
    for (const char* codec : {"alac", "adpcm_ima_qt"}) {
        const std::string path = folder.pathFor(std::string(codec) + ".caf");
        ASSERT_TRUE(run("ffmpeg -v error -y -f lavfi -i 'sine=f=440:d=0.3' -c:a " + std::string(codec) + " " + quoted(path)))
            << codec;
        KXError error;
        EXPECT_FALSE(KXAudioFile::audioFileWithPath(path, &error)) << codec;
        EXPECT_EQ(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, "Parsing the CoreAudio file"));
    }
}

TEST(KXInteropCAF, OurCAFFilesReadInLibsndfileFfmpegAndSox) {
    KXTemporaryFolder folder;
    const struct {
        const char* name;
        std::int32_t depth;
        bool floatingPoint;
        std::int32_t order;
        std::int32_t channels;
        std::uint32_t encoding = KXFourCC("lpcm");
    } cases[] = {
        {"s8.caf", 8, false, KXByteOrderBigValue, 1},      {"s16.caf", 16, false, KXByteOrderBigValue, 2},
        {"s16le.caf", 16, false, KXByteOrderLittleValue, 2}, {"s24.caf", 24, false, KXByteOrderBigValue, 6},
        {"s32.caf", 32, false, KXByteOrderBigValue, 2},    {"f32le.caf", 32, true, KXByteOrderLittleValue, 2},
        {"f64.caf", 64, true, KXByteOrderBigValue, 1},
        {"ulaw.caf", 8, false, KXByteOrderLittleValue, 2, KXFourCC("ulaw")},
        {"alaw.caf", 8, false, KXByteOrderBigValue, 1, KXFourCC("alaw")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        KXAudioFileWriter writer;
        writer.setFormat(KXFourCC("CAFF"));
        writer.setDepth(c.depth);
        writer.setIsFloatingPoint(c.floatingPoint);
        writer.setByteOrder(c.order);
        writer.setEncoding(c.encoding);
        writer.setChannels(c.channels);
        writer.setRate(48000);
        writer.setTempDirectory(folder.path());
        writer.markerList()->addMarkerWithPosition(0.1, std::string("Start"));
        writer.addMetadata({{"metaName", "Caf\xC3\xA9 cr\xC3\xA8me"}}, true);
        ASSERT_TRUE(writer.beginWrite());
        KXNativeAudioBuffer buffer(std::uint32_t(c.channels), 24001);
        for (std::uint32_t ch = 0; ch < buffer.numberOfChannels(); ++ch)
            for (std::uint32_t i = 0; i < buffer.frames(); ++i)
                buffer.channel(ch)[i] = 0.9f * std::sin(float(i) * 0.01f * float(ch + 1));
        writer.writeBuffer(buffer);
        ASSERT_TRUE(writer.endWrite());
        const std::string path = folder.pathFor(c.name);
        ASSERT_TRUE(writer.saveWithInstructions({{"path", path}, {"forcedExtension", "caf"}}));
        expectSameAsLibsndfile(path);
        EXPECT_EQ(output("soxi -s " + quoted(path)), "24001");
        // CAF text is UTF-8.
        EXPECT_EQ(output("ffprobe -v error -show_entries format_tags=title -of csv=p=0 " + quoted(path)),
                  "Caf\xC3\xA9 cr\xC3\xA8me");
        // ffmpeg decodes every frame, no more (the analysis after the samples is no sample).
        const std::size_t bytes = std::stoul(output("ffmpeg -v error -i " + quoted(path) + " -f s16le - | wc -c"));
        EXPECT_EQ(bytes, 24001u * 2 * std::size_t(c.channels));
    }
    // A 5.1 file says its layout.
    EXPECT_EQ(output("ffprobe -v error -show_entries stream=channel_layout -of csv=p=0 " + quoted(folder.pathFor("s24.caf"))),
              "5.1");
}

TEST(KXInteropCAF, MarkersAndRegionsBothWaysWithLibambix) {
    KXTemporaryFolder folder;
    // libambix writes a first-order file with a marker and a region.
    const std::string theirs = folder.pathFor("ambix.caf");
    ambix_info_t info{};
    info.fileformat = AMBIX_BASIC;
    info.ambichannels = 4;
    info.samplerate = 44100;
    info.sampleformat = AMBIX_SAMPLEFORMAT_PCM16;
    ambix_t* writer = ambix_open(theirs.c_str(), AMBIX_WRITE, &info);
    ASSERT_TRUE(writer);
    ambix_marker_t marker{};
    marker.position = 441;
    std::strcpy(marker.name, "Start");
    ambix_add_marker(writer, &marker);
    ambix_region_t region{};
    region.start_position = 100;
    region.end_position = 900;
    std::strcpy(region.name, "Verse");
    ambix_add_region(writer, &region);
    std::vector<float> samples(4 * 1000, 0.25f);
    ambix_writef_float32(writer, samples.data(), nullptr, 1000);
    ambix_close(writer);

    auto file = KXAudioFile::audioFileWithPath(theirs);
    ASSERT_TRUE(file);
    ASSERT_EQ(file->markerList()->count(), 1u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Start");
    EXPECT_DOUBLE_EQ(file->markerList()->labelAtIndex(0)->position(), 441.0 / 44100);
    ASSERT_EQ(file->regionList()->count(), 1u);
    EXPECT_EQ(file->regionList()->labelAtIndex(0)->name(), "Verse");
    expectSameAsLibsndfile(theirs);

    // Written back here, libambix reads the same labels.
    auto rewriter = KXAudioFileWriter::writerWithAudioFile(*file);
    rewriter->setTempDirectory(folder.path());
    ASSERT_TRUE(rewriter->beginWrite());
    KXNativeAudioBuffer buffer(4, 1000);
    ASSERT_EQ(file->readSamplesToBuffer(buffer, 0), 1000);
    rewriter->writeBuffer(buffer);
    ASSERT_TRUE(rewriter->endWrite());
    const std::string ours = folder.pathFor("ours.caf");
    ASSERT_TRUE(rewriter->saveWithInstructions({{"path", ours}, {"forcedExtension", "caf"}}));
    ambix_info_t read{};
    ambix_t* reader = ambix_open(ours.c_str(), AMBIX_READ, &read);
    ASSERT_TRUE(reader);
    EXPECT_EQ(read.frames, 1000u);
    ASSERT_EQ(ambix_get_num_markers(reader), 1u);
    EXPECT_STREQ(ambix_get_marker(reader, 0)->name, "Start");
    EXPECT_EQ(ambix_get_marker(reader, 0)->position, 441.0);
    ASSERT_EQ(ambix_get_num_regions(reader), 1u);
    EXPECT_STREQ(ambix_get_region(reader, 0)->name, "Verse");
    EXPECT_EQ(ambix_get_region(reader, 0)->start_position, 100.0);
    EXPECT_EQ(ambix_get_region(reader, 0)->end_position, 900.0);
    ambix_close(reader);
}

TEST(KXInteropCAF, SfconvertCAFFilesReadAsLibsndfileReadsThem) {
    KXTemporaryFolder folder;
    const std::string source = folder.pathFor("source.wav");
    ASSERT_TRUE(run("sox -n -r 44100 -c 2 -b 24 " + quoted(source) + " synth 0.3 sine 300 sine 440"));
    for (const char* options : {"", "byteorder little", "integer 16 2scomp", "float 1.0"}) {
        const std::string path = folder.pathFor("sfconvert.caf");
        ASSERT_TRUE(run("sfconvert " + quoted(source) + " " + quoted(path) + " format caf " + options)) << options;
        expectSameAsLibsndfile(path);
    }
}

TEST(KXInteropCAF, AFileReadAndWrittenBackKeepsTheChunksItDidNotConsume) {
    KXTemporaryFolder folder;
    const std::string path = folder.pathFor("kept.caf");
    ASSERT_TRUE(run("ffmpeg -v error -f lavfi -i 'sine=d=0.1' -c:a pcm_s16be -metadata artist=Someone " + quoted(path)));
    // A chunk of another program's, and a 'uuid' chunk that is not the analysis.
    KXData bytes = readWholeFile(path);
    const KXData extra = {'a', 'b', 'c', 'd', 0, 0, 0, 0, 0, 0, 0, 3, 'x', 'y', 'z'};
    bytes.insert(bytes.begin() + 8, extra.begin(), extra.end());
    KXData uuid = {'u', 'u', 'i', 'd', 0, 0, 0, 0, 0, 0, 0, 18};
    for (int i = 0; i < 16; ++i) uuid.push_back(std::uint8_t(i));
    uuid.insert(uuid.end(), {7, 7});
    bytes.insert(bytes.begin() + 8, uuid.begin(), uuid.end());
    ASSERT_EQ(KXFile::writeDataToPath(bytes, path), true);
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    ASSERT_TRUE(file->unusedChunkList());
    auto writer = KXAudioFileWriter::writerWithAudioFile(*file);
    writer->setTempDirectory(folder.path());
    ASSERT_TRUE(writer->beginWrite());
    KXNativeAudioBuffer buffer(file->numberOfChannels(), file->frames());
    ASSERT_EQ(file->readSamplesToBuffer(buffer, 0), std::int32_t(file->frames()));
    writer->writeBuffer(buffer);
    ASSERT_TRUE(writer->endWrite());
    const std::string copy = folder.pathFor("copy.caf");
    ASSERT_TRUE(writer->saveWithInstructions({{"path", copy}, {"forcedExtension", "caf"}}));
    auto rewritten = KXAudioFile::audioFileWithPath(copy);
    ASSERT_TRUE(rewritten && rewritten->unusedChunkList());
    const auto& before = *file->unusedChunkList();
    const auto& after = *rewritten->unusedChunkList();
    // The 'info' chunk is written anew from the metadata, once.
    EXPECT_EQ(std::count_if(after.begin(), after.end(), [](const auto& chunk) { return chunk->type() == KXFourCC("info"); }), 1);
    for (const auto& chunk : before) {
        if (chunk->type() == KXFourCC("info")) continue;
        const auto same = std::find_if(after.begin(), after.end(), [&](const auto& other) {
            return other->type() == chunk->type() && other->uuid() == chunk->uuid() && other->data() == chunk->data();
        });
        EXPECT_NE(same, after.end()) << KXFourCCString(chunk->type());
    }
    EXPECT_EQ(rewritten->metadata().objectForKey("originalArtist").string(), "Someone");
}

// Sound Designer II files that libsndfile writes (a bare resource fork in "._<name>") read here
// sample for sample as libsndfile decodes them; the files written here (AppleDouble sidecars,
// interleaved or one file per channel) read in libsndfile with the same samples, rate and
// channels.

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXFile.h"
#include "interop/KXInteropSupport.h"
#include "support/KXTestSupport.h"

using namespace KXInterop;

TEST(KXInteropSoundDesigner, LibsndfileFilesReadAsLibsndfileReadsThem) {
    KXTemporaryFolder folder;
    const struct {
        const char* name;
        int format;
    } formats[] = {{"s8", SF_FORMAT_PCM_S8}, {"s16", SF_FORMAT_PCM_16}, {"s24", SF_FORMAT_PCM_24}, {"s32", SF_FORMAT_PCM_32}};
    for (const auto& f : formats)
        for (const int channels : {1, 2, 3, 6}) {
            const std::string path = folder.pathFor(std::string(f.name) + "-" + std::to_string(channels) + ".sd2");
            SF_INFO info{};
            info.samplerate = 48000;
            info.channels = channels;
            info.format = SF_FORMAT_SD2 | f.format;
            SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
            ASSERT_TRUE(file) << path << ": " << sf_strerror(nullptr);
            std::vector<float> samples(std::size_t(4801) * std::size_t(channels));
            for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = 0.8f * std::sin(float(i) * 0.013f);
            sf_writef_float(file, samples.data(), 4801);
            ASSERT_EQ(sf_close(file), 0);
            // libsndfile keeps the fork bare in the sidecar.
            ASSERT_NE(kx::load32(readWholeFile(KXFile::sidecarPathForPath(path)).data(), KXByteOrder::big), 0x00051607u);
            expectSameAsLibsndfile(path);
        }
}

TEST(KXInteropSoundDesigner, OurFilesReadInLibsndfile) {
    KXTemporaryFolder folder;
    for (const std::int32_t depth : {8, 16, 24, 32})
        for (const std::int32_t channels : {1, 2, 6})
            for (const bool split : {false, true}) {
                if (split && channels == 1) continue;
                const std::string name = "ours-" + std::to_string(depth) + "-" + std::to_string(channels) +
                                         (split ? "-split" : "") + ".sd2";
                SCOPED_TRACE(name);
                KXAudioFileWriter writer;
                writer.setFormat(split ? KXAudioFileWriter::kSplitSDII : KXFourCC("SDII"));
                writer.setDepth(depth);
                writer.setChannels(channels);
                writer.setRate(44100);
                writer.setTempDirectory(folder.path());
                writer.markerList()->addMarkerWithPosition(0.1, std::string("Start"));
                writer.addMetadata({{"metaName", "Take"}, {"tempo", 120.0}}, true);
                ASSERT_TRUE(writer.beginWrite());
                KXNativeAudioBuffer buffer(std::uint32_t(channels), 22051);
                for (std::uint32_t c = 0; c < buffer.numberOfChannels(); ++c)
                    for (std::uint32_t i = 0; i < buffer.frames(); ++i)
                        buffer.channel(c)[i] = 0.9f * std::sin(float(i) * 0.01f * float(c + 1));
                writer.writeBuffer(buffer);
                ASSERT_TRUE(writer.endWrite());
                ASSERT_TRUE(writer.saveToPath(folder.pathFor(name)));
                if (!split) {
                    expectSameAsLibsndfile(writer.filePath());
                    continue;
                }
                // Each file of a split set is a mono file to libsndfile, holding its channel.
                auto set = KXAudioFile::audioFileWithPath(writer.filePaths()[0]);
                ASSERT_TRUE(set);
                ASSERT_EQ(set->numberOfChannels(), std::uint32_t(channels));
                for (std::uint32_t c = 0; c < std::uint32_t(channels); ++c) {
                    const Reference reference = readWithLibsndfile(writer.filePaths()[c]);
                    ASSERT_EQ(reference.info.channels, 1);
                    ASSERT_EQ(reference.info.samplerate, 44100);
                    ASSERT_EQ(reference.info.frames, 22051);
                    std::vector<float> ours(22051);
                    std::int32_t size = 22051;
                    set->readSamplesToBuffer(ours.data(), 0, size, c);
                    ASSERT_EQ(size, 22051);
                    EXPECT_EQ(ours, reference.samples) << c;
                }
            }
}

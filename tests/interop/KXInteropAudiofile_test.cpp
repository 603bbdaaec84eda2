// AIFF with SGI audiofile: `sfconvert` variants read as libsndfile reads them, and markers and
// sustain and release loops pass both ways between audiofile and the library.

#include <audiofile.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "interop/KXInteropSupport.h"
#include "support/KXTestSupport.h"

using namespace KXInterop;

namespace {

// Every 16-bit sample of a file as audiofile reads it.
std::vector<short> audiofileSamples(const std::string& path, int& channels) {
    AFfilehandle file = afOpenFile(path.c_str(), "r", nullptr);
    if (!file) return {};
    afSetVirtualSampleFormat(file, AF_DEFAULT_TRACK, AF_SAMPFMT_TWOSCOMP, 16);
    channels = afGetChannels(file, AF_DEFAULT_TRACK);
    std::vector<short> samples(std::size_t(afGetFrameCount(file, AF_DEFAULT_TRACK)) * std::size_t(channels));
    afReadFrames(file, AF_DEFAULT_TRACK, samples.data(), int(samples.size() / std::size_t(channels)));
    afCloseFile(file);
    return samples;
}

}  // namespace

TEST(KXInteropAudiofile, SfconvertVariantsReadAsLibsndfileAndAudiofileRead) {
    KXTemporaryFolder folder;
    const std::string source = folder.pathFor("source.wav");
    ASSERT_TRUE(run("sox -n -r 44100 -c 2 -b 16 " + quoted(source) + " synth 0.3 sine 440 sine 300"));
    const char* variants[] = {"format aiff integer 8 2scomp", "format aiff integer 16 2scomp",
                              "format aiff integer 24 2scomp", "format aiff integer 32 2scomp",
                              "format aifc float 1.0",        "format aifc double 1.0",
                              "format aifc compression ulaw", "format aifc compression alaw",
                              "format aifc byteorder little"};
    int index = 0;
    for (const char* options : variants) {
        SCOPED_TRACE(options);
        const std::string path = folder.pathFor("variant" + std::to_string(index++) + ".aifc");
        ASSERT_TRUE(run("sfconvert " + quoted(source) + " " + quoted(path) + " " + options));
        expectSameAsLibsndfile(path);
        auto file = KXAudioFile::audioFileWithPath(path);
        ASSERT_TRUE(file);
        // And audiofile's 16-bit reading agrees (within its own rounding of wider samples).
        int channels = 0;
        const std::vector<short> theirs = audiofileSamples(path, channels);
        ASSERT_EQ(std::uint32_t(channels), file->numberOfChannels());
        ASSERT_EQ(theirs.size(), std::size_t(file->frames()) * std::size_t(channels));
        KXNativeAudioBuffer buffer(file->numberOfChannels(), file->frames());
        file->readSamplesToBuffer(buffer, 0);  // the first read buffer's worth
        const std::uint32_t checked = std::min<std::uint32_t>(file->frames(), KXAudioFile::kReadBufferFrames);
        std::size_t differences = 0;
        for (std::uint32_t f = 0; f < checked; ++f)
            for (int c = 0; c < channels; ++c) {
                const float ours = buffer.channel(std::uint32_t(c))[f];
                // Integer sources down to 16 bits compare exactly; floats round the same way.
                const long rounded = std::lrint(std::clamp(ours * 32768.0f, -32768.0f, 32767.0f));
                differences += std::labs(rounded - theirs[std::size_t(f) * std::size_t(channels) + std::size_t(c)]) > 1;
            }
        EXPECT_EQ(differences, 0u);
    }
    // Compressed AIFF-C is refused.
    const std::string ima = folder.pathFor("ima.aifc");
    ASSERT_TRUE(run("sfconvert " + quoted(source) + " " + quoted(ima) + " format aifc compression ima"));
    KXError error;
    EXPECT_FALSE(KXAudioFile::audioFileWithPath(ima, &error));
    EXPECT_EQ(error.code(), KXAudioFileErrorUnsupportedFormat);
}

TEST(KXInteropAudiofile, MarkersAndLoopsBothWays) {
    KXTemporaryFolder folder;
    // audiofile writes: five markers, a sustain loop on markers 1/2 and a release loop on 3/4.
    const std::string theirs = folder.pathFor("theirs.aif");
    AFfilesetup setup = afNewFileSetup();
    afInitFileFormat(setup, AF_FILE_AIFF);
    afInitChannels(setup, AF_DEFAULT_TRACK, 1);
    afInitRate(setup, AF_DEFAULT_TRACK, 44100);
    afInitSampleFormat(setup, AF_DEFAULT_TRACK, AF_SAMPFMT_TWOSCOMP, 16);
    int markers[] = {1, 2, 3, 4, 5};
    afInitMarkIDs(setup, AF_DEFAULT_TRACK, markers, 5);
    afInitMarkName(setup, AF_DEFAULT_TRACK, 5, "Cue");
    int instruments[] = {AF_DEFAULT_INST};
    afInitInstIDs(setup, instruments, 1);
    int loops[] = {1, 2};
    afInitLoopIDs(setup, AF_DEFAULT_INST, loops, 2);
    AFfilehandle out = afOpenFile(theirs.c_str(), "w", setup);
    afFreeFileSetup(setup);
    ASSERT_TRUE(out);
    const int positions[] = {1000, 2000, 3000, 4000, 500};
    for (int i = 0; i < 5; ++i) afSetMarkPosition(out, AF_DEFAULT_TRACK, markers[i], positions[i]);
    afSetLoopStart(out, AF_DEFAULT_INST, 1, 1);
    afSetLoopEnd(out, AF_DEFAULT_INST, 1, 2);
    afSetLoopMode(out, AF_DEFAULT_INST, 1, AF_LOOP_MODE_FORW);
    afSetLoopStart(out, AF_DEFAULT_INST, 2, 3);
    afSetLoopEnd(out, AF_DEFAULT_INST, 2, 4);
    afSetLoopMode(out, AF_DEFAULT_INST, 2, AF_LOOP_MODE_FORWBAKW);
    afSetInstParamLong(out, AF_DEFAULT_INST, AF_INST_MIDI_BASENOTE, 64);
    std::vector<short> samples(8000, 1234);
    afWriteFrames(out, AF_DEFAULT_TRACK, samples.data(), 8000);
    afCloseFile(out);

    auto file = KXAudioFile::audioFileWithPath(theirs);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->MIDIBaseNote(), 64);
    ASSERT_EQ(file->loopList()->count(), 2u);
    const auto sustain = std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(0));
    const auto release = std::dynamic_pointer_cast<KXLoop>(file->loopList()->labelAtIndex(1));
    EXPECT_EQ(sustain->loopType(), 0u);
    EXPECT_EQ(release->loopType(), 1u);
    EXPECT_EQ(std::lround(sustain->start() * 44100), 1000);
    EXPECT_EQ(std::lround(release->end() * 44100), 4000);
    ASSERT_EQ(file->markerList()->count(), 1u);
    EXPECT_EQ(file->markerList()->labelAtIndex(0)->name(), "Cue");
    EXPECT_EQ(std::lround(file->markerList()->labelAtIndex(0)->position() * 44100), 500);
    EXPECT_EQ(file->readSample(7999, 0), 1234.0f / 32768.0f);

    // The library writes the same back; audiofile reads its markers, loops and samples.
    auto writer = KXAudioFileWriter::writerWithAudioFile(*file);
    writer->setTempDirectory(folder.path());
    ASSERT_TRUE(writer->beginWrite());
    KXNativeAudioBuffer buffer(1, file->frames());
    file->readSamplesToBuffer(buffer, 0);
    writer->writeBuffer(buffer);
    ASSERT_TRUE(writer->endWrite());
    const std::string ours = folder.pathFor("ours.aif");
    ASSERT_TRUE(writer->saveToPath(ours));
    AFfilehandle in = afOpenFile(ours.c_str(), "r", nullptr);
    ASSERT_TRUE(in);
    EXPECT_EQ(afGetFrameCount(in, AF_DEFAULT_TRACK), 8000);
    EXPECT_EQ(afGetInstParamLong(in, AF_DEFAULT_INST, AF_INST_MIDI_BASENOTE), 64);
    const int loopCount = afGetLoopIDs(in, AF_DEFAULT_INST, nullptr);
    ASSERT_EQ(loopCount, 2);
    std::vector<int> loopIDs(2);
    afGetLoopIDs(in, AF_DEFAULT_INST, loopIDs.data());
    EXPECT_EQ(afGetLoopMode(in, AF_DEFAULT_INST, loopIDs[0]), AF_LOOP_MODE_FORW);
    EXPECT_EQ(afGetLoopMode(in, AF_DEFAULT_INST, loopIDs[1]), AF_LOOP_MODE_FORWBAKW);
    EXPECT_EQ(afGetMarkPosition(in, AF_DEFAULT_TRACK, afGetLoopStart(in, AF_DEFAULT_INST, loopIDs[0])), 1000);
    EXPECT_EQ(afGetMarkPosition(in, AF_DEFAULT_TRACK, afGetLoopEnd(in, AF_DEFAULT_INST, loopIDs[1])), 4000);
    const int markCount = afGetMarkIDs(in, AF_DEFAULT_TRACK, nullptr);
    ASSERT_EQ(markCount, 5);
    std::vector<int> markIDs(5);
    afGetMarkIDs(in, AF_DEFAULT_TRACK, markIDs.data());
    EXPECT_STREQ(afGetMarkName(in, AF_DEFAULT_TRACK, markIDs[4]), "Cue");
    EXPECT_EQ(afGetMarkPosition(in, AF_DEFAULT_TRACK, markIDs[4]), 500);
    afSetVirtualSampleFormat(in, AF_DEFAULT_TRACK, AF_SAMPFMT_TWOSCOMP, 16);
    std::vector<short> back(8000);
    afReadFrames(in, AF_DEFAULT_TRACK, back.data(), 8000);
    afCloseFile(in);
    EXPECT_EQ(back, samples);
}

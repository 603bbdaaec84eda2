// Editing end to end: a WAVE edited with material from an AIFF of another rate, saved as an
// editor document, reopened and rendered to a file that libsndfile reads — against the samples
// the edits imply, built here from the sources.

#include <gtest/gtest.h>

#include <cmath>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "interop/KXInteropSupport.h"
#include "support/KXTestSupport.h"

namespace {

using Channels = std::vector<std::vector<float>>;

float sine(std::uint32_t frame, std::uint32_t channel) {
    // 16-bit values exactly, so that the AIFF holds them as they are.
    return float(std::lrint(std::sin(frame * (0.05 + 0.01 * channel)) * 16000.0)) / 32768.0f;
}

// A file of the given samples through libsndfile (16-bit AIFF or float WAVE).
std::string writeWithLibsndfile(const std::string& path, const Channels& samples, int rate, int format) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = int(samples.size());
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    EXPECT_TRUE(file);
    // 16-bit files get the integers themselves: libsndfile would scale floats by 32767.
    std::vector<float> interleaved;
    std::vector<short> integers;
    for (std::size_t f = 0; f < samples[0].size(); ++f)
        for (const auto& channel : samples) {
            interleaved.push_back(channel[f]);
            integers.push_back(short(std::lrint(channel[f] * 32768.0f)));
        }
    if ((format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16) sf_writef_short(file, integers.data(), sf_count_t(samples[0].size()));
    else sf_writef_float(file, interleaved.data(), sf_count_t(samples[0].size()));
    sf_close(file);
    return path;
}

Channels channelsOf(const KXInterop::Reference& reference) {
    Channels channels(std::size_t(reference.info.channels));
    for (std::size_t i = 0; i < reference.samples.size(); ++i)
        channels[i % channels.size()].push_back(reference.samples[i]);
    return channels;
}

float to16Bits(float x) { return float(std::clamp(std::lrint(x * 32768.0f), -32768L, 32767L)) / 32768.0f; }

}  // namespace

TEST(KXInteropEditing, AnEditedFileSavedAsADocumentRendersWhatTheEditsImply) {
    KXTemporaryFolder folder;
    const std::uint32_t wavFrames = 20000, aifFrames = 6000;
    Channels a(2), b(2);
    for (std::uint32_t c = 0; c < 2; ++c)
        for (std::uint32_t f = 0; f < wavFrames; ++f) a[c].push_back(KXTestSamples::sample(f, c));
    for (std::uint32_t c = 0; c < 2; ++c)
        for (std::uint32_t f = 0; f < aifFrames; ++f) b[c].push_back(sine(f, c));
    writeWithLibsndfile(folder.pathFor("take.wav"), a, 44100, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    writeWithLibsndfile(folder.pathFor("clip.aif"), b, 22050, SF_FORMAT_AIFF | SF_FORMAT_PCM_16);

    // The edits.
    auto take = KXAudioFile::audioFileWithPath(folder.pathFor("take.wav"));
    ASSERT_TRUE(take);
    const KXIndexSet both{0, 1};
    take->markerList()->addMarkerWithPosition(6000.0 / 44100, "Cut away");
    take->markerList()->addMarkerWithPosition(12000.0 / 44100, "Kept");
    take->copyFrom({5000, 3000}, both);
    take->deleteRange({5000, 3000}, both);
    auto clip = KXAudioFile::audioFileWithPath(folder.pathFor("clip.aif"));
    ASSERT_TRUE(clip);
    clip->copyFrom({1000, 2205}, both);
    ASSERT_TRUE(take->pasteFromPasteboard({2000, 0}, both, false));
    take->insertSilence({10000, 500}, both);
    for (std::uint32_t c = 0; c < 2; ++c) {
        const std::shared_ptr<KXEditBlock> pasted = take->editList()->blockAtIndex(1, c);
        ASSERT_EQ(pasted->sampleRange(), (KXSampleRange{2000, 4410}));
        pasted->setStartFadeType(0);
        pasted->setEndFadeType(0);
        pasted->fadeWithin(1000, 500);
    }
    take->updateRange({2000, 4410}, both);
    ASSERT_TRUE(take->writeToTessaroFile(folder.pathFor("Edit.tess/Edit"), {}));
    take.reset();
    clip.reset();

    // Reopened and rendered to a float WAVE.
    auto document = KXAudioFile::audioFileWithPath(folder.pathFor("Edit.tess"));
    ASSERT_TRUE(document);
    ASSERT_EQ(document->frames(), 17000u + 4410u + 500u);
    ASSERT_EQ(document->markerList()->count(), 1u);
    EXPECT_NEAR(document->markerList()->labelAtIndex(0)->position() * 44100, 12000 - 3000 + 4410 + 500, 1e-6);
    auto writer = KXAudioFileWriter::writerWithAudioFile(*document);
    writer->setTempDirectory(folder.path());
    writer->setFormat(KXFourCC("WAVE"));
    writer->setDepth(32);
    writer->setIsFloatingPoint(true);
    ASSERT_TRUE(document->copy({0, document->frames()}, both, *writer));
    ASSERT_TRUE(writer->saveToPath(folder.pathFor("rendered.wav")));
    const Channels rendered = channelsOf(KXInterop::readWithLibsndfile(folder.pathFor("rendered.wav")));

    // The clip's frames at 44.1 kHz: the same rate conversion of the same frames, from a file
    // that holds only them, then stored in the take's 16 bits.
    Channels segment(2);
    for (std::uint32_t c = 0; c < 2; ++c) segment[c].assign(b[c].begin() + 1000, b[c].begin() + 3205);
    auto segmentFile = KXAudioFile::audioFileWithPath(
        writeWithLibsndfile(folder.pathFor("segment.wav"), segment, 22050, SF_FORMAT_WAV | SF_FORMAT_FLOAT));
    ASSERT_TRUE(segmentFile);
    auto converter = KXAudioFileWriter::writerWithAudioFile(*segmentFile);
    converter->setTempDirectory(folder.path());
    KXRateInstructions rate;
    rate.rate = 44100;
    ASSERT_EQ(segmentFile->convertRate(rate, *converter), KXProgressDelegate::kGoOn);
    ASSERT_TRUE(converter->saveToPath(folder.pathFor("converted.wav")));
    const Channels converted = channelsOf(KXInterop::readWithLibsndfile(folder.pathFor("converted.wav")));
    ASSERT_EQ(converted[0].size(), 4410u);

    for (std::uint32_t c = 0; c < 2; ++c) {
        std::vector<float> expected(a[c].begin(), a[c].begin() + 2000);                 // before the paste
        for (std::uint32_t i = 0; i < 4410; ++i) {                                        // the clip, faded
            float sample = to16Bits(converted[c][i]);
            if (i < 1000) sample *= float(i) / 1000.0f;
            if (i >= 3910) sample *= 1.0f - float(i - 3910) / 500.0f;
            expected.push_back(sample);
        }
        expected.insert(expected.end(), a[c].begin() + 2000, a[c].begin() + 5000);       // up to the cut
        expected.insert(expected.end(), a[c].begin() + 8000, a[c].end());                // after the cut
        expected.insert(expected.begin() + 10000, 500, 0.0f);                             // the silence
        ASSERT_EQ(rendered[c].size(), expected.size());
        for (std::size_t f = 0; f < expected.size(); ++f)
            ASSERT_NEAR(rendered[c][f], expected[f], 1e-6f) << "channel " << c << " frame " << f;
    }
    document->removeTempFiles();
}

#include "interop/KXInteropSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"

namespace KXInterop {

bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

std::string quoted(const std::string& path) { return "'" + path + "'"; }

std::string output(const std::string& command) {
    std::string text;
    if (FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r")) {
        char chunk[4096];
        for (std::size_t read; (read = fread(chunk, 1, sizeof chunk, pipe)) > 0;) text.append(chunk, read);
        pclose(pipe);
    }
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

Reference readWithLibsndfile(const std::string& path) {
    Reference reference;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &reference.info);
    if (!file) return reference;
    sf_command(file, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
    reference.samples.resize(std::size_t(reference.info.frames) * std::size_t(reference.info.channels));
    sf_readf_float(file, reference.samples.data(), reference.info.frames);
    sf_close(file);
    return reference;
}

void expectSameAsLibsndfile(const std::string& path, const std::string& referencePath) {
    SCOPED_TRACE(path);
    const Reference reference = readWithLibsndfile(referencePath.empty() ? path : referencePath);
    ASSERT_GT(reference.info.frames, 0) << "libsndfile cannot read it";
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    ASSERT_TRUE(file) << error.description();
    ASSERT_EQ(file->numberOfChannels(), std::uint32_t(reference.info.channels));
    ASSERT_EQ(file->rate(), std::uint32_t(reference.info.samplerate));
    ASSERT_EQ(file->frames(), std::uint32_t(reference.info.frames));
    const std::uint32_t channels = file->numberOfChannels();
    KXNativeAudioBuffer buffer(channels, KXAudioFile::kReadBufferFrames);
    std::size_t differences = 0;
    for (std::uint32_t start = 0; start < file->frames(); start += buffer.capacity()) {
        const std::int32_t read = file->readSamplesToBuffer(buffer, std::int32_t(start));
        ASSERT_GT(read, 0);
        for (std::uint32_t c = 0; c < channels; ++c)
            for (std::int32_t i = 0; i < read; ++i) {
                const float ours = buffer.channel(c)[i];
                const float theirs = reference.samples[(std::size_t(start) + std::size_t(i)) * channels + c];
                differences += std::memcmp(&ours, &theirs, sizeof ours) != 0;
            }
    }
    EXPECT_EQ(differences, 0u);
}

}  // namespace KXInterop

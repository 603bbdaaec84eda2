// Writes a second of a stereo 24-bit WAVE through the writer, opens it again and checks every
// sample; prints the library's version and the data folder it found.
#include <cmath>
#include <cstdio>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXDirectories.h"
#include "KXBase/KXFourCC.h"
#include "KXBase/KXVersion.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    constexpr std::uint32_t kFrames = 48000;
    KXNativeAudioBuffer buffer(2, kFrames);
    buffer.setFrames(kFrames);
    for (std::uint32_t frame = 0; frame < kFrames; ++frame) {
        buffer.channel(0)[frame] = float(std::round(std::sin(frame * 0.05) * 4000000.0) / 8388608.0);
        buffer.channel(1)[frame] = -buffer.channel(0)[frame];
    }
    KXError error;
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("WAVE"));
    writer.setChannels(2);
    writer.setRate(48000);
    writer.setDepth(24);
    if (!writer.beginWrite(&error)) return 1;
    writer.writeBuffer(buffer);
    if (!writer.endWrite(&error) || !writer.saveToPath(argv[1])) return 1;

    auto file = KXAudioFile::audioFileWithPath(argv[1], &error);
    if (!file || file->frames() != kFrames || file->numberOfChannels() != 2) return 1;
    KXNativeAudioBuffer read(2, KXAudioFile::kReadBufferFrames);
    std::uint32_t mismatches = 0;
    for (std::uint32_t start = 0; start < kFrames; start += read.capacity()) {
        const std::int32_t count = file->readSamplesToBuffer(read, start);
        for (std::int32_t i = 0; i < count; ++i)
            for (std::uint32_t c = 0; c < 2; ++c) mismatches += read.channel(c)[i] != buffer.channel(c)[start + i];
    }
    std::printf("version %s\ndata %s\nmismatches %u\n", KX_VERSION, KXDirectories::libraryDataDirectory().c_str(),
                mismatches);
    return mismatches == 0 ? 0 : 1;
}

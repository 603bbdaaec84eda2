// Puts its input into a WAVE file as the 'iXML' chunk and opens the file: the iXML reader must
// stay bounded however the document nests or repeats, and every text it keeps is valid UTF-8.

#include <cstdint>
#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBase/KXFile.h"
#include "KXFuzzSupport.h"

namespace {

void append32(KXData& bytes, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(std::uint8_t(value >> shift));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // "RIFF" <size> "WAVE", 'fmt ' of 16-bit mono 8000 Hz, 'data' of two frames, then 'iXML'.
    KXData file = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16, 0, 0, 0,
                   1,   0,   1,   0,   0x40, 0x1F, 0, 0, 0x80, 0x3E, 0, 0, 2, 0, 16, 0,
                   'd', 'a', 't', 'a', 4, 0, 0, 0, 0, 0, 0, 0, 'i', 'X', 'M', 'L'};
    append32(file, std::uint32_t(size));
    file.insert(file.end(), data, data + size);
    if (size % 2) file.push_back(0);
    const std::uint32_t riffSize = std::uint32_t(file.size() - 8);
    for (int i = 0; i < 4; ++i) file[4 + std::size_t(i)] = std::uint8_t(riffSize >> (8 * i));
    if (!KXFile::writeDataToPath(file, KXFuzz::scratchPath())) return 0;
    auto audioFile = KXAudioFile::audioFileWithPath(KXFuzz::scratchPath());
    if (audioFile && !KXFuzz::allTextValid(KXValue(audioFile->metadata()))) __builtin_trap();
    return 0;
}

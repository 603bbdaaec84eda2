// Treats its input as a Sound Designer file: a 32-bit big-endian length, that many bytes of data
// fork, and the rest as its sidecar "._<name>" (an AppleDouble file or a bare resource fork).
// Opens it (the first bytes choose Sound Designer I or II), then reads every sample, label,
// metadata entry and kept resource of what opened. Nothing may crash, hang or allocate without
// bound, and every text that reaches the model is valid UTF-8.

#include <algorithm>
#include <cstdint>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBase/KXFile.h"
#include "KXFuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 4) return 0;
    const std::size_t split = std::min<std::size_t>(kx::load32(data, KXByteOrder::big), size - 4);
    const std::string& path = KXFuzz::scratchPath();
    if (!KXFile::writeDataToPath(KXData(data + 4, data + 4 + split), path) ||
        !KXFile::writeDataToPath(KXData(data + 4 + split, data + size), KXFile::sidecarPathForPath(path)))
        return 0;
    auto file = KXAudioFile::audioFileWithPath(path);
    if (!file) return 0;
    KXNativeAudioBuffer buffer(std::min(file->numberOfChannels(), 64u), 4096);
    for (std::uint64_t frame = 0; frame < file->frames(); frame += buffer.capacity())
        (void)file->readSamplesToBuffer(buffer, std::int64_t(frame));
    for (const KXLabelList* list : std::initializer_list<const KXLabelList*>{
             file->markerList().get(), file->regionList().get(), file->loopList().get()})
        for (std::size_t i = 0; i < list->count(); ++i)
            if (const auto name = list->labelAtIndex(i)->name(); name && !KXString::isValidUTF8(*name)) __builtin_trap();
    if (!KXFuzz::allTextValid(KXValue(file->metadata()))) __builtin_trap();
    if (const auto& kept = file->unusedChunkList())
        for (const auto& chunk : *kept)
            if (chunk->name() && !KXString::isValidUTF8(*chunk->name())) __builtin_trap();
    (void)file->state();
    return 0;
}

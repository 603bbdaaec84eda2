// Reads its input as a classic resource fork (the map of Sound Designer files and AppleDouble
// sidecars): every count, offset and name must be checked, and the copies of shared data stay
// within the fork's size. A fork that reads writes back into one that reads the same.

#include <cstdint>

#include "KXBase/KXResourceFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const KXData fork(data, data + size);
    const auto resources = KXResourceFile::resourcesFromForkData(fork);
    if (!resources) return 0;
    std::size_t copied = 0;
    for (const auto& resource : *resources) copied += resource->data().size();
    if (copied > size) __builtin_trap();
    // The writer keeps every name apart (names may share bytes in the input), and a map holds
    // 64 KiB of names: round trips are checked where they fit.
    std::size_t names = 0;
    for (const auto& resource : *resources) names += resource->name() ? resource->name()->size() + 1 : 0;
    if (names > 0x8000) return 0;
    const auto again = KXResourceFile::resourcesFromForkData(KXResourceFile::resourceForkData(*resources));
    if (!again || again->size() != resources->size()) __builtin_trap();
    std::size_t copiedAgain = 0;
    for (const auto& resource : *again) copiedAgain += resource->data().size();
    if (copiedAgain != copied) __builtin_trap();
    return 0;
}

// Reads its input as a property list, binary or XML, and writes back what it read: reading must
// stay bounded in depth, time and memory whatever the nesting and the sharing of objects, and
// what it accepts must be a value the writers take.

#include <cstdint>

#include "KXBase/KXPropertyList.h"
#include "KXFuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = KXPropertyList::propertyListFromData(KXData(data, data + size));
    if (!value) return 0;
    // Every string of an accepted list is valid UTF-8.
    if (!KXFuzz::allTextValid(*value)) __builtin_trap();
    // What was read is written in both forms; the binary form must read back.
    if (!KXPropertyList::propertyListFromData(KXPropertyList::binaryData(*value))) __builtin_trap();
    (void)KXPropertyList::xmlData(*value);
    return 0;
}

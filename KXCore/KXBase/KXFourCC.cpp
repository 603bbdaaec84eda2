#include "KXBase/KXFourCC.h"

std::string KXFourCCString(std::uint32_t code) {
    return {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
}

#include "KXBase/KXFileSizeFormatter.h"

#include <cstdio>

namespace KXFileSizeFormatter {

std::string stringForSize(std::uint64_t bytes) {
    if (bytes == 1) return "1 byte";
    if (bytes < 1000) return std::to_string(bytes) + " bytes";
    static constexpr const char* kUnits[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
    double value = double(bytes) / 1000.0;
    std::size_t unit = 0;
    while (value >= 999.95 && unit + 1 < std::size(kUnits)) value /= 1000.0, ++unit;
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    return text;
}

}  // namespace KXFileSizeFormatter

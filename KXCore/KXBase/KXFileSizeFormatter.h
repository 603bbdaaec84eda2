#pragma once
// KXFileSizeFormatter: a byte count as people read it — "0 bytes", "1 byte", "999 bytes",
// "1.5 KB", "12.3 MB", "1.1 GB" (decimal units, one decimal place from a kilobyte on).

#include <cstdint>
#include <string>

namespace KXFileSizeFormatter {
std::string stringForSize(std::uint64_t bytes);
}

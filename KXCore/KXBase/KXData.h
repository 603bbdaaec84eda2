#pragma once
// A growable byte buffer: chunk payloads, resource data, file reads.

#include <cstdint>
#include <vector>

using KXData = std::vector<std::uint8_t>;

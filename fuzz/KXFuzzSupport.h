#pragma once
// What the fuzz targets share: a scratch file for inputs that must be files, and the check that
// every text an accepted input left in the model is valid UTF-8.

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "KXBase/KXString.h"
#include "KXBase/KXValue.h"

namespace KXFuzz {

// One temporary file per fuzzing process, made on first use.
inline const std::string& scratchPath() {
    static const std::string path = [] {
        std::string pattern = "/tmp/kxaudio-fuzz-XXXXXX";
        const int fd = mkstemp(pattern.data());
        if (fd >= 0) close(fd);
        return pattern;
    }();
    return path;
}

inline bool allTextValid(const KXValue& value) {
    switch (value.type()) {
        case KXValue::Type::string: return KXString::isValidUTF8(value.string());
        case KXValue::Type::array:
            for (const KXValue& item : value.array())
                if (!allTextValid(item)) return false;
            return true;
        case KXValue::Type::dictionary: {
            const KXDictionary& entries = value.dictionary();
            for (std::size_t i = 0; i < entries.count(); ++i)
                if (!KXString::isValidUTF8(entries.keys()[i]) || !allTextValid(entries.valueAtIndex(i))) return false;
            return true;
        }
        default: return true;
    }
}

}  // namespace KXFuzz

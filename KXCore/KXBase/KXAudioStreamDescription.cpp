#include "KXBase/KXAudioStreamDescription.h"

#include <bit>

KXAudioStreamDescription KXAudioStreamDescription::description() {
    KXAudioStreamDescription native;
    native.setFlags(kFlagIsFloat | kFlagIsNonInterleaved |
                    (std::endian::native == std::endian::big ? kFlagIsBigEndian : 0));
    native.setRange(32);
    return native;
}

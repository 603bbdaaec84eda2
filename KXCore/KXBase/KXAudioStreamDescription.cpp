#include "KXBase/KXAudioStreamDescription.h"

#include <bit>

KXAudioStreamDescription KXAudioStreamDescription::description() {
    KXAudioStreamDescription native;
    native.setFlags(kFlagIsFloat | kFlagIsNonInterleaved |
                    (std::endian::native == std::endian::big ? kFlagIsBigEndian : 0));
    native.setRange(32);
    return native;
}

bool KXAudioStreamDescription::isNative() const {
    const KXAudioStreamDescription native = description();
    return format_ == native.format_ && flags_ == native.flags_ && range_ == native.range_;
}

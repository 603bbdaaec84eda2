#include "KXBase/KXDirectories.h"

#include <cstdlib>
#include <mutex>
#include <optional>

namespace {
std::mutex gMutex;
std::optional<std::string> gSupport, gTemporary, gData;

std::string environment(const char* name, const std::string& fallback) {
    const char* value = std::getenv(name);
    return value && *value ? std::string(value) : fallback;
}
}  // namespace

namespace KXDirectories {

std::string applicationSupportDirectory() {
    std::lock_guard lock(gMutex);
    if (gSupport) return *gSupport;
    const std::string home = environment("HOME", "/tmp");
    return environment("XDG_DATA_HOME", home + "/.local/share") + "/kxaudio";
}

void setApplicationSupportDirectory(const std::string& path) {
    std::lock_guard lock(gMutex);
    gSupport = path;
}

std::string temporaryDirectory() {
    std::lock_guard lock(gMutex);
    return gTemporary ? *gTemporary : environment("TMPDIR", "/tmp");
}

void setTemporaryDirectory(const std::string& path) {
    std::lock_guard lock(gMutex);
    gTemporary = path;
}

std::string libraryDataDirectory() {
    std::lock_guard lock(gMutex);
#ifdef KX_DATA_DIR
    return gData ? *gData : environment("KXAUDIO_DATA_DIR", KX_DATA_DIR);
#else
    return gData ? *gData : environment("KXAUDIO_DATA_DIR", "");
#endif
}

void setLibraryDataDirectory(const std::string& path) {
    std::lock_guard lock(gMutex);
    gData = path;
}

}  // namespace KXDirectories

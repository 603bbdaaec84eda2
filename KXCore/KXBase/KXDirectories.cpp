#include "KXBase/KXDirectories.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

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

bool isDirectory(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The folder of the file this code was loaded from: the shared library, or the program that
// linked the static one.
std::string folderOfThisModule() {
    Dl_info info {};
    link_map* map = nullptr;
    std::string path;
    if (::dladdr1(reinterpret_cast<void*>(&folderOfThisModule), &info, reinterpret_cast<void**>(&map),
                  RTLD_DL_LINKMAP) != 0 &&
        map && map->l_name && *map->l_name) {
        path = map->l_name;
    } else {
        char buffer[4096];
        const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
        if (length > 0) path.assign(buffer, std::size_t(length));
    }
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// The data folder of an installed copy (or of the build tree, laid out the same way), found from
// where the library was loaded so that an installed tree can be moved; "" when there is none.
std::string installedDataDirectory() {
    static const std::string kFolder = [] {
        const std::string module = folderOfThisModule();
        if (module.empty()) return std::string();
        for (const char* relative : {KX_DATA_FROM_LIBDIR, KX_DATA_FROM_BINDIR}) {
            const std::string candidate = module + "/" + relative;
            if (!isDirectory(candidate)) continue;
            char* resolved = ::realpath(candidate.c_str(), nullptr);
            const std::string folder = resolved ? resolved : candidate;
            std::free(resolved);
            return folder;
        }
        return std::string();
    }();
    return kFolder;
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
    return gData ? *gData : environment("KXAUDIO_DATA_DIR", installedDataDirectory());
}

void setLibraryDataDirectory(const std::string& path) {
    std::lock_guard lock(gMutex);
    gData = path;
}

}  // namespace KXDirectories

#include "KXBase/KXUserInterface.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>

#include "KXBase/KXApplicationLog.h"
#include "KXBase/KXFile.h"

// --- The headless interface

std::size_t KXUserInterface::runAlert(const KXAlert& alert) { return alert.defaultButton; }

std::optional<std::string> KXUserInterface::runOpenPanel(const KXOpenPanelRequest&) { return std::nullopt; }

void KXUserInterface::presentError(const KXError& error) {
    KXApplicationLog::log(KXLogRecord{KXLogLevel::error, error.domain(), error.description(),
                                      __FILE__, __LINE__, __func__, "KXUserInterface"});
}

bool KXUserInterface::recycle(const std::string& directory, const std::vector<std::string>& names,
                              KXError* error) {
    bool all = true;
    for (const std::string& name : names) {
        if (!KXTrash::trashItemAtPath(KXFile::pathByAppendingComponent(directory, name), error))
            all = false;
    }
    return all;
}

void KXUserInterface::noteFileSystemChanged(const std::string&) {}

namespace {
std::mutex gPasteboardMutex;
std::map<std::string, KXData> gPasteboard;
}  // namespace

void KXUserInterface::writePasteboard(const std::string& type, const KXData& data) {
    std::lock_guard lock(gPasteboardMutex);
    gPasteboard[type] = data;
}

std::optional<KXData> KXUserInterface::readPasteboard(const std::string& type) {
    std::lock_guard lock(gPasteboardMutex);
    const auto found = gPasteboard.find(type);
    return found == gPasteboard.end() ? std::nullopt : std::optional<KXData>(found->second);
}

namespace {
std::mutex gInterfaceMutex;
std::shared_ptr<KXUserInterface> gInterface;
}  // namespace

KXUserInterface& KXUserInterface::shared() {
    static KXUserInterface headless;
    std::lock_guard lock(gInterfaceMutex);
    return gInterface ? *gInterface : headless;
}

void KXUserInterface::install(std::shared_ptr<KXUserInterface> userInterface) {
    std::lock_guard lock(gInterfaceMutex);
    gInterface = std::move(userInterface);
}

// --- The trash

namespace {

std::string percentEncodedPath(const std::string& path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                           c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
        if (plain) {
            out += char(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

std::string absolutePath(const std::string& path) {
    if (!path.empty() && path[0] == '/') return path;
    char* cwd = getcwd(nullptr, 0);
    std::string absolute = cwd ? std::string(cwd) + "/" + path : path;
    std::free(cwd);
    return absolute;
}

// The mount point of the volume that holds `path`: the highest folder on the same device.
std::string topDirectoryOf(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return "/";
    std::string top = KXFile::directoryOfPath(path);
    for (;;) {
        if (top == "/") return top;
        const std::string parent = KXFile::directoryOfPath(top);
        struct stat parentInfo {};
        if (stat(parent.c_str(), &parentInfo) != 0 || parentInfo.st_dev != info.st_dev) return top;
        top = parent;
    }
}

// Moves `path` into `trash` ("files" and "info" below it). The ".trashinfo" record is created
// with O_EXCL, which also reserves the name in "files".
std::optional<std::string> moveIntoTrash(const std::string& path, const std::string& trash,
                                         const std::string& infoPath, KXError* error) {
    const std::string files = trash + "/files", info = trash + "/info";
    if (!KXFile::createDirectoryAtPath(files, error) || !KXFile::createDirectoryAtPath(info, error))
        return std::nullopt;
    const std::string name = KXFile::lastPathComponent(path);
    const std::size_t dot = name.find_last_of('.');
    const std::string stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
    const std::string extension = dot == std::string::npos || dot == 0 ? "" : name.substr(dot);

    char date[32];
    const std::time_t now = std::time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    const std::string record =
        "[Trash Info]\nPath=" + percentEncodedPath(infoPath) + "\nDeletionDate=" + date + "\n";

    for (int attempt = 0; attempt < 10000; ++attempt) {
        const std::string candidate = attempt == 0 ? name : stem + "." + std::to_string(attempt) + extension;
        const std::string recordPath = info + "/" + candidate + ".trashinfo";
        const int fd = ::open(recordPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            KXSetError(error, KXError::posixError(errno, "Moving " + path + " to the trash"));
            return std::nullopt;
        }
        const bool written = ::write(fd, record.data(), record.size()) == ssize_t(record.size());
        ::close(fd);
        const std::string target = files + "/" + candidate;
        if (written && !KXFile::existsAtPath(target) && ::rename(path.c_str(), target.c_str()) == 0)
            return target;
        const int saved = written ? errno : EIO;
        ::unlink(recordPath.c_str());
        if (written && KXFile::existsAtPath(target)) continue;
        KXSetError(error, KXError::posixError(saved, "Moving " + path + " to the trash"));
        return std::nullopt;
    }
    KXSetError(error, KXError::posixError(EEXIST, "Moving " + path + " to the trash"));
    return std::nullopt;
}

}  // namespace

namespace KXTrash {

std::string homeTrashDirectory() {
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg) return std::string(xdg) + "/Trash";
    if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.local/share/Trash";
    return "/tmp/.local/share/Trash";
}

std::optional<std::string> trashItemAtPath(const std::string& path, KXError* error) {
    const std::string absolute = absolutePath(path);
    struct stat item {};
    if (lstat(absolute.c_str(), &item) != 0) {
        KXSetError(error, KXError::posixError(errno, "Moving " + path + " to the trash"));
        return std::nullopt;
    }
    const std::string home = homeTrashDirectory();
    (void)KXFile::createDirectoryAtPath(home);  // a failure shows in the stat below
    struct stat homeInfo {};
    if (stat(home.c_str(), &homeInfo) == 0 && homeInfo.st_dev == item.st_dev)
        return moveIntoTrash(absolute, home, absolute, error);
    // Another volume: its own trash, which records paths relative to the volume's top.
    const std::string top = topDirectoryOf(absolute);
    const std::string trash = (top == "/" ? "" : top) + "/.Trash-" + std::to_string(getuid());
    const std::string relative = absolute.substr(top == "/" ? 1 : top.size() + 1);
    return moveIntoTrash(absolute, trash, relative, error);
}

}  // namespace KXTrash

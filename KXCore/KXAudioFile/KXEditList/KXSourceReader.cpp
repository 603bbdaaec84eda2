#include "KXAudioFile/KXEditList/KXSourceReader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <list>
#include <mutex>

#include "KXBase/KXFile.h"

namespace {

constexpr std::size_t kCachedFiles = 16;

struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t changeSeconds = 0, changeNanoseconds = 0;
    friend bool operator==(const Identity&, const Identity&) = default;
};

bool identityOf(const std::string& path, Identity& identity) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return false;
    identity = {info.st_dev, info.st_ino, info.st_size, info.st_ctim.tv_sec, info.st_ctim.tv_nsec};
    return true;
}

struct CachedFile {
    std::string path;
    Identity identity;
    std::shared_ptr<KXFile> file;
};

std::mutex gMutex;
std::list<CachedFile> gFiles;  // most recently used first

}  // namespace

std::shared_ptr<KXFile> KXSourceReader::sharedFileAtPath(const std::string& path) {
    Identity identity;
    if (!identityOf(path, identity)) return nullptr;
    std::lock_guard<std::mutex> lock(gMutex);
    for (auto it = gFiles.begin(); it != gFiles.end(); ++it) {
        if (it->path != path) continue;
        if (it->identity == identity) {
            gFiles.splice(gFiles.begin(), gFiles, it);
            return gFiles.front().file;
        }
        gFiles.erase(it);
        break;
    }
    std::shared_ptr<KXFile> file = KXFile::fileWithPath(path);
    if (!file) return nullptr;
    gFiles.push_front({path, identity, file});
    if (gFiles.size() > kCachedFiles) gFiles.pop_back();
    return file;
}

void KXSourceReader::closeFileAtPath(const std::string& path) {
    std::lock_guard<std::mutex> lock(gMutex);
    gFiles.remove_if([&](const CachedFile& cached) { return cached.path == path; });
}

void KXSourceReader::closeCachedFiles() {
    std::lock_guard<std::mutex> lock(gMutex);
    gFiles.clear();
}

const std::uint8_t* KXSourceReader::bytesAtPath(const std::string& path, std::uint64_t position, std::size_t length) {
    if (valid_ && path == path_ && position >= position_ && position - position_ <= bytes_.size() &&
        length <= bytes_.size() - (position - position_))
        return bytes_.data() + (position - position_);
    valid_ = false;
    const std::shared_ptr<KXFile> file = sharedFileAtPath(path);
    if (!file) return nullptr;
    bytes_.resize(length);
    KXError error;
    const std::size_t got = file->readBytes(bytes_.data(), length, position, &error);
    if (error.code() != 0) return nullptr;
    std::memset(bytes_.data() + got, 0, length - got);
    path_ = path;
    position_ = position;
    valid_ = true;
    return bytes_.data();
}

float* KXSourceReader::scratch(std::size_t count) {
    if (scratch_.size() < count) scratch_.resize(count);
    return scratch_.data();
}

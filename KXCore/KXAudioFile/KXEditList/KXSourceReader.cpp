#include "KXAudioFile/KXEditList/KXSourceReader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>
#include <vector>

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

// --- Buffers

// Bytes on a cache line's boundary (the kernel copies into them fastest), left uninitialised.
struct KXSourceReader::Storage {
    struct Free {
        void operator()(std::uint8_t* p) const { std::free(p); }
    };
    std::unique_ptr<std::uint8_t, Free> bytes;
    std::size_t capacity = 0;
    std::vector<float> scratch;

    std::uint8_t* reserve(std::size_t length) {
        if (length > capacity) {
            constexpr std::size_t kAlignment = 64;
            const std::size_t rounded = (length + kAlignment - 1) / kAlignment * kAlignment;
            bytes.reset(static_cast<std::uint8_t*>(std::aligned_alloc(kAlignment, rounded)));
            capacity = bytes ? rounded : 0;
        }
        return bytes.get();
    }
};

namespace {
// A thread's spare buffers; large ones are not kept, so a one-off wide read does not stay resident.
constexpr std::size_t kPooledStorages = 4;
constexpr std::size_t kPooledBytes = std::size_t(4) << 20;
thread_local std::vector<std::unique_ptr<KXSourceReader::Storage>> tPool;
}  // namespace

KXSourceReader::KXSourceReader() {
    if (!tPool.empty()) {
        storage_ = std::move(tPool.back());
        tPool.pop_back();
    } else {
        storage_ = std::make_unique<Storage>();
    }
}

KXSourceReader::~KXSourceReader() {
    if (tPool.size() < kPooledStorages && storage_->capacity <= kPooledBytes &&
        storage_->scratch.size() * sizeof(float) <= kPooledBytes)
        tPool.push_back(std::move(storage_));
}

// --- Reading

const std::uint8_t* KXSourceReader::bytesAtPath(const std::string& path, std::uint64_t position, std::size_t length) {
    if (valid_ && path == path_ && position >= position_ && position - position_ <= length_ &&
        length <= length_ - (position - position_))
        return storage_->bytes.get() + (position - position_);
    valid_ = false;
    const std::shared_ptr<KXFile> file = sharedFileAtPath(path);
    if (!file) return nullptr;
    std::uint8_t* bytes = storage_->reserve(std::max<std::size_t>(length, 1));
    if (!bytes) return nullptr;
    KXError error;
    const std::size_t got = file->readBytes(bytes, length, position, &error);
    if (error.code() != 0) return nullptr;
    std::memset(bytes + got, 0, length - got);
    path_ = path;
    position_ = position;
    length_ = length;
    valid_ = true;
    return bytes;
}

float* KXSourceReader::scratch(std::size_t count) {
    if (storage_->scratch.size() < count) storage_->scratch.resize(count);
    return storage_->scratch.data();
}

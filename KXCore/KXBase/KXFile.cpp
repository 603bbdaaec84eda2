#include "KXBase/KXFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace {

constexpr const char* kFinderInfoAttribute = "user.com.apple.FinderInfo";
constexpr std::size_t kFinderInfoSize = 32;
constexpr std::size_t kCopyBufferSize = 1 << 20;

std::array<std::uint8_t, kFinderInfoSize> finderInfoAtPath(const std::string& path) {
    std::array<std::uint8_t, kFinderInfoSize> info{};
    const ssize_t got = getxattr(path.c_str(), kFinderInfoAttribute, info.data(), info.size());
    if (got != ssize_t(info.size())) info.fill(0);
    return info;
}

// Stores one four-byte code at `offset` of the FinderInfo, keeping the other bytes.
bool setFinderInfoCode(const std::string& path, std::size_t offset, std::uint32_t code) {
    auto info = finderInfoAtPath(path);
    kx::store32(info.data() + offset, code, KXByteOrder::big);
    return setxattr(path.c_str(), kFinderInfoAttribute, info.data(), info.size(), 0) == 0;
}

bool failWithErrno(KXError* error, const std::string& action) {
    KXSetError(error, KXError::posixError(errno, action));
    return false;
}

// A free name beside `to` for a copy on its way there, recognisable as the library's:
// "kxaudio-temp-<pid>-<name>".
std::string temporaryPathBeside(const std::string& to) {
    return KXFile::pathByAppendingComponent(KXFile::directoryOfPath(to),
                                            "kxaudio-temp-" + std::to_string(::getpid()) + "-" + KXFile::lastPathComponent(to));
}

bool synchronizePath(const std::string& path, KXError* error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return failWithErrno(error, "Synchronizing " + path);
    const bool ok = ::fsync(fd) == 0;
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return ok || failWithErrno(error, "Synchronizing " + path);
}

// Copies the bytes and the permission bits of one plain file to a path that must not exist yet.
bool copyOneFile(const std::string& from, const std::string& to, KXError* error) {
    const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return failWithErrno(error, "Copying " + from);
    struct stat info {};
    if (fstat(in, &info) != 0) {
        const int saved = errno;
        ::close(in);
        errno = saved;
        return failWithErrno(error, "Copying " + from);
    }
    const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, info.st_mode & 07777);
    if (out < 0) {
        const int saved = errno;
        ::close(in);
        errno = saved;
        return failWithErrno(error, "Copying to " + to);
    }
    std::vector<std::uint8_t> buffer(kCopyBufferSize);
    bool ok = true;
    for (;;) {
        const ssize_t got = ::read(in, buffer.data(), buffer.size());
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            ok = failWithErrno(error, "Copying " + from);
            break;
        }
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(out, buffer.data() + done, std::size_t(got - done));
            if (put < 0) {
                if (errno == EINTR) continue;
                ok = failWithErrno(error, "Copying to " + to);
                break;
            }
            done += put;
        }
        if (!ok) break;
    }
    // The copy reaches the disk before anyone renames it into place.
    if (ok && ::fsync(out) != 0) ok = failWithErrno(error, "Copying to " + to);
    if (::close(out) != 0 && ok) ok = failWithErrno(error, "Copying to " + to);
    ::close(in);
    if (!ok) {
        ::unlink(to.c_str());
        return false;
    }
    const auto finderInfo = finderInfoAtPath(from);
    if (finderInfo != std::array<std::uint8_t, kFinderInfoSize>{})
        setxattr(to.c_str(), kFinderInfoAttribute, finderInfo.data(), finderInfo.size(), 0);
    return true;
}

}  // namespace

// --- Opening and closing

std::unique_ptr<KXFile> KXFile::fileWithPath(const std::string& path, Mode mode, KXError* error) {
    // Only plain files: opening a FIFO would wait for a writer (O_NONBLOCK keeps it from
    // blocking here), and a device or folder holds no file's bytes.
    const int flags = (mode == Mode::read ? O_RDONLY : O_RDWR) | O_CLOEXEC | O_NONBLOCK;
    const int fd = ::open(path.c_str(), flags);
    if (fd < 0) {
        failWithErrno(error, "Opening " + path);
        return nullptr;
    }
    struct stat info {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        const int reason = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
        ::close(fd);
        errno = reason;
        failWithErrno(error, "Opening " + path);
        return nullptr;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return std::unique_ptr<KXFile>(new KXFile(fd, path));
}

std::unique_ptr<KXFile> KXFile::createFileAtPath(const std::string& path, KXError* error) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        failWithErrno(error, "Creating " + path);
        return nullptr;
    }
    return std::unique_ptr<KXFile>(new KXFile(fd, path));
}

KXFile::KXFile(std::unique_ptr<KXFile> other) : fd_(other->fd_), path_(other->path_), position_(other->position_) {
    other->fd_ = -1;
}

bool KXFile::setPath(const std::string& path, bool replacing, KXError* error) {
    if (!(replacing ? replacePath(path_, path, error) : movePath(path_, path, error))) return false;
    // A move across file systems copied the file: this descriptor is the deleted original.
    struct stat open {}, there {};
    if (fd_ >= 0 && fstat(fd_, &open) == 0 && stat(path.c_str(), &there) == 0 &&
        (open.st_ino != there.st_ino || open.st_dev != there.st_dev)) {
        const int access = fcntl(fd_, F_GETFL) & O_ACCMODE;
        const int fd = ::open(path.c_str(), access | O_CLOEXEC);
        if (fd >= 0) {
            ::close(fd_);
            fd_ = fd;
        }
    }
    path_ = path;
    return true;
}

KXFile::~KXFile() {
    if (fd_ >= 0) ::close(fd_);
}

bool KXFile::close(KXError* error) {
    if (fd_ < 0) return true;
    const int result = ::close(fd_);
    fd_ = -1;
    return result == 0 || failWithErrno(error, "Closing " + path_);
}

std::uint64_t KXFile::length() const {
    struct stat info {};
    return fstat(fd_, &info) == 0 ? std::uint64_t(info.st_size) : 0;
}

bool KXFile::setLength(std::uint64_t length, KXError* error) {
    if (length > std::uint64_t(INT64_MAX)) {
        errno = EFBIG;
        return failWithErrno(error, "Setting the length of " + path_);
    }
    return ftruncate(fd_, off_t(length)) == 0 || failWithErrno(error, "Setting the length of " + path_);
}

bool KXFile::synchronize(KXError* error) {
    return fsync(fd_) == 0 || failWithErrno(error, "Synchronizing " + path_);
}

bool KXFile::moveTo(std::uint64_t position, KXError* error) {
    if (position > std::uint64_t(INT64_MAX)) {
        errno = EINVAL;
        return failWithErrno(error, "Positioning in " + path_);
    }
    position_ = position;
    return true;
}

bool KXFile::moveToEnd(KXError* error) {
    struct stat info {};
    if (fstat(fd_, &info) != 0) return failWithErrno(error, "Positioning in " + path_);
    position_ = std::uint64_t(info.st_size);
    return true;
}

// --- Reading

std::size_t KXFile::readBytes(void* buffer, std::size_t length, std::uint64_t position,
                              KXError* error) const {
    auto* bytes = static_cast<std::uint8_t*>(buffer);
    std::size_t done = 0;
    while (done < length && position + done <= std::uint64_t(INT64_MAX)) {
        const ssize_t got = ::pread(fd_, bytes + done, length - done, off_t(position + done));
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            failWithErrno(error, "Reading " + path_);
            break;
        }
        done += std::size_t(got);
    }
    return done;
}

KXData KXFile::readDataOfLengthAtPosition(std::size_t length, std::uint64_t position,
                                          KXError* error) const {
    // Never allocate more than the file holds from that position on.
    const std::uint64_t fileLength = this->length();
    const std::uint64_t available = position < fileLength ? fileLength - position : 0;
    KXData data(std::size_t(std::min<std::uint64_t>(length, available)));
    data.resize(readBytes(data.data(), data.size(), position, error));
    return data;
}

KXData KXFile::readDataOfLength(std::size_t length, KXError* error) {
    KXData data = readDataOfLengthAtPosition(length, position_, error);
    position_ += data.size();
    return data;
}

std::uint16_t KXFile::readShortValueAtPosition(std::uint64_t position, KXByteOrder order) const {
    std::uint8_t bytes[2] = {};
    readBytes(bytes, sizeof bytes, position);
    return kx::load16(bytes, order);
}

std::uint32_t KXFile::readIntValueAtPosition(std::uint64_t position, KXByteOrder order) const {
    std::uint8_t bytes[4] = {};
    readBytes(bytes, sizeof bytes, position);
    return kx::load32(bytes, order);
}

std::uint64_t KXFile::readLongLongValueAtPosition(std::uint64_t position, KXByteOrder order) const {
    std::uint8_t bytes[8] = {};
    readBytes(bytes, sizeof bytes, position);
    return kx::load64(bytes, order);
}

std::uint8_t KXFile::readByteValue() {
    std::uint8_t byte = 0;
    readBytes(&byte, 1, position_);
    position_ += 1;
    return byte;
}

std::uint16_t KXFile::readShortValue(KXByteOrder order) {
    const std::uint16_t value = readShortValueAtPosition(position_, order);
    position_ += 2;
    return value;
}

std::uint32_t KXFile::readIntValue(KXByteOrder order) {
    const std::uint32_t value = readIntValueAtPosition(position_, order);
    position_ += 4;
    return value;
}

std::uint64_t KXFile::readLongLongValue(KXByteOrder order) {
    const std::uint64_t value = readLongLongValueAtPosition(position_, order);
    position_ += 8;
    return value;
}

KXUUID KXFile::readUUIDValue() {
    KXUUID::Bytes bytes{};
    readBytes(bytes.data(), bytes.size(), position_);
    position_ += bytes.size();
    return KXUUID(bytes);
}

// --- Writing

bool KXFile::writeBytesToPosition(const void* bytes, std::size_t length, std::uint64_t position,
                                  KXError* error) {
    const auto* data = static_cast<const std::uint8_t*>(bytes);
    std::size_t done = 0;
    while (done < length) {
        const ssize_t put = ::pwrite(fd_, data + done, length - done, off_t(position + done));
        if (put < 0) {
            if (errno == EINTR) continue;
            return failWithErrno(error, "Writing " + path_);
        }
        done += std::size_t(put);
    }
    return true;
}

bool KXFile::writeDataToPosition(const KXData& data, std::uint64_t position, KXError* error) {
    return writeBytesToPosition(data.data(), data.size(), position, error);
}

bool KXFile::writeIntValueToPosition(std::uint32_t value, std::uint64_t position, KXByteOrder order,
                                     KXError* error) {
    std::uint8_t bytes[4];
    kx::store32(bytes, value, order);
    return writeBytesToPosition(bytes, sizeof bytes, position, error);
}

bool KXFile::writeBytes(const void* bytes, std::size_t length, KXError* error) {
    if (!writeBytesToPosition(bytes, length, position_, error)) return false;
    position_ += length;
    return true;
}

bool KXFile::writeData(const KXData& data, KXError* error) {
    return writeBytes(data.data(), data.size(), error);
}

bool KXFile::writeShortValue(std::uint16_t value, KXByteOrder order, KXError* error) {
    std::uint8_t bytes[2];
    kx::store16(bytes, value, order);
    return writeBytes(bytes, sizeof bytes, error);
}

bool KXFile::writeIntValue(std::uint32_t value, KXByteOrder order, KXError* error) {
    std::uint8_t bytes[4];
    kx::store32(bytes, value, order);
    return writeBytes(bytes, sizeof bytes, error);
}

bool KXFile::writeLongLongValue(std::uint64_t value, KXByteOrder order, KXError* error) {
    std::uint8_t bytes[8];
    kx::store64(bytes, value, order);
    return writeBytes(bytes, sizeof bytes, error);
}

// --- Whole files

bool KXFile::existsAtPath(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

bool KXFile::isDirectoryAtPath(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool KXFile::renamePath(const std::string& from, const std::string& to, KXError* error) {
    if (::rename(from.c_str(), to.c_str()) != 0) return failWithErrno(error, "Renaming " + from);
    const std::string sidecar = sidecarPathForPath(from);
    if (existsAtPath(sidecar)) ::rename(sidecar.c_str(), sidecarPathForPath(to).c_str());
    return true;
}

bool KXFile::movePath(const std::string& from, const std::string& to, KXError* error) {
    if (!existsAtPath(from)) {
        errno = ENOENT;
        return failWithErrno(error, "Moving " + from);
    }
    // Never replaces: the check and the rename are one step where the file system allows it.
    int moved = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    if (moved != 0 && (errno == EINVAL || errno == ENOSYS)) {
        if (existsAtPath(to)) {
            errno = EEXIST;
            return failWithErrno(error, "Moving to " + to);
        }
        moved = ::rename(from.c_str(), to.c_str());
    }
    if (moved == 0) {
        const std::string sidecar = sidecarPathForPath(from);
        if (existsAtPath(sidecar)) ::rename(sidecar.c_str(), sidecarPathForPath(to).c_str());
        return true;
    }
    if (errno == EEXIST) return failWithErrno(error, "Moving to " + to);
    if (errno != EXDEV) return failWithErrno(error, "Moving " + from);
    // Another file system: a whole copy beside the destination takes its name in one step, then
    // the original goes.
    if (existsAtPath(to)) {
        errno = EEXIST;
        return failWithErrno(error, "Moving to " + to);
    }
    const std::string part = temporaryPathBeside(to);
    ::unlink(part.c_str());
    if (!copyPath(from, part, error)) return false;
    if (!movePath(part, to, error)) {
        (void)deleteFileAtPath(part);
        return false;
    }
    return deleteFileAtPath(from, error);
}

bool KXFile::replacePath(const std::string& from, const std::string& to, KXError* error) {
    if (!synchronizePath(from, error)) return false;
    if (::rename(from.c_str(), to.c_str()) != 0) {
        if (errno != EXDEV) return failWithErrno(error, "Replacing " + to);
        // Another file system: a whole copy beside the destination, then the one-step rename.
        const std::string part = temporaryPathBeside(to);
        ::unlink(part.c_str());
        if (!copyOneFile(from, part, error)) return false;
        if (::rename(part.c_str(), to.c_str()) != 0) {
            const int saved = errno;
            ::unlink(part.c_str());
            errno = saved;
            return failWithErrno(error, "Replacing " + to);
        }
        ::unlink(from.c_str());
    }
    const std::string sidecar = sidecarPathForPath(from), replaced = sidecarPathForPath(to);
    if (existsAtPath(sidecar)) {
        if (::rename(sidecar.c_str(), replaced.c_str()) != 0 && copyOneFile(sidecar, replaced + ".kxpart", nullptr)) {
            ::rename((replaced + ".kxpart").c_str(), replaced.c_str());
            ::unlink(sidecar.c_str());
        }
    } else {
        ::unlink(replaced.c_str());
    }
    return true;
}

bool KXFile::copyPath(const std::string& from, const std::string& to, KXError* error) {
    if (existsAtPath(to)) {
        errno = EEXIST;
        return failWithErrno(error, "Copying to " + to);
    }
    if (!copyOneFile(from, to, error)) return false;
    const std::string sidecar = sidecarPathForPath(from);
    if (existsAtPath(sidecar)) {
        const std::string target = sidecarPathForPath(to);
        ::unlink(target.c_str());  // a stale sidecar of a file that is gone
        if (!copyOneFile(sidecar, target, error)) {
            ::unlink(to.c_str());
            return false;
        }
    }
    return true;
}

bool KXFile::deleteFileAtPath(const std::string& path, KXError* error) {
    if (::unlink(path.c_str()) != 0) return failWithErrno(error, "Deleting " + path);
    ::unlink(sidecarPathForPath(path).c_str());
    return true;
}

bool KXFile::createDirectoryAtPath(const std::string& path, KXError* error) {
    if (path.empty()) {
        errno = ENOENT;
        return failWithErrno(error, "Creating the folder " + path);
    }
    if (isDirectoryAtPath(path)) return true;
    const std::string parent = directoryOfPath(path);
    if (parent != path && !parent.empty() && !isDirectoryAtPath(parent) &&
        !createDirectoryAtPath(parent, error))
        return false;
    if (::mkdir(path.c_str(), 0755) != 0 && !(errno == EEXIST && isDirectoryAtPath(path)))
        return failWithErrno(error, "Creating the folder " + path);
    return true;
}

std::uint64_t KXFile::lengthOfFileAtPath(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? std::uint64_t(info.st_size) : 0;
}

std::optional<double> KXFile::modificationDateAtPath(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return std::nullopt;
    return double(info.st_mtim.tv_sec) + double(info.st_mtim.tv_nsec) / 1e9;
}

std::vector<std::string> KXFile::contentsOfDirectoryAtPath(const std::string& path) {
    std::vector<std::string> names;
    DIR* directory = opendir(path.c_str());
    if (!directory) return names;
    while (dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(directory);
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<KXData> KXFile::dataWithContentsOfPath(const std::string& path, std::uint64_t maximumLength) {
    auto file = fileWithPath(path);
    if (!file || file->length() > maximumLength) return std::nullopt;
    return file->readDataOfLengthAtPosition(std::size_t(file->length()), 0);
}

bool KXFile::writeDataToPath(const KXData& data, const std::string& path, KXError* error) {
    const std::string temporary = path + ".writing";
    auto file = createFileAtPath(temporary, error);
    if (!file) return false;
    if (!file->writeData(data, error) || !file->close(error)) {
        ::unlink(temporary.c_str());
        return false;
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        failWithErrno(error, "Writing " + path);
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

std::uint32_t KXFile::typeCodeAtPath(const std::string& path) {
    return kx::load32(finderInfoAtPath(path).data(), KXByteOrder::big);
}

std::uint32_t KXFile::creatorCodeAtPath(const std::string& path) {
    return kx::load32(finderInfoAtPath(path).data() + 4, KXByteOrder::big);
}

bool KXFile::setTypeCode(std::uint32_t code, const std::string& path) {
    return setFinderInfoCode(path, 0, code);
}

bool KXFile::setCreatorCode(std::uint32_t code, const std::string& path) {
    return setFinderInfoCode(path, 4, code);
}

std::string KXFile::directoryOfPath(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string KXFile::lastPathComponent(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string KXFile::pathExtension(const std::string& path) {
    const std::string name = lastPathComponent(path);
    const std::size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

std::string KXFile::pathByAppendingComponent(const std::string& directory, const std::string& name) {
    if (directory.empty()) return name;
    return directory.back() == '/' ? directory + name : directory + "/" + name;
}

std::string KXFile::sidecarPathForPath(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return "._" + path;
    return path.substr(0, slash + 1) + "._" + path.substr(slash + 1);
}

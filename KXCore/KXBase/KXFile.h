#pragma once
// KXFile: one open file, read and written with positioned POSIX calls and 64-bit offsets.
//
// The file keeps a current position for its sequential reads and writes; the "AtPosition" and
// "ToPosition" forms neither use nor move it. Readers never fail: bytes past the end of the file
// read as zero, and an I/O error is reported only to a caller that passes an error. Writers
// report through the optional error as every fallible operation does.
//
// The class operations act on whole files as the user sees them: moving, copying and deleting a
// file carry its AppleDouble sidecar "._<name>" (where its resource fork lives) along, and copies
// keep the HFS type and creator codes, which live in the extended attribute
// "user.com.apple.FinderInfo" (32 bytes: type, then creator, then Finder flags). On a file system
// without user attributes the codes are silently not stored and read as 0.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXBase/KXByteOrder.h"
#include "KXBase/KXData.h"
#include "KXBase/KXError.h"
#include "KXBase/KXUUID.h"

class KXFile {
public:
    enum class Mode { read, readWrite };

    // Opens an existing plain file; nullptr with the operating system's error otherwise (EISDIR
    // for a folder, EINVAL for a FIFO, device or socket, which are never opened for reading).
    static std::unique_ptr<KXFile> fileWithPath(const std::string& path, Mode mode = Mode::read,
                                                KXError* error = nullptr);
    // Creates the file (emptying one that exists) and opens it for reading and writing.
    static std::unique_ptr<KXFile> createFileAtPath(const std::string& path, KXError* error = nullptr);

    ~KXFile();
    KXFile(const KXFile&) = delete;
    KXFile& operator=(const KXFile&) = delete;

    const std::string& path() const { return path_; }
    std::uint64_t length() const;
    [[nodiscard]] bool setLength(std::uint64_t length, KXError* error = nullptr);
    [[nodiscard]] bool synchronize(KXError* error = nullptr);
    // Closes now and reports a failure; the destructor closes silently.
    [[nodiscard]] bool close(KXError* error = nullptr);

    std::uint64_t position() const { return position_; }
    [[nodiscard]] bool moveTo(std::uint64_t position, KXError* error = nullptr);
    [[nodiscard]] bool moveToEnd(KXError* error = nullptr);

    // Sequential reads, from the current position, which they advance by what they read.
    KXData readDataOfLength(std::size_t length, KXError* error = nullptr);
    std::uint8_t readByteValue();
    std::uint16_t readShortValue(KXByteOrder order);
    std::uint32_t readIntValue(KXByteOrder order);
    std::uint64_t readLongLongValue(KXByteOrder order);
    KXUUID readUUIDValue();

    // Positioned reads. `readBytes` answers how many bytes the file really held there.
    std::size_t readBytes(void* buffer, std::size_t length, std::uint64_t position,
                          KXError* error = nullptr) const;
    KXData readDataOfLengthAtPosition(std::size_t length, std::uint64_t position,
                                      KXError* error = nullptr) const;
    std::uint16_t readShortValueAtPosition(std::uint64_t position, KXByteOrder order) const;
    std::uint32_t readIntValueAtPosition(std::uint64_t position, KXByteOrder order) const;
    std::uint64_t readLongLongValueAtPosition(std::uint64_t position, KXByteOrder order) const;

    // Sequential writes at the current position, which they advance.
    [[nodiscard]] bool writeBytes(const void* bytes, std::size_t length, KXError* error = nullptr);
    [[nodiscard]] bool writeData(const KXData& data, KXError* error = nullptr);
    [[nodiscard]] bool writeShortValue(std::uint16_t value, KXByteOrder order, KXError* error = nullptr);
    [[nodiscard]] bool writeIntValue(std::uint32_t value, KXByteOrder order, KXError* error = nullptr);
    [[nodiscard]] bool writeLongLongValue(std::uint64_t value, KXByteOrder order,
                                          KXError* error = nullptr);

    // Positioned writes.
    [[nodiscard]] bool writeBytesToPosition(const void* bytes, std::size_t length,
                                            std::uint64_t position, KXError* error = nullptr);
    [[nodiscard]] bool writeDataToPosition(const KXData& data, std::uint64_t position,
                                           KXError* error = nullptr);
    [[nodiscard]] bool writeIntValueToPosition(std::uint32_t value, std::uint64_t position,
                                               KXByteOrder order, KXError* error = nullptr);

    // Moves this file (movePath, or replacePath when `replacing`) and keeps it open and usable
    // under its new path.
    [[nodiscard]] bool setPath(const std::string& path, bool replacing = false, KXError* error = nullptr);

    std::uint32_t typeCode() const { return typeCodeAtPath(path_); }
    std::uint32_t creatorCode() const { return creatorCodeAtPath(path_); }

    // --- Whole files
    static bool existsAtPath(const std::string& path);
    static bool isDirectoryAtPath(const std::string& path);
    // Refuses (EEXIST) when something already exists at `to`. Across file systems the file is
    // copied beside `to` under a temporary name, flushed to disk and renamed, then `from` is
    // deleted: `to` never holds part of a file.
    [[nodiscard]] static bool movePath(const std::string& from, const std::string& to,
                                       KXError* error = nullptr);
    // The operating system's plain rename, which replaces `to`; used for a change of letter case
    // alone, which a case-insensitive volume would otherwise see as "already exists".
    [[nodiscard]] static bool renamePath(const std::string& from, const std::string& to,
                                         KXError* error = nullptr);
    // Moves `from` over whatever is at `to` in one step: a reader of `to` sees the old file or the
    // new one, never neither. The new file is flushed to disk before the rename; across file
    // systems it is first copied beside `to`. A sidecar of the replaced file that the new one does not bring is removed.
    [[nodiscard]] static bool replacePath(const std::string& from, const std::string& to,
                                          KXError* error = nullptr);
    // Refuses (EEXIST) when something already exists at `to`; a failed copy leaves nothing there.
    [[nodiscard]] static bool copyPath(const std::string& from, const std::string& to,
                                       KXError* error = nullptr);
    static bool deleteFileAtPath(const std::string& path, KXError* error = nullptr);
    // Creates the directory and any missing parents; an existing directory is success.
    [[nodiscard]] static bool createDirectoryAtPath(const std::string& path, KXError* error = nullptr);

    // The file's length; 0 when it cannot be read.
    static std::uint64_t lengthOfFileAtPath(const std::string& path);
    // The time of the file's last change; nullopt when there is no file.
    static std::optional<double> modificationDateAtPath(const std::string& path);
    // The names in a folder, sorted, without "." and ".."; empty when it cannot be read.
    static std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path);
    // The whole file, when it exists and holds at most `maximumLength` bytes.
    static std::optional<KXData> dataWithContentsOfPath(const std::string& path, std::uint64_t maximumLength);
    // Writes the bytes to a new file beside `path`, then renames it over `path`: a reader sees the
    // old file or the new one, never a part.
    [[nodiscard]] static bool writeDataToPath(const KXData& data, const std::string& path, KXError* error = nullptr);

    static std::uint32_t typeCodeAtPath(const std::string& path);
    static std::uint32_t creatorCodeAtPath(const std::string& path);
    static bool setTypeCode(std::uint32_t code, const std::string& path);
    static bool setCreatorCode(std::uint32_t code, const std::string& path);

    // "dir/._name" for "dir/name".
    static std::string sidecarPathForPath(const std::string& path);
    static std::string directoryOfPath(const std::string& path);
    static std::string lastPathComponent(const std::string& path);
    // The last component's extension without its dot; "" when it has none (a leading dot, as
    // in ".profile", starts a name, not an extension).
    static std::string pathExtension(const std::string& path);
    static std::string pathByAppendingComponent(const std::string& directory, const std::string& name);

protected:
    // Takes over another file's descriptor and path (for subclasses made by the factories).
    explicit KXFile(std::unique_ptr<KXFile> other);

private:
    KXFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}

    int fd_ = -1;
    std::string path_;
    std::uint64_t position_ = 0;
};

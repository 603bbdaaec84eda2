#pragma once
// KXSourceReader: how edit blocks get at the stored samples of their source files.
//
// Source files stay open between renders: a small process-wide cache of read-only handles keyed
// by path, each checked against the file now at that path (device, inode, size and change time)
// so that a file replaced or rewritten since is opened afresh. Reads are positioned, so threads
// share a handle safely.
//
// One reader serves one render. It keeps the bytes of its last read, so the blocks of the
// channels of an interleaved file, which read the same frames, cost one read between them. Its
// buffers come from a pool of the thread's and go back to it when the render ends: reading a
// file block by block allocates (and touches fresh pages) once, not once a block.

#include <cstdint>
#include <memory>
#include <string>

class KXFile;

class KXSourceReader {
public:
    KXSourceReader();
    ~KXSourceReader();
    KXSourceReader(const KXSourceReader&) = delete;
    KXSourceReader& operator=(const KXSourceReader&) = delete;

    // The bytes [position, position + length) of the file at `path`; bytes past the file's end
    // read as zero. nullptr when the file cannot be opened or read. The pointer stays valid
    // until the next call.
    const std::uint8_t* bytesAtPath(const std::string& path, std::uint64_t position, std::size_t length);

    // Scratch samples for a render, kept between calls.
    float* scratch(std::size_t count);

    // The open handle for `path`, from the cache or newly opened; nullptr when it cannot be opened.
    static std::shared_ptr<KXFile> sharedFileAtPath(const std::string& path);
    // Closes the cached handle of a file that is being deleted, so that its space is freed now.
    static void closeFileAtPath(const std::string& path);
    // Closes every cached handle (a host that unmounts a volume).
    static void closeCachedFiles();

    struct Storage;

private:
    std::string path_;
    std::uint64_t position_ = 0;
    std::size_t length_ = 0;
    bool valid_ = false;
    std::unique_ptr<Storage> storage_;
};

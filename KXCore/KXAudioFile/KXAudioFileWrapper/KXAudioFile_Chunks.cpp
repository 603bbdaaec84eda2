#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXResourceFile.h"

namespace {
template <typename Match>
std::shared_ptr<KXChunk> firstChunk(const KXChunkArray& list, Match match) {
    for (const auto& chunk : list)
        if (match(*chunk)) return chunk;
    return nullptr;
}
}  // namespace

std::optional<KXChunkArray> KXAudioFile::chunksForFile(KXFile& file, KXError* error) {
    KXChunkList walker(*this);
    return walker.chunksForFile(file, error);
}

KXChunkArray KXAudioFile::chunksForResourceFile(const KXResourceFile& file) const {
    return KXChunkList::chunksForResourceFile(file);
}

std::shared_ptr<KXChunk> KXAudioFile::chunkOfType(std::uint32_t type, const KXChunkArray& list) {
    return firstChunk(list, [&](const KXChunk& c) { return c.type() == type; });
}

std::shared_ptr<KXChunk> KXAudioFile::chunkOfTypeSubtype(std::uint32_t type, std::uint32_t subtype,
                                                         const KXChunkArray& list) {
    return firstChunk(list, [&](const KXChunk& c) { return c.type() == type && c.subtype() == subtype; });
}

std::shared_ptr<KXChunk> KXAudioFile::chunkOfTypeChunkID(std::uint32_t type, std::int16_t chunkID,
                                                         const KXChunkArray& list) {
    return firstChunk(list, [&](const KXChunk& c) { return c.type() == type && c.chunkID() == chunkID; });
}

std::shared_ptr<KXChunk> KXAudioFile::chunkOfTypeName(std::uint32_t type, const std::string& name,
                                                      const KXChunkArray& list) {
    return firstChunk(list, [&](const KXChunk& c) { return c.type() == type && c.name() == name; });
}

std::shared_ptr<KXChunk> KXAudioFile::chunkWithUUID(const KXUUID& uuid, const KXChunkArray& list) {
    return firstChunk(list, [&](const KXChunk& c) { return c.type() == KXFourCC("uuid") && c.uuid() == uuid; });
}

std::optional<KXChunkArray> KXAudioFile::chunksAtPath(const std::string& path) {
    auto file = KXFile::fileWithPath(path);
    if (!file) return std::nullopt;
    // The walk corrects this object's fileSize for a short container; another file's walk must not.
    const std::uint64_t ownSize = fileSize_;
    auto chunks = chunksForFile(*file);
    fileSize_ = ownSize;
    return chunks;
}

std::shared_ptr<KXChunk> KXAudioFile::chunkOfTypeAtPath(std::uint32_t type, const std::string& path) {
    if (format_ == KXFourCC("RCY ")) return nullptr;
    if (format_ == KXFourCC("SDII") || format_ == KXFourCC("SFIL")) {
        auto fork = KXResourceFile::resourceFileWithPath(path);
        return fork ? chunkOfType(type, chunksForResourceFile(*fork)) : nullptr;
    }
    auto chunks = chunksAtPath(path);
    return chunks ? chunkOfType(type, *chunks) : nullptr;
}

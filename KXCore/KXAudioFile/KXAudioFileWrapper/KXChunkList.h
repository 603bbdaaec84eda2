#pragma once
// KXChunkList: every chunk of an audio file's file set, walked once before a parser reads any
// field. The walk verifies the container's declared size against the file, loads each chunk's
// payload except the sample data, and then answers lookups. Parsers mark what they consume;
// the rest is handed back as the unused chunks, which writers carry into a rewritten file.
//
// Chunk headers, by the audio file's format:
//   IFF/RIFF (all others)  first chunk at 12; 4-byte type, 32-bit size of the payload
//   'WV64' (Wave64)        first chunk at 40; 16-byte GUID whose first four bytes are the type,
//                          64-bit size at header offset 16 that counts the 24-byte header too
//   'caff' (CAF)           first chunk at 8; 4-byte type, 64-bit payload size, all ones meaning
//                          "to the end of the file"
// Sizes are in the file's blockSizeByteOrder; types are always big-endian.
//
// Verification. A declared container size larger than the file fails with -4. A smaller one
// (or an IFF/RIFF file too large for its 32-bit size) limits the walk to the declared size,
// corrects the audio file's fileSize and stores the warning -10, and the walk goes on. A chunk
// header is plausible when its type does not begin with byte 0 or 255 and its payload ends
// before the limit; an implausible one is retried one byte further (which finds a chunk after
// a missing pad byte), and a second in a row fails with -8, as does a last chunk that runs past
// the limit. Deliberate: a last chunk that lacks only its pad byte (missing, or past a declared
// size that does not count it; a container size that counts a missing pad byte is one byte past
// the file) is whole, with the warning -10. 'JUNK' and 'free' chunks are skipped.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"

class KXChunkList {
public:
    // Walks the file set of `audioFile`, which must outlive the list. REX files have no
    // chunks; Sound Designer files are walked in their resource forks.
    static std::shared_ptr<KXChunkList> chunkListForAudioFile(KXAudioFile& audioFile,
                                                              KXError* error = nullptr);

    // One array per file of the set, each in file order.
    const std::vector<KXChunkArray>& chunks() const { return chunks_; }

    // The first match in file `fileIndex` (0 unless given), or nullptr.
    std::shared_ptr<KXChunk> chunkOfType(std::uint32_t type, std::size_t fileIndex = 0) const;
    std::shared_ptr<KXChunk> chunkOfTypeSubtype(std::uint32_t type, std::uint32_t subtype,
                                                std::size_t fileIndex = 0) const;
    std::shared_ptr<KXChunk> chunkOfTypeChunkID(std::uint32_t type, std::int16_t chunkID,
                                                std::size_t fileIndex = 0) const;
    std::shared_ptr<KXChunk> chunkOfTypeName(std::uint32_t type, const std::string& name,
                                             std::size_t fileIndex = 0) const;
    std::shared_ptr<KXChunk> chunkWithUUID(const KXUUID& uuid, std::size_t fileIndex = 0) const;

    // Marks every matching chunk of every file as used.
    void usedChunkOfType(std::uint32_t type);
    void usedChunkOfTypeSubtype(std::uint32_t type, std::uint32_t subtype);
    // How a reader consumes a chunk: the first of `type` (and `subtype` when not 0) in the first
    // file, after which every chunk like it in every file is marked used; nullptr when there is none.
    std::shared_ptr<KXChunk> consumeChunk(std::uint32_t type, std::uint32_t subtype = 0);
    // The same for the resources of Sound Designer files, found by their ID or their name.
    std::shared_ptr<KXChunk> consumeChunkWithID(std::uint32_t type, std::int16_t chunkID);
    std::shared_ptr<KXChunk> consumeChunkWithName(std::uint32_t type, const std::string& name);
    // All chunks not marked, over all files in order.
    KXChunkArray unusedChunks() const;

    // The 'JUNK' and 'free' chunks the walk stepped over, one array per file (the first
    // 1,048,576 of each), for tools that show a file's whole layout.
    struct SkippedChunk {
        std::uint32_t type;
        std::uint64_t position, length;
    };
    const std::vector<std::vector<SkippedChunk>>& skippedChunks() const { return skipped_; }


    std::optional<KXChunkArray> chunksForFile(KXFile& file, KXError* error = nullptr);
    static KXChunkArray chunksForResourceFile(const KXResourceFile& file);

    std::string description() const;

private:
    explicit KXChunkList(KXAudioFile& audioFile) : audioFile_(&audioFile) {}
    friend class KXAudioFile;
    const KXChunkArray* file(std::size_t index) const;
    // The first chunk of the first file that `matches`, after marking every chunk that matches
    // in every file as used.
    template <typename Match>
    std::shared_ptr<KXChunk> consumeMatching(Match matches);

    std::vector<KXChunkArray> chunks_;
    std::vector<std::vector<SkippedChunk>> skipped_;
    KXAudioFile* audioFile_;  // not owned
};

#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"

#include <algorithm>
#include <cerrno>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXResourceFile.h"

namespace {

constexpr const char* kVerifyingAction = "Verifying the chunks";

struct Walk {
    std::uint64_t first;   // position of the first chunk
    std::uint64_t header;  // size of a chunk header
};
constexpr Walk kIFFWalk{12, 8};
constexpr Walk kWave64Walk{40, 24};
constexpr Walk kCAFWalk{8, 12};
// Chunks one file may hold. Real files have dozens; a walk that finds more than a million is
// refused, as every chunk found costs memory in every later step.
constexpr std::size_t kMaximumChunks = std::size_t(1) << 20;

bool isSampleDataChunk(std::uint32_t format, std::uint32_t type) {
    if (format == KXFourCC("AIFF")) return type == KXFourCC("SSND");
    return type == KXFourCC("data") &&
           (format == KXFourCC("WAVE") || format == KXFourCC("caff") || format == KXFourCC("WV64"));
}

// A file read through a window: a walk over many small chunks costs one read per window, not
// one (or three) per chunk.
class ReadWindow {
public:
    ReadWindow(const KXFile& file, std::uint64_t fileLength) : file_(file), fileLength_(fileLength) {}

    // `length` bytes at `position` (zero past the end of the file) in `to`.
    void read(std::uint8_t* to, std::size_t length, std::uint64_t position) {
        if (length > kWindowSize / 4) {
            const std::size_t got = file_.readBytes(to, length, position);
            std::fill(to + got, to + length, 0);
            return;
        }
        if (position < start_ || position - start_ > bytes_.size() || length > bytes_.size() - (position - start_)) {
            bytes_.resize(kWindowSize);
            bytes_.resize(file_.readBytes(bytes_.data(), kWindowSize, position));
            start_ = position;
        }
        const std::size_t offset = std::size_t(position - start_);
        const std::size_t held = std::min(length, bytes_.size() - offset);
        std::copy_n(bytes_.data() + offset, held, to);
        std::fill(to + held, to + length, 0);
    }
    std::uint32_t int32(std::uint64_t position, KXByteOrder order) {
        std::uint8_t bytes[4];
        read(bytes, sizeof bytes, position);
        return kx::load32(bytes, order);
    }
    std::uint64_t int64(std::uint64_t position, KXByteOrder order) {
        std::uint8_t bytes[8];
        read(bytes, sizeof bytes, position);
        return kx::load64(bytes, order);
    }
    // The payload bytes that the file holds: never sized past its end.
    KXData data(std::uint64_t position, std::uint64_t length) {
        const std::uint64_t available = position < fileLength_ ? std::min(length, fileLength_ - position) : 0;
        KXData bytes(static_cast<std::size_t>(available));
        read(bytes.data(), bytes.size(), position);
        return bytes;
    }

private:
    static constexpr std::size_t kWindowSize = 1 << 16;
    const KXFile& file_;
    const std::uint64_t fileLength_;
    std::uint64_t start_ = 0;
    KXData bytes_;
};

// Fills `chunk` from its payload. A 'LIST' of WAVE and an 'APPL' of AIFF keep their first four
// bytes as the subtype; a 'uuid' chunk its first sixteen as the UUID.
void loadPayload(KXChunk& chunk, KXData payload) {
    const std::uint32_t format = chunk.format(), type = chunk.type();
    std::size_t skip = 0;
    if ((type == KXFourCC("LIST") && format == KXFourCC("WAVE")) ||
        (type == KXFourCC("APPL") && format == KXFourCC("AIFF"))) {
        std::uint8_t code[4] = {};
        std::copy_n(payload.begin(), std::min<std::size_t>(4, payload.size()), code);
        chunk.setSubtype(kx::load32(code, KXByteOrder::big));
        skip = 4;
    } else if (type == KXFourCC("uuid")) {
        KXUUID::Bytes bytes{};
        std::copy_n(payload.begin(), std::min<std::size_t>(16, payload.size()), bytes.begin());
        chunk.setUUID(KXUUID(bytes));
        skip = 16;
    }
    payload.erase(payload.begin(), payload.begin() + std::ptrdiff_t(std::min(skip, payload.size())));
    chunk.mutableData() = std::move(payload);
}

}  // namespace

std::shared_ptr<KXChunkList> KXChunkList::chunkListForAudioFile(KXAudioFile& audioFile, KXError* error) {
    std::shared_ptr<KXChunkList> list(new KXChunkList(audioFile));
    const std::uint32_t format = audioFile.format();
    if (format == KXFourCC("REX1") || format == KXFourCC("REX2") || format == KXFourCC("RCY ")) return list;
    if (!audioFile.filename()) {
        KXSetError(error, KXError::posixError(ENOENT, "Opening the audio file"));
        return nullptr;
    }
    const bool resourceWalk = format == KXFourCC("SDII") || format == KXFourCC("SFIL");
    for (const std::string& path : audioFile.filename()->paths()) {
        if (resourceWalk) {
            auto fork = KXResourceFile::resourceFileWithPath(path, KXResourceFile::Mode::read, error);
            if (!fork) return nullptr;
            list->chunks_.push_back(chunksForResourceFile(*fork));
            continue;
        }
        auto file = KXFile::fileWithPath(path, KXFile::Mode::read, error);
        if (!file) return nullptr;
        auto chunks = list->chunksForFile(*file, error);
        if (!chunks) return nullptr;
        list->chunks_.push_back(std::move(*chunks));
    }
    return list;
}

namespace {

// The 64-bit sizes of an RF64 or BW64 file's 'ds64' chunk (the first chunk), which stand for the
// 32-bit sizes of 0xFFFFFFFF: the container's, the 'data' chunk's, and a table of other chunks'.
struct LargeSizes {
    std::uint64_t container = 0, data = 0;
    std::vector<std::pair<std::uint32_t, std::uint64_t>> table;

    // The size of a chunk whose 32-bit size is 0xFFFFFFFF; nullopt when the table has none.
    std::optional<std::uint64_t> sizeOf(std::uint32_t type) const {
        if (type == KXFourCC("data")) return data;
        for (const auto& [id, size] : table)
            if (id == type) return size;
        return std::nullopt;
    }
};

constexpr std::uint32_t kLargeSizesTableEntrySize = 12, kLargeSizesTableStart = 28;

// nullopt for a file that is not RF64 or BW64 or has no readable 'ds64' first.
std::optional<LargeSizes> largeSizesOf(KXFile& file) {
    const std::uint32_t magic = file.readIntValueAtPosition(0, KXByteOrder::big);
    if ((magic != KXFourCC("RF64") && magic != KXFourCC("BW64")) || file.readIntValueAtPosition(12, KXByteOrder::big) != KXFourCC("ds64"))
        return std::nullopt;
    const std::uint64_t size = file.readIntValueAtPosition(16, KXByteOrder::little);
    if (size < kLargeSizesTableStart || size > file.length() - 20) return std::nullopt;
    const KXData ds64 = file.readDataOfLengthAtPosition(std::size_t(size), 20);
    if (ds64.size() < kLargeSizesTableStart) return std::nullopt;
    LargeSizes sizes;
    sizes.container = kx::load64(ds64.data(), KXByteOrder::little);
    sizes.data = kx::load64(ds64.data() + 8, KXByteOrder::little);
    // The table holds as many entries as it says and the chunk holds, no more.
    const std::uint64_t entries = std::min<std::uint64_t>(kx::load32(ds64.data() + 24, KXByteOrder::little),
                                                          (ds64.size() - kLargeSizesTableStart) / kLargeSizesTableEntrySize);
    for (std::uint64_t i = 0; i < entries; ++i) {
        const std::uint8_t* entry = ds64.data() + kLargeSizesTableStart + kLargeSizesTableEntrySize * i;
        sizes.table.emplace_back(kx::load32(entry, KXByteOrder::big), kx::load64(entry + 4, KXByteOrder::little));
    }
    return sizes;
}

// Where a walk ends: the file's end, or the end that a smaller declared container size gives.
// `shortByOne`: the declared size is one byte past the file, which may count the pad byte of a
// last chunk the file lacks (the walk decides). nullopt when the declared size runs further past
// the file's end. CAF declares no size.
struct ContainerLimit {
    std::uint64_t limit;
    bool shortByOne;
};

std::optional<ContainerLimit> containerLimit(KXFile& file, bool isWave64, bool isCAF, KXByteOrder order,
                                             const std::optional<LargeSizes>& large) {
    const std::uint64_t fileLength = file.length();
    if (isCAF) return ContainerLimit{fileLength, false};
    if (isWave64) {
        const std::uint64_t declared = file.readLongLongValueAtPosition(16, order);
        if (declared > fileLength) return std::nullopt;
        return ContainerLimit{declared, false};
    }
    if (fileLength < 8) return std::nullopt;
    std::uint64_t declared = file.readIntValueAtPosition(4, order);
    if (large && declared == 0xFFFFFFFFu) declared = large->container;
    const std::uint64_t available = fileLength - 8;
    if (declared == available + 1) return ContainerLimit{fileLength, true};
    // A plain RIFF file too large for its 32-bit size walks as far as the size says.
    if ((available <= 0xFFFFFFFFu || large) && declared > available) return std::nullopt;
    return ContainerLimit{declared + 8, false};
}

}  // namespace

std::optional<KXChunkArray> KXChunkList::chunksForFile(KXFile& file, KXError* error) {
    const std::uint32_t format = audioFile_->format();
    const KXByteOrder order = KXByteOrderFromValue(std::uint32_t(audioFile_->blockSizeByteOrder()));
    const std::uint64_t fileLength = file.length();
    const bool isCAF = format == KXFourCC("caff"), isWave64 = format == KXFourCC("WV64");
    const Walk walk = isCAF ? kCAFWalk : isWave64 ? kWave64Walk : kIFFWalk;

    auto fail = [&](std::int64_t code) {
        KXSetError(error, KXAudioFileError::errorWithCode(code, kVerifyingAction));
        return std::nullopt;
    };
    // RF64 and BW64 (read as WAVE) take their large sizes from 'ds64'.
    const std::optional<LargeSizes> large = format == KXFourCC("WAVE") ? largeSizesOf(file) : std::nullopt;
    const std::optional<ContainerLimit> container = containerLimit(file, isWave64, isCAF, order, large);
    if (!container) return fail(KXAudioFileErrorIncorrectFileSize);
    const std::uint64_t limit = container->limit;
    const bool shortByOne = container->shortByOne;
    // A declared size below the real one: the walk keeps to it, and says so.
    if (limit < fileLength) {
        audioFile_->setFileSize(limit);
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorFileSizeAdjusted, kVerifyingAction));
    }

    KXChunkArray chunks;
    std::vector<SkippedChunk> skipped;
    ReadWindow window(file, fileLength);
    std::uint64_t p = walk.first;
    bool retrying = false, lastPadded = false;
    while (p + walk.header < limit) {
        const std::uint32_t type = window.int32(p, KXByteOrder::big);
        std::uint64_t length;
        bool sizeValid = true;
        if (isWave64) {
            const std::uint64_t stored = window.int64(p + 16, order);
            sizeValid = stored >= walk.header;
            length = stored - walk.header;
        } else if (isCAF) {
            length = window.int64(p + 4, order);
            if (length == ~std::uint64_t(0)) length = limit - (walk.header + p);
        } else {
            length = window.int32(p + 4, order);
            if (large && length == 0xFFFFFFFFu) length = large->sizeOf(type).value_or(length);
        }
        const std::uint8_t lead = std::uint8_t(type >> 24);
        // p + length < limit, written so that it cannot overflow.
        const bool plausible = sizeValid && lead != 0 && lead != 0xFF && length < limit && p < limit - length;
        if (!plausible) {
            if (retrying) return fail(KXAudioFileErrorChunkVerificationFailed);
            retrying = true;
            p += 1;
            continue;
        }
        retrying = false;
        if (type == KXFourCC("JUNK") || type == KXFourCC("free")) {
            if (skipped.size() < kMaximumChunks) skipped.push_back({type, p, length});
            p += length + walk.header;
            continue;
        }
        if (chunks.size() == kMaximumChunks) return fail(KXAudioFileErrorChunkVerificationFailed);
        auto chunk = KXChunk::chunk();
        chunk->setFormat(format);
        chunk->setType(type);
        chunk->setPosition(p);
        if (isSampleDataChunk(format, type)) chunk->setLength(length);
        else loadPayload(*chunk, window.data(p + walk.header, length));
        p += length + walk.header;
        lastPadded = (length & 1) && chunk->requiresEvenSize();
        if (lastPadded) p += 1;
        chunks.push_back(std::move(chunk));
    }
    // Deliberate: a last chunk whose pad byte is missing, or lies past the container's declared
    // size, is whole; several programs write such files. The file opens with the warning -10.
    const bool padMissing = lastPadded && p == limit + 1;
    if (shortByOne && !padMissing) return fail(KXAudioFileErrorIncorrectFileSize);
    if (padMissing) KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorFileSizeAdjusted, kVerifyingAction));
    else if (p > limit) return fail(KXAudioFileErrorChunkVerificationFailed);
    skipped_.push_back(std::move(skipped));
    return chunks;
}

std::shared_ptr<KXChunk> KXChunkList::consumeChunk(std::uint32_t type, std::uint32_t subtype) {
    auto chunk = subtype ? chunkOfTypeSubtype(type, subtype) : chunkOfType(type);
    if (!chunk) return nullptr;
    if (subtype) usedChunkOfTypeSubtype(type, subtype);
    else usedChunkOfType(type);
    return chunk;
}

template <typename Match>
std::shared_ptr<KXChunk> KXChunkList::consumeMatching(Match matches) {
    std::shared_ptr<KXChunk> first;
    for (std::size_t f = 0; f < chunks_.size(); ++f)
        for (const auto& chunk : chunks_[f]) {
            if (!matches(*chunk)) continue;
            if (f == 0 && !first) first = chunk;
            chunk->setIsUsed(true);
        }
    return first;
}

std::shared_ptr<KXChunk> KXChunkList::consumeChunkWithID(std::uint32_t type, std::int16_t chunkID) {
    return consumeMatching([&](const KXChunk& c) { return c.type() == type && c.chunkID() == chunkID; });
}

std::shared_ptr<KXChunk> KXChunkList::consumeChunkWithName(std::uint32_t type, const std::string& name) {
    return consumeMatching([&](const KXChunk& c) { return c.type() == type && c.name() == name; });
}

KXChunkArray KXChunkList::chunksForResourceFile(const KXResourceFile& file) {
    KXChunkArray chunks;
    for (const auto& resource : file.resources()) {
        auto chunk = KXChunk::chunk();
        // Deliberate: every chunk of a resource walk is of format 'SDII', 'SFIL' files too.
        chunk->setFormat(KXFourCC("SDII"));
        chunk->setType(resource->type());
        chunk->setChunkID(resource->resourceID());
        chunk->setName(resource->name());
        chunk->mutableData() = resource->data();
        chunks.push_back(std::move(chunk));
    }
    return chunks;
}

// --- Lookups

const KXChunkArray* KXChunkList::file(std::size_t index) const {
    return index < chunks_.size() ? &chunks_[index] : nullptr;
}

std::shared_ptr<KXChunk> KXChunkList::chunkOfType(std::uint32_t type, std::size_t fileIndex) const {
    const KXChunkArray* list = file(fileIndex);
    return list ? KXAudioFile::chunkOfType(type, *list) : nullptr;
}

std::shared_ptr<KXChunk> KXChunkList::chunkOfTypeSubtype(std::uint32_t type, std::uint32_t subtype,
                                                         std::size_t fileIndex) const {
    const KXChunkArray* list = file(fileIndex);
    return list ? KXAudioFile::chunkOfTypeSubtype(type, subtype, *list) : nullptr;
}

std::shared_ptr<KXChunk> KXChunkList::chunkOfTypeChunkID(std::uint32_t type, std::int16_t chunkID,
                                                         std::size_t fileIndex) const {
    const KXChunkArray* list = file(fileIndex);
    return list ? KXAudioFile::chunkOfTypeChunkID(type, chunkID, *list) : nullptr;
}

std::shared_ptr<KXChunk> KXChunkList::chunkOfTypeName(std::uint32_t type, const std::string& name,
                                                      std::size_t fileIndex) const {
    const KXChunkArray* list = file(fileIndex);
    return list ? KXAudioFile::chunkOfTypeName(type, name, *list) : nullptr;
}

std::shared_ptr<KXChunk> KXChunkList::chunkWithUUID(const KXUUID& uuid, std::size_t fileIndex) const {
    const KXChunkArray* list = file(fileIndex);
    return list ? KXAudioFile::chunkWithUUID(uuid, *list) : nullptr;
}

void KXChunkList::usedChunkOfType(std::uint32_t type) {
    for (auto& list : chunks_)
        for (auto& chunk : list)
            if (chunk->type() == type) chunk->setIsUsed(true);
}

void KXChunkList::usedChunkOfTypeSubtype(std::uint32_t type, std::uint32_t subtype) {
    for (auto& list : chunks_)
        for (auto& chunk : list)
            if (chunk->type() == type && chunk->subtype() == subtype) chunk->setIsUsed(true);
}

KXChunkArray KXChunkList::unusedChunks() const {
    KXChunkArray unused;
    for (const auto& list : chunks_)
        for (const auto& chunk : list)
            if (!chunk->used()) unused.push_back(chunk);
    return unused;
}

std::string KXChunkList::description() const {
    std::string text = "(";
    for (std::size_t f = 0; f < chunks_.size(); ++f) {
        text += f ? ", (" : "(";
        for (std::size_t c = 0; c < chunks_[f].size(); ++c)
            text += (c ? ", " : "") + chunks_[f][c]->description();
        text += ")";
    }
    return text + ")";
}

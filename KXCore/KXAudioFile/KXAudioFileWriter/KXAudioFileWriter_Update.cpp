// The header update: a file's label and metadata chunks replaced by the ones a writer's state
// makes, every other chunk and the samples kept byte for byte. Formats without chunks (AU, Sound
// Designer) are written anew through the writer, their sample bytes copied over the written ones.
//
// The new file is laid out as: the container's own header, the chunks before the samples that
// are not label, metadata or padding chunks (in their order), the new chunks for before the
// samples, one padding chunk, the sample chunk as it was, the chunks after it that are not label
// or metadata chunks, the new chunks for after the samples. Padding chunks ('JUNK' and 'free')
// are where growth goes.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "KXAudioFile/KXAudioFileWrapper/KXAIFFLayout.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXCAFLayout.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXAudioFileWrapper/KXWAVELayout.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXFile.h"

namespace {

constexpr const char* kAction = "Updating the header";
// An update in place writes the file's first page only, which a kill cannot leave half written.
constexpr std::uint64_t kInPlaceLimit = 4096;
// A rewritten file's samples start at this offset when the header leaves room, else after this
// much padding.
constexpr std::uint64_t kRewrittenSampleOffset = 4096;
constexpr std::uint64_t kMinimumRoom = 1024;
constexpr std::size_t kCopyBlock = std::size_t(1) << 20;

enum class Container { wave, aiff, caf };

struct ContainerRule {
    Container container;
    std::uint32_t sampleChunk;
    std::uint64_t fileHeader;   // bytes before the first chunk
    std::uint64_t chunkHeader;  // type and size
    bool padded;                // odd chunks are followed by a pad byte
    std::uint32_t padding;      // the padding chunk this container writes
    KXByteOrder order;
};

std::optional<ContainerRule> ruleForFormat(std::uint32_t format, std::int32_t blockSizeByteOrder) {
    const KXByteOrder order = blockSizeByteOrder == 1 ? KXByteOrder::little : KXByteOrder::big;
    if (format == KXFourCC("WAVE") || format == KXFourCC("ACID"))
        return ContainerRule{Container::wave, KXFourCC("data"), 12, 8, true, KXFourCC("JUNK"), order};
    if (format == KXFourCC("AIFF") || format == KXFourCC("AIFC") || format == KXFourCC("APLL"))
        return ContainerRule{Container::aiff, KXFourCC("SSND"), 12, 8, true, KXFourCC("JUNK"), order};
    if (format == KXFourCC("caff"))
        return ContainerRule{
            Container::caf,   KXFourCC("data"), KXCAFLayout::kFileHeaderSize, KXCAFLayout::kChunkHeaderSize, false,
            KXFourCC("free"), KXByteOrder::big};
    return std::nullopt;
}

bool isTagChunk(Container container, std::uint32_t type, std::uint32_t subtype) {
    const auto inPairs = [&](const auto& table) {
        return std::any_of(std::begin(table), std::end(table),
                           [&](const auto& pair) { return pair[0] == type && (pair[1] == 0 || pair[1] == subtype); });
    };
    switch (container) {
        case Container::wave:
            return inPairs(KXWAVELayout::kTagChunks);
        case Container::aiff:
            return inPairs(KXAIFFLayout::kTagChunks) ||
                   std::any_of(std::begin(KXAIFFLayout::kTextChunks), std::end(KXAIFFLayout::kTextChunks),
                               [&](const auto& text) { return text.type == type; });
        case Container::caf:
            return std::find(std::begin(KXCAFLayout::kTagChunks), std::end(KXCAFLayout::kTagChunks), type) !=
                   std::end(KXCAFLayout::kTagChunks);
    }
    return false;
}

// A chunk of the file as it lies there.
struct Extent {
    std::uint32_t type, subtype;
    std::uint64_t start, end;  // header to the end of the pad byte
    bool padding;
};

void appendFlat(KXData& bytes, const KXChunk& chunk, const ContainerRule& rule) {
    const KXData flat = chunk.flatBytes();
    bytes.insert(bytes.end(), flat.begin(), flat.end());
    if (rule.padded && flat.size() % 2 == 1) bytes.push_back(0);
}

// A padding chunk filling `length` bytes (at least a chunk header).
KXData paddingChunk(std::uint64_t length, const ContainerRule& rule) {
    KXData bytes(std::size_t(length), 0);
    kx::store32(bytes.data(), rule.padding, KXByteOrder::big);
    if (rule.container == Container::caf)
        kx::store64(bytes.data() + 4, length - rule.chunkHeader, rule.order);
    else
        kx::store32(bytes.data() + 4, std::uint32_t(length - rule.chunkHeader), rule.order);
    return bytes;
}

bool copyRange(const KXFile& from, std::uint64_t start, std::uint64_t end, KXFile& to, KXError* error) {
    std::vector<std::uint8_t> buffer(
        std::size_t(std::min<std::uint64_t>(kCopyBlock, std::max<std::uint64_t>(end - start, 1))));
    for (std::uint64_t at = start; at < end;) {
        const std::size_t want = std::size_t(std::min<std::uint64_t>(buffer.size(), end - at));
        const std::size_t got = from.readBytes(buffer.data(), want, at, error);
        if (got != want) return KXAudioFileError::fail(error, KXAudioFileErrorIncorrectFileSize, kAction);
        if (!to.writeBytes(buffer.data(), got, error)) return false;
        at += got;
    }
    return true;
}

}  // namespace

std::optional<KXAudioFileWriter::HeaderUpdate> KXAudioFileWriter::updateHeaderOfFile(const std::string& path,
                                                                                     KXError* error) {
    const auto refuse = [&](std::int64_t code) -> std::optional<HeaderUpdate> {
        KXSetError(error, KXAudioFileError::errorWithCode(code, kAction));
        return std::nullopt;
    };
    auto audioFile = KXAudioFile::audioFileWithPath(path, error);
    if (!audioFile) return std::nullopt;
    if (!audioFile->filename() || audioFile->filename()->paths().size() != 1)
        return refuse(KXAudioFileErrorUnsupportedFormat);
    const std::optional<ContainerRule> found = ruleForFormat(audioFile->format(), audioFile->blockSizeByteOrder());
    if (!found) return rewriteThroughWriter(*audioFile, path, error);
    const ContainerRule rule = *found;
    auto list = KXChunkList::chunkListForAudioFile(*audioFile, error);
    if (!list || list->chunks().empty()) return std::nullopt;
    auto file = KXFile::fileWithPath(path, KXFile::Mode::readWrite, error);
    if (!file) return std::nullopt;
    const std::uint64_t fileLength = file->length();

    // Where each chunk lies: its size as stored (the sample chunk's as the walk resolved it, which
    // covers RF64 and a CAF 'data' that runs to the end), its pad byte, clipped to the file.
    std::vector<Extent> extents;
    for (const auto& chunk : list->chunks()[0]) {
        const std::uint64_t start = std::uint64_t(chunk->position());
        std::uint64_t size;
        if (chunk->type() == rule.sampleChunk)
            size = chunk->length();
        else if (rule.container == Container::caf)
            size = file->readLongLongValueAtPosition(start + 4, rule.order);
        else
            size = file->readIntValueAtPosition(start + 4, rule.order);
        const std::uint64_t end = std::min(fileLength, start + rule.chunkHeader + size + (rule.padded ? size % 2 : 0));
        extents.push_back({chunk->type(), chunk->subtype(), start, std::max(end, start), false});
    }
    if (list->skippedChunks().size() > 0)
        for (const auto& skipped : list->skippedChunks()[0])
            extents.push_back({skipped.type, 0, skipped.position,
                               std::min(fileLength, skipped.position + rule.chunkHeader + skipped.length +
                                                        (rule.padded ? skipped.length % 2 : 0)),
                               true});
    std::sort(extents.begin(), extents.end(), [](const Extent& a, const Extent& b) { return a.start < b.start; });
    const auto sample =
        std::find_if(extents.begin(), extents.end(), [&](const Extent& e) { return e.type == rule.sampleChunk; });
    if (sample == extents.end()) return refuse(KXAudioFileErrorUnsupportedFormat);
    const std::uint64_t sampleStart = sample->start, sampleEnd = sample->end;
    const std::uint64_t containerEnd = std::max(sampleEnd, extents.back().end);

    std::optional<TagChunks> tags = tagChunks();
    if (!tags) return refuse(KXAudioFileErrorUnsupportedFormat);
    const auto keep = [&](const Extent& extent) {
        return !extent.padding && !isTagChunk(rule.container, extent.type, extent.subtype);
    };
    const auto read = [&](std::uint64_t start, std::uint64_t end) {
        return file->readDataOfLengthAtPosition(std::size_t(end - start), start);
    };
    // A kept chunk whose pad byte was missing gets it, so that every chunk after it stays even.
    const auto appendKept = [&](KXData& bytes, const Extent& extent) {
        const KXData kept = read(extent.start, extent.end);
        bytes.insert(bytes.end(), kept.begin(), kept.end());
        if (rule.padded && kept.size() % 2 == 1) bytes.push_back(0);
    };

    KXData header = read(0, rule.fileHeader);
    for (auto extent = extents.begin(); extent != sample; ++extent)
        if (keep(*extent)) appendKept(header, *extent);
    for (const KXChunk& chunk : tags->beforeSamples)
        if (isTagChunk(rule.container, chunk.type(), chunk.subtype())) appendFlat(header, chunk, rule);
    KXData tail;
    for (auto extent = sample + 1; extent != extents.end(); ++extent)
        if (keep(*extent)) appendKept(tail, *extent);
    for (const KXChunk& chunk : tags->afterSamples)
        if (isTagChunk(rule.container, chunk.type(), chunk.subtype())) appendFlat(tail, chunk, rule);

    // In place: the new header and a padding chunk fill the old header's bytes exactly, within
    // the first page, and what follows the samples stays as it is.
    const std::uint64_t room = sampleStart - std::min<std::uint64_t>(sampleStart, header.size());
    if (header.size() <= sampleStart && (room == 0 || room >= rule.chunkHeader) && !(rule.padded && room % 2 == 1) &&
        sampleStart <= kInPlaceLimit && tail == read(sampleEnd, containerEnd)) {
        if (room) {
            const KXData padding = paddingChunk(room, rule);
            header.insert(header.end(), padding.begin(), padding.end());
        }
        if (!file->writeDataToPosition(header, 0, error) || !file->synchronize(error)) return std::nullopt;
        return HeaderUpdate::inPlace;
    }

    // Written anew: the samples start at 4 KiB where the header leaves room for a padding chunk,
    // else after 1 KiB of padding.
    const std::uint64_t before = header.size();
    const std::uint64_t target = before + rule.chunkHeader <= kRewrittenSampleOffset - rule.chunkHeader
                                     ? kRewrittenSampleOffset - rule.chunkHeader
                                     : before + rule.chunkHeader + kMinimumRoom;
    const KXData padding = paddingChunk(target - before, rule);
    header.insert(header.end(), padding.begin(), padding.end());
    const std::uint64_t total = header.size() + (sampleEnd - sampleStart) + tail.size();
    const std::uint32_t form = std::uint32_t(kx::load32(header.data(), KXByteOrder::big));
    if (rule.container != Container::caf) {
        if (form == KXFourCC("RF64") || form == KXFourCC("BW64")) {
            // The container's size lives in 'ds64', the first chunk: its first 64-bit field.
            if (header.size() < 28 || kx::load32(header.data() + 12, KXByteOrder::big) != KXFourCC("ds64"))
                return refuse(KXAudioFileErrorChunkVerificationFailed);
            kx::store64(header.data() + 20, total - 8, KXByteOrder::little);
        } else {
            if (total - 8 > 0xFFFFFFFFu) return refuse(KXAudioFileErrorIncorrectFileSize);
            kx::store32(header.data() + 4, std::uint32_t(total - 8), rule.order);
        }
    }
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        KXSetError(error, KXError::posixError(errno, kAction));
        return std::nullopt;
    }
    const std::string temporary = KXFile::pathByAppendingComponent(
        KXFile::directoryOfPath(path), "kxaudio-temp-" + newTempFileName() + "-" + KXFile::lastPathComponent(path));
    auto written = KXFile::createFileAtPath(temporary, error);
    const bool ok =
        written && written->writeData(header, error) && copyRange(*file, sampleStart, sampleEnd, *written, error) &&
        written->writeData(tail, error) && written->synchronize(error) && written->close(error) &&
        ::chmod(temporary.c_str(), status.st_mode & 07777) == 0 && KXFile::renamePath(temporary, path, error);
    if (!ok) {
        ::unlink(temporary.c_str());
        return std::nullopt;
    }
    return HeaderUpdate::rewritten;
}

std::optional<KXAudioFileWriter::HeaderUpdate> KXAudioFileWriter::rewriteThroughWriter(KXAudioFile& file,
                                                                                       const std::string& path,
                                                                                       KXError* error) {
    // The formats whose header lies apart from the samples without chunks to replace: AU, Sound
    // Designer II (the resource fork) and Sound Designer I, single interleaved files written by
    // this writer in the file's own format.
    const bool writable = format_ == KXFourCC("ULAW") || format_ == KXFourCC("SDII") || format_ == KXFourCC("SFIL");
    const auto first = file.editList() ? file.editList()->firstBlock() : nullptr;
    if (!writable || format_ != file.format() || !isInterleaved_ || !first) {
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, kAction));
        return std::nullopt;
    }
    const std::uint64_t sourceStart = first->sourceOffset();
    const std::string directory = KXFile::directoryOfPath(path);
    setTempDirectory(directory.empty() ? "." : directory);
    setDither(false);  // the written samples are replaced by the file's own bytes below
    if (!beginWrite(error)) return std::nullopt;
    KXNativeAudioBuffer buffer(file.numberOfChannels(), file.readBufferFrames());
    for (std::uint64_t frame = 0; frame < file.frames();) {
        const std::int32_t read = file.readSamplesToBuffer(buffer, std::int64_t(frame));
        if (read <= 0) break;
        writeBuffer(buffer, {0, std::uint32_t(read)});
        frame += std::uint32_t(read);
    }
    const auto failed = [&](std::int64_t code) -> std::optional<HeaderUpdate> {
        deleteFiles();
        if (code) KXSetError(error, KXAudioFileError::errorWithCode(code, kAction));
        return std::nullopt;
    };
    if (!endWrite(error)) return failed(0);
    // The samples as the file held them, byte for byte, over the ones just converted.
    const std::uint64_t bytes = dataBytesPerFile();
    auto original = KXFile::fileWithPath(path, KXFile::Mode::read, error);
    auto written = KXFile::fileWithPath(filePath(), KXFile::Mode::readWrite, error);
    if (!original || !written) return failed(0);
    if (sourceStart + bytes > original->length()) return failed(KXAudioFileErrorIncorrectFileSize);
    if (!written->moveTo(std::uint64_t(positionOfAudioDataForChannel(0)), error) ||
        !copyRange(*original, sourceStart, sourceStart + bytes, *written, error) || !written->synchronize(error) ||
        !written->close(error))
        return failed(0);
    const std::string extension = KXFile::pathExtension(path);
    KXDictionary instructions{{"path", path}, {"existsAction", 0}};
    if (extension.empty())
        instructions.setObject(true, "ignoreExtension");
    else
        instructions.setObject(extension, "forcedExtension");
    if (!saveWithInstructions(instructions, error)) return failed(0);
    return HeaderUpdate::rewritten;
}

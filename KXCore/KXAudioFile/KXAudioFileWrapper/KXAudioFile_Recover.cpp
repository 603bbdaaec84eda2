// Recovering a recording that was cut short: a WAVE or AIFF file whose writer died before it
// patched its sizes, or that lost its end. The chunks are walked by their own sizes; the walk
// stops at the first chunk that runs past the file's end, or at a sample chunk whose size is a
// placeholder (0 or all ones) followed by no chunk. When that chunk holds the samples ('data',
// 'SSND'), it keeps the whole frames that are there; any other chunk cut short is dropped with
// everything after it. The container size (and an AIFF frame count) are made to
// match. The mended file is made beside the original and replaces it in one step.

#include <unistd.h>

#include <algorithm>
#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAIFFLayout.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXWAVELayout.h"
#include "KXBase/KXFile.h"

namespace {

constexpr const char* kAction = "Recovering the audio file";
constexpr std::uint64_t kHeaderSize = 8;  // a chunk's type and size
constexpr std::uint64_t kFirstChunk = 12;
constexpr std::uint32_t kMaximumChunks = 1u << 20;

struct Container {
    KXByteOrder order;
    std::uint32_t formatChunk, sampleChunk;
    std::uint64_t sampleHeaderSize;  // bytes of the sample chunk before the samples
};

// What the walk found, and what the mended file is to be.
struct Plan {
    std::uint64_t length = 0;          // of the mended file
    std::uint64_t samplePosition = 0;  // of the sample chunk's header; 0 when there is none
    std::uint64_t sampleSize = 0;      // the sample chunk's mended size field
    std::uint64_t frameBytes = 0;
    std::uint64_t commonPosition = 0;  // AIFF: of 'COMM'
    bool samplesCut = false;
};

// The bytes of one frame from a 'fmt ' or 'COMM' payload; 0 when they describe none.
std::uint64_t frameBytesOf(const Container& container, KXFile& file, std::uint64_t payload) {
    if (container.order == KXByteOrder::little) {
        const std::uint64_t channels =
            file.readShortValueAtPosition(payload + KXWAVELayout::kFormatChannels, KXByteOrder::little);
        const std::uint64_t bits =
            file.readShortValueAtPosition(payload + KXWAVELayout::kFormatBitsPerSample, KXByteOrder::little);
        return channels * ((bits + 7) / 8);
    }
    const std::uint64_t channels =
        file.readShortValueAtPosition(payload + KXAIFFLayout::kCommonChannels, KXByteOrder::big);
    const std::uint64_t bits =
        file.readShortValueAtPosition(payload + KXAIFFLayout::kCommonBitsPerSample, KXByteOrder::big);
    return channels * ((bits + 7) / 8);
}

// Whether a plausible chunk header lies at `position`: a type of printable characters and a
// size that fits in the file.
bool isChunkAt(KXFile& file, std::uint64_t position, KXByteOrder order) {
    if (position + kHeaderSize > file.length()) return false;
    const std::uint32_t type = file.readIntValueAtPosition(position, KXByteOrder::big);
    for (int shift = 0; shift < 32; shift += 8)
        if (const std::uint8_t c = std::uint8_t(type >> shift); c < 0x20 || c > 0x7E) return false;
    return file.readIntValueAtPosition(position + 4, order) <= file.length() - position - kHeaderSize;
}

Plan planFor(const Container& container, KXFile& file) {
    const std::uint64_t fileLength = file.length();
    Plan plan;
    plan.length = fileLength;
    std::uint64_t p = kFirstChunk;
    for (std::uint32_t count = 0; p + kHeaderSize <= fileLength && count < kMaximumChunks; ++count) {
        const std::uint32_t type = file.readIntValueAtPosition(p, KXByteOrder::big);
        const std::uint64_t size = file.readIntValueAtPosition(p + 4, container.order);
        const std::uint64_t payload = p + kHeaderSize;
        if (type == container.formatChunk) {
            plan.frameBytes = frameBytesOf(container, file, payload);
            if (container.order == KXByteOrder::big) plan.commonPosition = p;
        }
        if (type == container.sampleChunk) {
            plan.samplePosition = p;
            plan.sampleSize = size;
            // A writer that died before it patched the size left its placeholder (0 or all ones)
            // there, and samples, not a chunk, follow.
            const bool placeholder =
                (size == 0 || size == 0xFFFFFFFFu) && !isChunkAt(file, payload + size, container.order);
            if (placeholder || size > fileLength - payload) {
                // The samples run past the end: the whole frames that are there stay.
                plan.samplesCut = true;
                const std::uint64_t available = fileLength - payload;
                const std::uint64_t frames = available < container.sampleHeaderSize || plan.frameBytes == 0
                                                 ? 0
                                                 : (available - container.sampleHeaderSize) / plan.frameBytes;
                plan.sampleSize = container.sampleHeaderSize + frames * plan.frameBytes;
                plan.length = payload + plan.sampleSize;
                return plan;
            }
        } else if (size > fileLength - payload) {
            // Any other chunk cut short goes, with whatever follows it.
            plan.length = p;
            return plan;
        }
        p = payload + size + (size & 1);
    }
    // A last chunk whose pad byte alone is missing ends the file where its payload does.
    plan.length = std::min(p, fileLength);
    return plan;
}

}  // namespace

bool KXAudioFile::recoverAtPath(const std::string& path, KXError* error) {
    std::optional<Plan> plan;
    std::optional<Container> container;
    std::uint64_t storedContainerSize = 0;
    std::uint32_t storedFrames = 0;
    {
        auto file = KXFile::fileWithPath(path, KXFile::Mode::read, error);
        if (!file) return false;
        if (file->length() < kFirstChunk)
            return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
        const std::uint32_t magic = file->readIntValueAtPosition(0, KXByteOrder::big);
        if (magic == KXFourCC("RIFF"))
            container = Container{KXByteOrder::little, KXFourCC("fmt "), KXFourCC("data"), 0};
        else if (magic == KXFourCC("FORM"))
            container =
                Container{KXByteOrder::big, KXFourCC("COMM"), KXFourCC("SSND"), KXAIFFLayout::kSoundDataHeaderSize};
        else
            return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
        storedContainerSize = file->readIntValueAtPosition(4, container->order);
        plan = planFor(*container, *file);
        if (plan->samplePosition == 0)
            return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
        if (plan->commonPosition)
            storedFrames = file->readIntValueAtPosition(
                plan->commonPosition + kHeaderSize + KXAIFFLayout::kCommonFrames, KXByteOrder::big);
    }
    // An odd sample chunk that is cut gets its pad byte back (AIFF does not pad its samples).
    const bool pad = plan->samplesCut && container->order == KXByteOrder::little && (plan->sampleSize & 1);
    const std::uint64_t length = plan->length + (pad ? 1 : 0);
    if (length - kHeaderSize > 0xFFFFFFFFu)
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    const std::uint32_t frames =
        plan->frameBytes ? std::uint32_t(std::min<std::uint64_t>(
                               (plan->sampleSize - container->sampleHeaderSize) / plan->frameBytes, 0xFFFFFFFFu))
                         : 0;
    // An AIFF frame count that promises more than there is, or none of what there is.
    const bool framesChange = plan->commonPosition && plan->samplesCut && (storedFrames > frames || storedFrames == 0);
    if (!plan->samplesCut && length == KXFile::lengthOfFileAtPath(path) && storedContainerSize == length - kHeaderSize)
        return false;

    // The mended copy, beside the original so that replacing it is a rename.
    const std::string temporary = KXFile::pathByAppendingComponent(
        KXFile::directoryOfPath(path),
        "kxaudio-temp-recover-" + std::to_string(::getpid()) + "-" + KXFile::lastPathComponent(path));
    KXFile::deleteFileAtPath(temporary);
    const auto mend = [&]() -> bool {
        if (!KXFile::copyPath(path, temporary, error)) return false;
        auto copy = KXFile::fileWithPath(temporary, KXFile::Mode::readWrite, error);
        if (!copy || !copy->setLength(plan->length, error)) return false;
        const std::uint8_t zero = 0;
        if (pad && !copy->writeBytesToPosition(&zero, 1, plan->length, error)) return false;
        if (!copy->writeIntValueToPosition(std::uint32_t(length - kHeaderSize), 4, container->order, error))
            return false;
        if (plan->samplesCut && !copy->writeIntValueToPosition(std::uint32_t(plan->sampleSize),
                                                               plan->samplePosition + 4, container->order, error))
            return false;
        if (framesChange &&
            !copy->writeIntValueToPosition(frames, plan->commonPosition + kHeaderSize + KXAIFFLayout::kCommonFrames,
                                           KXByteOrder::big, error))
            return false;
        return copy->close(error) && KXFile::replacePath(temporary, path, error);
    };
    if (mend()) return true;
    KXFile::deleteFileAtPath(temporary);
    return false;
}

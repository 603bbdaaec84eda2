// The Sound Designer I reader: the fixed big-endian header of KXSFILLayout, then mono samples;
// the analysis and the archived metadata come from the resource fork when the file has one.

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXAudioFileWrapper/KXSFILLayout.h"
#include "KXBase/KXFile.h"

namespace {

using namespace KXSFILLayout;

constexpr const char* kAction = "Parsing the Sound Designer I file";

// Markers: the records whose first byte is 0, their byte offsets made seconds.
void readMarkers(KXAudioFile& file, const KXChunk& header, std::uint32_t bytesPerSample) {
    for (std::uint32_t i = 0; i < kMarkerCount; ++i) {
        const std::uint32_t at = kMarkers + i * kMarkerSize;
        if (std::uint8_t(header.charValueAtByte(at)) != kMarkerUsed) continue;
        const auto position = std::uint32_t(header.intValueAtByte(at + kMarkerPosition));
        file.markerList()->addMarkerWithPosition(double(position / bytesPerSample) / file.rate(),
                                                 header.pascalStringAtByte(at + kMarkerName));
    }
}

// Both loops take their type from the one mode byte, deliberately.
void readLoops(KXAudioFile& file, const KXChunk& header, std::uint32_t bytesPerSample) {
    const std::uint32_t type = std::uint32_t(header.charValueAtByte(kLoopModes) - 1);
    for (std::uint32_t at : {kFirstLoop, kSecondLoop}) {
        const auto start = std::uint32_t(header.intValueAtByte(at));
        if (start == kNoLoop) continue;
        const auto end = std::uint32_t(header.intValueAtByte(at + 4));
        file.loopList()->addLoopWithType(type, KXRange::rangeWithStart(double(start / bytesPerSample) / file.rate(),
                                                                       double(end / bytesPerSample) / file.rate()));
    }
}

}  // namespace

bool KXAudioFile::parseSFILHeader(KXFile& file, KXError* error) {
    format_ = KXFourCC("SFIL");
    encoding_ = KXFourCC("lpcm");
    audioDataByteOrder_ = blockSizeByteOrder_ = KXByteOrderBigValue;
    numberOfChannels_ = 1;
    isInterleaved_ = true;
    isFloatingPoint_ = false;
    KXChunk header;
    header.setFormat(format_);
    header.mutableData() = file.readDataOfLengthAtPosition(kHeaderSize, 0);
    const std::int16_t depth = header.shortValueAtByte(kDepth);
    const auto rate = std::uint32_t(header.intValueAtByte(kRate));
    // Nothing that would divide by zero, and only samples the converter reads.
    if (rate == 0 || !(depth == 8 || depth == 16 || depth == 24 || depth == 32))
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    depth_ = std::uint32_t(depth);
    rate_ = rate;
    const std::uint32_t bytesPerSample = depth_ / 8;
    // Deliberate: a data size past the end of the file counts the samples there are, with the
    // warning -10, so that a damaged header cannot promise gigabytes of frames.
    std::uint64_t dataSize = std::uint32_t(header.intValueAtByte(kDataSize));
    const std::uint64_t available = fileSize_ > kHeaderSize ? fileSize_ - kHeaderSize : 0;
    if (dataSize > available) {
        dataSize = available;
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorFileSizeAdjusted, kAction));
    }
    frames_ = std::uint32_t(dataSize / bytesPerSample);
    buildChannelsList();
    setEditList(KXEditList::editListWithAudioFile(*this, kHeaderSize));
    readMarkers(*this, header, bytesPerSample);
    readLoops(*this, header, bytesPerSample);

    // A file without a resource fork has no analysis and no archived metadata.
    const std::shared_ptr<KXChunkList> chunks = KXChunkList::chunkListForAudioFile(*this);
    if (!chunks) return true;
    parseAnalysis(*chunks);
    if (const auto archived = chunks->consumeChunk(KXFourCC("KXmd"))) mergeArchivedMetadata(*archived);
    return true;
}

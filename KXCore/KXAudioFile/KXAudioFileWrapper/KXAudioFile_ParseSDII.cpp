// The Sound Designer II reader: the data fork holds big-endian samples and nothing else; the
// description is in the resource fork, walked into chunks (KXSDIILayout). Consumed resources are
// marked; the rest are kept.

#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXAudioFileWrapper/KXSDIILayout.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXMetadata.h"

namespace {

using namespace KXSDIILayout;

constexpr const char* kAction = "Parsing the SDII file";

// A 'STR ' resource's Pascal string, as much of it as the payload holds.
std::string pascalText(const KXChunk& chunk) {
    return chunk.stringAtByte(1, std::uint8_t(chunk.charValueAtByte(0)));
}

// The leading decimal number of a 'STR ' resource ("44100.000000" is 44100), after any spaces;
// 0 when there is none or it does not fit 32 bits.
std::uint32_t leadingInteger(const KXChunk& chunk) {
    const std::string text = pascalText(chunk);
    std::size_t at = text.find_first_not_of(' ');
    std::uint64_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = value * 10 + std::uint64_t(text[at] - '0');
        if (value > 0xFFFFFFFF) return 0;
    }
    return std::uint32_t(value);
}

using ChunkReader = void (*)(KXAudioFile&, const KXChunk&);

// Markers: variable records while the offset is inside the payload, when the count is above 0
// (and no more than kMaximumRecords of each kind).
void readMarkers(KXAudioFile& file, const KXChunk& sdml) {
    if (sdml.shortValueAtByte(kMarkerCount) <= 0) return;
    for (std::uint64_t at = kMarkersStart, i = 0; at < sdml.data().size() && i < kMaximumRecords; ++i) {
        const auto position = std::uint32_t(sdml.intValueAtByte(std::uint32_t(at + kMarkerPosition)));
        const auto length = std::uint32_t(sdml.intValueAtByte(std::uint32_t(at + kMarkerNameLength)));
        std::optional<std::string> name;
        if (length > 0) name = sdml.stringAtByte(std::uint32_t(at + kMarkerName), length);
        file.markerList()->addMarkerWithPosition(position / double(file.rate()), std::move(name));
        at += kMarkerName + std::uint64_t(length);
    }
}

void readRegions(KXAudioFile& file, const KXChunk& ddrl) {
    for (std::uint64_t at = kRegionsStart, i = 0; at < ddrl.data().size() && i < kMaximumRecords; at += kRegionSize, ++i) {
        const auto record = std::uint32_t(at);
        const auto start = std::uint32_t(ddrl.intValueAtByte(record + kRegionStart));
        const auto end = std::uint32_t(ddrl.intValueAtByte(record + kRegionEnd));
        file.regionList()->addRegionWithRange(
            KXRange::rangeWithStart(start / double(file.rate()), end / double(file.rate())),
            std::uint32_t(ddrl.intValueAtByte(record + kRegionSync)),
            std::uint64_t(ddrl.longLongValueAtByte(record + kRegionTimeStamp)),
            ddrl.pascalStringAtByte(record + kRegionName));
    }
}

// Loops: 14-byte records walked as the markers are; the type is the mode − 117, deliberately.
void readLoops(KXAudioFile& file, const KXChunk& sdll) {
    if (sdll.shortValueAtByte(kLoopCount) <= 0) return;
    for (std::uint64_t at = kLoopsStart, i = 0; at < sdll.data().size() && i < kMaximumRecords; at += kLoopSize, ++i) {
        const auto record = std::uint32_t(at);
        const auto start = std::uint32_t(sdll.intValueAtByte(record + kLoopStart));
        const auto end = std::uint32_t(sdll.intValueAtByte(record + kLoopEnd));
        file.loopList()->addLoopWithType(std::uint32_t(sdll.shortValueAtByte(record + kLoopMode) - kLoopModeBase),
                                         KXRange::rangeWithStart(start / double(file.rate()), end / double(file.rate())));
    }
}

struct LabelRule {
    std::uint32_t type;
    ChunkReader read;
};
constexpr LabelRule kLabelReaders[] = {
    {KXFourCC("sdML"), readMarkers},
    {KXFourCC("ddRL"), readRegions},
    {KXFourCC("sdLL"), readLoops},
};

}  // namespace

void KXAudioFile::parseSDIIMetadataChunkForKey(const std::string& name, KXChunkList& chunks) {
    const auto chunk = chunks.chunkOfTypeName(kStringType, name);
    if (!chunk || chunk->data().empty()) return;
    metadata_.setObject(pascalText(*chunk), KXMetadata::keyForTitle(name));
    chunks.consumeChunkWithName(kStringType, name);
}

bool KXAudioFile::parseSDIIHeader(KXFile& /*file*/, KXError* error) {
    format_ = KXFourCC("SDII");
    encoding_ = KXFourCC("lpcm");
    audioDataByteOrder_ = blockSizeByteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = true;
    isFloatingPoint_ = false;
    // Any file that matched no other format comes here: one without a resource fork fails with
    // the file layer's error.
    const std::shared_ptr<KXChunkList> chunks = KXChunkList::chunkListForAudioFile(*this, error);
    if (!chunks) return false;
    const auto channels = chunks->consumeChunkWithID(kStringType, kChannelsID);
    const auto rate = chunks->consumeChunkWithID(kStringType, kRateID);
    const auto bytesPerSample = chunks->consumeChunkWithID(kStringType, kBytesPerSampleID);
    if (!channels || !rate || !bytesPerSample)
        return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    numberOfChannels_ = leadingInteger(*channels);
    rate_ = leadingInteger(*rate);
    const std::uint32_t bytes = leadingInteger(*bytesPerSample);
    // Nothing that would divide by zero, and only samples the converter reads.
    if (numberOfChannels_ == 0 || numberOfChannels_ > 0x7FFF || rate_ == 0 || bytes == 0 || bytes > 4)
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    depth_ = bytes * 8;
    const std::uint64_t frames = fileSize_ / (std::uint64_t(bytes) * numberOfChannels_);
    if (frames > 0xFFFFFFFF) {
        KXSetError(error, KXAudioFileError::tooManyFramesError(kAction));
        return false;
    }
    frames_ = std::uint32_t(frames);
    buildChannelsList();
    setEditList(KXEditList::editListWithAudioFile(*this, 0));
    if (!isInterleaved_) fileSize_ *= numberOfChannels_;

    for (const LabelRule& rule : kLabelReaders)
        if (const auto chunk = chunks->consumeChunk(rule.type)) rule.read(*this, *chunk);
    parseAnalysis(*chunks);
    for (const char* title : kTextTitles) parseSDIIMetadataChunkForKey(title, *chunks);
    if (const auto archived = chunks->consumeChunk(KXFourCC("KXmd"))) mergeArchivedMetadata(*archived);
    if (const auto ixml = chunks->consumeChunk(KXFourCC("iXML"))) parseIXMLChunk(*ixml);
    KXChunkArray unused = chunks->unusedChunks();
    if (!unused.empty()) unusedChunkList_ = std::move(unused);
    return true;
}

// The AIFF and AIFF-C reader: "FORM" <size> 'AIFF'|'AIFC', then chunks with 32-bit big-endian
// sizes and a pad byte after odd payloads. Every number is big-endian.
//
// 'COMM'  0 channels, 2 frames, 6 bits per sample, 8 rate (80-bit extended), 18 compression type
//         when the payload has one ('NONE', 'twos', 'in24', 'in32' big-endian integers, 'sowt'
//         little-endian, 'fl32'/'FL32', 'fl64'/'FL64', 'ulaw'/'ULAW', 'alaw'/'ALAW'; everything
//         else is refused)
// 'SSND'  8 bytes (offset, block size; not read), then the samples
// 'MARK'  0 count, then records: 16-bit ID, 32-bit position, Pascal name padded to even
// 'INST'  0 base note, 1 detune, 2 low note, 3 high note, 4 low velocity, 5 high velocity (signed
//         bytes), 6 gain; 8/10/12 sustain loop mode, begin and end marker; 14/16/18 release loop
// 'COMT'  the first comment's text (length at 8, text at 10)
// text chunks, 'KXmd', the loop-library chunks ('APPL' 'auFM'/'REX '/'ReCy', 'basc', 'trns',
// 'cate'), 'iXML' and the analysis chunks; everything else is kept.

#include <algorithm>
#include <cmath>

#include "KXAudioFile/KXAudioFileWrapper/KXAIFFLayout.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXBase/KXFile.h"

namespace {

using namespace KXAIFFLayout;

constexpr const char* kAction = "Parsing the AIFF file";

// Whether COMM's 80-bit rate is a number of at least 1 Hz. The rate conversion reads only the
// low exponent byte and the top of the mantissa, so a NaN, infinite, negative or fractional rate
// would come out as some other rate; a header with such a rate describes no samples.
bool isPlausibleRate(const KXChunk& comm) {
    std::uint8_t bytes[kCommonRateSize] = {};
    const std::optional<KXData> stored = comm.dataAtByte(kCommonRate, kCommonRateSize);
    if (!stored || stored->size() < kCommonRateSize) return false;
    std::copy(stored->begin(), stored->end(), bytes);
    const bool negative = bytes[0] & 0x80;
    const int exponent = ((bytes[0] & 0x7F) << 8) | bytes[1];
    if (negative || exponent == 0x7FFF) return false;
    const std::uint64_t mantissa = kx::load64(bytes + 2, KXByteOrder::big);
    return std::ldexp(double(mantissa), exponent - 16383 - 63) >= 1.0;
}

}  // namespace

void KXAudioFile::parseAIFFMetadataChunk(std::uint32_t type, const std::string& key, KXChunkList& chunkList) {
    const auto chunk = chunkList.chunkOfType(type);
    if (!chunk) return;
    if (!chunk->data().empty()) metadata_.setObject(chunk->stringAtByte(0, std::uint32_t(chunk->data().size())), key);
    chunkList.usedChunkOfType(type);
}

bool KXAudioFile::parseAIFFHeader(KXFile& /*file*/, KXError* error) {
    format_ = KXFourCC("AIFF");
    encoding_ = KXFourCC("lpcm");
    audioDataByteOrder_ = blockSizeByteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = true;
    isFloatingPoint_ = false;
    const std::shared_ptr<KXChunkList> chunks = KXChunkList::chunkListForAudioFile(*this, error);
    if (!chunks) return false;

    const auto comm = chunks->chunkOfType(KXFourCC("COMM"));
    if (!comm) {
        return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    }
    const std::int16_t channels = comm->shortValueAtByte(kCommonChannels);
    const std::uint32_t frames = std::uint32_t(comm->intValueAtByte(kCommonFrames));
    const std::int16_t depth = comm->shortValueAtByte(kCommonBitsPerSample);
    const std::uint32_t rate = comm->float80ValueAtByte(kCommonRate);
    bool accepted = channels > 0 && rate > 0 && isPlausibleRate(*comm);
    bool doubles = false;
    if (comm->data().size() > kCommonCompression) {
        switch (comm->typeValueAtByte(kCommonCompression)) {
            case KXFourCC("NONE"):
            // Big-endian integers under other names, read as 'NONE'.
            case KXFourCC("twos"):
            case KXFourCC("in24"):
            case KXFourCC("in32"):
                break;
            case KXFourCC("sowt"):
                audioDataByteOrder_ = KXByteOrderLittleValue;
                break;
            case KXFourCC("fl32"):
            case KXFourCC("FL32"):
                isFloatingPoint_ = true;
                break;
            case KXFourCC("fl64"):
            case KXFourCC("FL64"):
                isFloatingPoint_ = doubles = true;
                break;
            case KXFourCC("ulaw"):
            case KXFourCC("ULAW"):
                encoding_ = KXFourCC("ulaw");
                break;
            case KXFourCC("alaw"):
            case KXFourCC("ALAW"):
                encoding_ = KXFourCC("alaw");
                break;
            default:
                accepted = false;
        }
    }
    // Only samples the converter reads, and nothing that would divide by zero. G.711 samples take
    // one byte whatever size 'COMM' declares (several writers put 16 there).
    if (encoding_ == KXFourCC("lpcm")) {
        if (doubles)
            accepted &= depth == 64;
        else if (isFloatingPoint_)
            accepted &= depth == 32;
        else
            accepted &= depth == 8 || depth == 16 || depth == 24 || depth == 32;
    }
    if (!accepted) {
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    }
    numberOfChannels_ = std::uint32_t(channels);
    frames_ = frames;
    depth_ = encoding_ == KXFourCC("lpcm") ? std::uint32_t(depth) : 8;
    rate_ = rate;
    chunks->usedChunkOfType(KXFourCC("COMM"));
    buildChannelsList();

    const auto ssnd = chunks->chunkOfType(KXFourCC("SSND"));
    const std::uint64_t needed =
        std::uint64_t(isInterleaved_ ? numberOfChannels_ : 1) * (depth_ / 8) * std::uint64_t(frames_) +
        kSoundDataHeaderSize;
    if ((ssnd ? ssnd->length() : 0) < needed) {
        return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    }
    // Sample data that cannot hold one frame: a channel count no real file has (32,767 channels
    // over a few bytes would have every reader allocate for nothing).
    const std::uint64_t frameBytes = std::uint64_t(isInterleaved_ ? numberOfChannels_ : 1) * (depth_ / 8);
    if (const std::uint64_t payload = ssnd->length() - kSoundDataHeaderSize; payload > 0 && payload < frameBytes) {
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    }
    auto edits = KXEditList::editListWithAudioFile(*this, 0);
    if (isInterleaved_) {
        for (std::uint32_t c = 0; c < numberOfChannels_; ++c)
            if (auto block = edits->blockAtIndex(0, c))
                block->setSourceOffset(ssnd->dataPosition() + kSoundDataHeaderSize);
    } else {
        for (std::uint32_t c = 0; c < numberOfChannels_; ++c) {
            const auto own = chunks->chunkOfType(KXFourCC("SSND"), c);
            if (auto block = edits->blockAtIndex(0, c))
                block->setSourceOffset((own ? own : ssnd)->dataPosition() + kSoundDataHeaderSize);
        }
    }
    setEditList(edits);
    chunks->usedChunkOfType(KXFourCC("SSND"));

    readAIFFLabels(*chunks);
    readAIFFLoopLibraryChunks(*chunks);
    parseAnalysis(*chunks);
    for (const TextChunk& text : kTextChunks) parseAIFFMetadataChunk(text.type, text.key, *chunks);
    if (const auto comt = chunks->chunkOfType(KXFourCC("COMT"))) {
        const std::uint16_t length = std::uint16_t(comt->shortValueAtByte(kCommentLength));
        if (length > 0) metadata_.setObject(comt->stringAtByte(kCommentText, length), "comments");
        chunks->usedChunkOfType(KXFourCC("COMT"));
    }
    if (const auto ixml = chunks->chunkOfType(KXFourCC("iXML"))) {
        parseIXMLChunk(*ixml);
        chunks->usedChunkOfType(KXFourCC("iXML"));
    }
    KXChunkArray unused = chunks->unusedChunks();
    if (!unused.empty()) unusedChunkList_ = std::move(unused);
    return true;
}

void KXAudioFile::readAIFFLabels(KXChunkList& chunks) {
    if (const auto mark = chunks.chunkOfType(KXFourCC("MARK"))) {
        const std::uint64_t length = mark->data().size();
        const std::uint16_t count = std::uint16_t(mark->shortValueAtByte(0));
        std::uint64_t at = kMarkersStart;
        for (std::uint16_t i = 0; i < count && at < length; ++i) {
            const auto id = std::uint16_t(mark->shortValueAtByte(std::uint32_t(at)));
            const std::uint32_t position = std::uint32_t(mark->intValueAtByte(std::uint32_t(at + kMarkerPosition)));
            const std::uint32_t name = std::uint32_t(at + kMarkerName);
            const std::uint8_t nameLength = std::uint8_t(mark->charValueAtByte(name));
            // A count of 0, or a name that runs past the chunk, is no name: the marker gets the default one.
            markerList_->addMarkerWithID(id, position / double(rate_), mark->pascalStringAtByte(name));
            // The count byte and the text together are even.
            at += kMarkerName + 1 + nameLength + ((1 + nameLength) % 2);
        }
        chunks.usedChunkOfType(KXFourCC("MARK"));
    }
    // Regions of the loop library, each between two markers, which then go.
    if (const auto regions = chunks.chunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("auFM"))) {
        const std::uint64_t length = regions->data().size();
        const std::uint16_t count = std::uint16_t(regions->shortValueAtByte(0));
        std::uint64_t at = kRegionsStart;
        for (std::uint16_t i = 0; i < count && at < length; ++i) {
            const std::uint8_t nameLength = std::uint8_t(regions->charValueAtByte(std::uint32_t(at + kRegionName)));
            const std::string name = regions->stringAtByte(std::uint32_t(at + kRegionName + 1), nameLength);
            const std::uint32_t ids = std::uint32_t(at + kRegionName + 1 + nameLength);
            const auto start = markerList_->markerWithID(std::uint16_t(regions->shortValueAtByte(ids)));
            const auto end = markerList_->markerWithID(std::uint16_t(regions->shortValueAtByte(ids + 2)));
            if (start && end) {
                regionList_->addRegionWithStartMarker(*start, *end, name);
                markerList_->removeLabel(start.get());
                markerList_->removeLabel(end.get());
            }
            at += kRegionName + 1 + nameLength + kRegionTrailerSize;
        }
        chunks.usedChunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("auFM"));
    }
    if (const auto archived = chunks.chunkOfType(KXFourCC("KXmd"))) {
        mergeArchivedMetadata(*archived);
        chunks.usedChunkOfType(KXFourCC("KXmd"));
    }
    if (const auto inst = chunks.chunkOfType(KXFourCC("INST"))) {
        setMIDIBaseNote(inst->charValueAtByte(0));
        setDetune(inst->charValueAtByte(1));
        setMIDILowNote(inst->charValueAtByte(2));
        setMIDIHighNote(inst->charValueAtByte(3));
        setMIDILowVelocity(inst->charValueAtByte(4));
        setMIDIHighVelocity(inst->charValueAtByte(5));
        setGain(inst->shortValueAtByte(kInstrumentGain));
        // The sustain loop, then the release loop, each between two markers, which then go.
        for (std::uint32_t at : {kSustainLoop, kReleaseLoop}) {
            const std::int16_t mode = inst->shortValueAtByte(at);
            if (mode == 0 || markerList_->count() == 0) continue;
            const auto begin = markerList_->markerWithID(std::uint16_t(inst->shortValueAtByte(at + 2)));
            const auto end = markerList_->markerWithID(std::uint16_t(inst->shortValueAtByte(at + 4)));
            if (!begin || !end) continue;
            loopList_->addLoopWithType(std::uint32_t(mode - 1), *begin, *end);
            markerList_->removeLabel(begin.get());
            markerList_->removeLabel(end.get());
        }
        chunks.usedChunkOfType(KXFourCC("INST"));
    }
}

void KXAudioFile::readAIFFLoopLibraryChunks(KXChunkList& chunks) {
    if (const auto rex = chunks.chunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("REX "))) {
        format_ = KXFourCC("REX1");
        setMeterNumeratorDenominator(4, 4);
        setEighthBeats(rex->intValueAtByte(kREXBeats) / 480);
        setTempo(float(rex->intValueAtByte(kREXTempo)) / 1000.0f);
        const std::int16_t slices = rex->shortValueAtByte(kREXSliceCount);
        for (std::uint64_t i = 0, at = kREXSlicesStart;
             i < std::uint64_t(std::max<std::int16_t>(slices, 0)) && at + 4 <= rex->data().size();
             ++i, at += kREXSliceSize)
            sliceList_->addSliceWithPosition((std::uint32_t(rex->intValueAtByte(std::uint32_t(at))) + kREXSliceOffset) /
                                             rate_);
        chunks.usedChunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("REX "));
    }
    if (const auto recycle = chunks.chunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("ReCy"))) {
        format_ = KXFourCC("RCY ");
        const std::int8_t numerator = recycle->charValueAtByte(kReCycleMeter),
                          denominator = recycle->charValueAtByte(kReCycleMeter + 1);
        setMeterNumeratorDenominator(numerator, denominator);
        if (denominator != 0)
            setEighthBeats(
                (recycle->charValueAtByte(kReCycleBars) * numerator + recycle->charValueAtByte(kReCycleBars + 1)) *
                (8 / denominator));
        setTempo(float(recycle->intValueAtByte(kReCycleTempo)) / 1000.0f);
        const float threshold = (1.0f - float(recycle->shortValueAtByte(kReCycleSensitivity) + 1) / 1000.0f) * 32767.0f;
        const std::int16_t records = recycle->shortValueAtByte(kReCycleSliceCount);
        for (std::uint64_t i = 0, at = kReCycleSlicesStart; i < std::uint64_t(std::max<std::int16_t>(records, 0)) &&
                                                            at + kReCycleSliceLevel + 2 <= recycle->data().size();
             ++i, at += kReCycleSliceSize) {
            if (float(recycle->shortValueAtByte(std::uint32_t(at + kReCycleSliceLevel))) <= threshold) continue;
            const std::uint32_t position = std::uint32_t(recycle->intValueAtByte(std::uint32_t(at))) >> 8;
            sliceList_->addSliceWithPosition(position / double(rate_));
        }
        chunks.usedChunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("ReCy"));
    }
    if (const auto basc = chunks.chunkOfType(KXFourCC("basc"))) {
        format_ = KXFourCC("APLL");
        setMeterNumeratorDenominator(basc->shortValueAtByte(kBeatsMeterNumerator),
                                     basc->shortValueAtByte(kBeatsMeterDenominator));
        // The doubling wraps as the 32-bit field does; it may not overflow.
        setEighthBeats(std::int32_t(std::uint32_t(basc->intValueAtByte(kBeatsCount)) * 2u));
        setKey(std::max(basc->shortValueAtByte(kBeatsKey) - 48, -1));
        setScaleType(basc->shortValueAtByte(kBeatsScale));
        setPlaybackType(basc->shortValueAtByte(kBeatsPlayback));
        setTempo(tempoGuess());
        chunks.usedChunkOfType(KXFourCC("basc"));
    }
    if (const auto trns = chunks.chunkOfType(KXFourCC("trns"))) {
        format_ = KXFourCC("APLL");
        const std::uint32_t count = std::uint32_t(trns->intValueAtByte(kTransientCount));
        for (std::uint64_t i = 0, at = kTransientsStart; i < count && at + 4 <= trns->data().size();
             ++i, at += kTransientSize)
            sliceList_->addSliceWithPosition(std::uint32_t(trns->intValueAtByte(std::uint32_t(at))) / double(rate_));
        chunks.usedChunkOfType(KXFourCC("trns"));
    }
    if (const auto cate = chunks.chunkOfType(KXFourCC("cate"))) {
        const auto text = [&](std::uint32_t offset, const char* key) {
            if (auto value = cate->cStringAtByte(offset)) metadata_.setObject(*value, key);
        };
        for (std::uint32_t i = 0; i < std::size(kCategoryKeys); ++i)
            text(kCategoryTexts + kCategoryTextSize * i, kCategoryKeys[i]);
        KXArray descriptors;
        const std::uint16_t count = std::uint16_t(cate->shortValueAtByte(kDescriptorCount));
        for (std::uint64_t i = 0, at = kDescriptorsStart; i < count && at < cate->data().size();
             ++i, at += kCategoryTextSize)
            descriptors.emplace_back(cate->cStringAtByte(std::uint32_t(at)).value_or(""));
        metadata_.setObject(std::move(descriptors), "descriptors");
        chunks.usedChunkOfType(KXFourCC("cate"));
    }
}

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

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXBase/KXFile.h"

namespace {

constexpr const char* kAction = "Parsing the AIFF file";
constexpr std::uint32_t kRateOffset = 8, kRateSize = 10;

// Text chunks and their metadata keys, in reading order.
constexpr std::pair<std::uint32_t, const char*> kTextChunks[] = {
    {KXFourCC("NAME"), "metaName"},           {KXFourCC("GENR"), "genre"},
    {KXFourCC("KEYW"), "keywords"},           {KXFourCC("AUTH"), "author"},
    {KXFourCC("OART"), "originalArtist"},     {KXFourCC("OMED"), "originalMedium"},
    {KXFourCC("ODIM"), "originalDimensions"}, {KXFourCC("DIGS"), "digitizationSource"},
    {KXFourCC("CMSB"), "commissionedBy"},     {KXFourCC("SRCS"), "sourceSupplier"},
    {KXFourCC("ENGS"), "engineers"},          {KXFourCC("DGTZ"), "digitizer"},
    {KXFourCC("CRPD"), "cropped"},            {KXFourCC("ARCH"), "archivalLocation"},
    {KXFourCC("PROD"), "product"},            {KXFourCC("(c) "), "copyright"},
    {KXFourCC("SOFT"), "softwarePackage"},    {KXFourCC("CRED"), "creationDate"},
    {KXFourCC("ANNO"), "annotation"},         {KXFourCC("SUBJ"), "subject"},
};

// Whether COMM's 80-bit rate is a number of at least 1 Hz. The rate conversion reads only the
// low exponent byte and the top of the mantissa, so a NaN, infinite, negative or fractional rate
// would come out as some other rate; a header with such a rate describes no samples.
bool isPlausibleRate(const KXChunk& comm) {
    std::uint8_t bytes[kRateSize] = {};
    const std::optional<KXData> stored = comm.dataAtByte(kRateOffset, kRateSize);
    if (!stored || stored->size() < kRateSize) return false;
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
    audioDataByteOrder_ = blockSizeByteOrder_ = 2;
    isInterleaved_ = true;
    isFloatingPoint_ = false;
    const std::shared_ptr<KXChunkList> chunks = KXChunkList::chunkListForAudioFile(*this, error);
    if (!chunks) return false;

    const auto comm = chunks->chunkOfType(KXFourCC("COMM"));
    if (!comm) {
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorMissingRequiredData, kAction));
        return false;
    }
    const std::int16_t channels = comm->shortValueAtByte(0);
    const std::uint32_t frames = std::uint32_t(comm->intValueAtByte(2));
    const std::int16_t depth = comm->shortValueAtByte(6);
    const std::uint32_t rate = comm->float80ValueAtByte(kRateOffset);
    bool accepted = channels > 0 && rate > 0 && isPlausibleRate(*comm);
    bool doubles = false;
    if (comm->data().size() >= 19) {
        switch (comm->typeValueAtByte(18)) {
            case KXFourCC("NONE"):
            // Big-endian integers under other names, read as 'NONE'.
            case KXFourCC("twos"):
            case KXFourCC("in24"):
            case KXFourCC("in32"): break;
            case KXFourCC("sowt"): audioDataByteOrder_ = 1; break;
            case KXFourCC("fl32"):
            case KXFourCC("FL32"): isFloatingPoint_ = true; break;
            case KXFourCC("fl64"):
            case KXFourCC("FL64"): isFloatingPoint_ = doubles = true; break;
            case KXFourCC("ulaw"):
            case KXFourCC("ULAW"): encoding_ = KXFourCC("ulaw"); break;
            case KXFourCC("alaw"):
            case KXFourCC("ALAW"): encoding_ = KXFourCC("alaw"); break;
            default: accepted = false;
        }
    }
    // Only samples the converter reads, and nothing that would divide by zero. G.711 samples take
    // one byte whatever size 'COMM' declares (several writers put 16 there).
    if (encoding_ == KXFourCC("lpcm")) {
        if (doubles) accepted &= depth == 64;
        else if (isFloatingPoint_) accepted &= depth == 32;
        else accepted &= depth == 8 || depth == 16 || depth == 24 || depth == 32;
    }
    if (!accepted) {
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, kAction));
        return false;
    }
    numberOfChannels_ = std::uint32_t(channels);
    frames_ = frames;
    depth_ = encoding_ == KXFourCC("lpcm") ? std::uint32_t(depth) : 8;
    rate_ = rate;
    chunks->usedChunkOfType(KXFourCC("COMM"));
    buildChannelsList();

    const auto ssnd = chunks->chunkOfType(KXFourCC("SSND"));
    const std::uint64_t needed =
        std::uint64_t(isInterleaved_ ? numberOfChannels_ : 1) * (depth_ / 8) * std::uint64_t(frames_) + 8;
    if ((ssnd ? ssnd->length() : 0) < needed) {
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorMissingRequiredData, kAction));
        return false;
    }
    // Sample data that cannot hold one frame: a channel count no real file has (32,767 channels
    // over a few bytes would have every reader allocate for nothing).
    const std::uint64_t frameBytes = std::uint64_t(isInterleaved_ ? numberOfChannels_ : 1) * (depth_ / 8);
    if (const std::uint64_t payload = ssnd->length() - 8; payload > 0 && payload < frameBytes) {
        KXSetError(error, KXAudioFileError::errorWithCode(KXAudioFileErrorUnsupportedFormat, kAction));
        return false;
    }
    auto edits = KXEditList::editListWithAudioFile(*this, 0);
    if (isInterleaved_) {
        for (std::uint32_t c = 0; c < numberOfChannels_; ++c)
            if (auto block = edits->blockAtIndex(0, c)) block->setSourceOffset(ssnd->dataPosition() + 8);
    } else {
        for (std::uint32_t c = 0; c < numberOfChannels_; ++c) {
            const auto own = chunks->chunkOfType(KXFourCC("SSND"), c);
            if (auto block = edits->blockAtIndex(0, c)) block->setSourceOffset((own ? own : ssnd)->dataPosition() + 8);
        }
    }
    setEditList(edits);
    chunks->usedChunkOfType(KXFourCC("SSND"));

    readAIFFLabels(*chunks);
    readAIFFLoopLibraryChunks(*chunks);
    parseAnalysis(*chunks);
    for (const auto& [type, key] : kTextChunks) parseAIFFMetadataChunk(type, key, *chunks);
    parseAIFFMetadataChunk(KXFourCC("PROD"), "product", *chunks);
    if (const auto comt = chunks->chunkOfType(KXFourCC("COMT"))) {
        const std::uint16_t length = std::uint16_t(comt->shortValueAtByte(8));
        if (length > 0) metadata_.setObject(comt->stringAtByte(10, length), "comments");
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
        std::uint64_t at = 2;
        for (std::uint16_t i = 0; i < count && at < length; ++i) {
            const auto id = std::uint16_t(mark->shortValueAtByte(std::uint32_t(at)));
            const std::uint32_t position = std::uint32_t(mark->intValueAtByte(std::uint32_t(at + 2)));
            const std::uint8_t nameLength = std::uint8_t(mark->charValueAtByte(std::uint32_t(at + 6)));
            // A count of 0, or a name that runs past the chunk, is no name: the marker gets the default one.
            markerList_->addMarkerWithID(id, position / double(rate_), mark->pascalStringAtByte(std::uint32_t(at + 6)));
            // The count byte and the text together are even.
            at += 6 + 1 + nameLength + ((1 + nameLength) % 2);
        }
        chunks.usedChunkOfType(KXFourCC("MARK"));
    }
    // Regions of the loop library, each between two markers, which then go.
    if (const auto regions = chunks.chunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("auFM"))) {
        const std::uint64_t length = regions->data().size();
        const std::uint16_t count = std::uint16_t(regions->shortValueAtByte(0));
        std::uint64_t at = 2;
        for (std::uint16_t i = 0; i < count && at < length; ++i) {
            const std::uint8_t nameLength = std::uint8_t(regions->charValueAtByte(std::uint32_t(at + 2)));
            const std::string name = regions->stringAtByte(std::uint32_t(at + 3), nameLength);
            const std::uint32_t ids = std::uint32_t(at + 3 + nameLength);
            const auto start = markerList_->markerWithID(std::uint16_t(regions->shortValueAtByte(ids)));
            const auto end = markerList_->markerWithID(std::uint16_t(regions->shortValueAtByte(ids + 2)));
            if (start && end) {
                regionList_->addRegionWithStartMarker(*start, *end, name);
                markerList_->removeLabel(start.get());
                markerList_->removeLabel(end.get());
            }
            at += 15 + nameLength;
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
        setGain(inst->shortValueAtByte(6));
        // The sustain loop, then the release loop, each between two markers, which then go.
        for (std::uint32_t at : {8u, 14u}) {
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
        setEighthBeats(rex->intValueAtByte(6) / 480);
        setTempo(float(rex->intValueAtByte(12)) / 1000.0f);
        const std::int16_t slices = rex->shortValueAtByte(10);
        for (std::int32_t i = 0; i < slices && 1016 + 12 * std::uint64_t(i) + 4 <= rex->data().size(); ++i)
            sliceList_->addSliceWithPosition((std::uint32_t(rex->intValueAtByte(std::uint32_t(1016 + 12 * i))) + 242.0) / rate_);
        chunks.usedChunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("REX "));
    }
    if (const auto recycle = chunks.chunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("ReCy"))) {
        format_ = KXFourCC("RCY ");
        const std::int8_t numerator = recycle->charValueAtByte(6), denominator = recycle->charValueAtByte(7);
        setMeterNumeratorDenominator(numerator, denominator);
        if (denominator != 0)
            setEighthBeats((recycle->charValueAtByte(8) * numerator + recycle->charValueAtByte(9)) * (8 / denominator));
        setTempo(float(recycle->intValueAtByte(10)) / 1000.0f);
        const float threshold = (1.0f - float(recycle->shortValueAtByte(20) + 1) / 1000.0f) * 32767.0f;
        const std::int16_t records = recycle->shortValueAtByte(158);
        for (std::int32_t i = 0; i < records && 166 + 8 * std::uint64_t(i) + 2 <= recycle->data().size(); ++i) {
            if (float(recycle->shortValueAtByte(std::uint32_t(166 + 8 * i))) <= threshold) continue;
            const std::uint32_t position = std::uint32_t(recycle->intValueAtByte(std::uint32_t(162 + 8 * i))) >> 8;
            sliceList_->addSliceWithPosition(position / double(rate_));
        }
        chunks.usedChunkOfTypeSubtype(KXFourCC("APPL"), KXFourCC("ReCy"));
    }
    if (const auto basc = chunks.chunkOfType(KXFourCC("basc"))) {
        format_ = KXFourCC("APLL");
        setMeterNumeratorDenominator(basc->shortValueAtByte(12), basc->shortValueAtByte(14));
        // The doubling wraps as the 32-bit field does; it may not overflow.
        setEighthBeats(std::int32_t(std::uint32_t(basc->intValueAtByte(4)) * 2u));
        setKey(std::max(basc->shortValueAtByte(8) - 48, -1));
        setScaleType(basc->shortValueAtByte(10));
        setPlaybackType(basc->shortValueAtByte(16));
        setTempo(tempoGuess());
        chunks.usedChunkOfType(KXFourCC("basc"));
    }
    if (const auto trns = chunks.chunkOfType(KXFourCC("trns"))) {
        format_ = KXFourCC("APLL");
        const std::uint32_t count = std::uint32_t(trns->intValueAtByte(72));
        for (std::uint64_t i = 0, at = 80; i < count && at + 4 <= trns->data().size(); ++i, at += 24)
            sliceList_->addSliceWithPosition(std::uint32_t(trns->intValueAtByte(std::uint32_t(at))) / double(rate_));
        chunks.usedChunkOfType(KXFourCC("trns"));
    }
    if (const auto cate = chunks.chunkOfType(KXFourCC("cate"))) {
        const auto text = [&](std::uint32_t offset, const char* key) {
            if (auto value = cate->cStringAtByte(offset)) metadata_.setObject(*value, key);
        };
        text(4, "instrumentCategory");
        text(54, "instrument");
        text(104, "genre");
        KXArray descriptors;
        const std::uint16_t count = std::uint16_t(cate->shortValueAtByte(220));
        for (std::uint64_t i = 0, at = 222; i < count && at < cate->data().size(); ++i, at += 50)
            descriptors.emplace_back(cate->cStringAtByte(std::uint32_t(at)).value_or(""));
        metadata_.setObject(std::move(descriptors), "descriptors");
        chunks.usedChunkOfType(KXFourCC("cate"));
    }
}

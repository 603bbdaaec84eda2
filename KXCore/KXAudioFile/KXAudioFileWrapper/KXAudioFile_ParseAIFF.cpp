// The AIFF and AIFF-C reader: "FORM" <size> 'AIFF'|'AIFC', then chunks with 32-bit big-endian
// sizes and a pad byte after odd payloads. Every number is big-endian.
//
// The layout is KXAIFFLayout's. 'COMM' and 'SSND' first, then each chunk of the table below in
// its order (later ones win for the same metadata key: the text chunks over 'cate' and 'KXmd'),
// then the analysis; everything else is kept.

#include <algorithm>
#include <cmath>
#include <vector>

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

// Each chunk reader takes the first chunk of its type (in the first file of a split set).
using ChunkReader = void (*)(KXAudioFile&, const KXChunk&);

void readMarkers(KXAudioFile& file, const KXChunk& mark) {
    const std::uint64_t length = mark.data().size();
    const std::uint16_t count = std::uint16_t(mark.shortValueAtByte(0));
    std::uint64_t at = kMarkersStart;
    for (std::uint16_t i = 0; i < count && at < length; ++i) {
        const auto id = std::uint16_t(mark.shortValueAtByte(std::uint32_t(at)));
        const std::uint32_t position = std::uint32_t(mark.intValueAtByte(std::uint32_t(at + kMarkerPosition)));
        const std::uint32_t name = std::uint32_t(at + kMarkerName);
        const std::uint8_t nameLength = std::uint8_t(mark.charValueAtByte(name));
        // A count of 0, or a name that runs past the chunk, is no name: the marker gets the default one.
        file.markerList()->addMarkerWithID(id, position / double(file.rate()), mark.pascalStringAtByte(name));
        // The count byte and the text together are even.
        at += kMarkerName + 1 + nameLength + ((1 + nameLength) % 2);
    }
}

// Regions of the loop library, each between two markers, which then go.
void readRegions(KXAudioFile& file, const KXChunk& regions) {
    const std::uint64_t length = regions.data().size();
    const std::uint16_t count = std::uint16_t(regions.shortValueAtByte(0));
    std::uint64_t at = kRegionsStart;
    for (std::uint16_t i = 0; i < count && at < length; ++i) {
        const std::uint8_t nameLength = std::uint8_t(regions.charValueAtByte(std::uint32_t(at + kRegionName)));
        const std::string name = regions.stringAtByte(std::uint32_t(at + kRegionName + 1), nameLength);
        const std::uint32_t ids = std::uint32_t(at + kRegionName + 1 + nameLength);
        const auto start = file.markerList()->markerWithID(std::uint16_t(regions.shortValueAtByte(ids)));
        const auto end = file.markerList()->markerWithID(std::uint16_t(regions.shortValueAtByte(ids + 2)));
        if (start && end) {
            file.regionList()->addRegionWithStartMarker(*start, *end, name);
            file.markerList()->removeLabel(start.get());
            file.markerList()->removeLabel(end.get());
        }
        at += kRegionName + 1 + nameLength + kRegionTrailerSize;
    }
}

void readArchive(KXAudioFile& file, const KXChunk& chunk) {
    file.mergeArchivedMetadata(chunk);
}

// MIDI values, then the sustain and the release loop, each between two markers, which then go.
void readInstrument(KXAudioFile& file, const KXChunk& inst) {
    file.setMIDIBaseNote(inst.charValueAtByte(0));
    file.setDetune(inst.charValueAtByte(1));
    file.setMIDILowNote(inst.charValueAtByte(2));
    file.setMIDIHighNote(inst.charValueAtByte(3));
    file.setMIDILowVelocity(inst.charValueAtByte(4));
    file.setMIDIHighVelocity(inst.charValueAtByte(5));
    file.setGain(inst.shortValueAtByte(kInstrumentGain));
    const auto& markers = file.markerList();
    for (std::uint32_t at : {kSustainLoop, kReleaseLoop}) {
        const std::int16_t mode = inst.shortValueAtByte(at);
        if (mode == 0 || markers->count() == 0) continue;
        const auto begin = markers->markerWithID(std::uint16_t(inst.shortValueAtByte(at + 2)));
        const auto end = markers->markerWithID(std::uint16_t(inst.shortValueAtByte(at + 4)));
        if (!begin || !end) continue;
        file.loopList()->addLoopWithType(std::uint32_t(mode - 1), *begin, *end);
        markers->removeLabel(begin.get());
        markers->removeLabel(end.get());
    }
}

void readREX(KXAudioFile& file, const KXChunk& rex) {
    file.setFormat(KXFourCC("REX1"));
    file.setMeterNumeratorDenominator(4, 4);
    file.setEighthBeats(rex.intValueAtByte(kREXBeats) / 480);
    file.setTempo(float(rex.intValueAtByte(kREXTempo)) / 1000.0f);
    const std::uint64_t slices = std::uint64_t(std::max<std::int16_t>(rex.shortValueAtByte(kREXSliceCount), 0));
    for (std::uint64_t i = 0, at = kREXSlicesStart; i < slices && at + 4 <= rex.data().size(); ++i, at += kREXSliceSize)
        file.sliceList()->addSliceWithPosition(
            (std::uint32_t(rex.intValueAtByte(std::uint32_t(at))) + kREXSliceOffset) / file.rate());
}

// Slices louder than the sensitivity's threshold.
void readReCycle(KXAudioFile& file, const KXChunk& recycle) {
    file.setFormat(KXFourCC("RCY "));
    const std::int8_t numerator = recycle.charValueAtByte(kReCycleMeter);
    const std::int8_t denominator = recycle.charValueAtByte(kReCycleMeter + 1);
    file.setMeterNumeratorDenominator(numerator, denominator);
    if (denominator != 0)
        file.setEighthBeats(
            (recycle.charValueAtByte(kReCycleBars) * numerator + recycle.charValueAtByte(kReCycleBars + 1)) *
            (8 / denominator));
    file.setTempo(float(recycle.intValueAtByte(kReCycleTempo)) / 1000.0f);
    const float threshold = (1.0f - float(recycle.shortValueAtByte(kReCycleSensitivity) + 1) / 1000.0f) * 32767.0f;
    const std::uint64_t records =
        std::uint64_t(std::max<std::int16_t>(recycle.shortValueAtByte(kReCycleSliceCount), 0));
    for (std::uint64_t i = 0, at = kReCycleSlicesStart;
         i < records && at + kReCycleSliceLevel + 2 <= recycle.data().size(); ++i, at += kReCycleSliceSize) {
        if (float(recycle.shortValueAtByte(std::uint32_t(at + kReCycleSliceLevel))) <= threshold) continue;
        const std::uint32_t position = std::uint32_t(recycle.intValueAtByte(std::uint32_t(at))) >> 8;
        file.sliceList()->addSliceWithPosition(position / double(file.rate()));
    }
}

void readBeats(KXAudioFile& file, const KXChunk& basc) {
    file.setFormat(KXFourCC("APLL"));
    file.setMeterNumeratorDenominator(basc.shortValueAtByte(kBeatsMeterNumerator),
                                      basc.shortValueAtByte(kBeatsMeterDenominator));
    // The doubling wraps as the 32-bit field does; it may not overflow.
    file.setEighthBeats(std::int32_t(std::uint32_t(basc.intValueAtByte(kBeatsCount)) * 2u));
    file.setKey(std::max(basc.shortValueAtByte(kBeatsKey) - 48, -1));
    file.setScaleType(basc.shortValueAtByte(kBeatsScale));
    file.setPlaybackType(basc.shortValueAtByte(kBeatsPlayback));
    file.setTempo(file.tempoGuess());
}

void readTransients(KXAudioFile& file, const KXChunk& trns) {
    file.setFormat(KXFourCC("APLL"));
    const std::uint32_t count = std::uint32_t(trns.intValueAtByte(kTransientCount));
    for (std::uint64_t i = 0, at = kTransientsStart; i < count && at + 4 <= trns.data().size();
         ++i, at += kTransientSize)
        file.sliceList()->addSliceWithPosition(std::uint32_t(trns.intValueAtByte(std::uint32_t(at))) /
                                               double(file.rate()));
}

void readCategories(KXAudioFile& file, const KXChunk& cate) {
    KXDictionary& metadata = file.mutableMetadata();
    for (std::uint32_t i = 0; i < std::size(kCategoryKeys); ++i)
        if (auto value = cate.cStringAtByte(kCategoryTexts + kCategoryTextSize * i))
            metadata.setObject(*value, kCategoryKeys[i]);
    KXArray descriptors;
    const std::uint16_t count = std::uint16_t(cate.shortValueAtByte(kDescriptorCount));
    for (std::uint64_t i = 0, at = kDescriptorsStart; i < count && at < cate.data().size();
         ++i, at += kCategoryTextSize)
        descriptors.emplace_back(cate.cStringAtByte(std::uint32_t(at)).value_or(""));
    metadata.setObject(std::move(descriptors), "descriptors");
}

// A text chunk's payload to its first NUL; an empty chunk sets nothing.
void readText(KXAudioFile& file, const KXChunk& chunk) {
    const auto entry = std::find_if(std::begin(kTextChunks), std::end(kTextChunks),
                                    [&](const TextChunk& text) { return text.type == chunk.type(); });
    if (entry != std::end(kTextChunks) && !chunk.data().empty())
        file.mutableMetadata().setObject(chunk.stringAtByte(0, std::uint32_t(chunk.data().size())), entry->key);
}

void readComment(KXAudioFile& file, const KXChunk& comt) {
    const std::uint16_t length = std::uint16_t(comt.shortValueAtByte(kCommentLength));
    if (length > 0) file.mutableMetadata().setObject(comt.stringAtByte(kCommentText, length), "comments");
}

void readIXML(KXAudioFile& file, const KXChunk& chunk) {
    file.parseIXMLChunk(chunk);
}

struct ChunkRule {
    std::uint32_t type, subtype;
    ChunkReader read;
};

// The table in reading order; the text chunks come from KXAIFFLayout's table.
const std::vector<ChunkRule>& chunkReaders() {
    static const std::vector<ChunkRule> kReaders = [] {
        std::vector<ChunkRule> rules = {
            {KXFourCC("MARK"), 0, readMarkers},
            {KXFourCC("APPL"), KXFourCC("auFM"), readRegions},
            {KXFourCC("KXmd"), 0, readArchive},
            {KXFourCC("INST"), 0, readInstrument},
            {KXFourCC("APPL"), KXFourCC("REX "), readREX},
            {KXFourCC("APPL"), KXFourCC("ReCy"), readReCycle},
            {KXFourCC("basc"), 0, readBeats},
            {KXFourCC("trns"), 0, readTransients},
            {KXFourCC("cate"), 0, readCategories},
        };
        for (const TextChunk& text : kTextChunks) rules.push_back({text.type, 0, readText});
        rules.push_back({KXFourCC("COMT"), 0, readComment});
        rules.push_back({KXFourCC("iXML"), 0, readIXML});
        return rules;
    }();
    return kReaders;
}

}  // namespace

bool KXAudioFile::readAIFFCommon(const KXChunk* comm, KXError* error) {
    if (!comm) return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    const std::int16_t channels = comm->shortValueAtByte(kCommonChannels);
    const std::int16_t depth = comm->shortValueAtByte(kCommonBitsPerSample);
    const std::uint32_t rate = comm->float80ValueAtByte(kCommonRate);
    const Compression* compression = &kCompressions[0];
    if (comm->data().size() > kCommonCompression) {
        const std::uint32_t type = comm->typeValueAtByte(kCommonCompression);
        compression = std::find_if(std::begin(kCompressions), std::end(kCompressions),
                                   [&](const Compression& known) { return known.type == type; });
        if (compression == std::end(kCompressions))
            return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    }
    encoding_ = compression->encoding;
    isFloatingPoint_ = compression->floatDepth != 0;
    if (compression->littleEndian) audioDataByteOrder_ = KXByteOrderLittleValue;
    // Only samples the converter reads, and nothing that would divide by zero. G.711 samples take
    // one byte whatever size 'COMM' declares (several writers put 16 there).
    bool accepted = channels > 0 && rate > 0 && isPlausibleRate(*comm);
    if (encoding_ == KXFourCC("lpcm"))
        accepted &= isFloatingPoint_ ? depth == compression->floatDepth
                                     : depth == 8 || depth == 16 || depth == 24 || depth == 32;
    if (!accepted) return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    numberOfChannels_ = std::uint32_t(channels);
    frames_ = std::uint32_t(comm->intValueAtByte(kCommonFrames));
    depth_ = encoding_ == KXFourCC("lpcm") ? std::uint32_t(depth) : 8;
    rate_ = rate;
    return true;
}

bool KXAudioFile::readAIFFSoundData(KXChunkList& chunks, KXError* error) {
    const auto ssnd = chunks.chunkOfType(KXFourCC("SSND"));
    const std::uint64_t frameBytes = std::uint64_t(isInterleaved_ ? numberOfChannels_ : 1) * (depth_ / 8);
    if ((ssnd ? ssnd->length() : 0) < frameBytes * frames_ + kSoundDataHeaderSize)
        return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    // Sample data that cannot hold one frame: a channel count no real file has (32,767 channels
    // over a few bytes would have every reader allocate for nothing).
    if (const std::uint64_t payload = ssnd->length() - kSoundDataHeaderSize; payload > 0 && payload < frameBytes)
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    auto edits = KXEditList::editListWithAudioFile(*this, 0);
    // Each channel of a split set reads from its own file's samples.
    for (std::uint32_t c = 0; c < numberOfChannels_; ++c) {
        const auto own = isInterleaved_ ? nullptr : chunks.chunkOfType(KXFourCC("SSND"), c);
        if (auto block = edits->blockAtIndex(0, c))
            block->setSourceOffset((own ? own : ssnd)->dataPosition() + kSoundDataHeaderSize);
    }
    setEditList(edits);
    chunks.usedChunkOfType(KXFourCC("SSND"));
    return true;
}

bool KXAudioFile::parseAIFFHeader(KXFile& /*file*/, KXError* error) {
    format_ = KXFourCC("AIFF");
    encoding_ = KXFourCC("lpcm");
    audioDataByteOrder_ = blockSizeByteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = true;
    isFloatingPoint_ = false;
    const std::shared_ptr<KXChunkList> chunks = KXChunkList::chunkListForAudioFile(*this, error);
    if (!chunks || !readAIFFCommon(chunks->consumeChunk(KXFourCC("COMM")).get(), error)) return false;
    buildChannelsList();
    if (!readAIFFSoundData(*chunks, error)) return false;
    for (const ChunkRule& rule : chunkReaders())
        if (const auto chunk = chunks->consumeChunk(rule.type, rule.subtype)) rule.read(*this, *chunk);
    parseAnalysis(*chunks);
    KXChunkArray unused = chunks->unusedChunks();
    if (!unused.empty()) unusedChunkList_ = std::move(unused);
    return true;
}

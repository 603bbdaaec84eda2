// The CAF reader: "caff", a 16-bit version and flags, then chunks with 64-bit big-endian sizes
// and no pad bytes (a 'data' size of all ones runs to the end of the file); the layout is
// KXCAFLayout's. 'desc' and 'data' first, then each chunk of the table below, then the analysis
// (the 'uuid' chunk of the library's UUID, else the cache). 'strg' goes with the names it holds,
// 'info' is read and also kept, everything else is kept. Deliberate extensions: G.711 samples
// ('ulaw', 'alaw') as well as linear PCM; 'chan' gives the channels their speakers (from a bitmap
// or a layout tag), and the 'KXmd' archive of the metadata no chunk holds is read back.

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXCAFLayout.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXMetadata.h"

namespace {

using namespace KXCAFLayout;

constexpr const char* kAction = "Parsing the CoreAudio file";
// Deliberate: more channels than this describe no real file, and would have every channel's
// statistics allocated for a few bytes of samples.
constexpr std::uint32_t kMaximumChannels = 0xFFFF;

// A float as a whole number toward zero, 0 for what has none.
std::int32_t truncated(double value) {
    if (!std::isfinite(value)) return 0;
    return std::int32_t(std::clamp(std::trunc(value), -2147483648.0, 2147483647.0));
}

// The name a label's string ID gives it in the file's 'strg' chunk.
std::optional<std::string> nameForID(const KXChunkList& chunks, std::uint32_t stringID) {
    const auto strg = chunks.chunkOfType(KXFourCC("strg"));
    return strg ? strg->stringForID(stringID) : std::nullopt;
}

// A position in frames as seconds; nullopt for what is no position.
std::optional<double> secondsAt(const KXChunk& chunk, std::uint32_t offset, std::uint32_t rate) {
    const double frames = chunk.doubleValueAtByte(offset);
    if (!std::isfinite(frames) || frames < 0) return std::nullopt;
    return frames / rate;
}

using ChunkReader = void (*)(KXAudioFile&, const KXChunk&, const KXChunkList&);

// The speakers, from a channel bitmap or from a layout tag of the file's channel count (the
// writer writes the bitmap); other layouts name nothing here.
void readChannelLayout(KXAudioFile& file, const KXChunk& chan, const KXChunkList&) {
    KXChannelsList& channels = *file.channelsList();
    const auto tag = std::uint32_t(chan.intValueAtByte(kChannelLayoutTag));
    if (tag == kLayoutTagUseBitmap) {
        channels.setSpeakerMask(std::uint32_t(chan.intValueAtByte(kChannelBitmap)));
        return;
    }
    const std::uint32_t count = tag & 0xFFFF;
    for (const LayoutTag& layout : kLayoutTags)
        if (layout.tag == tag && count == channels.count()) channels.setSpeakers(std::span(layout.speakers, count));
}

// The base note's fraction is the detune; the gain is in decibels.
void readInstrument(KXAudioFile& file, const KXChunk& inst, const KXChunkList&) {
    const double note = inst.floatValueAtByte(kInstBaseNote);
    const double nearest = std::isfinite(note) ? std::round(note) : 0;
    file.setMIDIBaseNote(truncated(nearest));
    file.setDetune(truncated((std::isfinite(note) ? note - nearest : 0) * 100));
    file.setMIDILowNote(std::uint8_t(inst.charValueAtByte(kInstLowNote)));
    file.setMIDIHighNote(std::uint8_t(inst.charValueAtByte(kInstHighNote)));
    file.setMIDILowVelocity(std::uint8_t(inst.charValueAtByte(kInstLowVelocity)));
    file.setMIDIHighVelocity(std::uint8_t(inst.charValueAtByte(kInstHighVelocity)));
    file.setGain(truncated(inst.floatValueAtByte(kInstGain)));
}

// Generic markers only; the others belong to regions.
void readMarkers(KXAudioFile& file, const KXChunk& mark, const KXChunkList& chunks) {
    mark.forEachRecord(std::uint32_t(mark.intValueAtByte(kMarkersCount)), kMarkersStart, kMarkerSize,
                       [&](std::uint32_t at) {
                           if (std::uint32_t(mark.intValueAtByte(at + kMarkerType)) != kMarkerGeneric) return;
                           const auto seconds = secondsAt(mark, at + kMarkerPosition, file.rate());
                           if (!seconds) return;
                           file.markerList()->addMarkerWithPosition(
                               *seconds, nameForID(chunks, std::uint32_t(mark.intValueAtByte(at + kMarkerID))));
                       });
}

// Regions, and sustain and release loops, each between its two markers.
void readRegions(KXAudioFile& file, const KXChunk& regn, const KXChunkList& chunks) {
    regn.forEachRecord(
        std::uint32_t(regn.intValueAtByte(kRegionsCount)), kRegionsStart, kRegionSize, [&](std::uint32_t at) {
            const std::uint32_t first = at + kRegionFirstMarker, second = at + kRegionSecondMarker;
            const std::uint32_t type = std::uint32_t(regn.intValueAtByte(first + kMarkerType));
            const auto start = secondsAt(regn, first + kMarkerPosition, file.rate());
            const auto end = secondsAt(regn, second + kMarkerPosition, file.rate());
            if (!start || !end) return;
            const KXRange range = KXRange::rangeWithStart(*start, *end);
            const auto name = nameForID(chunks, std::uint32_t(regn.intValueAtByte(first + kMarkerID)));
            if (type == kMarkerRegionStart) {
                file.regionList()->addRegionWithRange(range, name);
            } else if (type == kMarkerSustainLoopStart || type == kMarkerReleaseLoopStart) {
                const std::uint32_t flags = std::uint32_t(regn.intValueAtByte(at + kRegionFlags));
                const auto loop = std::find_if(std::begin(kLoopFlags), std::end(kLoopFlags),
                                               [&](const LoopFlags& entry) { return entry.flags == flags; });
                file.loopList()->addLoopWithType(loop == std::end(kLoopFlags) ? KXLoop::kNone : loop->loopType, range,
                                                 name);
            }
        });
}

// Key and value texts; a key with a metadata counterpart goes under it, any other under its own.
void readInfo(KXAudioFile& file, const KXChunk& info, const KXChunkList&) {
    const std::uint64_t count = std::uint32_t(info.intValueAtByte(0)), length = info.data().size();
    std::uint64_t at = kInfoEntries;
    const auto nextText = [&]() -> std::optional<std::string> {
        if (at >= length) return std::nullopt;
        std::optional<std::string> text = info.cStringAtByte(std::uint32_t(at));
        const auto* start = info.data().data() + at;
        const auto* nul = std::find(start, info.data().data() + length, std::uint8_t(0));
        at += std::uint64_t(nul - start) + 1;
        return text;
    };
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto key = nextText();
        const auto value = nextText();
        if (!key || !value) return;
        const char* translated = KXMetadata::keyForInfoDictionaryFormatKey(*key);
        file.mutableMetadata().setObject(*value, translated ? std::string(translated) : *key);
    }
}

void readArchive(KXAudioFile& file, const KXChunk& chunk, const KXChunkList&) {
    file.mergeArchivedMetadata(chunk);
}

struct ChunkRule {
    std::uint32_t type;
    ChunkReader read;
    bool kept;  // read, and kept among the unused chunks too
};
constexpr ChunkRule kChunkReaders[] = {
    {KXFourCC("KXmd"), readArchive, false},
    {KXFourCC("chan"), readChannelLayout, false},
    {KXFourCC("inst"), readInstrument, false},
    {KXFourCC("mark"), readMarkers, false},
    {KXFourCC("regn"), readRegions, false},
    // Deliberate: 'info' stays among the chunks a rewrite carries.
    {KXFourCC("info"), readInfo, true},
};

}  // namespace

bool KXAudioFile::readCAFDescription(const KXChunk* desc, KXError* error) {
    if (!desc) return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    const std::uint32_t formatID = desc->typeValueAtByte(kDescFormatID);
    if (std::find(std::begin(kFormatIDs), std::end(kFormatIDs), formatID) == std::end(kFormatIDs))
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    const bool g711 = formatID != KXFourCC("lpcm");
    encoding_ = formatID;
    const std::uint32_t flags = std::uint32_t(desc->intValueAtByte(kDescFlags));
    isFloatingPoint_ = !g711 && flags & kFlagFloat;
    audioDataByteOrder_ = flags & kFlagLittleEndian ? KXByteOrderLittleValue : KXByteOrderBigValue;
    rate_ = KXChunk::uInt32FromDouble(desc->doubleValueAtByte(kDescRate));
    numberOfChannels_ = std::uint32_t(desc->intValueAtByte(kDescChannels));
    depth_ = g711 ? 8 : std::uint32_t(desc->intValueAtByte(kDescBitsPerChannel));
    // Deliberate: values that describe no samples, or none the converter reads, are refused
    // rather than divided by.
    const bool depthRead =
        isFloatingPoint_ ? depth_ == 32 || depth_ == 64 : depth_ == 8 || depth_ == 16 || depth_ == 24 || depth_ == 32;
    if (numberOfChannels_ == 0 || numberOfChannels_ > kMaximumChannels || rate_ == 0 || !depthRead)
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    return true;
}

bool KXAudioFile::parseCoreAudioHeader(KXFile& /*file*/, KXError* error) {
    format_ = KXFourCC("caff");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = true;
    const std::shared_ptr<KXChunkList> chunks = KXChunkList::chunkListForAudioFile(*this, error);
    if (!chunks || !readCAFDescription(chunks->consumeChunk(KXFourCC("desc")).get(), error)) return false;
    const auto data = chunks->consumeChunk(KXFourCC("data"));
    if (!data) return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    const std::uint64_t samples = data->length() > kDataEditCountSize ? data->length() - kDataEditCountSize : 0;
    const std::uint64_t frames = samples / (depth_ / 8) / numberOfChannels_;
    if (frames > 0xFFFFFFFFu) {
        KXSetError(error, KXAudioFileError::tooManyFramesError(kAction));
        return false;
    }
    frames_ = std::uint32_t(frames);
    buildChannelsList();
    setEditList(KXEditList::editListWithAudioFile(*this, std::int64_t(data->dataPosition() + kDataEditCountSize)));

    for (const ChunkRule& rule : kChunkReaders) {
        const auto chunk = rule.kept ? chunks->chunkOfType(rule.type) : chunks->consumeChunk(rule.type);
        if (chunk) rule.read(*this, *chunk, *chunks);
    }
    if (const auto analysis = chunks->chunkWithUUID(KXUUID::cafAnalysisUUID())) {
        parseKXAnChunk(*analysis);
        analysis->setIsUsed(true);
    } else if (KXWaveformCache::isEnabled()) {
        parseKXAnFromList(nullptr);
    }
    (void)chunks->consumeChunk(KXFourCC("strg"));
    KXChunkArray unused = chunks->unusedChunks();
    if (!unused.empty()) unusedChunkList_ = std::move(unused);
    return true;
}

// The WAVE reader: "RIFF" <size> "WAVE", then chunks with 32-bit little-endian sizes and a pad
// byte after odd payloads; the layout is KXWAVELayout's. 'fmt ' and 'data' first, then each chunk
// of the table below in its order (later ones win for the same metadata key), then the analysis;
// every other chunk is kept. Chunks are consumed as AIFF's are: the first of a type is read, and
// every chunk of that type is then used.

#include <algorithm>
#include <deque>
#include <unordered_map>
#include <unordered_set>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXAudioFileWrapper/KXWAVELayout.h"
#include "KXBase/KXMetadata.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXString.h"
#include "KXBase/KXXMLParser.h"

namespace {

using namespace KXWAVELayout;

constexpr const char* kAction = "Parsing the WAVE file";

// Calls `body(type, offset)` for each sub-chunk of a 'LIST' payload; the next one starts after
// the header and the payload, plus a pad byte when that lands on an odd offset.
template <typename Body>
void forEachSubChunk(const KXChunk& list, Body body) {
    const std::uint64_t length = list.data().size();
    for (std::uint64_t offset = 0; offset + kSubChunkHeaderSize <= length;) {
        const std::uint32_t type = list.typeValueAtByte(std::uint32_t(offset));
        const std::uint32_t size = std::uint32_t(list.intValueAtByte(std::uint32_t(offset + 4)));
        body(type, std::uint32_t(offset));
        offset += kSubChunkHeaderSize + std::uint64_t(size);
        offset += offset & 1;
    }
}

// Each chunk reader takes its chunk; the rest of the file's chunks are there for the readers
// that consume a second one.
using ChunkReader = void (*)(KXAudioFile&, const KXChunk&, KXChunkList&);

void readArchive(KXAudioFile& file, const KXChunk& chunk, KXChunkList&) {
    file.mergeArchivedMetadata(chunk);
}

void readInstrument(KXAudioFile& file, const KXChunk& inst, KXChunkList&) {
    file.setMIDIBaseNote(inst.charValueAtByte(0));
    file.setDetune(inst.charValueAtByte(1));
    file.setGain(inst.charValueAtByte(2));
    file.setMIDILowNote(inst.charValueAtByte(3));
    file.setMIDIHighNote(inst.charValueAtByte(4));
    file.setMIDILowVelocity(inst.charValueAtByte(5));
    file.setMIDIHighVelocity(inst.charValueAtByte(6));
}

// Names first, then the labelled texts that turn their markers into regions. Each sub-chunk goes
// to the first marker still listed with its cue ID; the markers that 'ltxt' takes leave the list
// together at the end (one search or removal per sub-chunk would be quadratic).
void readAssociatedData(KXAudioFile& file, const KXChunk& adtl) {
    std::unordered_map<std::uint32_t, std::deque<std::shared_ptr<KXLabel>>> markersByID;
    for (const auto& marker : file.markerList()->list()) markersByID[marker->labelID()].push_back(marker);
    const auto firstMarker = [&](std::uint32_t cueID) -> std::shared_ptr<KXLabel> {
        const auto found = markersByID.find(cueID);
        return found == markersByID.end() || found->second.empty() ? nullptr : found->second.front();
    };
    forEachSubChunk(adtl, [&](std::uint32_t type, std::uint32_t offset) {
        if (type != KXFourCC("labl")) return;
        if (const auto marker = firstMarker(std::uint32_t(adtl.intValueAtByte(offset + kLabelCueID))))
            marker->setName(adtl.cStringAtByte(offset + kLabelText));
    });
    std::unordered_set<const KXLabel*> taken;
    forEachSubChunk(adtl, [&](std::uint32_t type, std::uint32_t offset) {
        if (type != KXFourCC("ltxt")) return;
        const std::uint32_t cueID = std::uint32_t(adtl.intValueAtByte(offset + kLabelCueID));
        const std::uint32_t frames = std::uint32_t(adtl.intValueAtByte(offset + kLabelledTextFrames));
        const auto marker = firstMarker(cueID);
        if (!marker || frames == 0) return;
        const double start = marker->position();
        file.regionList()->addRegionWithRange(KXRange::rangeWithStart(start, start + frames / double(file.rate())),
                                              marker->name());
        markersByID[cueID].pop_front();
        taken.insert(marker.get());
    });
    if (!taken.empty()) file.markerList()->removeLabels(taken);
}

// Cue points become markers; the 'adtl' list that names them is read with them.
void readCue(KXAudioFile& file, const KXChunk& cue, KXChunkList& chunks) {
    cue.forEachRecord(std::uint32_t(cue.intValueAtByte(0)), kCueRecordsStart, kCueRecordSize, [&](std::uint32_t at) {
        const std::uint32_t position = std::uint32_t(cue.intValueAtByte(at + 4));
        file.markerList()->addMarkerWithID(std::uint32_t(cue.intValueAtByte(at)), position / double(file.rate()));
    });
    if (const auto adtl = chunks.consumeChunk(KXFourCC("LIST"), KXFourCC("adtl"))) readAssociatedData(file, *adtl);
}

void readSampler(KXAudioFile& file, const KXChunk& smpl, KXChunkList&) {
    const double rate = file.rate();
    smpl.forEachRecord(std::uint32_t(smpl.intValueAtByte(kSamplerLoopCount)), kSamplerLoopsStart, kSamplerLoopSize,
                       [&](std::uint32_t at) {
                           const double start = std::uint32_t(smpl.intValueAtByte(at + kSamplerLoopStart)) / rate;
                           const double end = std::uint32_t(smpl.intValueAtByte(at + kSamplerLoopEnd)) / rate;
                           file.loopList()->addLoopWithType(std::uint32_t(smpl.intValueAtByte(at + kSamplerLoopType)),
                                                            KXRange::rangeWithStart(start, end));
                       });
}

void readAcid(KXAudioFile& file, const KXChunk& acid, KXChunkList&) {
    file.setFormat(KXFourCC("ACID"));
    file.setPlaybackType(acid.intValueAtByte(kAcidFlags) + 1);
    file.setMeterNumeratorDenominator(acid.shortValueAtByte(kAcidMeterNumerator),
                                      std::uint16_t(acid.shortValueAtByte(kAcidMeterDenominator)));
    // The doubling wraps as the 32-bit field does; it may not overflow.
    file.setEighthBeats(std::int32_t(std::uint32_t(acid.intValueAtByte(kAcidBeats)) * 2u));
    file.setTempo(acid.floatValueAtByte(kAcidTempo));
}

// Slices: every record but the unmarked ones of kind 2 (the first slice counts whatever it is).
void readSlices(KXAudioFile& file, const KXChunk& strc, KXChunkList&) {
    file.setFormat(KXFourCC("ACID"));
    strc.forEachRecord(std::uint32_t(strc.intValueAtByte(kSliceCount)), kSlicesStart, kSliceSize,
                       [&](std::uint32_t at) {
                           const std::uint32_t kind = std::uint32_t(strc.intValueAtByte(at + kSliceKind));
                           const std::uint32_t position = std::uint32_t(strc.intValueAtByte(at + kSlicePosition));
                           const std::uint32_t flag = std::uint32_t(strc.intValueAtByte(at + kSliceFlag));
                           if (kind == 2 && flag == 0 && position != 0) return;
                           file.sliceList()->addSliceWithPosition(position / double(file.rate()));
                       });
}

void readBroadcast(KXAudioFile& file, const KXChunk& bext, KXChunkList&) {
    KXDictionary& metadata = file.mutableMetadata();
    const auto setText = [&](const std::string& text, const char* key) {
        if (!text.empty()) metadata.setObject(text, key);
    };
    for (const BroadcastText& field : kBroadcastTexts) setText(bext.stringAtByte(field.offset, field.size), field.key);
    if (const std::uint64_t reference = std::uint64_t(bext.longLongValueAtByte(kBroadcastTimeReference)))
        metadata.setObject(reference, "timeReference");
    const std::int16_t version = bext.shortValueAtByte(kBroadcastVersion);
    if (version >= 1)
        if (auto umid = bext.dataAtByte(kBroadcastUMID, kBroadcastUMIDSize)) metadata.setObject(*umid, "smpteUMID");
    // Deliberate extension: the loudness values of version 2.
    if (version >= 2)
        for (std::uint32_t i = 0; i < KXMetadata::kLoudnessKeys.size(); ++i)
            metadata.setObject(double(bext.shortValueAtByte(kBroadcastLoudness + 2 * i)) / 100.0,
                               KXMetadata::kLoudnessKeys[i]);
    if (auto history = bext.cStringAtByte(kBroadcastCodingHistory)) setText(*history, "codingHistory");
}

void readIXML(KXAudioFile& file, const KXChunk& chunk, KXChunkList&) {
    file.parseIXMLChunk(chunk);
}

void readInfo(KXAudioFile& file, const KXChunk& info, KXChunkList&) {
    forEachSubChunk(info, [&](std::uint32_t type, std::uint32_t offset) {
        const auto entry =
            std::find_if(std::begin(kInfoKeys), std::end(kInfoKeys), [&](const InfoKey& k) { return k.id == type; });
        if (entry == std::end(kInfoKeys)) return;
        if (auto text = info.cStringAtByte(offset + kSubChunkHeaderSize))
            file.mutableMetadata().setObject(*text, entry->key);
    });
}

struct ChunkRule {
    std::uint32_t type, subtype;
    ChunkReader read;
};
constexpr ChunkRule kChunkReaders[] = {
    {KXFourCC("KXmd"), 0, readArchive},
    {KXFourCC("inst"), 0, readInstrument},
    {KXFourCC("cue "), 0, readCue},
    {KXFourCC("smpl"), 0, readSampler},
    {KXFourCC("acid"), 0, readAcid},
    {KXFourCC("strc"), 0, readSlices},
    {KXFourCC("bext"), 0, readBroadcast},
    {KXFourCC("iXML"), 0, readIXML},
    {KXFourCC("LIST"), KXFourCC("INFO"), readInfo},
};

}  // namespace

bool KXAudioFile::readWAVEFormatAndData(const KXChunk* fmt, const KXChunk* data, const char* action, KXError* error) {
    if (!fmt) {
        return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, action);
    }
    std::uint16_t tag = std::uint16_t(fmt->shortValueAtByte(kFormatTag));
    std::uint32_t channelMask = 0;
    if (tag == kFormatExtensible) {
        // The sub-format says what the samples are.
        const std::optional<KXData> guid = fmt->dataAtByte(kFormatSubFormat, kSubFormatSize);
        const bool known = guid && guid->size() == kSubFormatSize &&
                           std::equal(kSubFormatTail.begin(), kSubFormatTail.end(), guid->begin() + 2);
        tag = known && (*guid)[1] == 0 ? std::uint16_t((*guid)[0]) : 0;
        // Deliberate: µ-law and A-law sub-formats read as their plain tags (ffmpeg writes G.711
        // files of more than two channels so).
        if (tag != kFormatPCM && tag != kFormatFloat && tag != kFormatMuLaw && tag != kFormatALaw) tag = 0;
        channelMask = std::uint32_t(fmt->intValueAtByte(kFormatChannelMask));
    }
    const std::int16_t channels = fmt->shortValueAtByte(kFormatChannels);
    const std::uint32_t rate = std::uint32_t(fmt->intValueAtByte(kFormatRate));
    const std::int16_t depth = fmt->shortValueAtByte(kFormatBitsPerSample);
    // Samples the converter reads exactly, and nothing that would divide by zero.
    bool accepted = channels > 0 && rate > 0;
    encoding_ = KXFourCC("lpcm");
    isFloatingPoint_ = false;
    switch (tag) {
        case kFormatPCM:
            accepted &= depth == 8 || depth == 16 || depth == 24 || depth == 32;
            break;
        case kFormatFloat:
            accepted &= depth == 32 || depth == 64;
            isFloatingPoint_ = true;
            break;
        case kFormatALaw:
        case kFormatMuLaw:
            accepted &= depth == 8;
            encoding_ = tag == kFormatMuLaw ? KXFourCC("ulaw") : KXFourCC("alaw");
            break;
        default:
            accepted = false;
    }
    if (!accepted) {
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, action);
    }
    numberOfChannels_ = std::uint32_t(channels);
    rate_ = rate;
    depth_ = std::uint32_t(depth);
    buildChannelsList();
    if (isInterleaved_ && channelMask != 0) channelsList_->setSpeakerMask(channelMask);

    // Deliberate: each file of a split set holds one channel whatever its 'fmt ' says, so its
    // frames are the data's length over the bytes of one sample.
    const std::uint64_t frameBytes = std::uint64_t(depth_ / 8) * (isInterleaved_ ? numberOfChannels_ : 1);
    const std::uint64_t frames = data ? data->length() / frameBytes : 0;
    if (frames == 0) {
        return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, action);
    }
    // Deliberate: more frames than the model counts is a refusal, not a file cut short.
    if (frames > 0xFFFFFFFFu) {
        KXSetError(error, KXAudioFileError::tooManyFramesError(action));
        return false;
    }
    frames_ = std::uint32_t(frames);
    setEditList(KXEditList::editListWithAudioFile(*this, std::int64_t(data->dataPosition())));
    return true;
}

void KXAudioFile::mergeArchivedMetadata(const KXChunk& chunk) {
    auto archived = KXPropertyList::propertyListFromData(chunk.data());
    // An AIFF writer pads the archive inside its chunk.
    if (!archived && !chunk.data().empty() && chunk.data().back() == 0)
        archived = KXPropertyList::propertyListFromData(KXData(chunk.data().begin(), chunk.data().end() - 1));
    if (!archived || archived->type() != KXValue::Type::dictionary) return;
    metadata_.addEntriesFromDictionary(archived->dictionary());
}

bool KXAudioFile::parseWAVEHeader(KXFile& /*file*/, KXError* error) {
    format_ = KXFourCC("WAVE");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = KXByteOrderLittleValue;
    isInterleaved_ = true;
    const std::shared_ptr<KXChunkList> chunks = KXChunkList::chunkListForAudioFile(*this, error);
    if (!chunks) return false;
    const auto fmt = chunks->consumeChunk(KXFourCC("fmt "));
    const auto data = fmt ? chunks->consumeChunk(KXFourCC("data")) : nullptr;
    if (!readWAVEFormatAndData(fmt.get(), data.get(), kAction, error)) return false;
    // The large sizes of RF64 and BW64 files served the walk; a rewrite says its own.
    (void)chunks->consumeChunk(KXFourCC("ds64"));
    for (const ChunkRule& rule : kChunkReaders)
        if (const auto chunk = chunks->consumeChunk(rule.type, rule.subtype)) rule.read(*this, *chunk, *chunks);
    parseAnalysis(*chunks);
    KXChunkArray unused = chunks->unusedChunks();
    if (!unused.empty()) unusedChunkList_ = std::move(unused);
    return true;
}

// An iXML document: its entries join the metadata under their lower-case names; its "bext"
// element is mapped onto the Broadcast WAVE keys (and so wins over a binary 'bext' read before).
void KXAudioFile::parseIXMLChunk(const KXChunk& chunk) {
    KXXMLParser parser;
    parser.setArrayElements({"SYNC_POINT_LIST"});
    parser.setDictionaryElements({"SPEED", "TRACK_LIST", "TRACK", "HISTORY", "FILE_SET", "SYNC_POINT", "BEXT"});
    parser.setIgnoredElements({"BWFXML"});
    parser.setIgnoredContainers({"STEINBERG"});
    parser.setLowercaseKeys(true);
    // Text that is not UTF-8 is in the format's 8-bit encoding.
    const std::string text = KXString::stringFromFileText(
        std::string_view(reinterpret_cast<const char*>(chunk.data().data()), chunk.data().size()),
        chunk.textEncoding());
    std::optional<KXDictionary> document = parser.objectForData(KXData(text.begin(), text.end()));
    if (!document) return;
    document->removeObjectForKey("ixml_version");
    if (const KXValue* bext = document->find("bext"); bext && bext->type() == KXValue::Type::dictionary) {
        const KXDictionary& fields = bext->dictionary();
        for (const auto& [key, element] : kIXMLBroadcastFields)
            if (const KXValue* value = element ? fields.find(element) : nullptr) metadata_.setObject(*value, key);
        // The low word is taken as a signed 32-bit number; the sum wraps as 64-bit arithmetic
        // does, whatever numbers the text holds.
        const std::int64_t reference =
            std::int64_t(std::uint64_t(fields.objectForKey(kIXMLTimeReferenceHigh).longLongValue()) * 4294967296ull +
                         std::uint64_t(std::int64_t(fields.objectForKey(kIXMLTimeReferenceLow).intValue())));
        if (reference != 0) metadata_.setObject(reference, "timeReference");
        document->removeObjectForKey("bext");
    }
    metadata_.addEntriesFromDictionary(*document);
}

// The WAVE reader: "RIFF" <size> "WAVE", then chunks with 32-bit little-endian sizes and a pad
// byte after odd payloads. Every number below is little-endian.
//
// 'fmt '  0 tag (1 PCM, 3 IEEE float, 7 µ-law; also 6 A-law and 0xFFFE extensible with a PCM or
//         float sub-format), 2 channels, 4 rate, 14 bits per sample (for extensible files the
//         container width); 24 the extensible sub-format GUID
// 'data'  the samples; frames = length ÷ (bytes per sample × channels)
// 'inst'  0 base note, 1 detune, 2 gain, 3 low note, 4 high note, 5 low velocity, 6 high velocity
//         (signed bytes)
// 'cue '  0 count, then 24-byte records from 4: ID, position in frames
// 'LIST'/'adtl'  'labl' (8 cue ID, 12 name) and 'ltxt' (8 cue ID, 12 length in frames)
// 'smpl'  28 loop count, then 24-byte records from 36: +4 type, +8 start, +12 end
// 'acid'  0 flags, 12 beats, 16 meter numerator, 18 meter denominator, 20 tempo (float)
// 'strc'  4 count, then 32-byte records from 28: +0 kind, +8 position, +16 flag
// 'bext'  the Broadcast WAVE description (table below)
// 'LIST'/'INFO'  text sub-chunks (table below)
// 'KXmd'  a property list of metadata that no standard chunk holds

#include <algorithm>
#include <array>
#include <deque>
#include <unordered_map>
#include <unordered_set>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXString.h"
#include "KXBase/KXXMLParser.h"

namespace {

constexpr const char* kAction = "Parsing the WAVE file";

KXError parseError(std::int64_t code, const char* action) { return KXAudioFileError::errorWithCode(code, action); }

// Removes the first chunk of `type` (and `subtype` when given) from the list and answers it.
std::shared_ptr<KXChunk> takeChunk(KXChunkArray& chunks, std::uint32_t type, std::uint32_t subtype = 0) {
    const auto found = std::find_if(chunks.begin(), chunks.end(), [&](const auto& chunk) {
        return chunk->type() == type && (subtype == 0 || chunk->subtype() == subtype);
    });
    if (found == chunks.end()) return nullptr;
    std::shared_ptr<KXChunk> chunk = *found;
    chunks.erase(found);
    return chunk;
}

// The sub-format GUIDs of extensible files that read as plain PCM (1) and IEEE float (3):
// xxxx0000-0000-0010-8000-00AA00389B71, stored little-endian.
constexpr std::array<std::uint8_t, 14> kSubFormatTail = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                                          0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

// INFO sub-chunk IDs and their metadata keys.
struct InfoKey {
    std::uint32_t id;
    const char* key;
};
constexpr InfoKey kInfoKeys[] = {
    {KXFourCC("IANN"), "annotation"},         {KXFourCC("IARL"), "archivalLocation"},
    {KXFourCC("IART"), "originalArtist"},     {KXFourCC("IAUT"), "author"},
    {KXFourCC("ICMS"), "commissionedBy"},     {KXFourCC("ICMT"), "comments"},
    {KXFourCC("ICOP"), "copyright"},          {KXFourCC("ICRD"), "creationDate"},
    {KXFourCC("ICRP"), "cropped"},            {KXFourCC("IDIM"), "originalDimensions"},
    {KXFourCC("IENG"), "engineers"},          {KXFourCC("IGNR"), "genre"},
    {KXFourCC("IKEY"), "keywords"},           {KXFourCC("IMED"), "originalMedium"},
    {KXFourCC("INAM"), "metaName"},           {KXFourCC("IPRD"), "product"},
    {KXFourCC("ISBJ"), "subject"},            {KXFourCC("ISFT"), "softwarePackage"},
    {KXFourCC("ISRC"), "sourceSupplier"},     {KXFourCC("ISRF"), "digitizationSource"},
    {KXFourCC("ITCH"), "digitizer"},
};

// Calls `body(type, offset, size)` for each sub-chunk of a 'LIST' payload; the next one starts
// after the header and the payload, plus a pad byte when that lands on an odd offset.
template <typename Body>
void forEachSubChunk(const KXChunk& list, Body body) {
    const std::uint64_t length = list.data().size();
    for (std::uint64_t offset = 0; offset + 8 <= length;) {
        const std::uint32_t type = list.typeValueAtByte(std::uint32_t(offset));
        const std::uint32_t size = std::uint32_t(list.intValueAtByte(std::uint32_t(offset + 4)));
        body(type, std::uint32_t(offset), size);
        offset += 8 + std::uint64_t(size);
        offset += offset & 1;
    }
}

}  // namespace

bool KXAudioFile::readWAVEFormatChunk(const KXChunk& fmt, const char* action, KXError* error) {
    std::uint16_t tag = std::uint16_t(fmt.shortValueAtByte(0));
    if (tag == 0xFFFE) {
        // Extensible: the sub-format says what the samples are.
        const std::optional<KXData> guid = fmt.dataAtByte(24, 16);
        const bool known = guid && guid->size() == 16 && std::equal(kSubFormatTail.begin(), kSubFormatTail.end(), guid->begin() + 2);
        tag = known && (*guid)[1] == 0 ? std::uint16_t((*guid)[0]) : 0;
        if (tag != 1 && tag != 3) tag = 0;
    }
    const std::int16_t channels = fmt.shortValueAtByte(2);
    const std::uint32_t rate = std::uint32_t(fmt.intValueAtByte(4));
    const std::int16_t depth = fmt.shortValueAtByte(14);
    // Samples the converter reads exactly, and nothing that would divide by zero.
    bool accepted = channels > 0 && rate > 0;
    encoding_ = KXFourCC("lpcm");
    isFloatingPoint_ = false;
    switch (tag) {
        case 1: accepted &= depth == 8 || depth == 16 || depth == 24 || depth == 32; break;
        case 3:
            accepted &= depth == 32 || depth == 64;
            isFloatingPoint_ = true;
            break;
        case 6:
        case 7:
            accepted &= depth == 8;
            encoding_ = tag == 7 ? KXFourCC("ulaw") : KXFourCC("alaw");
            break;
        default: accepted = false;
    }
    if (!accepted) {
        KXSetError(error, parseError(KXAudioFileErrorUnsupportedFormat, action));
        return false;
    }
    numberOfChannels_ = std::uint32_t(channels);
    rate_ = rate;
    depth_ = std::uint32_t(depth);
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

bool KXAudioFile::parseWAVEHeader(KXFile& file, KXError* error) {
    format_ = KXFourCC("WAVE");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = 1;
    isInterleaved_ = true;
    std::optional<KXChunkArray> walked = chunksForFile(file, error);
    if (!walked) return false;
    KXChunkArray& chunks = *walked;

    const auto fmt = takeChunk(chunks, KXFourCC("fmt "));
    if (!fmt) {
        KXSetError(error, parseError(KXAudioFileErrorMissingRequiredData, kAction));
        return false;
    }
    if (!readWAVEFormatChunk(*fmt, kAction, error)) return false;
    buildChannelsList();

    const auto data = takeChunk(chunks, KXFourCC("data"));
    const std::uint64_t frameBytes = std::uint64_t(depth_ / 8) * numberOfChannels_;
    const std::uint64_t frames = data ? data->length() / frameBytes : 0;
    if (frames == 0) {
        KXSetError(error, parseError(KXAudioFileErrorMissingRequiredData, kAction));
        return false;
    }
    frames_ = std::uint32_t(std::min<std::uint64_t>(frames, 0xFFFFFFFFu));
    setEditList(KXEditList::editListWithAudioFile(*this, std::int64_t(data->dataPosition())));

    if (const auto archived = takeChunk(chunks, KXFourCC("KXmd"))) mergeArchivedMetadata(*archived);
    if (const auto inst = takeChunk(chunks, KXFourCC("inst"))) {
        setMIDIBaseNote(inst->charValueAtByte(0));
        setDetune(inst->charValueAtByte(1));
        setGain(inst->charValueAtByte(2));
        setMIDILowNote(inst->charValueAtByte(3));
        setMIDIHighNote(inst->charValueAtByte(4));
        setMIDILowVelocity(inst->charValueAtByte(5));
        setMIDIHighVelocity(inst->charValueAtByte(6));
    }
    readWAVECuePoints(chunks);
    if (const auto smpl = takeChunk(chunks, KXFourCC("smpl"))) {
        const std::uint32_t loops = std::uint32_t(smpl->intValueAtByte(28));
        const std::uint64_t length = smpl->data().size();
        for (std::uint64_t i = 0, at = 36; i < loops && at + 24 <= length; ++i, at += 24) {
            const auto offset = std::uint32_t(at);
            const double start = std::uint32_t(smpl->intValueAtByte(offset + 8)) / double(rate_);
            const double end = std::uint32_t(smpl->intValueAtByte(offset + 12)) / double(rate_);
            loopList_->addLoopWithType(std::uint32_t(smpl->intValueAtByte(offset + 4)), KXRange::rangeWithStart(start, end));
        }
    }
    if (const auto acid = takeChunk(chunks, KXFourCC("acid"))) {
        format_ = KXFourCC("ACID");
        setPlaybackType(acid->intValueAtByte(0) + 1);
        // The numerator at 16 and the denominator at 18, as the chunk is read here.
        setMeterNumeratorDenominator(acid->shortValueAtByte(16), std::uint16_t(acid->shortValueAtByte(18)));
        // The doubling wraps as the 32-bit field does; it may not overflow.
        setEighthBeats(std::int32_t(std::uint32_t(acid->intValueAtByte(12)) * 2u));
        setTempo(acid->floatValueAtByte(20));
    }
    if (const auto strc = takeChunk(chunks, KXFourCC("strc"))) {
        format_ = KXFourCC("ACID");
        const std::uint32_t count = std::uint32_t(strc->intValueAtByte(4));
        const std::uint64_t length = strc->data().size();
        for (std::uint64_t i = 0, at = 28; i < count && at + 32 <= length; ++i, at += 32) {
            const auto offset = std::uint32_t(at);
            const std::uint32_t kind = std::uint32_t(strc->intValueAtByte(offset));
            const std::uint32_t position = std::uint32_t(strc->intValueAtByte(offset + 8));
            const std::uint32_t flag = std::uint32_t(strc->intValueAtByte(offset + 16));
            if (kind == 2 && flag == 0 && position != 0) continue;
            sliceList_->addSliceWithPosition(position / double(rate_));
        }
    }

    if (const auto analysis = takeChunk(chunks, KXFourCC("KXAn"))) parseKXAnChunk(*analysis);
    else if (const auto anal = takeChunk(chunks, KXFourCC("anal"))) parseAnalChunk(*anal);
    else if (KXWaveformCache::isEnabled()) parseKXAnFromList(nullptr);

    if (const auto bext = takeChunk(chunks, KXFourCC("bext"))) readBroadcastWaveChunk(*bext);
    if (const auto ixml = takeChunk(chunks, KXFourCC("iXML"))) parseIXMLChunk(*ixml);
    if (const auto info = takeChunk(chunks, KXFourCC("LIST"), KXFourCC("INFO"))) {
        forEachSubChunk(*info, [&](std::uint32_t type, std::uint32_t offset, std::uint32_t) {
            for (const InfoKey& entry : kInfoKeys) {
                if (entry.id != type) continue;
                if (auto text = info->cStringAtByte(offset + 8)) metadata_.setObject(*text, entry.key);
                break;
            }
        });
    }

    chunks.erase(std::remove_if(chunks.begin(), chunks.end(),
                                [](const auto& chunk) { return chunk->type() == KXFourCC("JUNK"); }),
                 chunks.end());
    if (!chunks.empty()) unusedChunkList_ = std::move(chunks);
    return true;
}

void KXAudioFile::readWAVECuePoints(KXChunkArray& chunks) {
    const auto cue = takeChunk(chunks, KXFourCC("cue "));
    if (!cue) return;
    const std::uint64_t length = cue->data().size();
    const std::uint32_t count = std::uint32_t(cue->intValueAtByte(0));
    for (std::uint64_t i = 0, at = 4; i < count && at + 24 <= length; ++i, at += 24) {
        const std::uint32_t cueID = std::uint32_t(cue->intValueAtByte(std::uint32_t(at)));
        const std::uint32_t position = std::uint32_t(cue->intValueAtByte(std::uint32_t(at + 4)));
        markerList_->addMarkerWithID(cueID, position / double(rate_));
    }
    const auto adtl = takeChunk(chunks, KXFourCC("LIST"), KXFourCC("adtl"));
    if (!adtl) return;
    // Names first, then the labelled texts that turn their markers into regions. Each sub-chunk
    // goes to the first marker still listed with its cue ID; the markers that 'ltxt' takes leave
    // the list together at the end (one search or removal per sub-chunk would be quadratic).
    std::unordered_map<std::uint32_t, std::deque<std::shared_ptr<KXLabel>>> markersByID;
    for (const auto& marker : markerList_->list()) markersByID[marker->labelID()].push_back(marker);
    const auto firstMarker = [&](std::uint32_t cueID) -> std::shared_ptr<KXLabel> {
        const auto found = markersByID.find(cueID);
        return found == markersByID.end() || found->second.empty() ? nullptr : found->second.front();
    };
    forEachSubChunk(*adtl, [&](std::uint32_t type, std::uint32_t offset, std::uint32_t) {
        if (type != KXFourCC("labl")) return;
        if (const auto marker = firstMarker(std::uint32_t(adtl->intValueAtByte(offset + 8))))
            marker->setName(adtl->cStringAtByte(offset + 12));
    });
    std::unordered_set<const KXLabel*> taken;
    forEachSubChunk(*adtl, [&](std::uint32_t type, std::uint32_t offset, std::uint32_t) {
        if (type != KXFourCC("ltxt")) return;
        const std::uint32_t cueID = std::uint32_t(adtl->intValueAtByte(offset + 8));
        const std::uint32_t frames = std::uint32_t(adtl->intValueAtByte(offset + 12));
        const auto marker = firstMarker(cueID);
        if (!marker || frames == 0) return;
        const double start = marker->position();
        regionList_->addRegionWithRange(KXRange::rangeWithStart(start, start + frames / double(rate_)), marker->name());
        markersByID[cueID].pop_front();
        taken.insert(marker.get());
    });
    if (!taken.empty()) markerList_->removeLabels(taken);
}

void KXAudioFile::readBroadcastWaveChunk(const KXChunk& bext) {
    const auto setText = [&](const std::string& text, const char* key) {
        if (!text.empty()) metadata_.setObject(text, key);
    };
    setText(bext.stringAtByte(0, 256), "description");
    setText(bext.stringAtByte(256, 32), "originator");
    setText(bext.stringAtByte(288, 32), "originatorReference");
    setText(bext.stringAtByte(320, 10), "originationDate");
    setText(bext.stringAtByte(330, 8), "originationTime");
    if (const std::uint64_t reference = std::uint64_t(bext.longLongValueAtByte(338)))
        metadata_.setObject(reference, "timeReference");
    if (bext.shortValueAtByte(346) == 1)
        if (auto umid = bext.dataAtByte(348, 64)) metadata_.setObject(*umid, "smpteUMID");
    if (auto history = bext.cStringAtByte(602)) setText(*history, "codingHistory");
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
        std::string_view(reinterpret_cast<const char*>(chunk.data().data()), chunk.data().size()), chunk.textEncoding());
    std::optional<KXDictionary> document = parser.objectForData(KXData(text.begin(), text.end()));
    if (!document) return;
    document->removeObjectForKey("ixml_version");
    if (const KXValue* bext = document->find("bext"); bext && bext->type() == KXValue::Type::dictionary) {
        const KXDictionary& fields = bext->dictionary();
        static constexpr std::pair<const char*, const char*> kBextKeys[] = {
            {"bwf_description", "description"},
            {"bwf_originator", "originator"},
            {"bwf_originator_reference", "originatorReference"},
            {"bwf_origination_date", "originationDate"},
            {"bwf_origination_time", "originationTime"},
            {"bwf_umid", "smpteUMID"},
            {"bwf_coding_history", "codingHistory"},
        };
        for (const auto& [field, key] : kBextKeys)
            if (const KXValue* value = fields.find(field)) metadata_.setObject(*value, key);
        // The low word is taken as a signed 32-bit number; the sum wraps as 64-bit arithmetic
        // does, whatever numbers the text holds.
        const std::int64_t reference = std::int64_t(
            std::uint64_t(fields.objectForKey("bwf_time_reference_high").longLongValue()) * 4294967296ull +
            std::uint64_t(std::int64_t(fields.objectForKey("bwf_time_reference_low").intValue())));
        if (reference != 0) metadata_.setObject(reference, "timeReference");
        document->removeObjectForKey("bext");
    }
    metadata_.addEntriesFromDictionary(*document);
}

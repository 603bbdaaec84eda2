// The WAVE header writer: a plain RIFF file with 32-bit sizes (no RF64, no 'fact', no
// extensible 'fmt '), all numbers little-endian.
//
//   before the samples  "RIFF" <size> "WAVE", 'bext', 'fmt ', 'smpl', 'inst', 'cue ' with its
//                       'LIST'/'adtl', 'LIST'/'INFO', 'iXML', the kept chunks, the 'data' header
//   after them          the 'data' size, 'acid' and 'strc' for loop-library files, a 'KXmd'
//                       archive of the metadata no chunk took, the RIFF size
//
// Writing a group of metadata keys as a chunk removes them from the writer's metadata, so that
// the closing archive holds only the rest; for split files the first file's header takes them.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <vector>

#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXMarker.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXAudioFile/KXLabels/KXSlice.h"
#include "KXBase/KXMetadata.h"
#include "KXBase/KXPropertyList.h"

namespace {

// INFO entries in the order they are written.
constexpr std::pair<std::uint32_t, const char*> kInfoEntries[] = {
    {KXFourCC("INAM"), "metaName"},           {KXFourCC("IGNR"), "genre"},
    {KXFourCC("IKEY"), "keywords"},           {KXFourCC("IAUT"), "author"},
    {KXFourCC("IART"), "originalArtist"},     {KXFourCC("IMED"), "originalMedium"},
    {KXFourCC("IDIM"), "originalDimensions"}, {KXFourCC("ISRF"), "digitizationSource"},
    {KXFourCC("ICMS"), "commissionedBy"},     {KXFourCC("ISRC"), "sourceSupplier"},
    {KXFourCC("IENG"), "engineers"},          {KXFourCC("ITCH"), "digitizer"},
    {KXFourCC("ICRP"), "cropped"},            {KXFourCC("IARL"), "archivalLocation"},
    {KXFourCC("IPRD"), "product"},            {KXFourCC("ICOP"), "copyright"},
    {KXFourCC("ISFT"), "softwarePackage"},    {KXFourCC("ICRD"), "creationDate"},
    {KXFourCC("ICMT"), "comments"},           {KXFourCC("IANN"), "annotation"},
    {KXFourCC("ISBJ"), "subject"},
};

KXChunk waveChunk(std::uint32_t type) {
    KXChunk chunk;
    chunk.setFormat(KXFourCC("WAVE"));
    chunk.setByteOrder(KXByteOrderLittleValue);
    chunk.setType(type);
    return chunk;
}

// Frames for a label position in seconds.
std::uint32_t framesAt(double seconds, std::int32_t rate) {
    return KXChunk::uInt32FromDouble(std::round(double(rate) * seconds));
}

std::string upper(std::string text) {
    for (char& c : text) c = char(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

bool KXAudioFileWriter::writeWAVEPreDataHeader(KXWritingFile& file, KXError* error) {
    // 1. The container, its size patched at the end.
    KXChunk riff;
    riff.setFormat(KXFourCC("WAVE"));
    riff.appendType(KXFourCC("RIFF"));
    riff.appendInt(0);
    riff.appendType(KXFourCC("WAVE"));
    if (!riff.appendToFile(file, error)) return false;
    file.setFileChunkSizePosition(4);

    // 2. Broadcast WAVE.
    if (hasBroadcastWaveMetadata()) {
        KXChunk bext = waveChunk(KXFourCC("bext"));
        const auto text = [&](const char* key) -> std::optional<std::string> {
            const KXValue* value = metadata_.find(key);
            return value ? std::optional<std::string>(value->stringValue()) : std::nullopt;
        };
        bext.appendAsCStringSize(text("description"), 256);
        bext.appendAsCStringSize(text("originator"), 32);
        bext.appendAsCStringSize(text("originatorReference"), 32);
        bext.appendString(text("originationDate").value_or(""), 10);
        bext.appendString(text("originationTime").value_or(""), 8);
        bext.appendLongLong(metadata_.objectForKey("timeReference").unsignedLongLongValue());
        if (const KXValue* umid = metadata_.find("smpteUMID")) {
            bext.appendShort(1);
            // The UMID field is 64 bytes whatever the value holds, so that the fields after it stay in place.
            KXData bytes = umid->type() == KXValue::Type::data ? umid->data() : KXData(umid->stringValue().begin(), umid->stringValue().end());
            bytes.resize(64, 0);
            bext.appendData(bytes);
            bext.appendPadOfLength(190);
        } else {
            bext.appendPadOfLength(256);
        }
        if (const auto history = text("codingHistory")) bext.appendAsCString(std::optional<std::string>(*history), true);
        if (!bext.appendToFile(file, error)) return false;
        // iXML repeats these keys in its BEXT section and removes them there.
        if (!hasIXMLMetadata()) removeBroadcastWaveMetadata();
    }

    // 3. The sample format: the writer's channel count, also for the one-channel files of a
    // split writer.
    const bool g711 = encoding_ == KXFourCC("ulaw") || encoding_ == KXFourCC("alaw");
    const std::uint32_t bits = g711 ? 8 : std::uint32_t(depth_);
    const std::uint32_t bytesPerSample = bits / 8;
    KXChunk fmt = waveChunk(KXFourCC("fmt "));
    const std::uint16_t tag = encoding_ == KXFourCC("ulaw") ? 7 : encoding_ == KXFourCC("alaw") ? 6 : isFloatingPoint_ ? 3 : 1;
    fmt.appendShort(tag);
    fmt.appendShort(std::uint16_t(channels_));
    fmt.appendInt(std::uint32_t(rate_));
    fmt.appendInt(bytesPerSample * std::uint32_t(channels_) * std::uint32_t(rate_));
    fmt.appendShort(std::uint16_t(bytesPerSample * std::uint32_t(channels_)));
    fmt.appendShort(std::uint16_t(bits));
    if (!fmt.appendToFile(file, error)) return false;

    // 4–5. Loops, with the unity note.
    std::int32_t unityNote = baseNote();
    if (unityNote == 0 && key() != -1) unityNote = key() + 60;
    std::uint32_t cueID = 1;
    if (const std::size_t valid = loopList_->countValid()) {
        KXChunk smpl = waveChunk(KXFourCC("smpl"));
        smpl.appendInt(0);
        smpl.appendInt(0);
        smpl.appendInt(rate_ > 0 ? 1000000000u / std::uint32_t(rate_) : 0);
        smpl.appendInt(std::uint32_t(unityNote));
        // Cents to the fraction of a semitone: 50 cents is 0x80000000.
        smpl.appendInt(std::uint32_t(std::int64_t(detune()) * 2147483648ll / 50));
        smpl.appendInt(0);
        smpl.appendInt(0);
        smpl.appendInt(std::uint32_t(valid));
        smpl.appendInt(0);
        for (std::size_t i = 0; i < loopList_->count(); ++i) {
            const auto loop = std::dynamic_pointer_cast<KXLoop>(loopList_->labelAtIndex(i));
            if (!loop || loop->loopType() == KXLoop::kNone) continue;
            smpl.appendInt(cueID++);
            smpl.appendInt(loop->loopType());
            smpl.appendInt(framesAt(loop->start(), rate_));
            smpl.appendInt(framesAt(loop->end(), rate_));
            smpl.appendInt(0);
            smpl.appendInt(0);
        }
        if (!smpl.appendToFile(file, error)) return false;
    }

    // 6. MIDI.
    if (hasMIDIMetadata() || unityNote != 0) {
        KXChunk inst = waveChunk(KXFourCC("inst"));
        for (std::int32_t value : {unityNote, detune(), gain(), lowNote(), highNote(), lowVelocity(), highVelocity()})
            inst.appendByte(std::uint8_t(std::int8_t(value)));
        inst.appendByte(0);
        if (!inst.appendToFile(file, error)) return false;
        removeMIDIMetadata();
    }

    // 7. Markers, then regions, as cue points; their names and the regions' lengths in 'adtl'.
    if (markerList_->count() + regionList_->count() > 0) {
        KXChunk cue = waveChunk(KXFourCC("cue "));
        KXChunk adtl = waveChunk(KXFourCC("LIST"));
        adtl.setSubtype(KXFourCC("adtl"));
        cue.appendInt(std::uint32_t(markerList_->count() + regionList_->count()));
        const auto addLabel = [&](const KXLabel& label, std::optional<double> regionLength) {
            const std::uint32_t id = cueID++;
            const std::uint32_t position = framesAt(label.position(), rate_);
            cue.appendInt(id);
            cue.appendInt(position);
            cue.appendType(KXFourCC("data"));
            cue.appendInt(0);
            cue.appendInt(0);
            cue.appendInt(position);
            if (const auto& name = label.name(); name && !name->empty()) {
                const std::size_t length = adtl.fileText(*name).size();
                adtl.appendType(KXFourCC("labl"));
                // The size counts the pad byte of an even name, as written here.
                adtl.appendInt(std::uint32_t(length + (length % 2 ? 5 : 6)));
                adtl.appendInt(id);
                adtl.appendAsCString(std::optional<std::string>(*name), true);
            }
            if (regionLength) {
                adtl.appendType(KXFourCC("ltxt"));
                adtl.appendInt(20);
                adtl.appendInt(id);
                adtl.appendInt(framesAt(*regionLength, rate_));
                adtl.appendType(KXFourCC("rgn "));
                for (int i = 0; i < 4; ++i) adtl.appendShort(0);
            }
        };
        for (std::size_t i = 0; i < markerList_->count(); ++i) addLabel(*markerList_->labelAtIndex(i), std::nullopt);
        for (std::size_t i = 0; i < regionList_->count(); ++i) {
            const auto region = std::dynamic_pointer_cast<KXRegion>(regionList_->labelAtIndex(i));
            if (region) addLabel(*region, region->length());
        }
        if (!cue.appendToFile(file, error)) return false;
        if (!adtl.data().empty() && !adtl.appendToFile(file, error)) return false;
    }

    // 8. RIFF INFO text.
    KXChunk info = waveChunk(KXFourCC("LIST"));
    info.setSubtype(KXFourCC("INFO"));
    for (const auto& [id, key] : kInfoEntries) appendWAVMetadataType(id, key, info);
    if (!info.data().empty() && !info.appendToFile(file, error)) return false;

    // 9. iXML.
    if (hasIXMLMetadata()) {
        KXChunk ixml = waveChunk(KXFourCC("iXML"));
        appendIXMLToChunk(ixml);
        if (!ixml.appendToFile(file, error)) return false;
        removeIXMLMetadata();
    }

    // 10. The chunks of the source file that nothing here consumed.
    if (writeUnusedChunks_) {
        for (const auto& chunk : unusedChunkList_) {
            if (chunk->format() != KXFourCC("WAVE")) continue;
            if (!chunk->appendToFile(file, error)) return false;
            // An odd chunk is followed by its pad byte, which the walk did not keep.
            const std::uint8_t pad = 0;
            if (chunk->data().size() % 2 == 1 && !file.writeBytes(&pad, 1, error)) return false;
        }
    }

    // 11. The 'data' header; its size is patched at the end.
    KXChunk data = waveChunk(KXFourCC("data"));
    if (!data.appendToFile(file, error)) return false;
    file.setAudioDataPosition(std::int64_t(file.length()));
    file.setDataChunkSizePosition(std::int64_t(file.length()) - 4);
    return true;
}

void KXAudioFileWriter::appendWAVMetadataType(std::uint32_t id, const std::string& key, KXChunk& chunk) {
    const KXValue* value = metadata_.find(key);
    if (!value) return;
    const std::size_t length = chunk.fileText(value->stringValue()).size();
    chunk.appendType(id);
    // The terminator and the pad byte are both counted, as written here.
    chunk.appendInt(std::uint32_t(length + (length % 2 ? 1 : 2)));
    chunk.appendAsCString(std::optional<std::string>(value->stringValue()), true);
    metadata_.removeObjectForKey(key);
}

void KXAudioFileWriter::appendIXMLToChunk(KXChunk& chunk) {
    chunk.appendString("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r<BWFXML>\r<IXML_VERSION>1.5</IXML_VERSION>\r");
    for (const char* key : KXMetadata::kIXMLKeys) appendIXMLKey(key, chunk);
    if (hasBroadcastWaveMetadata()) {
        chunk.appendString("<BEXT>\r");
        appendIXMLValue(std::string("1.0"), "bwf_version", chunk);
        static constexpr std::pair<const char*, const char*> kFields[] = {
            {"description", "bwf_description"},
            {"originator", "bwf_originator"},
            {"originatorReference", "bwf_originator_reference"},
            {"originationDate", "bwf_origination_date"},
            {"originationTime", "bwf_origination_time"},
        };
        for (const auto& [key, element] : kFields)
            if (const KXValue* value = metadata_.find(key)) appendIXMLValue(*value, element, chunk);
        if (const KXValue* reference = metadata_.find("timeReference")) {
            const std::uint64_t frames = reference->unsignedLongLongValue();
            char text[16];
            std::snprintf(text, sizeof text, "%d", std::int32_t(std::uint32_t(frames)));
            appendIXMLValue(std::string(text), "bwf_time_reference_low", chunk);
            std::snprintf(text, sizeof text, "%d", std::int32_t(std::uint32_t(frames >> 32)));
            appendIXMLValue(std::string(text), "bwf_time_reference_high", chunk);
        }
        if (const KXValue* umid = metadata_.find("smpteUMID")) appendIXMLValue(*umid, "bwf_umid", chunk);
        if (const KXValue* history = metadata_.find("codingHistory")) appendIXMLValue(*history, "bwf_coding_history", chunk);
        chunk.appendString("</BEXT>\r");
        removeBroadcastWaveMetadata();
    }
    chunk.appendString("</BWFXML>");
    chunk.appendPadByte();
}

void KXAudioFileWriter::appendIXMLKey(const std::string& key, KXChunk& chunk) {
    if (const KXValue* value = metadata_.find(key)) appendIXMLValue(*value, key, chunk);
}

void KXAudioFileWriter::appendIXMLValue(const KXValue& value, const std::string& key, KXChunk& chunk) {
    const std::string element = upper(key);
    chunk.appendString("<" + element + ">");
    if (value.isString()) {
        chunk.appendBytes(value.string().data(), value.string().size());
    } else if (value.type() == KXValue::Type::dictionary) {
        const KXDictionary& entries = value.dictionary();
        for (std::size_t i = 0; i < entries.count(); ++i) appendIXMLValue(entries.valueAtIndex(i), entries.keys()[i], chunk);
    } else if (value.type() == KXValue::Type::array && key.size() > 5 && key.ends_with("_list")) {
        // "track_list": a TRACK_COUNT element, then one TRACK element per item.
        const std::string item = key.substr(0, key.size() - 5);
        appendIXMLValue(std::to_string(value.array().size()), item + "_COUNT", chunk);
        for (const KXValue& entry : value.array()) appendIXMLValue(entry, item, chunk);
    }
    chunk.appendString("</" + element + ">\r");
}

bool KXAudioFileWriter::writeWAVEPostDataHeader(KXWritingFile& file, KXError* error) {
    // 1. The 'data' size, without the pad byte.
    const std::uint64_t dataBytes =
        bytesPerStoredSample() * samplesWritten_ / (isInterleaved_ ? 1 : std::uint64_t(channels_));
    if (!file.writeIntValueToPosition(std::uint32_t(dataBytes), std::uint64_t(file.dataChunkSizePosition()),
                                      KXByteOrder::little, error))
        return false;

    // 2. The loop library's beats and slices.
    if (format_ == KXFourCC("ACID")) {
        KXChunk acid = waveChunk(KXFourCC("acid"));
        const std::int32_t playback = playbackType();
        acid.appendInt(std::uint32_t(playback > 0 ? playback - 1 : 0));
        std::int32_t root = baseNote();
        if (root == 0) root = key() != -1 ? key() + 60 : 0;
        acid.appendShort(std::uint16_t(root));
        acid.appendShort(0x8000);
        acid.appendInt(0);
        acid.appendInt(std::uint32_t(eighthBeats() > 0 ? eighthBeats() / 2 : 4));
        acid.appendShort(std::uint16_t(meterNumerator() > 0 ? meterNumerator() : 4));
        acid.appendShort(std::uint16_t(meterDenominator() > 0 ? meterDenominator() : 4));
        acid.appendFloat(tempo() > 0 ? tempo() : 120.0f);
        if (!acid.appendToFile(file, error)) return false;
        if (sliceList_->count() > 0) {
            KXChunk strc = waveChunk(KXFourCC("strc"));
            for (std::uint32_t value : {28u, std::uint32_t(sliceList_->count()), 65u, 5u, 1u, 0u, 0u}) strc.appendInt(value);
            std::vector<double> positions;
            for (std::size_t i = 0; i < sliceList_->count(); ++i) positions.push_back(sliceList_->labelAtIndex(i)->position());
            std::sort(positions.begin(), positions.end());
            for (std::size_t i = 0; i < positions.size(); ++i) {
                const std::uint32_t frames = framesAt(positions[i], rate_);
                for (std::uint32_t value : {i == 0 ? 2u : 0u, 0u, frames, 0u, frames, 0u, 0u, 0u}) strc.appendInt(value);
            }
            if (!strc.appendToFile(file, error)) return false;
        }
        removeMusicalMetadata();
    }

    // 3. What no chunk took, as an archived dictionary.
    if (!metadata_.empty()) {
        KXChunk archived = waveChunk(KXFourCC("KXmd"));
        archived.mutableData() = KXPropertyList::binaryData(metadata_);
        if (!archived.appendToFile(file, error)) return false;
    }

    // 4. The container size; a RIFF file stops at 2 GiB.
    if (!file.moveToEnd(error)) return false;
    if (file.position() > 0x7FFFFFFF) return false;
    if (!file.writeIntValueToPosition(std::uint32_t(file.position() - 8), std::uint64_t(file.fileChunkSizePosition()),
                                      KXByteOrder::little, error))
        return false;
    return file.writeCreatorAndFileType(KXFourCC("WAVE"));
}

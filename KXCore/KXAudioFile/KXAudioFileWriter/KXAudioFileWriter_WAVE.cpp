// The WAVE header writer: a RIFF file with 32-bit sizes that becomes RF64 (or BW64) past
// 4 GiB − 1 or when asked (no 'fact'), all numbers little-endian; the layout is KXWAVELayout's.
//
//   before the samples  "RIFF" <size> "WAVE", 'JUNK' (the place of 'ds64'), 'bext', 'fmt ', 'smpl', 'inst', 'cue ' with its
//                       'LIST'/'adtl', 'LIST'/'INFO', 'iXML', the kept chunks, the 'data' header
//   after them          'acid' and 'strc' for loop-library files, a 'KXmd' archive of the
//                       metadata no chunk took, then the sizes: the 'data' and RIFF sizes, or for
//                       RF64 the form, sizes of 0xFFFFFFFF and 'ds64' over the 'JUNK' chunk
//
// Writing a group of metadata keys as a chunk removes them from the writer's metadata, so that
// the closing archive holds only the rest; for split files the first file's header takes them.

#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXWAVELayout.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXChannels/KXChannelLayouts.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXMarker.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXAudioFile/KXLabels/KXSlice.h"
#include "KXBase/KXMetadata.h"
#include "KXBase/KXPropertyList.h"

namespace {

using namespace KXWAVELayout;

KXChunk waveChunk(std::uint32_t type, std::uint32_t subtype = 0) {
    KXChunk chunk;
    chunk.setFormat(KXFourCC("WAVE"));
    chunk.setType(type);
    chunk.setSubtype(subtype);
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

// What the chunks of one file's header share: the cue IDs count on from the loops to the labels.
struct Header {
    KXAudioFileWriter& writer;
    std::size_t fileIndex;  // which file of a split set
    std::int32_t unityNote;
    std::uint32_t nextCueID = 1;
};

// Each chunk builder appends the chunks it makes (none when it has nothing to write).
using ChunkBuilder = void (*)(Header&, std::vector<KXChunk>&);

void appendBroadcast(Header& header, std::vector<KXChunk>& chunks) {
    KXAudioFileWriter& writer = header.writer;
    if (!writer.hasBroadcastWaveMetadata()) return;
    const KXDictionary& metadata = writer.metadata();
    KXChunk bext = waveChunk(KXFourCC("bext"));
    for (const BroadcastText& field : kBroadcastTexts) {
        const KXValue* value = metadata.find(field.key);
        const std::optional<std::string> text = value ? std::optional(value->stringValue()) : std::nullopt;
        if (field.terminated)
            bext.appendAsCStringSize(text, field.size);
        else
            bext.appendString(text.value_or(""), field.size);
    }
    bext.appendLongLong(metadata.objectForKey("timeReference").unsignedLongLongValue());
    // Deliberate extension: loudness values make it version 2.
    const bool loudness = KXMetadata::containsAnyKey(metadata, KXMetadata::kLoudnessKeys);
    const KXValue* umid = metadata.find("smpteUMID");
    if (umid || loudness) {
        bext.appendShort(loudness ? 2 : 1);
        // The UMID field is 64 bytes whatever the value holds, so that the fields after it stay in place.
        KXData bytes = !umid                                 ? KXData()
                       : umid->type() == KXValue::Type::data ? umid->data()
                                                             : KXData(umid->stringValue().begin(), umid->stringValue().end());
        bytes.resize(kBroadcastUMIDSize, 0);
        bext.appendData(bytes);
        if (!loudness) {
            bext.appendPadOfLength(kBroadcastReservedSize);
        } else {
            for (const char* key : KXMetadata::kLoudnessKeys) {
                const double hundredths = std::round(metadata.objectForKey(key).doubleValue() * 100.0);
                const double stored = std::isfinite(hundredths) ? std::clamp(hundredths, -32768.0, 32767.0) : 0.0;
                bext.appendShort(std::uint16_t(std::int16_t(stored)));
            }
            bext.appendPadOfLength(kBroadcastLoudnessReservedSize);
        }
    } else {
        bext.appendPadOfLength(2 + kBroadcastUMIDSize + kBroadcastReservedSize);
    }
    if (const KXValue* history = metadata.find("codingHistory")) bext.appendAsCString(*history, true);
    chunks.push_back(std::move(bext));
    // iXML repeats these keys in its BEXT section and removes them there.
    if (!writer.hasIXMLMetadata()) writer.removeBroadcastWaveMetadata();
}

// The sample format. Deliberate: a split writer's files each say 1 channel (every reader takes
// the channel count from here). More than two channels, or integers of more than 16 bits, take
// the extensible format with the speakers of the channels (floats of one or two channels keep
// the plain float tag, which says all there is).
void appendFormat(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    const std::uint32_t encoding = writer.encoding();
    const std::uint32_t bits = writer.sampleBits();
    const std::uint32_t channels = writer.isInterleaved() ? std::uint32_t(writer.channels()) : 1;
    const std::uint32_t blockAlign = bits / 8 * channels;
    const std::uint16_t tag = encoding == KXFourCC("ulaw")   ? kFormatMuLaw
                              : encoding == KXFourCC("alaw") ? kFormatALaw
                              : writer.isFloatingPoint()     ? kFormatFloat
                                                             : kFormatPCM;
    const bool extensible = !writer.isG711() && (channels > 2 || (bits > 16 && tag == kFormatPCM));
    KXChunk fmt = waveChunk(KXFourCC("fmt "));
    fmt.appendShort(extensible ? kFormatExtensible : tag);
    fmt.appendShort(std::uint16_t(channels));
    fmt.appendInt(std::uint32_t(writer.rate()));
    fmt.appendInt(blockAlign * std::uint32_t(writer.rate()));
    fmt.appendShort(std::uint16_t(blockAlign));
    fmt.appendShort(std::uint16_t(bits));
    if (extensible) {
        fmt.appendShort(kFormatExtensionSize);
        fmt.appendShort(std::uint16_t(bits));  // valid bits
        fmt.appendInt(writer.channelMaskForFile(header.fileIndex));
        fmt.appendShort(tag);
        fmt.appendBytes(kSubFormatTail.data(), kSubFormatTail.size());
    }
    chunks.push_back(std::move(fmt));
}

void appendSampler(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    const std::size_t valid = writer.loopList()->countValid();
    if (valid == 0) return;
    const std::int32_t rate = writer.rate();
    KXChunk smpl = waveChunk(KXFourCC("smpl"));
    smpl.appendInt(0);
    smpl.appendInt(0);
    smpl.appendInt(rate > 0 ? 1000000000u / std::uint32_t(rate) : 0);
    smpl.appendInt(std::uint32_t(header.unityNote));
    // Cents to the fraction of a semitone: 50 cents is 0x80000000.
    smpl.appendInt(std::uint32_t(std::int64_t(writer.detune()) * 2147483648ll / 50));
    smpl.appendInt(0);
    smpl.appendInt(0);
    smpl.appendInt(std::uint32_t(valid));
    smpl.appendInt(0);
    for (std::size_t i = 0; i < writer.loopList()->count(); ++i) {
        const auto loop = std::dynamic_pointer_cast<KXLoop>(writer.loopList()->labelAtIndex(i));
        if (!loop || loop->loopType() == KXLoop::kNone) continue;
        smpl.appendInt(header.nextCueID++);
        smpl.appendInt(loop->loopType());
        smpl.appendInt(framesAt(loop->start(), rate));
        smpl.appendInt(framesAt(loop->end(), rate));
        smpl.appendInt(0);
        smpl.appendInt(0);
    }
    chunks.push_back(std::move(smpl));
}

void appendInstrument(Header& header, std::vector<KXChunk>& chunks) {
    KXAudioFileWriter& writer = header.writer;
    if (!writer.hasMIDIMetadata() && header.unityNote == 0) return;
    KXChunk inst = waveChunk(KXFourCC("inst"));
    for (std::int32_t value : {header.unityNote, writer.detune(), writer.gain(), writer.lowNote(), writer.highNote(),
                               writer.lowVelocity(), writer.highVelocity()})
        inst.appendByte(std::uint8_t(std::int8_t(value)));
    inst.appendByte(0);
    chunks.push_back(std::move(inst));
    writer.removeMIDIMetadata();
}

// Markers, then regions, as cue points; their names and the regions' lengths in 'adtl'.
void appendCue(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    const std::size_t markers = writer.markerList()->count(), regions = writer.regionList()->count();
    if (markers + regions == 0) return;
    const std::int32_t rate = writer.rate();
    KXChunk cue = waveChunk(KXFourCC("cue "));
    KXChunk adtl = waveChunk(KXFourCC("LIST"), KXFourCC("adtl"));
    cue.appendInt(std::uint32_t(markers + regions));
    const auto addLabel = [&](const KXLabel& label, std::optional<double> regionLength) {
        const std::uint32_t id = header.nextCueID++;
        const std::uint32_t position = framesAt(label.position(), rate);
        cue.appendInt(id);
        cue.appendInt(position);
        cue.appendType(KXFourCC("data"));
        cue.appendInt(0);
        cue.appendInt(0);
        cue.appendInt(position);
        if (const auto& name = label.name(); name && !name->empty()) {
            const std::size_t length = adtl.fileText(*name).size();
            adtl.appendType(KXFourCC("labl"));
            // Deliberate: the size counts the pad byte of an even name.
            adtl.appendInt(std::uint32_t(length + (length % 2 ? 5 : 6)));
            adtl.appendInt(id);
            adtl.appendAsCString(std::optional<std::string>(*name), true);
        }
        if (regionLength) {
            adtl.appendType(KXFourCC("ltxt"));
            adtl.appendInt(kLabelledTextSize);
            adtl.appendInt(id);
            adtl.appendInt(framesAt(*regionLength, rate));
            adtl.appendType(KXFourCC("rgn "));
            for (int i = 0; i < 4; ++i) adtl.appendShort(0);  // country, language, dialect, code page
        }
    };
    for (std::size_t i = 0; i < markers; ++i) addLabel(*writer.markerList()->labelAtIndex(i), std::nullopt);
    for (std::size_t i = 0; i < regions; ++i) {
        const auto region = std::dynamic_pointer_cast<KXRegion>(writer.regionList()->labelAtIndex(i));
        if (region) addLabel(*region, region->length());
    }
    chunks.push_back(std::move(cue));
    if (!adtl.data().empty()) chunks.push_back(std::move(adtl));
}

void appendInfo(Header& header, std::vector<KXChunk>& chunks) {
    KXChunk info = waveChunk(KXFourCC("LIST"), KXFourCC("INFO"));
    for (const auto& [id, key] : kInfoKeys) header.writer.appendWAVMetadataType(id, key, info);
    if (!info.data().empty()) chunks.push_back(std::move(info));
}

void appendIXML(Header& header, std::vector<KXChunk>& chunks) {
    if (auto ixml = header.writer.takeIXMLChunk(KXFourCC("WAVE"))) chunks.push_back(std::move(*ixml));
}

// The chunks of the source file that nothing here consumed.
void appendKeptChunks(Header& header, std::vector<KXChunk>& chunks) {
    for (const auto& chunk : header.writer.keptChunksOfFormat(KXFourCC("WAVE"))) chunks.push_back(*chunk);
}

constexpr ChunkBuilder kPreDataChunks[] = {appendBroadcast, appendFormat, appendSampler, appendInstrument,
                                           appendCue,       appendInfo,   appendIXML,    appendKeptChunks};

// The loop library's beats and slices.
void appendAcid(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    if (writer.format() != KXFourCC("ACID")) return;
    KXChunk acid = waveChunk(KXFourCC("acid"));
    const std::int32_t playback = writer.playbackType();
    acid.appendInt(std::uint32_t(playback > 0 ? playback - 1 : 0));
    acid.appendShort(std::uint16_t(header.unityNote));
    acid.appendShort(0x8000);
    acid.appendInt(0);
    acid.appendInt(std::uint32_t(writer.eighthBeats() > 0 ? writer.eighthBeats() / 2 : 4));
    // Deliberate: the numerator first, as the reader takes them.
    acid.appendShort(std::uint16_t(writer.meterNumerator() > 0 ? writer.meterNumerator() : 4));
    acid.appendShort(std::uint16_t(writer.meterDenominator() > 0 ? writer.meterDenominator() : 4));
    acid.appendFloat(writer.tempo() > 0 ? writer.tempo() : 120.0f);
    chunks.push_back(std::move(acid));
}

void appendSlices(Header& header, std::vector<KXChunk>& chunks) {
    KXAudioFileWriter& writer = header.writer;
    if (writer.format() != KXFourCC("ACID")) return;
    if (const std::size_t count = writer.sliceList()->count()) {
        KXChunk strc = waveChunk(KXFourCC("strc"));
        for (std::uint32_t value : {kSlicesStart, std::uint32_t(count), 65u, 5u, 1u, 0u, 0u}) strc.appendInt(value);
        std::vector<double> positions;
        for (std::size_t i = 0; i < count; ++i) positions.push_back(writer.sliceList()->labelAtIndex(i)->position());
        std::sort(positions.begin(), positions.end());
        for (std::size_t i = 0; i < positions.size(); ++i) {
            const std::uint32_t frames = framesAt(positions[i], writer.rate());
            for (std::uint32_t value : {i == 0 ? 2u : 0u, 0u, frames, 0u, frames, 0u, 0u, 0u}) strc.appendInt(value);
        }
        chunks.push_back(std::move(strc));
    }
    writer.removeMusicalMetadata();
}

// What no chunk took, as an archived dictionary.
void appendArchive(Header& header, std::vector<KXChunk>& chunks) {
    if (header.writer.metadata().empty() || !header.writer.writeArchive()) return;
    KXChunk archived = waveChunk(KXFourCC("KXmd"));
    archived.mutableData() = KXPropertyList::binaryData(header.writer.metadata());
    chunks.push_back(std::move(archived));
}

constexpr ChunkBuilder kPostDataChunks[] = {appendAcid, appendSlices, appendArchive};

// The unity note: the base note, else the key's note in the octave of middle C.
std::int32_t unityNote(const KXAudioFileWriter& writer) {
    const std::int32_t note = writer.baseNote();
    return note == 0 && writer.key() != -1 ? writer.key() + 60 : note;
}

// Builds and appends each table entry's chunks in turn.
template <std::size_t N>
bool appendChunks(const ChunkBuilder (&builders)[N], Header& header, KXWritingFile& file, KXError* error) {
    for (ChunkBuilder build : builders) {
        std::vector<KXChunk> chunks;
        build(header, chunks);
        for (const KXChunk& chunk : chunks)
            if (!KXAudioFileWriter::appendChunk(chunk, file, error)) return false;
    }
    return true;
}

}  // namespace

bool KXAudioFileWriter::writeWAVEPreDataHeader(KXWritingFile& file, KXError* error) {
    if (!beginContainer(file, KXFourCC("RIFF"), KXFourCC("WAVE"), error)) return false;
    // The place of 'ds64', should the file become RF64 (as EBU Tech 3306 recommends).
    KXChunk junk = waveChunk(KXFourCC("JUNK"));
    junk.appendPadOfLength(kLargeSizesSize);
    if (!junk.appendToFile(file, error)) return false;

    // The file whose header this is joins the writer's files after its header.
    Header header{*this, files_.size(), unityNote(*this)};
    if (!appendChunks(kPreDataChunks, header, file, error)) return false;

    // The 'data' header; its size is patched at the end.
    if (!waveChunk(KXFourCC("data")).appendToFile(file, error)) return false;
    file.setAudioDataPosition(std::int64_t(file.length()));
    file.setDataChunkSizePosition(std::int64_t(file.length()) - 4);
    return true;
}

KXAudioFileWriter::TagChunks KXAudioFileWriter::waveTagChunks() {
    Header header{*this, 0, unityNote(*this)};
    TagChunks chunks;
    for (ChunkBuilder build : kPreDataChunks) build(header, chunks.beforeSamples);
    for (ChunkBuilder build : kPostDataChunks) build(header, chunks.afterSamples);
    return chunks;
}

bool KXAudioFileWriter::writeWAVEPostDataHeader(KXWritingFile& file, KXError* error) {
    // The 'data' size, without the pad byte.
    const std::uint64_t dataBytes = dataBytesPerFile();
    Header header{*this, 0, unityNote(*this)};
    if (!appendChunks(kPostDataChunks, header, file, error) || !file.moveToEnd(error)) return false;
    const std::uint64_t length = file.position();
    const bool large = waveContainer_ != KXFourCC("RIFF") || dataBytes > kLargeSize || length - 8 > kLargeSize;
    if (!large) {
        return file.writeIntValueToPosition(std::uint32_t(dataBytes), std::uint64_t(file.dataChunkSizePosition()),
                                            KXByteOrder::little, error) &&
               file.writeIntValueToPosition(std::uint32_t(length - 8), std::uint64_t(file.fileChunkSizePosition()),
                                            KXByteOrder::little, error) &&
               file.writeCreatorAndFileType(KXFourCC("WAVE"));
    }
    // Deliberate extension: RF64 (or BW64), its sizes in 'ds64' where 'JUNK' held the place.
    KXChunk ds64 = waveChunk(0);
    ds64.appendType(waveContainer_ == KXFourCC("BW64") ? KXFourCC("BW64") : KXFourCC("RF64"));
    ds64.appendInt(kLargeSize);
    ds64.appendType(KXFourCC("WAVE"));
    ds64.appendType(KXFourCC("ds64"));
    ds64.appendInt(kLargeSizesSize);
    ds64.appendLongLong(length - 8);
    ds64.appendLongLong(dataBytes);
    ds64.appendLongLong(channels_ > 0 ? samplesWritten_ / std::uint64_t(channels_) : 0);
    ds64.appendInt(0);  // no table of other chunks
    return file.writeBytesToPosition(ds64.data().data(), ds64.data().size(), 0, error) &&
           file.writeIntValueToPosition(kLargeSize, std::uint64_t(file.dataChunkSizePosition()), KXByteOrder::little, error) &&
           file.writeCreatorAndFileType(KXFourCC("WAVE"));
}

void KXAudioFileWriter::appendWAVMetadataType(std::uint32_t id, const std::string& key, KXChunk& chunk) {
    const KXValue* value = metadata_.find(key);
    if (!value) return;
    const std::size_t length = chunk.fileText(value->stringValue()).size();
    chunk.appendType(id);
    // Deliberate: the terminator and the pad byte are both counted.
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
        for (const auto& [key, element] : kIXMLBroadcastFields) {
            const KXValue* value = metadata_.find(key);
            if (!value) continue;
            if (element) {
                appendIXMLValue(*value, element, chunk);
                continue;
            }
            // The time reference in two signed 32-bit halves.
            const std::uint64_t frames = value->unsignedLongLongValue();
            char text[16];
            std::snprintf(text, sizeof text, "%d", std::int32_t(std::uint32_t(frames)));
            appendIXMLValue(std::string(text), kIXMLTimeReferenceLow, chunk);
            std::snprintf(text, sizeof text, "%d", std::int32_t(std::uint32_t(frames >> 32)));
            appendIXMLValue(std::string(text), kIXMLTimeReferenceHigh, chunk);
        }
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
        // Deliberate: markup characters are not escaped.
        chunk.appendBytes(value.string().data(), value.string().size());
    } else if (value.type() == KXValue::Type::dictionary) {
        const KXDictionary& entries = value.dictionary();
        for (std::size_t i = 0; i < entries.count(); ++i)
            appendIXMLValue(entries.valueAtIndex(i), entries.keys()[i], chunk);
    } else if (value.type() == KXValue::Type::array && key.size() > 5 && key.ends_with("_list")) {
        // "track_list": a TRACK_COUNT element, then one TRACK element per item.
        const std::string item = key.substr(0, key.size() - 5);
        appendIXMLValue(std::to_string(value.array().size()), item + "_COUNT", chunk);
        for (const KXValue& entry : value.array()) appendIXMLValue(entry, item, chunk);
    }
    chunk.appendString("</" + element + ">\r");
}

// The CAF header writer: big-endian numbers, 64-bit chunk sizes, no pad bytes; the layout is
// KXCAFLayout's, and every label is written so that the CAF reader reads it back.
//
//   before the samples  "caff" 1 0, 'desc', 'chan' (the channels' speakers as a bitmap or a layout
//                       tag), 'inst',
//                       'strg' with the labels' names, 'mark' for markers, 'regn' for regions and
//                       loops, 'info', a 'KXmd' archive of the metadata no chunk took, the kept
//                       chunks, the 'data' header (edit count 0, size all ones until patched)
//   after them          the 'data' size; the analysis 'uuid' chunk follows (writeAnalysisHeader)

#include <algorithm>
#include <cmath>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXCAFLayout.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXMetadata.h"
#include "KXBase/KXPropertyList.h"

namespace {

using namespace KXCAFLayout;

KXChunk cafChunk(std::uint32_t type) {
    KXChunk chunk;
    chunk.setFormat(KXFourCC("caff"));
    chunk.setType(type);
    return chunk;
}

double framesAt(double seconds, std::int32_t rate) { return std::round(double(rate) * seconds); }

// The names of the labels, each a string of 'strg' by its ID (1, 2 …).
struct Strings {
    std::vector<std::string> texts;
    std::uint32_t idFor(const std::optional<std::string>& name) {
        if (!name) return 0;
        texts.push_back(*name);
        return std::uint32_t(texts.size());
    }
};

struct Header {
    KXAudioFileWriter& writer;
    std::size_t fileIndex;
    Strings strings;
};

using ChunkBuilder = void (*)(Header&, std::vector<KXChunk>&);

void appendDescription(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    const std::uint32_t channels = writer.isInterleaved() ? std::uint32_t(writer.channels()) : 1;
    const std::uint32_t bits = writer.sampleBits();
    KXChunk desc = cafChunk(KXFourCC("desc"));
    desc.appendDouble(double(writer.rate()));
    desc.appendType(writer.encoding());
    // G.711 samples have no byte order.
    desc.appendInt(writer.isG711() ? 0
                        : (writer.isFloatingPoint() ? kFlagFloat : 0) |
                              (writer.byteOrder() == KXByteOrderLittleValue ? kFlagLittleEndian : 0));
    desc.appendInt(bits / 8 * channels);  // bytes per packet: one frame
    desc.appendInt(1);
    desc.appendInt(channels);
    desc.appendInt(bits);
    chunks.push_back(std::move(desc));
}

// The speakers: as a channel bitmap (whose bits are the WAVE channel mask's) when they rise in
// channel order (or are not known: the layout of the channel count), else as the layout tag of
// their order, or not at all when no tag has it.
void appendChannelLayout(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    const std::vector<std::uint32_t>& speakers = writer.speakers();
    std::uint32_t tag = kLayoutTagUseBitmap;
    const std::uint32_t bitmap = writer.channelMaskForFile(header.fileIndex);
    if (writer.isInterleaved() && speakers.size() == std::size_t(writer.channels()) && writer.channelMask() == 0) {
        const auto layout = std::find_if(std::begin(kLayoutTags), std::end(kLayoutTags), [&](const LayoutTag& l) {
            return (l.tag & 0xFFFF) == speakers.size() && std::equal(speakers.begin(), speakers.end(), l.speakers);
        });
        if (layout == std::end(kLayoutTags)) return;
        tag = layout->tag;
    } else if (bitmap == 0) {
        return;
    }
    KXChunk chan = cafChunk(KXFourCC("chan"));
    chan.appendInt(tag);
    chan.appendInt(tag == kLayoutTagUseBitmap ? bitmap : 0);
    chan.appendInt(0);  // no channel descriptions
    chunks.push_back(std::move(chan));
}

void appendInstrument(Header& header, std::vector<KXChunk>& chunks) {
    KXAudioFileWriter& writer = header.writer;
    if (!writer.hasMIDIMetadata()) return;
    KXChunk inst = cafChunk(KXFourCC("inst"));
    // The reader truncates the fraction's cents: a little more than the cents makes them come back
    // whole (at ±50 cents the note rounds to its neighbour, the same pitch).
    const double cents = writer.detune();
    const double margin = std::abs(cents) >= 50 ? 0 : std::copysign(0.4, cents);
    inst.appendFloat(float(writer.baseNote() + (cents + margin) / 100.0));
    for (std::int32_t value : {writer.lowNote(), writer.highNote(), writer.lowVelocity(), writer.highVelocity()})
        inst.appendByte(std::uint8_t(value));
    inst.appendFloat(float(writer.gain()));
    inst.appendPadOfLength(kInstSize - inst.data().size());
    chunks.push_back(std::move(inst));
    writer.removeMIDIMetadata();
}

void appendMarker(KXChunk& chunk, std::uint32_t type, double frames, std::uint32_t stringID) {
    chunk.appendInt(type);
    chunk.appendDouble(frames);
    chunk.appendInt(stringID);
    chunk.appendPadOfLength(8);  // SMPTE time
    chunk.appendInt(0);          // channel: all
}

void appendMarkers(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    const std::size_t count = writer.markerList()->count();
    if (count == 0) return;
    KXChunk mark = cafChunk(KXFourCC("mark"));
    mark.appendInt(0);
    mark.appendInt(std::uint32_t(count));
    for (std::size_t i = 0; i < count; ++i) {
        const auto marker = writer.markerList()->labelAtIndex(i);
        appendMarker(mark, kMarkerGeneric, framesAt(marker->position(), writer.rate()), header.strings.idFor(marker->name()));
    }
    chunks.push_back(std::move(mark));
}

// Regions, then loops: the first a sustain loop, the others release loops.
void appendRegions(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    struct Entry {
        const KXRangeLabel* label;
        std::uint32_t flags, startType, endType;
    };
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < writer.regionList()->count(); ++i)
        if (const auto* region = dynamic_cast<const KXRegion*>(writer.regionList()->labelAtIndex(i).get()))
            entries.push_back({region, 0, kMarkerRegionStart, kMarkerRegionEnd});
    for (std::size_t i = 0; i < writer.loopList()->count(); ++i) {
        const auto* loop = dynamic_cast<const KXLoop*>(writer.loopList()->labelAtIndex(i).get());
        if (!loop) continue;
        const auto flags = std::find_if(std::begin(kLoopFlags), std::end(kLoopFlags),
                                        [&](const LoopFlags& entry) { return entry.loopType == loop->loopType(); });
        const bool sustain = i == 0;
        entries.push_back({loop, flags == std::end(kLoopFlags) ? 0 : flags->flags,
                           sustain ? kMarkerSustainLoopStart : kMarkerReleaseLoopStart,
                           sustain ? kMarkerSustainLoopEnd : kMarkerReleaseLoopEnd});
    }
    if (entries.empty()) return;
    KXChunk regn = cafChunk(KXFourCC("regn"));
    regn.appendInt(0);
    regn.appendInt(std::uint32_t(entries.size()));
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const Entry& entry = entries[i];
        const std::uint32_t name = header.strings.idFor(entry.label->name());
        regn.appendInt(std::uint32_t(i + 1));
        regn.appendInt(entry.flags);
        regn.appendInt(2);
        appendMarker(regn, entry.startType, framesAt(entry.label->start(), writer.rate()), name);
        appendMarker(regn, entry.endType, framesAt(entry.label->end(), writer.rate()), name);
    }
    chunks.push_back(std::move(regn));
}

// The names the labels gave 'strg'; it goes before them.
void appendStrings(Header& header, std::vector<KXChunk>& chunks) {
    const std::vector<std::string>& texts = header.strings.texts;
    if (texts.empty()) return;
    KXChunk strg = cafChunk(KXFourCC("strg"));
    strg.appendInt(std::uint32_t(texts.size()));
    std::uint64_t offset = 0;
    std::vector<std::string> stored;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        stored.push_back(strg.fileText(texts[i]));
        strg.appendInt(std::uint32_t(i + 1));
        strg.appendLongLong(offset);
        offset += stored.back().size() + 1;
    }
    for (const std::string& text : stored) {
        strg.appendBytes(text.data(), text.size());
        strg.appendByte(0);
    }
    // Before the labels that name their strings.
    const auto labels = std::find_if(chunks.begin(), chunks.end(), [](const KXChunk& chunk) {
        return chunk.type() == KXFourCC("mark") || chunk.type() == KXFourCC("regn");
    });
    chunks.insert(labels, std::move(strg));
}

// The metadata keys that have an information key; they leave the metadata.
void appendInfo(Header& header, std::vector<KXChunk>& chunks) {
    KXDictionary& metadata = header.writer.mutableMetadata();
    KXChunk info = cafChunk(KXFourCC("info"));
    info.appendInt(0);
    std::uint32_t count = 0;
    for (const char* key : KXMetadata::infoDictionaryKeys()) {
        const KXValue* value = metadata.find(key);
        if (!value) continue;
        for (const std::string& text : {std::string(KXMetadata::infoDictionaryFormatKeyForKey(key)), value->stringValue()}) {
            info.appendText(text);
            info.appendByte(0);
        }
        metadata.removeObjectForKey(key);
        ++count;
    }
    if (count == 0) return;
    info.replaceIntAtByte(0, count);
    chunks.push_back(std::move(info));
}

void appendArchive(Header& header, std::vector<KXChunk>& chunks) {
    if (header.writer.metadata().empty() || !header.writer.writeArchive()) return;
    KXChunk archived = cafChunk(KXFourCC("KXmd"));
    archived.mutableData() = KXPropertyList::binaryData(header.writer.metadata());
    chunks.push_back(std::move(archived));
}

// Deliberate: a kept 'info' chunk is not copied. The reader keeps it, but its entries are in the
// metadata, which this writer writes as 'info' and the archive; a copy would add one 'info' chunk
// with every rewrite.
void appendKeptChunks(Header& header, std::vector<KXChunk>& chunks) {
    for (const auto& chunk : header.writer.keptChunksOfFormat(KXFourCC("caff")))
        if (chunk->type() != KXFourCC("info")) chunks.push_back(*chunk);
}

constexpr ChunkBuilder kPreDataChunks[] = {appendDescription, appendChannelLayout, appendInstrument, appendMarkers,
                                           appendRegions,     appendStrings,       appendInfo,       appendArchive,
                                           appendKeptChunks};

}  // namespace

KXAudioFileWriter::TagChunks KXAudioFileWriter::cafTagChunks() {
    Header header{*this, 0, {}};
    TagChunks chunks;
    for (ChunkBuilder build : kPreDataChunks) build(header, chunks.beforeSamples);
    return chunks;
}

bool KXAudioFileWriter::writeCAFPreDataHeader(KXWritingFile& file, KXError* error) {
    KXChunk fileHeader = cafChunk(0);
    fileHeader.appendType(KXFourCC("caff"));
    fileHeader.appendShort(kFileVersion);
    fileHeader.appendShort(0);
    if (!fileHeader.appendToFile(file, error)) return false;

    // The file whose header this is joins the writer's files after its header.
    Header header{*this, files_.size(), {}};
    std::vector<KXChunk> chunks;
    for (ChunkBuilder build : kPreDataChunks) build(header, chunks);
    for (const KXChunk& chunk : chunks)
        if (!chunk.appendToFile(file, error)) return false;

    // The 'data' header: its size says "to the end of the file" until it is patched, so that a
    // recording cut short still reads.
    KXChunk data = cafChunk(0);
    data.appendType(KXFourCC("data"));
    data.appendLongLong(kSizeToEnd);
    data.appendInt(0);  // edit count
    if (!data.appendToFile(file, error)) return false;
    file.setAudioDataPosition(std::int64_t(file.length()));
    file.setDataChunkSizePosition(std::int64_t(file.length()) - kDataEditCountSize - 8);
    return true;
}

bool KXAudioFileWriter::writeCAFPostDataHeader(KXWritingFile& file, KXError* error) {
    std::uint8_t size[8];
    kx::store64(size, dataBytesPerFile() + kDataEditCountSize, KXByteOrder::big);
    if (!file.writeBytesToPosition(size, sizeof size, std::uint64_t(file.dataChunkSizePosition()), error)) return false;
    return file.writeCreatorAndFileType(KXFourCC("caff"));
}

// The AIFF and AIFF-C header writer, all numbers big-endian.
//
//   before the samples  "FORM" <size> 'AIFF' (or 'AIFC' for little-endian integers, 'sowt', for
//                       floats, 'fl32' or 'fl64' and always big-endian, and for G.711, 'ulaw' or
//                       'alaw'),
//                       'COMM', 'INST', 'MARK', 'APPL'/'auFM' regions, for loop-library files
//                       'basc', 'trns' and 'cate', text chunks, 'COMT', 'iXML', a 'KXmd' archive of
//                       the metadata no chunk took, the kept chunks, the 'SSND' header
//   after them          the 'SSND' size, the frame count, the FORM size
//
// Loops and regions become pairs of markers: loop k takes IDs 2k + 1 and 2k + 2 (which 'INST'
// names), the regions follow, then the markers. Writing a group of metadata keys removes them, so
// for split files the first file's header takes them; labels go into every file.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAIFFLayout.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXMetadata.h"
#include "KXBase/KXPropertyList.h"

namespace {

using namespace KXAIFFLayout;

KXChunk aiffChunk(std::uint32_t type, std::uint32_t subtype = 0) {
    KXChunk chunk;
    chunk.setFormat(KXFourCC("AIFF"));
    chunk.setType(type);
    chunk.setSubtype(subtype);
    return chunk;
}

std::uint32_t framesAt(double seconds, std::int32_t rate) {
    return KXChunk::uInt32FromDouble(std::round(double(rate) * seconds));
}

// AIFF-C for little-endian integers (as 'sowt'), for floats ('fl32', 'fl64'; always big-endian,
// which beginWrite sees to) and for G.711 ('ulaw', 'alaw').
bool isCompressed(const KXAudioFileWriter& writer) {
    return writer.byteOrder() == KXByteOrderLittleValue || writer.isFloatingPoint() || writer.isG711();
}

// What the chunks of one file's header share: the loops and regions, whose markers take the
// IDs 1, 2, … in that order.
struct Header {
    KXAudioFileWriter& writer;
    std::vector<std::shared_ptr<KXLoop>> loops;
    std::vector<std::shared_ptr<KXRegion>> regions;
};

// Each chunk builder appends the chunks it makes (none when it has nothing to write).
using ChunkBuilder = void (*)(Header&, std::vector<KXChunk>&);

// The sample format; the frame count is patched at the end.
void appendCommon(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    KXChunk comm = aiffChunk(KXFourCC("COMM"));
    comm.appendShort(std::uint16_t(writer.isInterleaved() ? writer.channels() : 1));
    comm.appendInt(0);
    // G.711 samples say 8 bits, as libsndfile and ffmpeg write them.
    comm.appendShort(std::uint16_t(writer.sampleBits()));
    comm.appendAsFloat80(std::uint32_t(writer.rate()));
    if (isCompressed(writer)) {
        // The first compression type of the kind: the G.711 type of the encoding, the float type
        // of the depth, else 'sowt' for little-endian integers.
        const auto compression =
            std::find_if(std::begin(kCompressions), std::end(kCompressions), [&](const Compression& c) {
                if (writer.isG711()) return c.encoding == writer.encoding();
                return writer.isFloatingPoint() ? c.floatDepth == writer.depth() : c.littleEndian;
            });
        // A float width without a type fails later, when no converter writes it.
        comm.appendType(compression == std::end(kCompressions) ? KXFourCC("NONE") : compression->type);
        comm.appendShort(0);  // an empty compression name and its pad byte
    }
    chunks.push_back(std::move(comm));
}

// MIDI values and the loops by marker ID.
void appendInstrument(Header& header, std::vector<KXChunk>& chunks) {
    KXAudioFileWriter& writer = header.writer;
    if (writer.loopList()->countValid() == 0 && !writer.hasMIDIMetadata()) return;
    KXChunk inst = aiffChunk(KXFourCC("INST"));
    for (std::int32_t value : {writer.baseNote(), writer.detune(), writer.lowNote(), writer.highNote(),
                               writer.lowVelocity(), writer.highVelocity()})
        inst.appendByte(std::uint8_t(std::int8_t(value)));
    inst.appendShort(std::uint16_t(std::int16_t(writer.gain())));
    for (std::size_t k = 0; k < 2; ++k) {
        const bool present = header.loops.size() > k;
        inst.appendShort(std::uint16_t(present ? header.loops[k]->loopType() + 1 : 0));
        inst.appendShort(std::uint16_t(present ? 2 * k + 1 : 0));
        inst.appendShort(std::uint16_t(present ? 2 * k + 2 : 0));
    }
    chunks.push_back(std::move(inst));
    writer.removeMIDIMetadata();
}

// Markers: two for each loop, two for each region, then the markers themselves.
void appendMarkers(Header& header, std::vector<KXChunk>& chunks) {
    const KXAudioFileWriter& writer = header.writer;
    const std::size_t count = writer.markerList()->count() + 2 * (header.loops.size() + header.regions.size());
    if (count == 0) return;
    KXChunk mark = aiffChunk(KXFourCC("MARK"));
    mark.appendShort(std::uint16_t(count));
    std::uint16_t id = 1;
    const auto addMarker = [&](double seconds, const std::optional<std::string>& name) {
        mark.appendShort(id++);
        mark.appendInt(framesAt(seconds, writer.rate()));
        mark.appendAsPascalString(name, true);
    };
    for (const auto& loop : header.loops) addMarker(loop->start(), loop->name()), addMarker(loop->end(), loop->name());
    for (const auto& region : header.regions)
        addMarker(region->start(), region->name()), addMarker(region->end(), region->name());
    for (std::size_t i = 0; i < writer.markerList()->count(); ++i) {
        const auto marker = writer.markerList()->labelAtIndex(i);
        addMarker(marker->position(), marker->name());
    }
    chunks.push_back(std::move(mark));
}

// Regions of the loop library, by the IDs the markers gave them.
void appendRegions(Header& header, std::vector<KXChunk>& chunks) {
    if (header.regions.empty()) return;
    KXChunk appl = aiffChunk(KXFourCC("APPL"), KXFourCC("auFM"));
    appl.appendShort(std::uint16_t(header.regions.size()));
    std::uint16_t firstID = std::uint16_t(2 * header.loops.size() + 1);
    for (std::size_t i = 0; i < header.regions.size(); ++i, firstID += 2) {
        appl.appendShort(std::uint16_t(i + 1));
        appl.appendAsPascalString(header.regions[i]->name(), false);
        appl.appendShort(firstID);
        appl.appendShort(std::uint16_t(firstID + 1));
        appl.appendPadOfLength(kRegionTrailerSize - 4);
    }
    chunks.push_back(std::move(appl));
}

// The loop library's beats, transients and categories.
void appendLoopLibrary(Header& header, std::vector<KXChunk>& chunks) {
    KXAudioFileWriter& writer = header.writer;
    if (writer.format() != KXFourCC("APLL")) return;
    KXChunk basc = aiffChunk(KXFourCC("basc"));
    basc.appendInt(1);
    basc.appendInt(std::uint32_t(writer.eighthBeats() > 0 ? writer.eighthBeats() / 2 : 8));
    basc.appendShort(std::uint16_t(writer.key() >= 0 ? writer.key() + 48 : -1));
    basc.appendShort(std::uint16_t(writer.scaleType() > 0 ? writer.scaleType() : 3));
    basc.appendShort(std::uint16_t(writer.meterNumerator() > 0 ? writer.meterNumerator() : 4));
    basc.appendShort(std::uint16_t(writer.meterDenominator() > 0 ? writer.meterDenominator() : 4));
    basc.appendShort(std::uint16_t(std::max(writer.playbackType(), 1)));
    basc.appendPadOfLength(kBeatsPaddingSize);
    chunks.push_back(std::move(basc));

    KXChunk trns = aiffChunk(KXFourCC("trns"));
    for (std::uint16_t value : {1, 50, 16, 0}) trns.appendShort(value);
    // Deliberate: the time stamp lands little-endian in the file.
    const auto now = std::uint32_t(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count());
    trns.appendInt(kx::byteSwap32(now));
    trns.appendPadOfLength(kTransientHeaderPadding);
    std::vector<double> positions;
    for (std::size_t i = 0; i < writer.sliceList()->count(); ++i)
        positions.push_back(writer.sliceList()->labelAtIndex(i)->position());
    std::sort(positions.begin(), positions.end());
    trns.appendInt(std::uint32_t(positions.size()));
    for (double position : positions) {
        trns.appendShort(1);
        trns.appendShort(0);
        trns.appendInt(framesAt(position, writer.rate()));
        trns.appendPadOfLength(kTransientPadding);
    }
    chunks.push_back(std::move(trns));

    if (writer.hasAppleLoopMetadata()) {
        const KXDictionary& metadata = writer.metadata();
        KXChunk cate = aiffChunk(KXFourCC("cate"));
        cate.appendInt(1);
        for (const char* key : kCategoryKeys) {
            const KXValue* value = metadata.find(key);
            cate.appendAsCStringSize(value ? std::optional<std::string>(value->stringValue()) : std::nullopt,
                                     kCategoryTextSize);
        }
        cate.appendPadOfLength(kCategoryPaddingSize);
        const KXArray& descriptors = metadata.objectForKey("descriptors").array();
        cate.appendShort(std::uint16_t(descriptors.size()));
        for (const KXValue& descriptor : descriptors)
            cate.appendAsCStringSize(descriptor.stringValue(), kCategoryTextSize);
        chunks.push_back(std::move(cate));
        writer.removeAppleLoopMetadata();
    }
    writer.removeMusicalMetadata();
}

void appendText(Header& header, std::vector<KXChunk>& chunks) {
    for (int place = 1; place <= kWrittenTextChunks; ++place) {
        const auto entry = std::find_if(std::begin(kTextChunks), std::end(kTextChunks),
                                        [&](const TextChunk& chunk) { return chunk.writtenAs == place; });
        const KXValue* value = header.writer.metadata().find(entry->key);
        if (!value) continue;
        KXChunk text = aiffChunk(entry->type);
        text.appendText(value->stringValue());
        text.appendPadByte();
        chunks.push_back(std::move(text));
        header.writer.mutableMetadata().removeObjectForKey(entry->key);
    }
}

void appendComment(Header& header, std::vector<KXChunk>& chunks) {
    const KXValue* comments = header.writer.metadata().find("comments");
    if (!comments) return;
    KXChunk comt = aiffChunk(KXFourCC("COMT"));
    const std::string text = comt.fileText(comments->stringValue(), kCommentMaximumLength);
    comt.appendShort(1);
    comt.appendInt(0);
    comt.appendShort(0);
    comt.appendShort(std::uint16_t(text.size()));
    comt.appendBytes(text.data(), text.size());
    comt.appendPadByte();
    chunks.push_back(std::move(comt));
    header.writer.mutableMetadata().removeObjectForKey("comments");
}

void appendIXML(Header& header, std::vector<KXChunk>& chunks) {
    if (auto ixml = header.writer.takeIXMLChunk(KXFourCC("AIFF"))) chunks.push_back(std::move(*ixml));
}

// What no chunk holds, padded inside the chunk (AIFF readers such as sox do not skip a pad byte
// after a chunk they do not know); the reader takes the archive without it.
void appendArchive(Header& header, std::vector<KXChunk>& chunks) {
    if (header.writer.metadata().empty() || !header.writer.writeArchive()) return;
    KXChunk archived = aiffChunk(KXFourCC("KXmd"));
    archived.mutableData() = KXPropertyList::binaryData(header.writer.metadata());
    archived.appendPadByte();
    chunks.push_back(std::move(archived));
}

// The chunks of the source file that nothing here consumed.
void appendKeptChunks(Header& header, std::vector<KXChunk>& chunks) {
    for (const auto& chunk : header.writer.keptChunksOfFormat(KXFourCC("AIFF"))) chunks.push_back(*chunk);
}

constexpr ChunkBuilder kPreDataChunks[] = {appendCommon,      appendInstrument, appendMarkers, appendRegions,
                                           appendLoopLibrary, appendText,       appendComment, appendIXML,
                                           appendArchive,     appendKeptChunks};

template <typename Label, typename List>
std::vector<std::shared_ptr<Label>> labelsOf(const List& list) {
    std::vector<std::shared_ptr<Label>> labels;
    for (std::size_t i = 0; i < list.count(); ++i)
        if (auto label = std::dynamic_pointer_cast<Label>(list.labelAtIndex(i))) labels.push_back(std::move(label));
    return labels;
}

}  // namespace

bool KXAudioFileWriter::writeAIFFPreDataHeader(KXWritingFile& file, KXError* error) {
    if (!beginContainer(file, KXFourCC("FORM"), isCompressed(*this) ? KXFourCC("AIFC") : KXFourCC("AIFF"), error))
        return false;

    Header header{*this, labelsOf<KXLoop>(*loopList_), labelsOf<KXRegion>(*regionList_)};
    for (ChunkBuilder build : kPreDataChunks) {
        std::vector<KXChunk> chunks;
        build(header, chunks);
        for (const KXChunk& chunk : chunks) {
            if (!appendChunk(chunk, file, error)) return false;
            if (chunk.type() == KXFourCC("COMM"))
                file.setSampleCountPosition(std::int64_t(file.length()) - kCommonFramesFromEnd -
                                            (isCompressed(*this) ? kCommonCompressionSize : 0));
        }
    }

    // The 'SSND' header; its size is patched at the end.
    KXChunk ssnd = aiffChunk(KXFourCC("SSND"));
    ssnd.appendPadOfLength(kSoundDataHeaderSize);
    if (!ssnd.appendToFile(file, error)) return false;
    file.setAudioDataPosition(std::int64_t(file.length()));
    file.setDataChunkSizePosition(std::int64_t(file.length()) - kSoundDataSizeFromEnd);
    return true;
}

KXAudioFileWriter::TagChunks KXAudioFileWriter::aiffTagChunks() {
    Header header{*this, labelsOf<KXLoop>(*loopList_), labelsOf<KXRegion>(*regionList_)};
    TagChunks chunks;
    for (ChunkBuilder build : kPreDataChunks) build(header, chunks.beforeSamples);
    return chunks;
}

bool KXAudioFileWriter::writeAIFFPostDataHeader(KXWritingFile& file, KXError* error) {
    if (!file.writeIntValueToPosition(std::uint32_t(dataBytesPerFile() + kSoundDataHeaderSize),
                                      std::uint64_t(file.dataChunkSizePosition()), KXByteOrder::big, error) ||
        !file.writeIntValueToPosition(std::uint32_t(samplesWritten_ / std::uint64_t(channels_)),
                                      std::uint64_t(file.sampleCountPosition()), KXByteOrder::big, error))
        return false;
    return finishContainer(file, KXByteOrder::big, KXFourCC("AIFF"), error);
}

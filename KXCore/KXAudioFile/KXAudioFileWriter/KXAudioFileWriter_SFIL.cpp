// The Sound Designer I header writer: the fixed 1336-byte big-endian header of KXSFILLayout,
// written headerless before the mono samples, its data byte count patched at the end. Marker and
// loop positions are byte offsets into the sample data, round(rate × seconds) × bytes per
// sample. The header holds the first ten markers and the first two loops; the metadata goes into
// the resource fork as a 'KXmd' archive (and the analysis as 'KXAn', writeAnalysisHeader).
//
// Deliberate: a used marker slot takes 40 bytes like an empty one (the flag byte, a zero byte,
// the offset, the name cut to 33 characters as a Pascal string, zeros). A 41-byte slot would move
// every later field by a byte per marker, and no reader would find the rate, the depth or the
// second loop where the header keeps them.

#include <cmath>

#include "KXAudioFile/KXAudioFileWrapper/KXSFILLayout.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXResourceFile.h"

namespace {

using namespace KXSFILLayout;

// Zero bytes up to `offset` of the header.
void padTo(KXChunk& header, std::uint32_t offset) {
    header.appendPadOfLength(offset - std::uint32_t(header.data().size()));
}

std::uint32_t byteOffsetAt(double seconds, const KXAudioFileWriter& writer) {
    return KXChunk::uInt32FromDouble(std::round(double(writer.rate()) * seconds)) * std::uint32_t(writer.depth() / 8);
}

void appendMarkerSlots(KXChunk& header, const KXAudioFileWriter& writer) {
    for (std::uint32_t i = 0; i < kMarkerCount; ++i) {
        if (i < writer.markerList()->count()) {
            const auto marker = writer.markerList()->labelAtIndex(i);
            header.appendByte(kMarkerUsed);
            header.appendByte(0);
            header.appendInt(byteOffsetAt(marker->position(), writer));
            const std::string name = header.fileText(marker->name().value_or(""), kMarkerNameLength);
            header.appendByte(std::uint8_t(name.size()));
            header.appendBytes(name.data(), name.size());
        } else {
            header.appendByte(kMarkerUnused);
        }
        padTo(header, kMarkers + (i + 1) * kMarkerSize);
    }
}

void appendLoop(KXChunk& header, const KXAudioFileWriter& writer, std::size_t index) {
    const auto loop = writer.loopList()->loopAtIndex(index);
    header.appendInt(loop ? byteOffsetAt(loop->start(), writer) : kNoLoop);
    header.appendInt(loop ? byteOffsetAt(loop->end(), writer) : kNoLoop);
}

}  // namespace

bool KXAudioFileWriter::writeSFILPreDataHeader(KXWritingFile& file, KXError* error) {
    KXChunk header;
    header.setFormat(KXFourCC("SFIL"));
    header.appendShort(kHeaderSize);
    header.appendShort(kHeaderVersion);
    padTo(header, kDataSize);
    header.appendInt(0);
    padTo(header, kMarkers);
    appendMarkerSlots(header, *this);
    padTo(header, kFirstLoop);
    appendLoop(header, *this, 0);
    padTo(header, kRate);
    header.appendInt(std::uint32_t(rate_));
    header.appendInt(std::uint32_t(1000000 / rate_));
    header.appendShort(std::uint16_t(depth_));
    padTo(header, kSecondLoop);
    appendLoop(header, *this, 1);
    // Each loop's type + 1; 0 for a loop that is not there.
    for (std::size_t i = 0; i < 2; ++i) {
        const auto loop = loopList_->loopAtIndex(i);
        header.appendByte(loop ? std::uint8_t(loop->loopType() + 1) : 0);
    }
    padTo(header, kHeaderSize);
    if (!header.appendToFile(file, error)) return false;
    file.setDataChunkSizePosition(kDataSize);
    file.setAudioDataPosition(kHeaderSize);

    // The metadata, archived, in the resource fork.
    std::vector<std::shared_ptr<KXResource>> resources;
    if (auto archive = archiveResource()) resources.push_back(std::move(archive));
    return writeResourceFork(file, std::move(resources), error);
}

bool KXAudioFileWriter::writeSFILPostDataHeader(KXWritingFile& file, KXError* error) {
    return patchDataByteCount(file, KXFourCC("SFIL"), error);
}

// The AIFF and AIFF-C header writer, all numbers big-endian.
//
//   before the samples  "FORM" <size> 'AIFF' (or 'AIFC' for little-endian or float samples),
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

#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXMetadata.h"
#include "KXBase/KXPropertyList.h"

namespace {

KXChunk aiffChunk(std::uint32_t type) {
    KXChunk chunk;
    chunk.setFormat(KXFourCC("AIFF"));
    chunk.setType(type);
    return chunk;
}

std::uint32_t framesAt(double seconds, std::int32_t rate) {
    return KXChunk::uInt32FromDouble(std::round(double(rate) * seconds));
}

// Appends the chunk and, after an odd payload, the pad byte that IFF containers need.
bool appendPadded(const KXChunk& chunk, KXWritingFile& file, KXError* error) {
    if (!chunk.appendToFile(file, error)) return false;
    const std::uint8_t pad = 0;
    return chunk.data().size() % 2 == 0 || file.writeBytes(&pad, 1, error);
}

}  // namespace

bool KXAudioFileWriter::writeAIFFPreDataHeader(KXWritingFile& file, KXError* error) {
    // 1. The container.
    const bool compressed = byteOrder_ == 1 || isFloatingPoint_;
    KXChunk form = aiffChunk(0);
    form.appendType(KXFourCC("FORM"));
    form.appendInt(0);
    form.appendType(compressed ? KXFourCC("AIFC") : KXFourCC("AIFF"));
    if (!form.appendToFile(file, error)) return false;
    file.setFileChunkSizePosition(4);

    // 2. The sample format; the frame count is patched at the end.
    KXChunk comm = aiffChunk(KXFourCC("COMM"));
    comm.appendShort(std::uint16_t(isInterleaved_ ? channels_ : 1));
    comm.appendInt(0);
    comm.appendShort(std::uint16_t(depth_));
    comm.appendAsFloat80(std::uint32_t(rate_));
    if (compressed) {
        comm.appendType(byteOrder_ == 1 ? KXFourCC("sowt") : KXFourCC("fl32"));
        comm.appendShort(0);  // an empty compression name and its pad byte
    }
    if (!comm.appendToFile(file, error)) return false;
    file.setSampleCountPosition(std::int64_t(file.length()) - 16 - (compressed ? 6 : 0));

    // 3. MIDI values and the loops by marker ID.
    std::vector<std::shared_ptr<KXLoop>> loops;
    for (std::size_t i = 0; i < loopList_->count(); ++i)
        if (auto loop = std::dynamic_pointer_cast<KXLoop>(loopList_->labelAtIndex(i))) loops.push_back(loop);
    if (loopList_->countValid() > 0 || hasMIDIMetadata()) {
        KXChunk inst = aiffChunk(KXFourCC("INST"));
        for (std::int32_t value : {baseNote(), detune(), lowNote(), highNote(), lowVelocity(), highVelocity()})
            inst.appendByte(std::uint8_t(std::int8_t(value)));
        inst.appendShort(std::uint16_t(std::int16_t(gain())));
        for (std::size_t k = 0; k < 2; ++k) {
            const bool present = loops.size() > k;
            inst.appendShort(std::uint16_t(present ? loops[k]->loopType() + 1 : 0));
            inst.appendShort(std::uint16_t(present ? 2 * k + 1 : 0));
            inst.appendShort(std::uint16_t(present ? 2 * k + 2 : 0));
        }
        if (!inst.appendToFile(file, error)) return false;
        removeMIDIMetadata();
    }

    // 4. Markers: two for each loop, two for each region, then the markers themselves.
    std::vector<std::shared_ptr<KXRegion>> regions;
    for (std::size_t i = 0; i < regionList_->count(); ++i)
        if (auto region = std::dynamic_pointer_cast<KXRegion>(regionList_->labelAtIndex(i))) regions.push_back(region);
    const std::size_t markerCount = markerList_->count() + 2 * (loops.size() + regions.size());
    if (markerCount > 0) {
        KXChunk mark = aiffChunk(KXFourCC("MARK"));
        mark.appendShort(std::uint16_t(markerCount));
        std::uint16_t id = 1;
        const auto addMarker = [&](double seconds, const std::optional<std::string>& name) {
            mark.appendShort(id++);
            mark.appendInt(framesAt(seconds, rate_));
            mark.appendAsPascalString(name, true);
        };
        for (const auto& loop : loops) addMarker(loop->start(), loop->name()), addMarker(loop->end(), loop->name());
        for (const auto& region : regions) addMarker(region->start(), region->name()), addMarker(region->end(), region->name());
        for (std::size_t i = 0; i < markerList_->count(); ++i) {
            const auto marker = markerList_->labelAtIndex(i);
            addMarker(marker->position(), marker->name());
        }
        if (!mark.appendToFile(file, error)) return false;
    }

    // 5. Regions of the loop library, by the IDs just given.
    if (!regions.empty()) {
        KXChunk appl = aiffChunk(KXFourCC("APPL"));
        appl.setSubtype(KXFourCC("auFM"));
        appl.appendShort(std::uint16_t(regions.size()));
        std::uint16_t firstID = std::uint16_t(2 * loops.size() + 1);
        for (std::size_t i = 0; i < regions.size(); ++i, firstID += 2) {
            appl.appendShort(std::uint16_t(i + 1));
            appl.appendAsPascalString(regions[i]->name(), false);
            appl.appendShort(firstID);
            appl.appendShort(std::uint16_t(firstID + 1));
            appl.appendPadOfLength(8);
        }
        // Counted with the four signature bytes, the payload is even when this one is.
        if (!appendPadded(appl, file, error)) return false;
    }

    // 6. The loop library's beats, transients and categories.
    if (format_ == KXFourCC("APLL")) {
        KXChunk basc = aiffChunk(KXFourCC("basc"));
        basc.appendInt(1);
        basc.appendInt(std::uint32_t(eighthBeats() > 0 ? eighthBeats() / 2 : 8));
        basc.appendShort(std::uint16_t(key() >= 0 ? key() + 48 : -1));
        basc.appendShort(std::uint16_t(scaleType() > 0 ? scaleType() : 3));
        basc.appendShort(std::uint16_t(meterNumerator() > 0 ? meterNumerator() : 4));
        basc.appendShort(std::uint16_t(meterDenominator() > 0 ? meterDenominator() : 4));
        basc.appendShort(std::uint16_t(std::max(playbackType(), 1)));
        basc.appendPadOfLength(66);
        if (!basc.appendToFile(file, error)) return false;

        KXChunk trns = aiffChunk(KXFourCC("trns"));
        for (std::uint16_t value : {1, 50, 16, 0}) trns.appendShort(value);
        // The time stamp lands little-endian in the file.
        const auto now = std::uint32_t(std::chrono::duration_cast<std::chrono::seconds>(
                                           std::chrono::system_clock::now().time_since_epoch()).count());
        trns.appendInt(kx::byteSwap32(now));
        trns.appendPadOfLength(60);
        std::vector<double> positions;
        for (std::size_t i = 0; i < sliceList_->count(); ++i) positions.push_back(sliceList_->labelAtIndex(i)->position());
        std::sort(positions.begin(), positions.end());
        trns.appendInt(std::uint32_t(positions.size()));
        for (double position : positions) {
            trns.appendShort(1);
            trns.appendShort(0);
            trns.appendInt(framesAt(position, rate_));
            trns.appendPadOfLength(16);
        }
        if (!trns.appendToFile(file, error)) return false;

        if (hasAppleLoopMetadata()) {
            KXChunk cate = aiffChunk(KXFourCC("cate"));
            cate.appendInt(1);
            for (const char* key : {"instrumentCategory", "instrument", "genre"}) {
                const KXValue* value = metadata_.find(key);
                cate.appendAsCStringSize(value ? std::optional<std::string>(value->stringValue()) : std::nullopt, 50);
            }
            cate.appendPadOfLength(66);
            const KXArray& descriptors = metadata_.objectForKey("descriptors").array();
            cate.appendShort(std::uint16_t(descriptors.size()));
            for (const KXValue& descriptor : descriptors) cate.appendAsCStringSize(descriptor.stringValue(), 50);
            if (!cate.appendToFile(file, error)) return false;
            removeAppleLoopMetadata();
        }
        removeMusicalMetadata();
    }

    // 7. Text.
    for (const auto& [type, key] : {std::pair{KXFourCC("NAME"), "metaName"}, std::pair{KXFourCC("(c) "), "copyright"},
                                    std::pair{KXFourCC("AUTH"), "author"}, std::pair{KXFourCC("ANNO"), "annotation"}}) {
        const KXValue* value = metadata_.find(key);
        if (!value) continue;
        KXChunk text = aiffChunk(type);
        text.appendText(value->stringValue());
        text.appendPadByte();
        if (!text.appendToFile(file, error)) return false;
        metadata_.removeObjectForKey(key);
    }

    // 8. The comment.
    if (const KXValue* comments = metadata_.find("comments")) {
        KXChunk comt = aiffChunk(KXFourCC("COMT"));
        const std::string text = comt.fileText(comments->stringValue(), 0xFFFF);
        comt.appendShort(1);
        comt.appendInt(0);
        comt.appendShort(0);
        comt.appendShort(std::uint16_t(text.size()));
        comt.appendBytes(text.data(), text.size());
        comt.appendPadByte();
        if (!comt.appendToFile(file, error)) return false;
        metadata_.removeObjectForKey("comments");
    }

    // 9. iXML.
    if (hasIXMLMetadata()) {
        KXChunk ixml = aiffChunk(KXFourCC("iXML"));
        appendIXMLToChunk(ixml);
        if (!ixml.appendToFile(file, error)) return false;
        removeIXMLMetadata();
    }

    // 10. What no chunk holds, padded inside the chunk (AIFF readers such as sox do not skip a
    // pad byte after a chunk they do not know); the reader takes the archive without it.
    if (!metadata_.empty()) {
        KXChunk archived = aiffChunk(KXFourCC("KXmd"));
        archived.mutableData() = KXPropertyList::binaryData(metadata_);
        archived.appendPadByte();
        if (!archived.appendToFile(file, error)) return false;
    }

    // 11. The chunks of the source file that nothing here consumed.
    if (writeUnusedChunks_) {
        for (const auto& chunk : unusedChunkList_) {
            if (chunk->format() != KXFourCC("AIFF")) continue;
            if (!appendPadded(*chunk, file, error)) return false;
        }
    }

    // 12. The 'SSND' header; its size is patched at the end.
    KXChunk ssnd = aiffChunk(KXFourCC("SSND"));
    ssnd.appendInt(0);
    ssnd.appendInt(0);
    if (!ssnd.appendToFile(file, error)) return false;
    file.setAudioDataPosition(std::int64_t(file.length()));
    file.setDataChunkSizePosition(std::int64_t(file.length()) - 12);
    return true;
}

bool KXAudioFileWriter::writeAIFFPostDataHeader(KXWritingFile& file, KXError* error) {
    const std::uint64_t perFile = isInterleaved_ ? 1 : std::uint64_t(channels_);
    const std::uint64_t dataBytes = bytesPerStoredSample() * samplesWritten_ / perFile;
    if (!file.writeIntValueToPosition(std::uint32_t(dataBytes + 8), std::uint64_t(file.dataChunkSizePosition()),
                                      KXByteOrder::big, error) ||
        !file.writeIntValueToPosition(std::uint32_t(samplesWritten_ / std::uint64_t(channels_)),
                                      std::uint64_t(file.sampleCountPosition()), KXByteOrder::big, error))
        return false;
    if (!file.moveToEnd(error)) return false;
    if (file.position() > 0x7FFFFFFF) return false;
    if (!file.writeIntValueToPosition(std::uint32_t(file.position() - 8), std::uint64_t(file.fileChunkSizePosition()),
                                      KXByteOrder::big, error))
        return false;
    return file.writeCreatorAndFileType(KXFourCC("AIFF"));
}

// The Sound Designer II header writer, for 'SDII' (interleaved) and the split code (one file per
// channel). The data fork holds nothing but the big-endian samples; the description goes into
// the resource fork in the layout that KXSDIILayout shares with the reader, every field the
// reader takes, so that whatever is written reads back equal:
//
//   'STR ' 1000, 1001, 1002   bytes per sample, rate ("44100.000000"), the file's channels
//   'STR ' <title>            text metadata, one resource per title (IDs from 2000 in the
//                             titles' order)
//   'sdML', 'ddRL', 'sdLL'    markers, regions, loops
//   'iXML', 'KXmd'            the iXML document, an archive of the metadata nothing else took
//   kept resources            the source's resources that nothing here consumed
//   'KXAn' 1000               the analysis, added when the samples are written (writeAnalysisHeader)
//
// 'STR ' is the first type: libsndfile looks for the sample format among the first type's
// references only. Writing a group of metadata keys removes them, so for split files the first
// file's fork takes them; labels go into every file.

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "KXAudioFile/KXAudioFileWrapper/KXSDIILayout.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXMetadata.h"
#include "KXBase/KXResourceFile.h"

namespace {

using namespace KXSDIILayout;

using Resources = std::vector<std::shared_ptr<KXResource>>;

KXChunk payload() {
    KXChunk chunk;
    chunk.setFormat(KXFourCC("SDII"));
    return chunk;
}

std::uint32_t framesAt(double seconds, std::int32_t rate) {
    return KXChunk::uInt32FromDouble(std::round(double(rate) * seconds));
}

void addResource(Resources& resources, std::uint32_t type, std::int16_t resourceID, std::optional<std::string> name,
                 const KXChunk& chunk) {
    resources.push_back(std::make_shared<KXResource>(type, resourceID, std::move(name), chunk.data()));
}

void addString(Resources& resources, std::int16_t resourceID, std::optional<std::string> name, const std::string& text) {
    KXChunk chunk = payload();
    chunk.appendAsPascalString(std::optional<std::string>(text), false);
    addResource(resources, kStringType, resourceID, std::move(name), chunk);
}

using ResourceBuilder = void (*)(KXAudioFileWriter&, Resources&);

void appendSampleFormat(KXAudioFileWriter& writer, Resources& resources) {
    char rate[32];
    std::snprintf(rate, sizeof rate, "%d.000000", writer.rate());
    addString(resources, kBytesPerSampleID, std::nullopt, std::to_string(writer.depth() / 8));
    addString(resources, kRateID, std::nullopt, rate);
    addString(resources, kChannelsID, std::nullopt, std::to_string(writer.isInterleaved() ? writer.channels() : 1));
}

void appendText(KXAudioFileWriter& writer, Resources& resources) {
    for (std::size_t i = 0; i < std::size(kTextTitles); ++i) {
        const std::string key = KXMetadata::keyForTitle(kTextTitles[i]);
        const KXValue* value = writer.metadata().find(key);
        if (!value) continue;
        addString(resources, std::int16_t(kFirstTextID + i), kTextTitles[i], value->stringValue());
        writer.mutableMetadata().removeObjectForKey(key);
    }
}

void appendMarkers(KXAudioFileWriter& writer, Resources& resources) {
    const std::size_t count = writer.markerList()->count();
    if (count == 0) return;
    KXChunk sdml = payload();
    sdml.appendPadOfLength(kMarkerCount);
    sdml.appendShort(std::uint16_t(std::min<std::size_t>(count, 0x7FFF)));
    for (std::size_t i = 0; i < count; ++i) {
        const auto marker = writer.markerList()->labelAtIndex(i);
        const std::string name = sdml.fileText(marker->name().value_or(""));
        sdml.appendInt(0);
        sdml.appendInt(framesAt(marker->position(), writer.rate()));
        sdml.appendPadOfLength(kMarkerNameLength - kMarkerPosition - 4);
        sdml.appendInt(std::uint32_t(name.size()));
        sdml.appendBytes(name.data(), name.size());
    }
    addResource(resources, KXFourCC("sdML"), kResourceID, std::nullopt, sdml);
}

void appendRegions(KXAudioFileWriter& writer, Resources& resources) {
    const std::size_t count = writer.regionList()->count();
    if (count == 0) return;
    KXChunk ddrl = payload();
    ddrl.appendPadOfLength(kRegionCount);
    ddrl.appendShort(std::uint16_t(std::min<std::size_t>(count, 0xFFFF)));
    ddrl.appendPadOfLength(kRegionsStart - kRegionCount - 2);
    for (std::size_t i = 0; i < count; ++i) {
        const auto region = std::dynamic_pointer_cast<KXRegion>(writer.regionList()->labelAtIndex(i));
        if (!region) continue;
        const std::size_t record = ddrl.data().size();
        ddrl.appendInt(0);
        ddrl.appendInt(framesAt(region->start(), writer.rate()));
        ddrl.appendInt(framesAt(region->end(), writer.rate()));
        ddrl.appendInt(region->sync());
        ddrl.appendLongLong(region->timeStamp());
        const std::string name = ddrl.fileText(region->name().value_or(""), kRegionNameLength);
        ddrl.appendByte(std::uint8_t(name.size()));
        ddrl.appendBytes(name.data(), name.size());
        ddrl.appendPadOfLength(std::uint32_t(record + kRegionSize - ddrl.data().size()));
    }
    addResource(resources, KXFourCC("ddRL"), kResourceID, std::nullopt, ddrl);
}

void appendLoops(KXAudioFileWriter& writer, Resources& resources) {
    const std::size_t count = writer.loopList()->count();
    if (count == 0) return;
    KXChunk sdll = payload();
    sdll.appendPadOfLength(kLoopCount);
    sdll.appendShort(std::uint16_t(std::min<std::size_t>(count, 0x7FFF)));
    for (std::size_t i = 0; i < count; ++i) {
        const auto loop = writer.loopList()->loopAtIndex(i);
        if (!loop) continue;
        sdll.appendInt(framesAt(loop->start(), writer.rate()));
        sdll.appendInt(framesAt(loop->end(), writer.rate()));
        sdll.appendShort(0);
        sdll.appendShort(std::uint16_t(std::int16_t(loop->loopType()) + kLoopModeBase));
        sdll.appendShort(0);
    }
    addResource(resources, KXFourCC("sdLL"), kResourceID, std::nullopt, sdll);
}

void appendIXML(KXAudioFileWriter& writer, Resources& resources) {
    if (auto ixml = writer.takeIXMLChunk(KXFourCC("SDII")))
        addResource(resources, KXFourCC("iXML"), kResourceID, std::nullopt, *ixml);
}

void appendArchive(KXAudioFileWriter& writer, Resources& resources) {
    if (auto archive = writer.archiveResource()) resources.push_back(std::move(archive));
}

// The source's resources that nothing here consumed, unless one written here has their type and ID.
void appendKeptResources(KXAudioFileWriter& writer, Resources& resources) {
    for (const auto& chunk : writer.keptChunksOfFormat(KXFourCC("SDII"))) {
        const bool taken = std::any_of(resources.begin(), resources.end(), [&](const auto& resource) {
            return resource->type() == chunk->type() && resource->resourceID() == chunk->chunkID();
        });
        if (!taken) addResource(resources, chunk->type(), chunk->chunkID(), chunk->name(), *chunk);
    }
}

constexpr ResourceBuilder kResources[] = {appendSampleFormat, appendText,    appendMarkers,   appendRegions,
                                          appendLoops,        appendIXML,    appendArchive,   appendKeptResources};

}  // namespace

bool KXAudioFileWriter::writeSDIIPreDataHeader(KXWritingFile& file, KXError* error) {
    Resources resources;
    for (ResourceBuilder build : kResources) build(*this, resources);
    file.setAudioDataPosition(0);
    return writeResourceFork(file, std::move(resources), error);
}

bool KXAudioFileWriter::writeSDIIPostDataHeader(KXWritingFile& file, KXError* /*error*/) {
    return file.writeCreatorAndFileType(KXFourCC("Sd2f"));
}

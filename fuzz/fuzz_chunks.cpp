// Treats its input as a file and walks it as every chunked container, as a resource fork, as a
// property list (restored as label-list state), as label and channel archives, and as the
// contents of both analysis chunks, then reads every chunk the walks found. Nothing may crash,
// hang or allocate without bound.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"
#include "KXAudioFile/KXChannels/KXChannelsList.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXResourceFile.h"

namespace {

const std::string& scratchPath() {
    static const std::string path = [] {
        std::string pattern = "/tmp/kxaudio-fuzz-XXXXXX";
        const int fd = mkstemp(pattern.data());
        if (fd >= 0) close(fd);
        return pattern;
    }();
    return path;
}

void readEverything(const KXChunk& chunk) {
    const auto length = std::uint32_t(chunk.data().size());
    for (std::uint32_t offset : {0u, 1u, length / 2, length ? length - 1 : 0u, length}) {
        (void)chunk.longLongValueAtByte(offset);
        (void)chunk.float80ValueAtByte(offset);
        (void)chunk.pascalStringAtByte(offset);
        (void)chunk.cStringAtByte(offset);
        (void)chunk.stringAtByte(offset, 256);
        (void)chunk.dataAtByte(offset, 0xFFFFFFFF);
    }
    for (std::uint32_t id = 0; id < 4; ++id) (void)chunk.stringForID(id);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const KXData bytes(data, data + size);
    {
        auto file = KXFile::createFileAtPath(scratchPath());
        if (!file || !file->writeData(bytes)) return 0;
    }
    struct Container {
        std::uint32_t format;
        std::int32_t order;
    };
    for (Container container : {Container{KXFourCC("WAVE"), 1}, Container{KXFourCC("AIFF"), 2},
                                Container{KXFourCC("WV64"), 1}, Container{KXFourCC("caff"), 2}}) {
        auto audioFile = KXAudioFile::audioFile();
        audioFile->setPath(scratchPath());
        audioFile->setFormat(container.format);
        audioFile->setBlockSizeByteOrder(container.order);
        if (auto list = KXChunkList::chunkListForAudioFile(*audioFile)) {
            for (const auto& chunk : list->unusedChunks()) readEverything(*chunk);
        }
    }
    if (auto resources = KXResourceFile::resourcesFromForkData(bytes)) {
        for (const auto& resource : *resources) (void)resource->data().size();
    }
    if (auto state = KXPropertyList::propertyListFromData(bytes)) {
        KXRegionList regions;
        regions.setState(state->array());
        regions.sortBy("position");
        regions.removeDuplicates();
    }
    if (auto object = KXDecoder::unarchiveObjectWithData(bytes, &KXLabelList::archiveObjectForClassName)) {
        if (auto list = std::dynamic_pointer_cast<KXLabelList>(object)) (void)list->state();
    }
    (void)KXDecoder::unarchiveObjectWithData(bytes, &KXChannelsList::archiveObjectForClassName);
    for (bool kxan : {true, false}) {
        auto analysed = KXAudioFile::audioFile();
        analysed->setChannelsList(KXChannelsList::channelsListWithChannelCount(3));
        auto chunk = KXChunk::chunk();
        chunk->setType(kxan ? KXFourCC("KXAn") : KXFourCC("anal"));
        chunk->mutableData() = bytes;
        if (kxan) analysed->parseKXAnChunk(*chunk);
        else analysed->parseAnalChunk(*chunk);
        (void)analysed->channelsList()->max();
    }
    // And the whole opening path.
    (void)KXAudioFile::audioFileWithPath(scratchPath());
    return 0;
}

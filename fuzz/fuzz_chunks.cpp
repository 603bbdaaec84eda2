// Treats its input as a file and walks it as every chunked container, as a resource fork, as a
// property list (restored as label-list, edit-list and audio-file state), as label, channel and
// edit-list archives, and as the contents of both analysis chunks, then reads every chunk the
// walks found; then renders an edit block whose fields come from the input over the input itself.
// Nothing may crash, hang or allocate without bound.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"
#include "KXAudioFile/KXChannels/KXChannelsList.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXResourceFile.h"
#include "KXFuzzSupport.h"

namespace {

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

// An edit block over the input itself, its fields taken from the input's first bytes.
void renderBlockOver(const KXData& bytes) {
    if (bytes.size() < 48) return;
    const auto word = [&](std::size_t i) { return kx::load32(bytes.data() + 4 * i, KXByteOrder::little); };
    auto block = KXEditBlock::editBlock();
    block->setSourcePath(KXFuzz::scratchPath());
    block->setSampleRange({word(0) % 100000, word(1) % 100000});
    block->setSourceLocation(word(2));
    block->setSourceOffset(word(3));
    block->setSourceChannel(word(4) % 8);
    block->setSourceTotalChannels(word(5) % 8);
    block->setStartFadeLength(word(6) % 5000);
    block->setEndFadeLength(word(7) % 5000);
    block->setStartFadeType(word(8) % 9);
    block->setEndFadeType(word(9) % 9);
    block->setReverse(word(10) & 1);
    block->setChokeRange({word(11) % 100000, word(11) >> 8});
    KXAudioStreamDescription stored;
    stored.setRange(8 * (1 + bytes[0] % 4));
    stored.setFlags(KXAudioStreamDescription::kFlagIsSignedInteger | (bytes[1] & 3));
    auto converter = KXConverter::converterWithSourceFormat(stored, KXAudioStreamDescription::description());
    if (!converter) return;
    const KXSampleRange range{word(0) % 100000 - std::min<std::uint32_t>(word(0) % 100000, 2000), 4096};
    std::vector<float> out(range.length);
    block->fillBuffer(out.data(), range, *converter);
    block->renderBuffer(out.data(), range, *converter);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const KXData bytes(data, data + size);
    {
        auto file = KXFile::createFileAtPath(KXFuzz::scratchPath());
        if (!file || !file->writeData(bytes)) return 0;
    }
    struct Container {
        std::uint32_t format;
        std::int32_t order;
    };
    for (Container container : {Container{KXFourCC("WAVE"), 1}, Container{KXFourCC("AIFF"), 2},
                                Container{KXFourCC("WV64"), 1}, Container{KXFourCC("caff"), 2}}) {
        auto audioFile = KXAudioFile::audioFile();
        audioFile->setPath(KXFuzz::scratchPath());
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
        KXEditList edits;
        edits.setState(state->array());
        edits.sort();
        (void)edits.range();
        (void)edits.positionOfEditNearestTo(1000, edits.channelSet());
        auto restored = KXAudioFile::audioFile();
        restored->setState(state->dictionary());
        (void)restored->stateIgnoring(0);
    }
    if (auto object = KXDecoder::unarchiveObjectWithData(bytes, &KXEditList::archiveObjectForClassName)) {
        if (auto list = std::dynamic_pointer_cast<KXEditList>(object)) (void)list->state(), (void)list->isContiguous();
    }
    renderBlockOver(bytes);
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
    // And the whole opening path, then every sample, label and metadata entry of what opened.
    if (auto file = KXAudioFile::audioFileWithPath(KXFuzz::scratchPath())) {
        KXNativeAudioBuffer buffer(file->numberOfChannels() <= 64 ? file->numberOfChannels() : 64, 4096);
        for (std::uint64_t frame = 0; frame < file->frames(); frame += buffer.capacity())
            (void)file->readSamplesToBuffer(buffer, frame);
        (void)file->readSample(file->frames() / 2, 0);
        (void)file->state();
        (void)file->fileEntry();
        // The header update puts the labels and metadata it read back into the file.
        (void)KXAudioFileWriter::writerWithAudioFile(*file)->updateHeaderOfFile(KXFuzz::scratchPath());
    }
    return 0;
}

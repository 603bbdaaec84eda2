#include "KXAudioFile/KXEditList/KXEditList.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXEditList/KXSourceReader.h"
#include "KXAudioFile/KXEditList/KXTessaroDocument.h"
#include "KXBase/KXConverter.h"
#include "KXBase/KXFile.h"

// --- Construction

std::shared_ptr<KXEditList> KXEditList::editListWithChannelCount(std::uint32_t count) {
    auto list = editList();
    list->list_.resize(count);
    return list;
}

std::shared_ptr<KXEditList> KXEditList::copy() const {
    auto other = editList();
    for (const KXEditBlockArray& channel : list_) {
        KXEditBlockArray copies;
        for (const auto& block : channel) copies.push_back(block->copy());
        other->list_.push_back(std::move(copies));
    }
    return other;
}

std::shared_ptr<KXEditList> KXEditList::editListWithAudioFile(const KXAudioFile& file, std::int64_t offset) {
    auto list = editList();
    const bool interleaved = file.isInterleaved();
    const KXSampleRange whole{0, file.frames()};
    for (std::uint32_t c = 0; c < file.numberOfChannels(); ++c) {
        auto block = KXEditBlock::editBlock();
        block->setSourceChannel(interleaved ? c : 0);
        block->setSourceOffset(std::uint64_t(offset));
        block->setSourceTotalChannels(interleaved ? file.numberOfChannels() : 1);
        block->setSourcePath(file.pathForChannel(c));
        block->setSourceEnd(file.frames());
        block->setSampleRange(whole);
        block->setOriginalRange(whole);
        block->setSourceType(kSourceLocal);
        list->list_.push_back({block});
    }
    return list;
}

std::shared_ptr<KXEditList> KXEditList::editListWithWriter(const KXAudioFileWriter& writer) {
    auto list = editList();
    const bool interleaved = writer.isInterleaved();
    const std::vector<std::string> paths = writer.filePaths();
    const std::uint32_t channels = std::uint32_t(std::max(writer.channels(), 0));
    const KXSampleRange whole{0, writer.frames()};
    for (std::uint32_t c = 0; c < channels; ++c) {
        auto block = KXEditBlock::editBlock();
        block->setSourceOffset(std::uint64_t(writer.positionOfAudioDataForChannel(c)));
        block->setSourceTotalChannels(interleaved ? channels : 1);
        block->setSourceChannel(interleaved ? c : 0);
        const std::size_t file = interleaved ? 0 : c;
        if (file < paths.size()) block->setSourcePath(paths[file]);
        block->setSourceType(kSourceWriter);
        block->setSourceEnd(whole.length);
        block->setSampleRange(whole);
        block->setOriginalRange(whole);
        list->list_.push_back({block});
    }
    return list;
}

// --- State and archive

KXArray KXEditList::state() const {
    KXArray channels;
    for (const KXEditBlockArray& channel : list_) {
        KXArray blocks;
        for (const auto& block : channel) blocks.emplace_back(block->state());
        channels.emplace_back(std::move(blocks));
    }
    return channels;
}

void KXEditList::setState(const KXArray& state) {
    list_.clear();
    for (const KXValue& channel : state) {
        KXEditBlockArray blocks;
        for (const KXValue& blockState : channel.array()) {
            auto block = KXEditBlock::editBlock();
            block->setState(blockState.dictionary());
            blocks.push_back(block);
        }
        list_.push_back(std::move(blocks));
    }
}

void KXEditList::encodeWithCoder(KXCoder& coder) const {
    coder.encodeArrayCount(std::uint32_t(list_.size()));
    for (const KXEditBlockArray& channel : list_) coder.encodeArray(KXCodingArray(channel.begin(), channel.end()));
}

void KXEditList::initWithCoder(KXDecoder& decoder) {
    list_.clear();
    const std::uint32_t channels = decoder.decodeArrayCount();
    for (std::uint32_t c = 0; c < channels && !decoder.failed(); ++c) {
        KXEditBlockArray blocks;
        for (const auto& object : decoder.decodeArray()) {
            auto block = std::dynamic_pointer_cast<KXEditBlock>(object);
            if (!block) {
                decoder.markDamaged();
                break;
            }
            blocks.push_back(std::move(block));
        }
        list_.push_back(std::move(blocks));
    }
    if (decoder.failed()) list_.clear();
}

std::shared_ptr<KXCoding> KXEditList::archiveObjectForClassName(const std::string& name) {
    if (name == "KXEditBlock") return KXEditBlock::editBlock();
    if (name == "KXEditList") return editList();
    return nullptr;
}

std::string KXEditList::description() const {
    std::string text = "KXEditList: (";
    for (std::size_t c = 0; c < list_.size(); ++c) {
        text += c ? ", (" : "(";
        for (std::size_t b = 0; b < list_[c].size(); ++b) text += (b ? ", " : "") + list_[c][b]->description();
        text += ")";
    }
    return text + ")";
}

// --- Extent

KXSampleRange KXEditList::range() const {
    bool any = false;
    KXSampleRange extent;
    for (const KXEditBlockArray& channel : list_)
        for (const auto& block : channel) {
            const KXSampleRange blockExtent = block->extent();
            extent = any ? extent.unionWith(blockExtent) : blockExtent;
            any = true;
        }
    return extent;
}

std::uint32_t KXEditList::length() const {
    std::uint32_t longest = 0;
    for (const KXEditBlockArray& channel : list_)
        if (!channel.empty()) longest = std::max(longest, channel.back()->endSample());
    return longest;
}

// --- Ordering

void KXEditList::sortChannel(std::uint32_t channel) {
    if (channel >= list_.size() || list_[channel].size() < 2) return;
    std::stable_sort(list_[channel].begin(), list_[channel].end(),
                     [](const auto& a, const auto& b) { return a->positionCompare(*b) < 0; });
}

void KXEditList::sort() {
    std::lock_guard<std::shared_mutex> lock(sortLock_);
    for (std::uint32_t c = 0; c < list_.size(); ++c) sortChannel(c);
}

std::uint32_t KXEditList::positionOfEditNearestTo(std::int32_t position, const KXIndexSet& channels) const {
    std::optional<std::int64_t> best;
    channels.enumerateIndexes([&](std::uint32_t c) {
        if (c >= list_.size()) return false;
        for (const auto& block : list_[c]) {
            if (block->modifying()) continue;
            const std::int64_t edge = block->positionOfEdgeNearestTo(position);
            if (!best || std::llabs(edge - position) < std::llabs(*best - position)) best = edge;
        }
        return true;
    });
    return best ? std::uint32_t(*best) : kNotFound;
}

// --- Rendering

void KXEditList::fillBuffer(KXNativeAudioBuffer& buffer, const KXSampleRange& requested, const KXConverter& converter) {
    const KXSampleRange range{requested.location, std::min(requested.length, buffer.capacity())};
    std::vector<float*> channels(buffer.numberOfChannels());
    for (std::uint32_t c = 0; c < buffer.numberOfChannels(); ++c) channels[c] = buffer.channel(c);
    renderChannels(channels.data(), buffer.numberOfChannels(), range, converter);
    // The whole channel is cleared, not only the frames rendered: what lies past them is silence too.
    for (float* samples : channels)
        if (samples) std::fill(samples + range.length, samples + buffer.capacity(), 0.0f);
}

bool KXEditList::renderInterleavedLocked(float* const* channels, std::uint32_t count, const KXSampleRange& range,
                                         const KXConverter& converter, KXSourceReader& reader) const {
    if (count < 2 || list_.size() < count) return false;
    std::optional<KXEditBlock::PlainSpan> first;
    for (std::uint32_t c = 0; c < count; ++c) {
        if (!channels[c] || list_[c].size() != 1) return false;
        const auto span = list_[c].front()->plainSpan(range, converter.bytesPerSample());
        if (!span || span->sourceChannels != count || span->sourceChannel != c) return false;
        if (!first) first = span;
        else if (span->rendered != first->rendered || span->position != first->position || span->path != first->path) return false;
    }
    const std::size_t frameBytes = std::size_t(converter.bytesPerSample()) * count;
    const std::uint8_t* bytes = reader.bytesAtPath(first->path, first->position, first->rendered.length * frameBytes);
    if (!bytes) return false;
    const std::uint32_t before = first->rendered.location - range.location;
    std::vector<float*> targets(count);
    for (std::uint32_t c = 0; c < count; ++c) {
        std::fill_n(channels[c], before, 0.0f);
        std::fill(channels[c] + before + first->rendered.length, channels[c] + range.length, 0.0f);
        targets[c] = channels[c] + before;
    }
    converter.decodeFrames(bytes, count, targets.data(), first->rendered.length);
    return true;
}

void KXEditList::renderChannels(float* const* channels, std::uint32_t count, const KXSampleRange& range,
                                const KXConverter& converter) {
    std::shared_lock<std::shared_mutex> lock(sortLock_);
    // One reader for the whole render: the channels of an interleaved source read its bytes once.
    KXSourceReader reader;
    if (renderInterleavedLocked(channels, count, range, converter, reader)) return;
    for (std::uint32_t c = 0; c < count; ++c) {
        float* samples = channels[c];
        if (!samples) continue;
        const KXEditBlockArray* blocks = c < list_.size() ? &list_[c] : nullptr;
        if (blocks && blocks->size() == 1) {
            // A lone block writes its frames outright, decoding straight into them.
            blocks->front()->renderBuffer(samples, range, converter, &reader);
            continue;
        }
        std::fill_n(samples, range.length, 0.0f);
        if (blocks)
            for (const auto& block : *blocks) block->fillBuffer(samples, range, converter, &reader);
    }
}

// --- Editor document

std::string KXEditList::tessaroHeaderPathFromAudioPath(const std::string& path) {
    // A bare name stays bare: "Mix.wav" has its header at "Mix.info", not "./Mix.info".
    const std::string directory = path.find('/') == std::string::npos ? std::string() : KXFile::directoryOfPath(path);
    const std::string name = KXFile::lastPathComponent(path);
    const std::size_t dot = name.find_last_of('.');
    const std::string stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
    const std::size_t underscore = stem.find('_');
    if (underscore != std::string::npos) {
        const std::size_t next = stem.find('_', underscore + 1);
        const std::string second = stem.substr(underscore + 1, next == std::string::npos ? std::string::npos : next - underscore - 1);
        const bool fourDigits = second.size() == 4 && std::all_of(second.begin(), second.end(), [](char ch) { return ch >= '0' && ch <= '9'; });
        if (fourDigits) return KXFile::pathByAppendingComponent(directory, stem.substr(0, underscore) + ".info");
    }
    return KXFile::pathByAppendingComponent(directory, stem + ".info");
}

bool KXEditList::isTessaroAudioPath(const std::string& path) {
    return KXFile::existsAtPath(tessaroHeaderPathFromAudioPath(path));
}

// --- Writing the parts of an editor document

KXProgressDelegate& KXEditList::reporter() const {
    // The base delegate reports nowhere and never stops.
    static KXProgressDelegate silent;
    return progressDelegate_ ? *progressDelegate_ : silent;
}

namespace {

std::string partTitle(std::uint32_t part, std::uint32_t parts) {
    return "Writing part " + std::to_string(part) + " of " + std::to_string(parts);
}

// Parts are written into a staging folder beside the document's and moved into place only once
// all are written: the blocks being written may play parts of the same names (a document saved
// over itself, a channel duplicated), which must not change under them. A save that fails or is
// cancelled leaves the document's folder as it was.
class PartStaging {
public:
    explicit PartStaging(const std::string& base)
        : folder_(KXFile::directoryOfPath(base)),
          staging_(KXFile::pathByAppendingComponent(folder_, ".kxaudio-parts-" + std::to_string(::getpid()))),
          base_(KXFile::pathByAppendingComponent(staging_, KXFile::lastPathComponent(base))) {}
    ~PartStaging() {
        std::error_code ignored;
        std::filesystem::remove_all(staging_, ignored);
    }
    PartStaging(const PartStaging&) = delete;
    PartStaging& operator=(const PartStaging&) = delete;

    bool begin(KXError* error) {
        std::error_code ignored;
        std::filesystem::remove_all(staging_, ignored);
        return KXFile::createDirectoryAtPath(staging_, error);
    }
    // The base path the parts are written under until commit().
    const std::string& base() const { return base_; }
    const std::string& folder() const { return staging_; }
    // Moves every staged part over the file of its name in the document's folder (each already
    // flushed when its writer ended).
    bool commit(KXError* error) {
        for (const std::string& name : KXFile::contentsOfDirectoryAtPath(staging_)) {
            const std::string target = KXFile::pathByAppendingComponent(folder_, name);
            if (!KXFile::renamePath(KXFile::pathByAppendingComponent(staging_, name), target, error)) return false;
            KXSourceReader::closeFileAtPath(target);
        }
        return true;
    }

private:
    std::string folder_, staging_, base_;
};

// Points a block at a part file of one channel whose first frame is its frame `sourceLocation`.
void pointAtPart(KXEditBlock& block, const std::string& part, std::uint64_t sourceLocation, std::uint64_t frames) {
    block.setSourcePath(KXFile::lastPathComponent(part));
    block.setSourceType(KXEditList::kSourceLocal);
    block.setSourceOffset(0);
    block.setSourceChannel(0);
    block.setSourceTotalChannels(1);
    block.setSourceLocation(sourceLocation);
    block.setSourceEnd(frames);
}

}  // namespace

std::shared_ptr<KXEditList> KXEditList::contiguousEditsWritableEditListForPath(const std::string& base, bool mergeRemote,
                                                                               KXAudioFile& file, KXError* error) {
    KXProgressDelegate& progress = reporter();
    PartStaging staging(base);
    if (!staging.begin(error)) return nullptr;
    auto parts = copy();
    // The parts hold the material as it plays, its fades rendered; gain, polarity and reversal
    // stay with the blocks. Remote blocks are rendered into the parts only when merged.
    for (const auto& block : blocks()) {
        block->setGain(1.0f);
        block->setInvertPhase(false);
        block->setReverse(false);
        block->setActive(block->sourceType() != kSourceRemote || mergeRemote);
    }
    const std::uint32_t channels = numberOfChannels();
    for (std::uint32_t c = 0; c < channels; ++c) {
        const KXSampleRange active = activeRangeOfChannel(c);
        if (active.length == 0) continue;
        auto writer = KXAudioFileWriter::writerWithAudioFile(file);
        writer->setFormat(KXFourCC("RAW "));
        writer->setTempDirectory(staging.folder());
        progress.setTitle(partTitle(c + 1, channels));
        file.resetBuffers();
        if (!file.copy(active, KXIndexSet::indexSetWithIndexesInRange(c, 1), *writer, error)) return nullptr;
        char extension[16];
        std::snprintf(extension, sizeof extension, "%.2u", c);
        if (!writer->saveWithInstructions({{"path", staging.base() + "_0000"}, {"forcedExtension", extension}}, error))
            return nullptr;
        const std::string part = KXTessaroDocument::contiguousPartPath(base, c);
        KXEditBlockArray& blocks = parts->list_[c];
        for (const auto& block : blocks) {
            if (block->sourceType() == kSourceRemote && !mergeRemote) continue;
            const KXSampleRange range = block->sampleRange();
            const std::uint32_t fadeIn = block->startFadeLength(), fadeOut = block->endFadeLength();
            pointAtPart(*block, part, std::uint64_t(std::int64_t(range.location) - active.location - fadeIn), writer->frames());
            block->setStartSample(range.location - fadeIn);
            block->setEndSample(std::uint32_t(range.end()) + fadeOut);
            block->setStartFadeLength(0);
            block->setEndFadeLength(0);
        }
        // Neighbours that now overlap would play the mix twice: they meet in the middle.
        for (std::size_t b = 1; b < blocks.size(); ++b) {
            KXEditBlock& previous = *blocks[b - 1];
            KXEditBlock& next = *blocks[b];
            if (previous.sourceType() == kSourceRemote || next.sourceType() == kSourceRemote) continue;
            const std::int64_t overlap = std::int64_t(previous.endSample()) - next.startSample();
            if (overlap <= 0) continue;
            const std::uint32_t cut = next.startSample() + std::uint32_t(overlap / 2);
            previous.setEndSample(cut);
            previous.setOriginalEndSample(cut);
            next.setSourceLocation(next.sourceLocation() + (cut - next.startSample()));
            next.setStartSample(cut);
            next.setOriginalStartSample(cut);
        }
    }
    return staging.commit(error) ? parts : nullptr;
}

std::shared_ptr<KXEditList> KXEditList::separateEditsWritableEditListForPath(const std::string& base, std::int32_t extra,
                                                                             const KXConverter& converter, KXError* error) {
    KXProgressDelegate& progress = reporter();
    PartStaging staging(base);
    if (!staging.begin(error)) return nullptr;
    auto parts = copy();
    const std::uint32_t total = blockCount();
    std::uint32_t number = 0;
    for (const auto& block : parts->blocks()) {
        if (block->sourceType() == kSourceRemote) continue;
        const std::uint32_t n = number++;
        // A block without a source (silence) has nothing to write.
        if (!block->sourcePath()) continue;
        progress.setTitle(partTitle(n + 1, total));
        progress.setIsStoppable(false);
        auto writer = KXAudioFileWriter::writer();
        writer->setTempDirectory(staging.folder());
        const std::string part = KXTessaroDocument::separatePartPath(base, n);
        if (!block->writeToWriter(*writer, extra, converter, &progress, error) ||
            !writer->saveWithInstructions({{"path", KXTessaroDocument::separatePartPath(staging.base(), n)}}, error))
            return nullptr;
        const std::int64_t handle = std::int64_t(block->sourceLocation()) - block->startFadeLength();
        pointAtPart(*block, part, std::uint64_t(block->startFadeLength() + std::min<std::int64_t>(std::max(extra, 0), handle)),
                    writer->frames());
        if (!progress.update(double(n + 1) / double(total), error)) return nullptr;
    }
    return staging.commit(error) ? parts : nullptr;
}

// The editing group of KXEditList: the edit operations, merging, pasted sources made the
// file's own, and linked source files.

#include <algorithm>
#include <map>
#include <set>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXEditList/KXEditList.h"
#include "KXAudioFile/KXEditList/KXSourceReader.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXUserInterface.h"

// --- Blocks

namespace {

// Moves the blocks that start at or after `from` by `frames`.
void moveBlocksFrom(const KXEditBlockArray& blocks, std::uint64_t from, std::int64_t frames) {
    for (const auto& block : blocks)
        if (block->startSample() >= from) block->moveBy(frames);
}

}  // namespace

void KXEditList::addBlock(std::shared_ptr<KXEditBlock> block, std::uint32_t channel) {
    if (!block || channel >= list_.size()) return;
    list_[channel].push_back(std::move(block));
    sortChannel(channel);
}

void KXEditList::removeBlock(const KXEditBlock& block, std::uint32_t channel) {
    if (channel >= list_.size()) return;
    auto& blocks = list_[channel];
    blocks.erase(std::remove_if(blocks.begin(), blocks.end(), [&](const auto& b) { return b.get() == &block; }),
                 blocks.end());
}

void KXEditList::removeBlocksInEditList(const KXEditList& edits, bool collapse) {
    for (std::uint32_t c = 0; c < edits.numberOfChannels() && c < list_.size(); ++c) {
        // Latest first, so that closing one gap does not move the blocks still to be found.
        KXEditBlockArray removed = edits.list_[c];
        std::stable_sort(removed.begin(), removed.end(), [](const auto& a, const auto& b) { return a->positionCompare(*b) > 0; });
        auto& blocks = list_[c];
        for (const auto& gone : removed) {
            const auto found = std::find_if(blocks.begin(), blocks.end(), [&](const auto& b) { return b->isSameEdit(*gone); });
            if (found == blocks.end()) continue;
            const KXSampleRange range = (*found)->sampleRange();
            blocks.erase(found);
            if (collapse) moveBlocksFrom(blocks, range.end(), -std::int64_t(range.length));
        }
    }
}

void KXEditList::addEditList(const KXEditList& edits) {
    for (std::uint32_t c = 0; c < edits.numberOfChannels() && c < list_.size(); ++c)
        for (const auto& block : edits.list_[c]) list_[c].push_back(block->copy());
    for (std::uint32_t c = 0; c < list_.size(); ++c) sortChannel(c);
}

// --- Ranges

void KXEditList::splitChannelAt(std::uint32_t channel, std::uint32_t frame) {
    auto& blocks = list_[channel];
    for (std::size_t b = 0; b < blocks.size(); ++b)
        if (auto piece = blocks[b]->splitAt(frame)) blocks.insert(blocks.begin() + std::ptrdiff_t(++b), std::move(piece));
}

void KXEditList::insertRange(const KXSampleRange& range, std::uint32_t channel) {
    if (channel >= list_.size() || range.length == 0) return;
    splitChannelAt(channel, range.location);
    moveBlocksFrom(list_[channel], range.location, range.length);
}

void KXEditList::insertRange(const KXSampleRange& range, const KXIndexSet& channels) {
    channels.enumerateIndexes([&](std::uint32_t c) {
        insertRange(range, c);
        return true;
    });
}

void KXEditList::insertSilence(const KXSampleRange& range, const KXIndexSet& channels) {
    insertRange(range, channels);
    channels.enumerateIndexes([&](std::uint32_t c) {
        if (c >= list_.size() || range.length == 0) return true;
        auto silence = KXEditBlock::editBlock();
        silence->setName("Silence");
        silence->setSampleRange(range);
        silence->setOriginalRange(range);
        addBlock(std::move(silence), c);
        return true;
    });
}

void KXEditList::insertEditList(const KXEditList& edits, std::uint32_t position, const KXIndexSet& channels) {
    const KXSampleRange extent = edits.range();
    const auto length = std::uint32_t(std::min<std::uint64_t>(extent.end(), kNotFound - position));
    insertRange({position, length}, channels);
    std::uint32_t k = 0;
    channels.enumerateIndexes([&](std::uint32_t c) {
        if (c >= list_.size()) return false;
        // A list of one channel goes into every channel given; otherwise channel by channel.
        const std::uint32_t from = edits.numberOfChannels() == 1 ? 0 : k++;
        if (from >= edits.numberOfChannels()) return false;
        for (const auto& block : edits.list_[from]) {
            auto copy = block->copy();
            copy->moveBy(position);
            list_[c].push_back(std::move(copy));
        }
        sortChannel(c);
        return true;
    });
}

void KXEditList::insertWriterFile(const KXAudioFileWriter& writer, const KXSampleRange& range, const KXIndexSet& channels,
                                  bool useWriterSize) {
    auto written = editListWithWriter(writer);
    const std::uint32_t length = useWriterSize ? writer.frames() : range.length;
    for (const KXEditBlockArray& blocks : written->list_)
        for (const auto& block : blocks)
            if (block->sampleRange().length > length) block->setLength(length);
    removeRange(range, channels, true);
    insertRange({range.location, length}, channels);
    std::uint32_t k = 0;
    channels.enumerateIndexes([&](std::uint32_t c) {
        if (c >= list_.size() || k >= written->numberOfChannels()) return false;
        for (const auto& block : written->list_[k++]) {
            block->moveBy(range.location);
            list_[c].push_back(block);
        }
        sortChannel(c);
        return true;
    });
}

template <typename Work>
void KXEditList::cutChannelsAt(const KXSampleRange& range, const KXIndexSet& channels, Work work) {
    channels.enumerateIndexes([&](std::uint32_t c) {
        if (c >= list_.size()) return false;
        splitChannelAt(c, range.location);
        splitChannelAt(c, std::uint32_t(range.end()));
        work(list_[c]);
        return true;
    });
}

void KXEditList::removeRange(const KXSampleRange& range, const KXIndexSet& channels, bool collapse) {
    if (range.length == 0) return;
    cutChannelsAt(range, channels, [&](KXEditBlockArray& blocks) {
        std::erase_if(blocks, [&](const auto& b) { return b->startSample() >= range.location && b->endSample() <= range.end(); });
        if (collapse) moveBlocksFrom(blocks, range.end(), -std::int64_t(range.length));
    });
}

void KXEditList::spliceRange(const KXSampleRange& range, const KXIndexSet& channels, const std::string& name) {
    cutChannelsAt(range, channels, [&](KXEditBlockArray& blocks) {
        for (const auto& block : blocks)
            if (block->startSample() >= range.location && block->endSample() <= range.end()) block->setName(name);
    });
}

void KXEditList::collapseRange(const KXSampleRange& range, const KXIndexSet& channels) {
    // The frames of the range where no block of any of the channels plays, latest first.
    std::vector<KXSampleRange> gaps;
    std::uint64_t frame = range.location;
    std::vector<KXSampleRange> played;
    channels.enumerateIndexes([&](std::uint32_t c) {
        if (c >= list_.size()) return false;
        for (const auto& block : list_[c]) played.push_back(block->extent());
        return true;
    });
    std::sort(played.begin(), played.end(), [](const auto& a, const auto& b) { return a.location < b.location; });
    for (const KXSampleRange& extent : played) {
        if (extent.end() <= frame) continue;
        if (extent.location >= range.end()) break;
        if (extent.location > frame) gaps.push_back({std::uint32_t(frame), std::uint32_t(extent.location - frame)});
        frame = std::max<std::uint64_t>(frame, extent.end());
    }
    if (frame < range.end()) gaps.push_back({std::uint32_t(frame), std::uint32_t(range.end() - frame)});
    for (auto gap = gaps.rbegin(); gap != gaps.rend(); ++gap)
        channels.enumerateIndexes([&](std::uint32_t c) {
            if (c >= list_.size()) return false;
            moveBlocksFrom(list_[c], gap->end(), -std::int64_t(gap->length));
            return true;
        });
}

void KXEditList::cropRange(const KXSampleRange& range, const KXIndexSet& channels, bool inPlace) {
    cutChannelsAt(range, channels, [&](KXEditBlockArray& blocks) {
        std::erase_if(blocks, [&](const auto& b) { return b->endSample() <= range.location || b->startSample() >= range.end(); });
        for (const auto& block : blocks) {
            // Fades reaching out of the range are cut with it.
            if (block->startSample() - range.location < block->startFadeLength())
                block->setStartFadeLength(block->startSample() - range.location);
            if (range.end() - block->endSample() < block->endFadeLength())
                block->setEndFadeLength(std::uint32_t(range.end() - block->endSample()));
            if (!inPlace) block->moveBy(-std::int64_t(range.location));
        }
    });
}

// --- Merging and making sources the file's own

namespace {

// Two neighbours that play on from each other as one block would.
bool joinable(const KXEditBlock& p, const KXEditBlock& q) {
    return p.endSample() == q.startSample() && p.endFadeLength() == 0 && q.startFadeLength() == 0 &&
           p.sourcePath() == q.sourcePath() && p.sourceChannel() == q.sourceChannel() &&
           q.sourceLocation() == p.sourceLocation() + p.sampleRange().length && p.active() == q.active() &&
           p.invertPhase() == q.invertPhase() && p.gain() == q.gain();
}

// A writer of `target`'s sample format (so that its converter reads what is written) for
// material of `source`, without analysis, labels or kept chunks.
std::shared_ptr<KXAudioFileWriter> writerInFormatOf(const KXAudioFile& target, const KXAudioFile& source) {
    auto writer = KXAudioFileWriter::writerWithAudioFile(source);
    writer->setFormat(KXAudioFileWriter::formatForWriting(target.format()));
    writer->setByteOrder(target.audioDataByteOrder());
    writer->setDepth(std::int32_t(target.depth()));
    writer->setIsFloatingPoint(target.isFloatingPoint());
    writer->setEncoding(target.encoding());
    writer->setInterleaved(true);
    writer->setWriteAnalysis(false);
    writer->setWriteUnusedChunks(false);
    return writer;
}

// A writer's files saved to the temporary folder: the path that names them (an editor document's
// header) and the file that holds the samples (the file itself, or the document's first channel
// file).
struct Saved {
    std::string named, samples;
};
std::optional<Saved> saveToTemporaryFolder(KXAudioFileWriter& writer) {
    const std::optional<std::string> named = writer.saveToTempDirectory();
    const std::vector<std::string> paths = writer.filePaths();
    if (!named || paths.empty()) return std::nullopt;
    return Saved{*named, KXFile::pathExtension(*named) == "info" ? paths.front() : *named};
}

// The saved files become temporary files of `owner`, deleted with it.
void keep(const Saved& saved, KXAudioFile& owner) {
    owner.addTempFile(saved.named);
    owner.addTempFile(saved.samples);
}

// Points a block at a temporary file of one channel of its owner.
void pointAtTemporary(KXEditBlock& block, const std::string& path, std::uint64_t offset, std::uint64_t frames) {
    block.setSourcePath(path);
    block.setSourceType(KXEditList::kSourceWriter);
    block.setSourceChannel(0);
    block.setSourceTotalChannels(1);
    block.setSourceLocation(0);
    block.setSourceOffset(offset);
    block.setSourceEnd(frames);
}

}  // namespace

bool KXEditList::mergeBlocksInEditList(const KXEditList& edits, KXAudioFile& file, KXError* error) {
    KXProgressDelegate& progress = reporter();
    for (std::uint32_t c = 0; c < edits.numberOfChannels() && c < list_.size(); ++c) {
        // This list's blocks that the edits name, in order.
        KXEditBlockArray mine;
        for (const auto& block : list_[c])
            if (std::any_of(edits.list_[c].begin(), edits.list_[c].end(), [&](const auto& e) { return e->isSameEdit(*block); }))
                mine.push_back(block);
        if (mine.size() < 2) continue;
        bool join = true;
        for (std::size_t b = 1; b < mine.size() && join; ++b) join = joinable(*mine[b - 1], *mine[b]);
        if (join) {
            const std::uint32_t end = mine.back()->endSample(), originalEnd = mine.back()->originalEndSample();
            for (std::size_t b = 1; b < mine.size(); ++b) removeBlock(*mine[b], c);
            mine.front()->setEndSample(end);
            mine.front()->setOriginalEndSample(originalEnd);
            continue;
        }
        const KXSampleRange range = edits.rangeOfChannel(c, false);
        auto writer = KXAudioFileWriter::writerWithAudioFile(file);
        writer->setWriteAnalysis(false);
        writer->setWriteUnusedChunks(false);
        progress.setTitle("Merging");
        progress.setIsStoppable(false);
        file.resetBuffers();
        if (!file.copy(range, KXIndexSet::indexSetWithIndexesInRange(c, 1), *writer, error)) return false;
        const std::optional<Saved> saved = saveToTemporaryFolder(*writer);
        if (!saved) return KXAudioFileError::fail(error, KXAudioFileErrorInitializationFailed, "Merging");
        keep(*saved, file);
        auto merged = KXEditBlock::editBlock();
        merged->setSampleRange(range);
        merged->setOriginalRange(range);
        pointAtTemporary(*merged, saved->samples, std::uint64_t(std::max<std::int64_t>(writer->positionOfAudioDataForChannel(0), 0)),
                         writer->frames());
        merged->setName(mine.front()->name());
        merged->setColorIndex(mine.front()->colorIndex());
        for (const auto& block : mine) removeBlock(*block, c);
        addBlock(std::move(merged), c);
    }
    file.resetBuffers();
    return true;
}

bool KXEditList::copySourceIntoFile(KXEditBlock& block, const std::string& opened, KXAudioFile& file, KXError* error) {
    const std::optional<std::string> path = block.sourcePath();
    auto source = path && KXSourceReader::sharedFileAtPath(*path) ? KXAudioFile::audioFileWithPath(opened) : nullptr;
    // A source that is gone stays as it is: the block plays nothing, as it did.
    if (!source || !source->fileConverter()) return true;
    KXProgressDelegate& progress = *file.progressDelegate();
    progress.setTitle("Pasting");
    progress.setIsStoppable(false);
    source->setProgressDelegate(&progress);
    // The frames the block plays, its fades' handles included, read from its own source file with
    // the converter of the file they belong to.
    auto writer = writerInFormatOf(file, *source);
    const std::uint32_t length = block.sampleRange().length, fadeIn = block.startFadeLength(),
                        fadeOut = block.endFadeLength();
    const auto location = std::int64_t(block.sourceLocation());
    const std::int64_t first = std::max<std::int64_t>(0, location - fadeIn);
    if (!block.writeSourceFramesToWriter(*writer, first, location + length + fadeOut, *source->fileConverter(), &progress,
                                         error))
        return false;
    std::uint64_t handle = std::uint64_t(location - first);
    std::optional<Saved> saved = saveToTemporaryFolder(*writer);
    if (!saved) return KXAudioFileError::fail(error, KXAudioFileErrorInitializationFailed, "Pasting");
    std::uint32_t frames = writer->frames();
    std::int64_t offset = writer->positionOfAudioDataForChannel(0);
    if (source->rate() != file.rate()) {
        // At the file's rate, through a second file; the first goes.
        auto material = KXAudioFile::audioFileWithPath(saved->named, error);
        auto converted = material ? writerInFormatOf(file, *material) : nullptr;
        KXRateInstructions instructions;
        instructions.rate = file.rate();
        const bool done = converted && material->convertRate(instructions, *converted, error) == KXProgressDelegate::kGoOn;
        material.reset();
        writer->deleteFiles();
        if (!done) return false;
        saved = saveToTemporaryFolder(*converted);
        if (!saved) return KXAudioFileError::fail(error, KXAudioFileErrorInitializationFailed, "Pasting");
        frames = converted->frames();
        offset = converted->positionOfAudioDataForChannel(0);
        // The block, its handle and its fades at the new rate.
        const double ratio = double(file.rate()) / double(source->rate());
        const auto scaled = [&](std::uint64_t count) { return std::uint32_t(std::llround(double(count) * ratio)); };
        handle = scaled(handle);
        block.setLength(std::min<std::uint32_t>(scaled(length), frames > handle ? std::uint32_t(frames - handle) : 0));
        block.setStartFadeLength(scaled(fadeIn));
        block.setEndFadeLength(scaled(fadeOut));
    }
    keep(*saved, file);
    pointAtTemporary(block, saved->samples, std::uint64_t(std::max<std::int64_t>(offset, 0)), frames);
    block.setSourceLocation(handle);
    return true;
}

bool KXEditList::conformSourcesToAudioFile(KXAudioFile& file, bool link, KXError* error) {
    bool documentSource = false;
    for (std::uint32_t c = 0; c < list_.size(); ++c)
        for (const auto& block : list_[c]) {
            const std::optional<std::string> source = block->sourcePath();
            if (!source) continue;
            // A part file is known by its document, which the block's material is read through.
            std::string compared = *source;
            if (isTessaroAudioPath(*source)) {
                compared = tessaroHeaderPathFromAudioPath(*source);
                documentSource = true;
            }
            if (file.isOwnSource(compared)) continue;
            if (documentSource && link && file.format() == KXFourCC("TESS")) {
                block->setSourceType(kSourceRemote);
                continue;
            }
            if (!copySourceIntoFile(*block, compared, file, error)) return false;
        }
    return true;
}

bool KXEditList::localizeLinkedBlocksForAudioFile(KXAudioFile& file, KXError* error) {
    KXProgressDelegate& progress = *file.progressDelegate();
    const KXEditBlockArray all = blocks();
    const auto remote = std::count_if(all.begin(), all.end(), [](const auto& b) { return b->sourceType() == kSourceRemote; });
    std::int64_t done = 0;
    for (std::uint32_t c = 0; c < list_.size(); ++c)
        for (const auto& block : list_[c]) {
            if (block->sourceType() != kSourceRemote) continue;
            const std::optional<std::string> source = block->sourcePath();
            if (source) {
                const std::string opened = isTessaroAudioPath(*source) ? tessaroHeaderPathFromAudioPath(*source) : *source;
                if (!copySourceIntoFile(*block, opened, file, error)) return false;
            }
            progress.setTitle("Localizing");
            progress.update(double(++done) / double(remote));
        }
    return true;
}

// --- Linked files

namespace {

std::string folderOf(const std::string& path) { return KXFile::directoryOfPath(path); }

// Points every block whose source lies in a folder of `moved` at the file of the same name in
// the folder it moved to: one pass, however many folders moved.
void moveSourceFolders(const KXEditBlockArray& blocks, const std::map<std::string, std::string>& moved) {
    if (moved.empty()) return;
    for (const auto& block : blocks) {
        const std::optional<std::string> source = block->sourcePath();
        if (!source) continue;
        if (const auto found = moved.find(folderOf(*source)); found != moved.end())
            block->setSourcePath(KXFile::pathByAppendingComponent(found->second, KXFile::lastPathComponent(*source)));
    }
}

}  // namespace

void KXEditList::setLocalSourcePath(const std::string& folder) {
    for (const auto& block : blocks())
        if (block->sourceType() == kSourceLocal)
            if (const std::optional<std::string> source = block->sourcePath())
                block->setSourcePath(folder + "/" + *source);
}

bool KXEditList::confirmLinkedPathsForFile(const std::string& folder) {
    const KXEditBlockArray all = blocks();
    // Each missing folder is looked for once: found beside the document, found by the user, or
    // skipped (its blocks then still point into it).
    std::set<std::string> settled;
    std::map<std::string, std::string> moved;
    bool confirmed = true;
    for (const auto& block : all) {
        if (block->sourceType() != kSourceRemote) continue;
        const std::optional<std::string> source = block->sourcePath();
        if (!source) continue;
        const std::string missing = folderOf(*source);
        if (!settled.insert(missing).second || KXFile::isDirectoryAtPath(missing)) continue;
        // A linked folder moved together with the document lies beside the document's folder.
        const std::string beside = KXFile::pathByAppendingComponent(folder, KXFile::lastPathComponent(missing));
        if (KXFile::isDirectoryAtPath(beside)) {
            moved[missing] = beside;
        } else if (const std::optional<std::optional<std::string>> answer = askForMissingLink(missing); !answer) {
            confirmed = false;
            break;
        } else if (*answer) {
            moved[missing] = **answer;
        }
    }
    moveSourceFolders(all, moved);
    return confirmed;
}

std::optional<std::optional<std::string>> KXEditList::askForMissingLink(const std::string& folder) {
    const std::string name = KXFile::lastPathComponent(folder);
    KXAlert alert;
    alert.title = "Linked File Not Found";
    alert.message = "The document could not find the linked file '" + name +
                    "'. Would you like to find the file, skip it or cancel opening the document?";
    alert.buttons = {"Find", "Cancel", "Skip"};
    alert.defaultButton = 2;  // without a user to ask, the link is skipped
    const std::size_t answer = KXUserInterface::shared().runAlert(alert);
    if (answer == 1) return std::nullopt;
    if (answer != 0) return std::optional<std::string>();
    KXOpenPanelRequest request;
    request.title = "Find '" + name + "'";
    request.allowedExtensions = {"tess"};
    request.canChooseDirectories = true;
    return KXUserInterface::shared().runOpenPanel(request);
}

bool KXEditList::findMissingLink(const std::string& folder) {
    const auto answer = askForMissingLink(folder);
    if (!answer) return false;
    if (*answer) moveSourceFolders(blocks(), {{folder, **answer}});
    return true;
}

void KXEditList::replacePath(const std::string& from, const std::string& to) {
    for (const auto& block : blocks()) {
        const std::optional<std::string> source = block->sourcePath();
        if (!source) continue;
        // A part file of a document is known by its document's header.
        const bool part = isTessaroAudioPath(*source);
        if ((part ? tessaroHeaderPathFromAudioPath(*source) : *source) != from) continue;
        block->setSourcePath(part ? KXFile::pathByAppendingComponent(folderOf(to), KXFile::lastPathComponent(*source)) : to);
    }
}

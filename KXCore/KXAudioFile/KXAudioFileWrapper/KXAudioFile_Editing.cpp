// The editing group of KXAudioFile: edit operations on the file's edit list and labels, the
// pasteboard, and saving the edit list as an editor document.

#include <algorithm>
#include <limits>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXEditList/KXTessaroDocument.h"
#include "KXBase/KXCoder.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXUserInterface.h"

bool KXAudioFile::copy(const KXSampleRange& range, const KXIndexSet& channels, KXAudioFileWriter& writer, KXError* error) {
    KXAmplitudeInstructions instructions;
    instructions.start = range.location;
    instructions.end = std::uint32_t(range.end());
    instructions.channels = channels;
    return changeAmplitude(instructions, writer, error) == KXProgressDelegate::kGoOn;
}

// --- Bookkeeping

void KXAudioFile::addTempFile(const std::string& path) {
    if (std::find(tempFileList_.begin(), tempFileList_.end(), path) == tempFileList_.end()) tempFileList_.push_back(path);
}

bool KXAudioFile::isOwnSource(const std::string& path) const {
    if (path.empty()) return false;
    if (filename_)
        for (const std::string& own : filename_->paths())
            if (own == path) return true;
    return path == this->path() || std::find(tempFileList_.begin(), tempFileList_.end(), path) != tempFileList_.end();
}

void KXAudioFile::editListChanged(const KXIndexSet& channels) {
    editList_->sort();
    frames_ = std::uint32_t(std::min<std::uint64_t>(editList_->range().end(), std::numeric_limits<std::uint32_t>::max()));
    channelsList_->removeAnalysisForChannels(channels);
    resetBuffers();
}

KXRange KXAudioFile::secondsOf(const KXSampleRange& range) const {
    return KXRange::rangeWithSampleStart(range.location, std::uint32_t(std::min<std::uint64_t>(range.end(), 0xFFFFFFFFu)),
                                         rate_);
}

std::vector<KXLabelList*> KXAudioFile::labelLists() const {
    return {markerList_.get(), sliceList_.get(), regionList_.get(), loopList_.get()};
}

void KXAudioFile::shiftLabels(const KXRange& by) {
    for (KXLabelList* list : labelLists()) list->shiftRange(by);
}

void KXAudioFile::removeLabelsFromRange(const KXRange& range) {
    for (KXLabelList* list : labelLists()) list->removeRange(range);
}

void KXAudioFile::scaleLabels(float factor) {
    for (KXLabelList* list : labelLists()) list->scale(factor);
}

void KXAudioFile::scaleLabels(float factor, const KXRange& range) {
    for (KXLabelList* list : labelLists()) list->scale(factor, range);
}

// --- Channels

void KXAudioFile::addChannelAtIndex(std::uint32_t index) {
    index = std::min(index, numberOfChannels_);
    editList_->addChannelAtIndex(index);
    channelsList_->addChannelAtIndex(index);
    numberOfChannels_ = editList_->numberOfChannels();
    editListChanged({});
}

void KXAudioFile::duplicateChannelAtIndex(std::uint32_t index) {
    if (index >= numberOfChannels_) return;
    editList_->duplicateChannelAtIndex(index);
    channelsList_->duplicateChannelAtIndex(index);
    numberOfChannels_ = editList_->numberOfChannels();
    editListChanged({});
}

void KXAudioFile::removeChannelAtIndex(std::uint32_t index) {
    if (index >= numberOfChannels_) return;
    editList_->removeChannelAtIndex(index);
    channelsList_->removeChannelAtIndex(index);
    numberOfChannels_ = editList_->numberOfChannels();
    editListChanged({});
}

void KXAudioFile::moveChannels(const KXIndexSet& channels, std::uint32_t index) {
    editList_->moveChannels(channels, index);
    channelsList_->moveChannels(channels, index);
    editListChanged({});
}

// --- The pasteboard

void KXAudioFile::copyFrom(const KXSampleRange& range, const KXIndexSet& channels) {
    copyEditList(*editList_->editListFromRange(range, channels));
}

void KXAudioFile::copyEditList(const KXEditList& list) {
    KXUserInterface::shared().writePasteboard(kPasteboardType, KXCoder::archivedDataWithRootObject(list));
}

namespace {

std::shared_ptr<KXEditList> editListOnPasteboard(KXError* error) {
    const std::optional<KXData> data = KXUserInterface::shared().readPasteboard(KXAudioFile::kPasteboardType);
    std::shared_ptr<KXEditList> list;
    if (data) list = std::dynamic_pointer_cast<KXEditList>(KXDecoder::unarchiveObjectWithData(*data, KXEditList::archiveObjectForClassName));
    if (!list || list->numberOfChannels() == 0) {
        KXAudioFileError::fail(error, KXAudioFileErrorNoData, "Pasting");
        return nullptr;
    }
    return list;
}

}  // namespace

bool KXAudioFile::pasteFromPasteboard(const KXSampleRange& range, const KXIndexSet& channels, bool link, KXError* error) {
    const auto list = editListOnPasteboard(error);
    if (!list || !list->conformSourcesToAudioFile(*this, link, error)) return false;
    if (range.length > 0) deleteRange(range, channels);
    const std::uint64_t length = list->range().end();
    editList_->insertEditList(*list, range.location, channels);
    shiftLabels(secondsOf({range.location, std::uint32_t(std::min<std::uint64_t>(length, 0xFFFFFFFFu))}));
    editListChanged(channels);
    return true;
}

bool KXAudioFile::dropFromPasteboard(std::uint32_t position, const KXIndexSet& channels, KXDragOperation operation,
                                     KXError* error) {
    progressDelegate_->setTitle("Dragging");
    return pasteFromPasteboard({position, 0}, channels, operation == KXDragOperation::link, error);
}

// --- Edit operations

void KXAudioFile::spliceRange(const KXSampleRange& range, const KXIndexSet& channels, const std::string& name) {
    editList_->spliceRange(range, channels, name);
    editListChanged({});
}

void KXAudioFile::removeRange(const KXSampleRange& range, const KXIndexSet& channels) {
    editList_->removeRange(range, channels, false);
    removeLabelsFromRange(secondsOf(range));
    editListChanged(channels);
}

void KXAudioFile::removeEditList(const KXEditList& blocks) {
    editList_->removeBlocksInEditList(blocks, false);
    editListChanged(blocks.channelSet());
}

void KXAudioFile::deleteRange(const KXSampleRange& range, const KXIndexSet& channels) {
    editList_->removeRange(range, channels, true);
    const KXRange seconds = secondsOf(range);
    removeLabelsFromRange(seconds);
    shiftLabels(KXRange::rangeWithLocation(seconds.location(), -seconds.length()));
    editListChanged(channels);
}

void KXAudioFile::deleteEditList(const KXEditList& blocks) {
    editList_->removeBlocksInEditList(blocks, true);
    editListChanged(blocks.channelSet());
}

void KXAudioFile::cropRange(const KXSampleRange& range, const KXIndexSet& channels, bool inPlace) {
    editList_->cropRange(range, channels, inPlace);
    const KXRange seconds = secondsOf(range);
    for (KXLabelList* list : labelLists()) list->cropRange(seconds);
    if (!inPlace) shiftLabels(KXRange::rangeWithLocation(-1.0, -seconds.location()));
    editListChanged(channels);
}

void KXAudioFile::insertSilence(const KXSampleRange& range, const KXIndexSet& channels, bool asEditBlock) {
    if (asEditBlock) editList_->insertSilence(range, channels);
    else editList_->insertRange(range, channels);
    shiftLabels(secondsOf(range));
    editListChanged(channels);
}

std::string KXAudioFile::collapseRange(const KXSampleRange& range, const KXIndexSet& channels) {
    editList_->collapseRange(range, channels);
    editListChanged(channels);
    return "collapseRange";
}

bool KXAudioFile::mergeEditList(const KXEditList& blocks, KXError* error) {
    const bool merged = editList_->mergeBlocksInEditList(blocks, *this, error);
    editListChanged({});
    return merged;
}

bool KXAudioFile::localizeEditList(const KXEditList& blocks, KXError* error) {
    // The file's own blocks that the list names, so that localising changes them.
    auto own = KXEditList::editListWithChannelCount(editList_->numberOfChannels());
    for (std::uint32_t c = 0; c < blocks.numberOfChannels() && c < editList_->numberOfChannels(); ++c)
        for (const auto& block : editList_->blocksForChannel(c))
            for (const auto& named : blocks.blocksForChannel(c))
                if (named->isSameEdit(*block)) own->mutableBlocksForChannel(c).push_back(block);
    const bool localized = own->localizeLinkedBlocksForAudioFile(*this, error);
    editListChanged({});
    return localized;
}

bool KXAudioFile::writerFile(KXAudioFileWriter& writer, const KXSampleRange& range, const KXIndexSet& channels,
                             bool useWriterSize, KXError* error) {
    if (!writerFileAsTempFile(writer)) return KXAudioFileError::fail(error, KXAudioFileErrorNoData, "Inserting the written file");
    editList_->insertWriterFile(writer, range, channels, useWriterSize);
    if (useWriterSize && writer.frames() != range.length) {
        const KXRange seconds = secondsOf(range);
        shiftLabels(KXRange::rangeWithLocation(seconds.end(), (double(writer.frames()) - range.length) / rate_));
    }
    editListChanged(channels);
    return true;
}

std::optional<std::string> KXAudioFile::writerFileAsTempFile(KXAudioFileWriter& writer) {
    const std::optional<std::string> saved = writer.saveToTempDirectory();
    if (!saved) return std::nullopt;
    for (const std::string& path : writer.filePaths()) addTempFile(path);
    return saved;
}

std::shared_ptr<KXAudioFile> KXAudioFile::newFileFromEditList(const KXEditList& list, bool link, KXError* error) {
    auto file = audioFile();
    copyDescriptionTo(*file);
    file->numberOfChannels_ = list.numberOfChannels();
    file->channelsList_ = KXChannelsList::channelsListWithChannelCount(file->numberOfChannels_);
    file->channelsList_->loadDefaultNamesForFormat(format_);
    file->setEditList(list.copy());
    if (!file->editList_->conformSourcesToAudioFile(*file, link, error)) {
        file->removeTempFiles();
        return nullptr;
    }
    file->setUpAudioConverter();
    file->editListChanged({});
    return file;
}

void KXAudioFile::updateRange(const KXSampleRange& range, const KXIndexSet& channels) {
    resetBuffers();
    (void)analyzeRange(secondsOf(range), channels);
}

// --- The editor document

bool KXAudioFile::writeToTessaroFile(const std::string& base, const KXDictionary& operation, KXError* error) {
    if (editList_->numberOfChannels() == 0) return true;
    const bool contiguous = operation.find("contiguous") ? operation.objectForKey("contiguous").boolValue() : true;
    const bool mergeRemote = operation.objectForKey("mergeRemote").boolValue();
    const double extraFrames = operation.objectForKey("extra").doubleValue() * rate_;
    const auto extra = std::int32_t(std::clamp(extraFrames, 0.0, double(std::numeric_limits<std::int32_t>::max())));
    // The header holds the analysis: a document is analysed whole before it is saved.
    if (channelsList_->analysisState() != 1 && !analyze(false))
        return KXAudioFileError::fail(error, KXAudioFileErrorUserCancelled, "Analyzing the audio file");
    const std::string folder = KXFile::directoryOfPath(base);
    (void)KXFile::createDirectoryAtPath(folder);
    std::shared_ptr<KXEditList> parts;
    if (contiguous) {
        parts = editList_->contiguousEditsWritableEditListForPath(base, mergeRemote, *this, error);
    } else if (fileConverter_) {
        parts = editList_->separateEditsWritableEditListForPath(base, extra, *fileConverter_, error);
    } else {
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, "Writing the Tessaro file");
    }
    if (!parts) return false;

    KXTessaroDocument::Contents contents;
    contents.channels = channelsList_.get();
    contents.difference = channelsList_->difference();
    contents.rate = rate_;
    const KXArray state = parts->state();
    contents.editList = &state;
    const KXLabelList* lists[4] = {markerList_.get(), sliceList_.get(), regionList_.get(), loopList_.get()};
    std::copy(std::begin(lists), std::end(lists), contents.labelLists);
    // Deliberately unchecked: the parts are written, and the edit list below plays them.
    (void)KXTessaroDocument::writeHeader(KXTessaroDocument::header(contents), KXTessaroDocument::headerPath(base));

    parts->setLocalSourcePath(folder);
    setEditList(parts);
    // The object is now the document: its blocks play the parts' 32-bit big-endian floats.
    filename_ = KXAudioFilename(KXTessaroDocument::headerPath(base));
    setDocumentDescription();
    setUpAudioConverter();
    resetBuffers();
    return true;
}

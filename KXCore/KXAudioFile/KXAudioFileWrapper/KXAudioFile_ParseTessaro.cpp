// The Tessaro document's reader: the header (an XML property list) gives the rate, the channels
// with their analysis, the edit list and the labels; the samples are wherever the edit list's
// blocks point (see KXTessaroDocument.h).

#include <limits>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXEditList/KXTessaroDocument.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"

namespace {

constexpr const char* kAction = "Parsing the Tessaro file";

const KXArray* arrayForKey(const KXDictionary& dictionary, const char* key) {
    const KXValue* value = dictionary.find(key);
    return value && value->type() == KXValue::Type::array ? &value->array() : nullptr;
}

}  // namespace

bool KXAudioFile::parseTessaroHeader(KXFile& file, KXError* error) {
    using namespace KXTessaroDocument;
    setDocumentDescription();

    const std::uint64_t length = file.length();
    if (length > kMaximumHeaderBytes) return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    KXData data(length);
    data.resize(file.readBytes(data.data(), data.size(), 0));
    const std::optional<KXValue> plist = KXPropertyList::propertyListFromData(data);
    if (!plist || plist->type() != KXValue::Type::dictionary)
        return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    const KXDictionary& header = plist->dictionary();

    const std::int64_t rate = header.objectForKey(kRateKey).intValue();
    const KXArray* channels = arrayForKey(header, kChannelsKey);
    if (!channels) return KXAudioFileError::fail(error, KXAudioFileErrorMissingRequiredData, kAction);
    channelsList_ = KXChannelsList::channelsList();
    channelsList_->setState(*channels);
    numberOfChannels_ = channelsList_->count();
    // A rate or channel count that describes no samples.
    if (rate <= 0 || rate > std::numeric_limits<std::int32_t>::max() || numberOfChannels_ == 0)
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, kAction);
    rate_ = std::uint32_t(rate);
    if (!channelsList_->hasNames()) channelsList_->loadDefaultNamesForFormat(format_);
    if (header.objectForKey(kTablesAreBigEndianKey).boolValue())
        for (const KXWaveformArray& waveforms : channelsList_->waveforms())
            for (const auto& waveform : waveforms) waveform->swap();

    const std::string headerPath = file.path();
    const std::string folder = KXFile::directoryOfPath(headerPath);
    if (const KXArray* editList = arrayForKey(header, kEditListKey)) {
        setEditList(KXEditList::editList());
        editList_->setState(*editList);
        editList_->setLocalSourcePath(folder);
        // Linked folders are looked for beside the document's folder.
        if (!editList_->confirmLinkedPathsForFile(KXFile::directoryOfPath(folder)))
            return KXAudioFileError::fail(error, KXAudioFileErrorUserCancelled, "Finding the links in a Tessaro file");
        frames_ = std::uint32_t(std::min<std::uint64_t>(editList_->range().end(), std::numeric_limits<std::uint32_t>::max()));
    } else {
        // One file of 32-bit floats per channel beside the header, as the writer writes them.
        const std::string base = headerPath.substr(0, headerPath.size() - KXFile::pathExtension(headerPath).size() - 1);
        frames_ = std::uint32_t(std::min<std::uint64_t>(KXFile::lengthOfFileAtPath(channelFilePath(base, 0)) / 4,
                                                        std::numeric_limits<std::uint32_t>::max()));
        setEditList(KXEditList::editList());
        for (std::uint32_t c = 0; c < numberOfChannels_; ++c) {
            auto block = KXEditBlock::editBlock();
            block->setSourcePath(channelFilePath(base, c));
            block->setSourceTotalChannels(1);
            block->setSourceEnd(frames_);
            block->setSampleRange({0, frames_});
            block->setOriginalRange({0, frames_});
            editList_->addChannelAtIndex(c);
            editList_->mutableBlocksForChannel(c).push_back(std::move(block));
        }
    }
    fileSize_ = sizeOfFolder(folder);

    const std::shared_ptr<KXLabelList> lists[4] = {markerList_, sliceList_, regionList_, loopList_};
    for (std::size_t i = 0; i < 4; ++i)
        if (const KXArray* labels = arrayForKey(header, kLabelKeys[i])) lists[i]->setState(*labels);
    if (const KXValue* difference = header.find(kDifferenceKey)) channelsList_->setDifference(difference->floatValue());
    else channelsList_->setDifference(numberOfChannels_ == 1 ? -2.0f : -1.0f);
    return true;
}

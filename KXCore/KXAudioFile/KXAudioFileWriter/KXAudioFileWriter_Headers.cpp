// The header writers of each output format, called by beginWrite (before the samples) and
// endWrite (after them) through one table. Headerless formats ('RAW ', and the editor
// document's sample files, whose header is a file of its own: writeTessaroHeader) have none.

#include <bit>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXSDIILayout.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXChannels/KXAnalysisChunk.h"
#include "KXAudioFile/KXChannels/KXChannelLayouts.h"
#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXAudioFile/KXEditList/KXTessaroDocument.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXResourceFile.h"

namespace {

using HeaderWriter = bool (KXAudioFileWriter::*)(KXWritingFile&, KXError*);

// The header writers of each format, before the samples and after them, what a refusal says was
// being done, and whether the header can say G.711 ('ulaw', 'alaw'; linear PCM every header
// says). A format with an action but no writers is refused with -6.
struct HeaderRule {
    std::uint32_t format;
    HeaderWriter preData, postData;
    const char* action;
    bool g711 = false;
};

constexpr HeaderRule kHeaders[] = {
    {KXFourCC("AIFF"), &KXAudioFileWriter::writeAIFFPreDataHeader, &KXAudioFileWriter::writeAIFFPostDataHeader,
     "Writing the AIFF header", true},
    {KXFourCC("APLL"), &KXAudioFileWriter::writeAIFFPreDataHeader, &KXAudioFileWriter::writeAIFFPostDataHeader,
     "Writing the AIFF header", true},
    {KXFourCC("WAVE"), &KXAudioFileWriter::writeWAVEPreDataHeader, &KXAudioFileWriter::writeWAVEPostDataHeader,
     "Writing the WAVE header", true},
    {KXFourCC("ACID"), &KXAudioFileWriter::writeWAVEPreDataHeader, &KXAudioFileWriter::writeWAVEPostDataHeader,
     "Writing the WAVE header", true},
    {KXFourCC("ULAW"), &KXAudioFileWriter::writeULawPreDataHeader, &KXAudioFileWriter::writeULawPostDataHeader,
     "Writing the AU header", true},
    {KXFourCC("CAFF"), &KXAudioFileWriter::writeCAFPreDataHeader, &KXAudioFileWriter::writeCAFPostDataHeader,
     "Writing the CAF header", true},
    {KXFourCC("SDII"), &KXAudioFileWriter::writeSDIIPreDataHeader, &KXAudioFileWriter::writeSDIIPostDataHeader,
     "Writing the SDII header"},
    {KXAudioFileWriter::kSplitSDII, &KXAudioFileWriter::writeSDIIPreDataHeader,
     &KXAudioFileWriter::writeSDIIPostDataHeader, "Writing the SDII header"},
    {KXFourCC("SFIL"), &KXAudioFileWriter::writeSFILPreDataHeader, &KXAudioFileWriter::writeSFILPostDataHeader,
     "Writing the SFIL header"},
};

const HeaderRule* headerRuleForFormat(std::uint32_t format) {
    for (const HeaderRule& rule : kHeaders)
        if (rule.format == format) return &rule;
    return nullptr;
}

bool isWAVE(std::uint32_t format) {
    return format == KXFourCC("WAVE") || format == KXFourCC("ACID");
}
bool isAIFF(std::uint32_t format) {
    return format == KXFourCC("AIFF") || format == KXFourCC("APLL");
}
bool isSoundDesigner(std::uint32_t format) {
    return format == KXFourCC("SDII") || format == KXAudioFileWriter::kSplitSDII || format == KXFourCC("SFIL");
}

}  // namespace

bool KXAudioFileWriter::formatHoldsEncoding(std::uint32_t format, std::uint32_t encoding) {
    if (encoding == KXFourCC("lpcm")) return true;
    if (encoding != KXFourCC("ulaw") && encoding != KXFourCC("alaw")) return false;
    const HeaderRule* rule = headerRuleForFormat(format);
    // A raw file says nothing of its samples.
    return rule ? rule->g711 : format == KXFourCC("RAW ");
}

bool KXAudioFileWriter::writePreDataHeader(KXWritingFile& file, KXError* error) {
    const HeaderRule* rule = headerRuleForFormat(format_);
    // Samples the header cannot describe would be read as something else.
    if (!formatHoldsEncoding(format_, encoding_))
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, rule ? rule->action : "Writing");
    if (!rule) return true;
    if (!rule->preData) return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, rule->action);
    return (this->*rule->preData)(file, error);
}

std::optional<KXAudioFileWriter::TagChunks> KXAudioFileWriter::tagChunks() {
    if (isWAVE(format_)) return waveTagChunks();
    if (isAIFF(format_)) return aiffTagChunks();
    if (format_ == KXFourCC("CAFF")) return cafTagChunks();
    return std::nullopt;
}

bool KXAudioFileWriter::writePostDataHeader(KXWritingFile& file, KXError* error) {
    const HeaderRule* rule = headerRuleForFormat(format_);
    if (!rule) return true;
    if (!rule->postData) return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, rule->action);
    return (this->*rule->postData)(file, error);
}

std::optional<KXChunk> KXAudioFileWriter::takeIXMLChunk(std::uint32_t format) {
    if (!hasIXMLMetadata()) return std::nullopt;
    KXChunk ixml;
    ixml.setFormat(format);
    ixml.setType(KXFourCC("iXML"));
    appendIXMLToChunk(ixml);
    removeIXMLMetadata();
    return ixml;
}

KXChunkArray KXAudioFileWriter::keptChunksOfFormat(std::uint32_t format) const {
    KXChunkArray kept;
    if (!writeUnusedChunks_) return kept;
    for (const auto& chunk : unusedChunkList_)
        if (chunk->format() == format) kept.push_back(chunk);
    return kept;
}

bool KXAudioFileWriter::appendChunk(const KXChunk& chunk, KXWritingFile& file, KXError* error) {
    if (!chunk.appendToFile(file, error)) return false;
    const std::uint8_t pad = 0;
    return chunk.data().size() % 2 == 0 || file.writeBytes(&pad, 1, error);
}

bool KXAudioFileWriter::beginContainer(KXWritingFile& file, std::uint32_t type, std::uint32_t form, KXError* error) {
    KXChunk header;
    header.appendType(type);
    header.appendInt(0);
    header.appendType(form);
    if (!header.appendToFile(file, error)) return false;
    file.setFileChunkSizePosition(4);
    return true;
}

bool KXAudioFileWriter::finishContainer(KXWritingFile& file, KXByteOrder order, std::uint32_t fileType,
                                        KXError* error) {
    if (!file.moveToEnd(error)) return false;
    if (file.position() > 0x7FFFFFFF) return false;
    if (!file.writeIntValueToPosition(std::uint32_t(file.position() - 8), std::uint64_t(file.fileChunkSizePosition()),
                                      order, error))
        return false;
    return file.writeCreatorAndFileType(fileType);
}

bool KXAudioFileWriter::patchDataByteCount(KXWritingFile& file, std::uint32_t fileType, KXError* error) {
    if (!file.writeIntValueToPosition(std::uint32_t(dataBytesPerFile()), std::uint64_t(file.dataChunkSizePosition()),
                                      KXByteOrder::big, error))
        return false;
    return file.writeCreatorAndFileType(fileType);
}

std::shared_ptr<KXResource> KXAudioFileWriter::archiveResource() const {
    if (metadata_.empty() || !writeArchive_) return nullptr;
    return std::make_shared<KXResource>(KXFourCC("KXmd"), KXSDIILayout::kResourceID, std::nullopt,
                                        KXPropertyList::binaryData(metadata_));
}

bool KXAudioFileWriter::writeResourceFork(const KXWritingFile& file, std::vector<std::shared_ptr<KXResource>> resources,
                                          KXError* error) {
    if (resources.empty()) return true;
    auto fork = KXResourceFile::createResourceFileAtPath(file.path(), error);
    return fork && fork->setResources(std::move(resources), error);
}

std::uint32_t KXAudioFileWriter::channelMask() const { return KXChannelLayouts::maskOfSpeakers(speakers_); }

void KXAudioFileWriter::setChannelMask(std::uint32_t mask) { speakers_ = KXChannelLayouts::speakersOfMask(mask); }

std::uint32_t KXAudioFileWriter::channelMaskForFile(std::size_t index) const {
    const std::uint32_t given = channelMask();
    const std::uint32_t mask =
        std::popcount(given) == channels_ ? given : KXChannelLayouts::speakerMaskForChannelCount(std::uint32_t(channels_));
    if (isInterleaved_) return mask;
    // The index-th speaker of the mask.
    std::uint32_t remaining = mask;
    for (std::size_t i = 0; i < index && remaining; ++i) remaining &= remaining - 1;
    return remaining & (~remaining + 1);
}

bool KXAudioFileWriter::writeAnalysisHeader(KXError* error) {
    // An AU file has no chunks: its analysis goes to the overview cache (when enabled), which
    // follows the file when it is saved under its name.
    if (format_ == KXFourCC("ULAW")) {
        if (!KXWaveformCache::isEnabled()) return true;
        for (std::uint32_t i = 0; i < files_.size(); ++i) {
            const KXIndexSet channels = isInterleaved_ ? channelSet() : KXIndexSet{i};
            KXWaveformCache::sharedInstance().addEntry(KXAnalysisChunk::contentsForChannels(*channelsList_, channels),
                                                       files_[i]->path());
        }
        return true;
    }
    // Sound Designer files keep it in the resource fork.
    if (isSoundDesigner(format_)) {
        for (std::uint32_t i = 0; i < files_.size(); ++i) {
            const KXIndexSet channels = isInterleaved_ ? channelSet() : KXIndexSet{i};
            auto fork = KXResourceFile::createResourceFileAtPath(files_[i]->path(), error);
            if (!fork || !fork->addResource(std::make_shared<KXResource>(
                             KXFourCC("KXAn"), KXAnalysisChunk::kResourceID, std::nullopt,
                             KXAnalysisChunk::contentsForChannels(*channelsList_, channels)),
                         error))
                return false;
        }
        return true;
    }
    const bool caf = format_ == KXFourCC("CAFF");
    if (!isWAVE(format_) && !isAIFF(format_) && !caf)
        return KXAudioFileError::fail(error, KXAudioFileErrorUnsupportedFormat, "Writing the analysis");
    // After the samples of each file, with the analysis of the channels it holds: a 'KXAn' chunk,
    // or in CAF files the 'uuid' chunk of the library's analysis UUID (CAF chunks have no pad).
    for (std::uint32_t i = 0; i < files_.size(); ++i) {
        KXChunk chunk;
        chunk.setFormat(caf ? KXFourCC("caff") : isWAVE(format_) ? KXFourCC("WAVE") : KXFourCC("AIFF"));
        chunk.setType(caf ? KXFourCC("uuid") : KXFourCC("KXAn"));
        if (caf) chunk.setUUID(KXUUID::cafAnalysisUUID());
        const KXIndexSet channels = isInterleaved_ ? channelSet() : KXIndexSet{i};
        // Encoded as it goes to the file: a long file's tables are not held a third time.
        const KXValue analysis = KXAnalysisChunk::analysisForChannels(*channelsList_, channels);
        KXWritingFile& file = *files_[i];
        std::uint64_t length = 0;
        const auto begin = [&](std::uint64_t bytes) {
            length = bytes;
            return file.writeData(chunk.flatHeader(bytes), error);
        };
        const auto write = [&](const std::uint8_t* bytes, std::size_t count) { return file.writeBytes(bytes, count, error); };
        if (!file.moveToEnd(error) || !KXPropertyList::writeBinary(analysis, begin, write)) return false;
        const std::uint8_t pad = 0;
        if (!caf && length % 2 == 1 && !file.writeBytes(&pad, 1, error)) return false;
    }
    return true;
}

bool KXAudioFileWriter::writeTessaroHeader(KXError* error) {
    // The header joins the output files, last, so that saving moves it into the document folder
    // beside the channel files ("<name>.info" with "<name>.00" …), and a temporary save names it.
    if (files_.empty()) return KXAudioFileError::fail(error, KXAudioFileErrorNoData, "Writing the Tessaro header");
    const std::string first = files_.front()->path();
    const std::string path = first.substr(0, first.size() - KXFile::pathExtension(first).size()) +
                             KXTessaroDocument::kHeaderExtension;
    KXTessaroDocument::Contents contents;
    contents.channels = channelsList_.get();
    // As the analysis dictionary has it: left out when not measured.
    if (channelsList_->difference() != KXChannelsList::kNoDifference) contents.difference = channelsList_->difference();
    contents.rate = rate_;
    const KXLabelList* lists[4] = {markerList_.get(), sliceList_.get(), regionList_.get(), loopList_.get()};
    std::copy(std::begin(lists), std::end(lists), contents.labelLists);
    auto file = KXWritingFile::writingFileWithPath(path, error);
    if (!file || !file->writeData(KXPropertyList::xmlData(KXTessaroDocument::header(contents)), error)) return false;
    files_.push_back(std::move(file));
    return true;
}

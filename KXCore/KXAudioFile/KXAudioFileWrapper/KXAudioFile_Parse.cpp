#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXEditList/KXTessaroDocument.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXString.h"

namespace {

constexpr std::int32_t kLittle = KXByteOrderLittleValue, kBig = KXByteOrderBigValue;

// The opening dispatch on a file's first four bytes, first match wins. Sound Designer I files
// are known by their first two bytes alone; anything that matches nothing is Sound Designer II,
// whose header lives in the resource fork.
struct LeadingBytesRule {
    std::uint32_t value;
    std::uint32_t mask;
    KXAudioFile::ContainerKind kind;
};
constexpr LeadingBytesRule kLeadingBytes[] = {
    {KXFourCC("FORM"), 0xFFFFFFFF, {KXFourCC("AIFF"), kBig, true, "AIFF"}},
    {KXFourCC("RIFF"), 0xFFFFFFFF, {KXFourCC("WAVE"), kLittle, true, "WAVE"}},
    {KXFourCC("RF64"), 0xFFFFFFFF, {KXFourCC("WAVE"), kLittle, true, "RF64"}},
    {KXFourCC("BW64"), 0xFFFFFFFF, {KXFourCC("WAVE"), kLittle, true, "BW64"}},
    {KXFourCC("riff"), 0xFFFFFFFF, {KXFourCC("WV64"), kLittle, true, "Wave64"}},
    {0x05380000, 0xFFFF0000, {KXFourCC("SFIL"), kBig, true, "Sound Designer I"}},
    {KXFourCC("CAT "), 0xFFFFFFFF, {KXFourCC("REX2"), kBig, false, "REX2"}},
    {KXFourCC(".snd"), 0xFFFFFFFF, {KXFourCC("ULAW"), kBig, false, "AU"}},
    {KXFourCC("<?xm"), 0xFFFFFFFF, {KXFourCC("TESS"), kBig, false, "Tessaro"}},
    {KXFourCC("caff"), 0xFFFFFFFF, {KXFourCC("caff"), kBig, true, "CAF"}},
};
constexpr KXAudioFile::ContainerKind kSoundDesignerII{KXFourCC("SDII"), kBig, true, "Sound Designer II"};

std::size_t ruleIndexForLeadingBytes(std::uint32_t leadingBytes) {
    for (std::size_t i = 0; i < std::size(kLeadingBytes); ++i)
        if ((leadingBytes & kLeadingBytes[i].mask) == kLeadingBytes[i].value) return i;
    return std::size(kLeadingBytes);
}

}  // namespace

KXAudioFile::ContainerKind KXAudioFile::containerKindForLeadingBytes(std::uint32_t leadingBytes) {
    const std::size_t index = ruleIndexForLeadingBytes(leadingBytes);
    return index < std::size(kLeadingBytes) ? kLeadingBytes[index].kind : kSoundDesignerII;
}

bool KXAudioFile::initWithPath(const std::string& path, KXError* error) {
    // Deliberate extension: a document's folder ("Song.tess") opens as the header inside it.
    filename_ = KXAudioFilename(KXTessaroDocument::headerPathInFolder(path).value_or(path));
    const bool split = filename_->isSplit() && filename_->numberOfFiles() >= 2;
    if (!openFileSet(error)) {
        // A member of a split set that fails on its own is named.
        KXError named;
        if (split && !verifySplitMembers(&named)) KXSetError(error, named);
        return false;
    }
    return !split || verifySplitMembers(error);
}

namespace {

// Formats that differ only in the extra data a reader found are one container.
std::uint32_t containerOf(std::uint32_t format) {
    if (format == KXFourCC("ACID")) return KXFourCC("WAVE");
    if (format == KXFourCC("APLL")) return KXFourCC("AIFF");
    return format;
}

bool refuseMember(const std::string& path, const std::string& why, KXError* error) {
    KXSetError(error, KXError(KXAudioFileError::domain, KXAudioFileErrorUnsupportedFormat, "Opening the audio file",
                              "the file " + KXString::validUTF8(KXFile::lastPathComponent(path)) +
                                  " of the split set " + why));
    return false;
}

}  // namespace

bool KXAudioFile::verifySplitMembers(KXError* error) {
    const std::vector<std::string> paths = filename_->paths();
    std::vector<std::shared_ptr<KXAudioFile>> members;
    for (const std::string& memberPath : paths) {
        auto member = std::make_shared<KXAudioFile>();
        member->filename_ = KXAudioFilename::singleFile(memberPath);
        KXError failure;
        if (!member->openFileSet(&failure))
            return refuseMember(memberPath, "cannot be read: " + failure.reason(), error);
        members.push_back(std::move(member));
    }
    const KXAudioFile& first = *members.front();
    for (std::size_t i = 1; i < members.size(); ++i) {
        const KXAudioFile& member = *members[i];
        const char* differs = nullptr;
        if (containerOf(member.format_) != containerOf(first.format_))
            differs = "format";
        else if (member.rate_ != first.rate_)
            differs = "rate";
        else if (member.depth_ != first.depth_ || member.encoding_ != first.encoding_ ||
                 member.isFloatingPoint_ != first.isFloatingPoint_ ||
                 member.audioDataByteOrder_ != first.audioDataByteOrder_)
            differs = "sample format";
        else if (member.numberOfChannels_ != first.numberOfChannels_)
            differs = "channel count";
        if (differs)
            return refuseMember(paths[i],
                                std::string("differs from ") +
                                    KXString::validUTF8(KXFile::lastPathComponent(paths[0])) + " in its " + differs +
                                    ".",
                                error);
    }
    for (std::uint32_t c = 0; c < members.size() && c < numberOfChannels_; ++c) {
        const auto own = members[c]->editList_->blockAtIndex(0, 0);
        if (auto block = editList_->blockAtIndex(0, c); block && own) block->setSourceOffset(own->sourceOffset());
    }
    return true;
}

bool KXAudioFile::openFileSet(KXError* error) {
    auto file = KXFile::fileWithPath(filename_->path(), KXFile::Mode::read, error);
    if (!file) return false;
    fileSize_ = file->length();
    if (fileSize_ == 0) {
        return KXAudioFileError::fail(error, KXAudioFileErrorNoData, "Opening the audio file");
    }
    // A file shorter than four bytes reads as what it holds, zero-filled, and so matches
    // nothing but the fallback.
    const std::uint32_t leadingBytes = file->readIntValueAtPosition(0, KXByteOrder::big);
    // The parsers in the order of kLeadingBytes, then the fallback.
    using Parser = bool (KXAudioFile::*)(KXFile&, KXError*);
    static constexpr Parser kParsers[] = {
        &KXAudioFile::parseAIFFHeader,      &KXAudioFile::parseWAVEHeader,     &KXAudioFile::parseWAVEHeader,
        &KXAudioFile::parseWAVEHeader,      &KXAudioFile::parseWAVE64Header,   &KXAudioFile::parseSFILHeader,
        &KXAudioFile::parseREX2Header,      &KXAudioFile::parseAUHeader,       &KXAudioFile::parseTessaroHeader,
        &KXAudioFile::parseCoreAudioHeader, &KXAudioFile::parseSDIIHeader,
    };
    static_assert(std::size(kParsers) == std::size(kLeadingBytes) + 1);
    const Parser parse = kParsers[ruleIndexForLeadingBytes(leadingBytes)];
    if (!(this->*parse)(*file, error)) return false;
    creator_ = file->creatorCode();
    setUpAudioConverter();
    return true;
}

void KXAudioFile::buildChannelsList() {
    channelsList_ = KXChannelsList::channelsList();
    // A set of one file per channel: as many channels as files, named after the files' suffixes.
    if (filename_ && filename_->isSplit()) {
        numberOfChannels_ = filename_->numberOfFiles();
        if (numberOfChannels_ > 1) {
            isInterleaved_ = false;
            const std::string& layout = filename_->channelFormat();
            if (!layout.empty()) {
                channelsList_ = KXChannelsList::channelsListWithSplitFileExtensions(layout);
            } else {
                channelsList_ = KXChannelsList::channelsListWithChannelCount(numberOfChannels_);
                channelsList_->loadDefaultNamesForFormat(format_);
                for (std::uint32_t c = 0; c < numberOfChannels_; ++c) {
                    channelsList_->channel(c)->setAbbreviation(filename_->abbreviations()[c]);
                    channelsList_->channel(c)->setExtension(filename_->abbreviations()[c]);
                }
            }
        }
    }
    if (isInterleaved_) {
        channelsList_ = KXChannelsList::channelsListWithChannelCount(numberOfChannels_);
        channelsList_->loadDefaultNamesForFormat(format_);
    }
}

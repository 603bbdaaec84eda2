#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "KXAudioFile/KXChannels/KXWaveformCache.h"
#include "KXAudioFile/KXEditList/KXSourceReader.h"
#include "KXBase/KXCreatorFormatter.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXString.h"
#include "KXBase/KXUserInterface.h"

namespace {

// The HFS type code that each format's files carry; formats not listed get none.
struct HFSTypeRule {
    std::uint32_t format;
    std::uint32_t typeCode;
};
constexpr HFSTypeRule kHFSTypes[] = {
    {KXFourCC("AIFF"), KXFourCC("AIFF")}, {KXFourCC("APLL"), KXFourCC("AIFF")},
    {KXFourCC("REX1"), KXFourCC("AIFF")}, {KXFourCC("WAVE"), KXFourCC("WAVE")},
    {KXFourCC("ACID"), KXFourCC("WAVE")}, {KXFourCC("REX2"), KXFourCC("REX2")},
    {KXFourCC("SFIL"), KXFourCC("SFIL")}, {KXFourCC("SDII"), KXFourCC("Sd2f")},
    {KXFourCC("ULAW"), KXFourCC("ULAW")},
};

// A free path "TSTemp_<microseconds since 1970>.<ext>" in `directory`.
std::string newTemporaryPath(const std::string& directory, const std::string& extension) {
    using namespace std::chrono;
    double stamp = double(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
    for (;; stamp += 1) {
        char name[64];
        std::snprintf(name, sizeof name, "TSTemp_%.0f", stamp);
        std::string path = KXFile::pathByAppendingComponent(directory, name);
        if (!extension.empty()) path += "." + extension;
        if (!KXFile::existsAtPath(path)) return path;
    }
}


}  // namespace

KXAudioFile::KXAudioFile() {
    setMarkerList(nullptr);
    setSliceList(nullptr);
    setRegionList(nullptr);
    setLoopList(nullptr);
}

KXAudioFile::~KXAudioFile() {
    destroyPlayBuffers();
    closeREXDocument();
}

namespace {
// Installs `list` (a new empty one for nullptr) with `owner` as its owner.
template <typename List>
void installList(std::shared_ptr<List>& field, std::shared_ptr<List> list, KXAudioFile* owner) {
    field = list ? std::move(list) : std::make_shared<List>();
    field->setOwner(owner);
}
}  // namespace

void KXAudioFile::setMarkerList(std::shared_ptr<KXMarkerList> list) { installList(markerList_, std::move(list), this); }
void KXAudioFile::setSliceList(std::shared_ptr<KXSliceList> list) { installList(sliceList_, std::move(list), this); }
void KXAudioFile::setRegionList(std::shared_ptr<KXRegionList> list) { installList(regionList_, std::move(list), this); }
void KXAudioFile::setLoopList(std::shared_ptr<KXLoopList> list) { installList(loopList_, std::move(list), this); }

std::shared_ptr<KXAudioFile> KXAudioFile::audioFileWithPath(const std::string& path, KXError* error) {
    auto file = std::make_shared<KXAudioFile>();
    if (!file->initWithPath(path, error)) return nullptr;
    return file;
}

std::shared_ptr<KXAudioFile> KXAudioFile::audioFileWithWriter(const KXAudioFileWriter& writer, KXError* error) {
    const std::vector<std::string> paths = writer.filePaths();
    // An editor document opens by its header, the last of its files.
    const std::string path = writer.format() == KXFourCC("TESS") && !paths.empty() ? paths.back() : writer.filePath();
    return audioFileWithPath(path, error);
}

void KXAudioFile::copyDescriptionTo(KXAudioFile& other) const {
    other.format_ = format_;
    other.encoding_ = encoding_;
    other.blockSizeByteOrder_ = blockSizeByteOrder_;
    other.audioDataByteOrder_ = audioDataByteOrder_;
    other.depth_ = depth_;
    other.rate_ = rate_;
    other.isFloatingPoint_ = isFloatingPoint_;
    other.isInterleaved_ = isInterleaved_;
}

void KXAudioFile::setDocumentDescription() {
    format_ = KXFourCC("TESS");
    encoding_ = KXFourCC("lpcm");
    blockSizeByteOrder_ = audioDataByteOrder_ = KXByteOrderBigValue;
    isInterleaved_ = false;
    isFloatingPoint_ = true;
    depth_ = 32;
}

std::shared_ptr<KXAudioFile> KXAudioFile::copy() const {
    auto other = std::make_shared<KXAudioFile>();
    other->filename_ = filename_;
    other->fileSize_ = fileSize_;
    copyDescriptionTo(*other);
    // Through setCreator, which also sets the code on disk again.
    other->setCreator(creator());
    other->numberOfChannels_ = numberOfChannels_;
    other->frames_ = frames_;
    other->markerList_->setState(markerList_->state());
    other->sliceList_->setState(sliceList_->state());
    other->regionList_->setState(regionList_->state());
    other->loopList_->setState(loopList_->state());
    other->metadata_ = metadata_;
    other->unusedChunkList_ = unusedChunkList_;
    other->tempFileList_ = tempFileList_;
    other->channelsList_ = channelsList_->copy();
    other->editList_ = editList_->copy();
    // The same delegate — except that an object that reports to itself makes a copy that
    // reports to itself, not one that points at an object it does not keep alive.
    if (progressDelegate_ != this) other->progressDelegate_ = progressDelegate_;
    other->setUpAudioConverter();
    other->duplicateTempFiles();
    // A REX2 loop's copy has a REX document of its own.
    if (rexHandle_ && filename_)
        if (auto file = KXFile::fileWithPath(filename_->path())) {
            REXError answer;
            (void)other->openREXDocument(*file, &answer);
        }
    return other;
}

// --- Path and name

std::string KXAudioFile::path() const { return filename_ ? filename_->path() : std::string(); }

void KXAudioFile::setPath(const std::string& path) {
    if (filename_) editList_->replaceSourcePath(filename_->path(), path);
    filename_ = KXAudioFilename(path);
}

std::string KXAudioFile::displayName() const { return filename_ ? filename_->displayName() : std::string(); }

std::optional<std::string> KXAudioFile::pathForChannel(std::uint32_t channel) const {
    return filename_ ? filename_->pathForChannel(channel) : std::nullopt;
}

// --- File operations

bool KXAudioFile::moveToPath(const std::string& path) {
    if (!filename_) return false;
    const KXAudioFilename moved = filename_->filenameMovedToPath(path);
    const auto from = filename_->paths(), to = moved.paths();
    for (std::size_t i = 0; i < from.size() && i < to.size(); ++i) {
        const bool caseOnly = KXString::equalIgnoringCase(from[i], to[i]);
        const bool ok = caseOnly ? KXFile::renamePath(from[i], to[i]) : KXFile::movePath(from[i], to[i]);
        if (!ok) return false;
        KXWaveformCache::sharedInstance().moveEntry(from[i], to[i]);
        editList_->replaceSourcePath(from[i], to[i]);
    }
    filename_ = moved;
    return true;
}

bool KXAudioFile::copyToPath(const std::string& path) {
    if (!filename_) return false;
    const KXAudioFilename copied = filename_->filenameMovedToPath(path);
    const auto from = filename_->paths(), to = copied.paths();
    for (std::size_t i = 0; i < from.size() && i < to.size(); ++i) {
        if (!KXFile::copyPath(from[i], to[i])) return false;
        KXWaveformCache::sharedInstance().copyEntry(from[i], to[i]);
    }
    filename_ = copied;
    KXUserInterface::shared().noteFileSystemChanged(copied.directory());
    return true;
}

std::optional<std::string> KXAudioFile::duplicateToPath(const std::string& /*path*/) {
    // Deliberate: the argument is not used; the duplicate takes a numbered name of this file's own.
    if (!filename_) return std::nullopt;
    KXAudioFilename numbered = *filename_;
    constexpr std::uint32_t kMaximumNumber = 100000;
    for (std::uint32_t number = 0; number < kMaximumNumber; ++number) {
        numbered.setNumber(number);
        bool anyExists = false;
        for (const std::string& p : numbered.paths()) anyExists |= KXFile::existsAtPath(p);
        if (anyExists) continue;
        const std::string target = numbered.path();
        if (!copyToPath(target)) return std::nullopt;
        return target;
    }
    return std::nullopt;
}

void KXAudioFile::setAsTemp() {
    if (filename_) {
        for (const std::string& p : filename_->paths())
            if (std::find(tempFileList_.begin(), tempFileList_.end(), p) == tempFileList_.end())
                tempFileList_.push_back(p);
    }
    // The blocks now play temporary files, which this object owns.
    for (const auto& block : editList_->blocks()) {
        block->setSourceType(KXEditList::kSourceWriter);
        const auto source = block->sourcePath();
        if (source && std::find(tempFileList_.begin(), tempFileList_.end(), *source) == tempFileList_.end())
            tempFileList_.push_back(*source);
    }
    filename_.reset();
}

void KXAudioFile::duplicateTempFiles() {
    for (std::string& temporary : tempFileList_) {
        const std::string copy = newTemporaryPath(KXFile::directoryOfPath(temporary), KXFile::pathExtension(temporary));
        if (!KXFile::copyPath(temporary, copy)) continue;
        editList_->replaceSourcePath(temporary, copy);
        temporary = copy;
    }
}

void KXAudioFile::removeTempFiles() {
    for (const std::string& temporary : tempFileList_) {
        KXSourceReader::closeFileAtPath(temporary);
        KXFile::deleteFileAtPath(temporary);
    }
    tempFileList_.clear();
}

bool KXAudioFile::deleteFiles() {
    if (!filename_) return false;
    bool all = true;
    for (const std::string& p : filename_->paths()) {
        KXSourceReader::closeFileAtPath(p);
        all &= KXFile::deleteFileAtPath(p);
        KXWaveformCache::sharedInstance().removeEntryAtPath(p);
    }
    KXUserInterface::shared().noteFileSystemChanged(filename_->directory());
    return all;
}

bool KXAudioFile::moveToTrash() {
    if (!filename_) return false;
    KXWaveformCache::sharedInstance().removeEntriesAtPaths(filename_->paths());
    std::vector<std::string> names;
    for (const std::string& p : filename_->paths()) {
        KXSourceReader::closeFileAtPath(p);
        names.push_back(KXFile::lastPathComponent(p));
    }
    return KXUserInterface::shared().recycle(filename_->directory(), names);
}

void KXAudioFile::conformHFSType() {
    if (!filename_) return;
    for (const HFSTypeRule& rule : kHFSTypes) {
        if (rule.format != format_) continue;
        for (const std::string& p : filename_->paths()) KXFile::setTypeCode(rule.typeCode, p);
        return;
    }
}

std::string KXAudioFile::creator() const { return KXCreatorFormatter::stringForCode(creator_); }

void KXAudioFile::setCreator(const std::string& creator) {
    const auto code = KXCreatorFormatter::codeForString(creator);
    if (!code) return;
    if (filename_) {
        for (const std::string& p : filename_->paths()) {
            KXFile::setCreatorCode(*code, p);
            KXUserInterface::shared().noteFileSystemChanged(p);
        }
    }
    creator_ = *code;
}

void KXAudioFile::setUpAudioConverter() {
    KXAudioStreamDescription source;
    source.setRate(rate_);
    source.setFormat(encoding_);
    source.setRange(depth_);
    // 8-bit samples of the RIFF family are unsigned; every other integer sample is signed.
    const bool unsignedBytes = depth_ == 8 && (format_ == KXFourCC("WAVE") || format_ == KXFourCC("ACID") ||
                                               format_ == KXFourCC("WV64"));
    std::uint32_t flags = KXAudioStreamDescription::kFlagIsNonInterleaved;
    if (isFloatingPoint_) flags |= KXAudioStreamDescription::kFlagIsFloat;
    if (audioDataByteOrder_ == KXByteOrderBigValue) flags |= KXAudioStreamDescription::kFlagIsBigEndian;
    if (!unsignedBytes) flags |= KXAudioStreamDescription::kFlagIsSignedInteger;
    source.setFlags(flags);
    sourceDescription_ = source;
    destinationDescription_ = KXAudioStreamDescription::description();
    destinationDescription_.setRate(rate_);
    fileConverter_ = KXConverter::converterWithSourceFormat(sourceDescription_, destinationDescription_);
}

bool KXAudioFile::repairAtPath(const std::string& path) {
    auto file = KXFile::fileWithPath(path, KXFile::Mode::readWrite);
    if (!file) return false;
    const std::uint64_t length = file->length();
    // Shorter than a container header: nothing that could be mended.
    if (length < 8) return false;
    const std::uint32_t magic = file->readIntValueAtPosition(0, KXByteOrder::big);
    if (magic == KXFourCC("RIFF")) {
        const std::uint64_t size = file->readIntValueAtPosition(4, KXByteOrder::little);
        if (length != size + 8 &&
            !file->writeIntValueToPosition(std::uint32_t(length - 8), 4, KXByteOrder::little))
            return false;
        return true;
    }
    if (magic == KXFourCC("FORM")) {
        const std::uint64_t size = file->readIntValueAtPosition(4, KXByteOrder::big);
        if (length == size + 8) return false;
        // Bytes past a declared form are dropped; a size of 0 or one past the end is rewritten.
        if (size != 0 && length > size + 8) return file->setLength(size + 8);
        return file->writeIntValueToPosition(std::uint32_t(length - 8), 4, KXByteOrder::big);
    }
    return false;
}

void KXAudioFile::setProgressDelegate(KXProgressDelegate* delegate) {
    if (!delegate) return;
    progressDelegate_ = delegate;
    editList_->setProgressDelegate(delegate);
}

#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFilename.h"
#include "KXAudioFile/KXEditList/KXSourceReader.h"
#include "KXBase/KXApplicationLog.h"
#include "KXBase/KXDirectories.h"
#include "KXBase/KXString.h"
#include "KXBase/KXUserInterface.h"

namespace {

constexpr const char* kSource = "KXCore/KXAudioFile/KXAudioFileWriter/KXAudioFileWriter";
// One block of every channel must fit in this many bytes: a header's channel count or rate
// cannot make the writer allocate without bound.
constexpr std::uint64_t kMaximumBlockBytes = std::uint64_t(1) << 30;
// The first block holds a whole block of every channel up to this many samples (at least this
// many frames, one overview entry); beyond, it grows as samples arrive. A header update of a
// file of 32,767 channels and no frames so takes blocks of 33 MB, not of 134 MB.
constexpr std::uint32_t kFirstBlockSamples = 1u << 22;
constexpr std::uint32_t kFirstBlockFrames = 256;
// Temporary files carry the library's name before the time stamp, so that what a killed save
// leaves behind is recognisable: "kxaudio-temp-1732350000000000.00".
constexpr const char* kTempFilePrefix = "kxaudio-temp-";
// Collisions a numbered save tries before it gives up.
constexpr std::uint32_t kMaximumNumber = 100000;
// Blocks that may wait for the writer thread before the feeder waits.
constexpr std::size_t kMaximumQueuedBlocks = 2;

bool isREX(std::uint32_t format) {
    return format == KXFourCC("REX1") || format == KXFourCC("REX2") || format == KXFourCC("RCY ");
}

std::string withoutExtension(const std::string& path) {
    const std::string extension = KXFile::pathExtension(path);
    return extension.empty() ? path : path.substr(0, path.size() - extension.size() - 1);
}

std::string withExtension(const std::string& path, const std::string& extension) {
    return withoutExtension(path) + "." + extension;
}

KXError writingError(std::int64_t code) { return KXAudioFileError::errorWithCode(code, "Writing"); }

}  // namespace

// --- Life

KXAudioFileWriter::KXAudioFileWriter()
    : format_(KXFourCC("TESS")),
      encoding_(KXFourCC("lpcm")),
      markerList_(std::make_shared<KXMarkerList>()),
      sliceList_(std::make_shared<KXSliceList>()),
      regionList_(std::make_shared<KXRegionList>()),
      loopList_(std::make_shared<KXLoopList>()),
      channelsList_(KXChannelsList::channelsList()),
      tempDirectory_(KXDirectories::temporaryDirectory()) {
    log(kSource, "init", "-[KXAudioFileWriter init]", __LINE__);
}

KXAudioFileWriter::~KXAudioFileWriter() {
    log(kSource, "dealloc", "-[KXAudioFileWriter dealloc]", __LINE__);
    // No thread outlives the writer; files on disk stay as they are.
    stopWriterThread();
}

std::uint32_t KXAudioFileWriter::formatForWriting(std::uint32_t format) {
    // A file read as 'caff' is written by the CAF writer.
    return isREX(format) ? KXFourCC("APLL") : format == KXFourCC("caff") ? KXFourCC("CAFF") : format;
}

std::shared_ptr<KXAudioFileWriter> KXAudioFileWriter::writerWithAudioFile(const KXAudioFile& file) {
    auto writer = KXAudioFileWriter::writer();
    writer->log(kSource, "initWithAudioFile", "-[KXAudioFileWriter initWithAudioFile:]", __LINE__);
    writer->format_ = formatForWriting(file.format());
    writer->byteOrder_ = file.audioDataByteOrder();
    writer->depth_ = std::int32_t(file.depth());
    writer->rate_ = std::int32_t(file.rate());
    writer->channels_ = std::int32_t(file.numberOfChannels());
    writer->isFloatingPoint_ = file.isFloatingPoint();
    writer->isInterleaved_ = file.isInterleaved();
    writer->encoding_ = file.encoding();
    writer->sourcePrecision_ = precisionOfFile(file);
    if (const auto channels = file.channelsList()) {
        for (std::uint32_t c = 0; c < channels->count(); ++c) writer->speakers_.push_back(channels->channel(c)->speaker());
        // Speakers go with the samples only when every channel has one.
        if (std::find(writer->speakers_.begin(), writer->speakers_.end(), 0u) != writer->speakers_.end()) writer->speakers_.clear();
    }
    writer->setLabelListsFromAudioFile(file);
    writer->metadata_ = file.metadata();
    if (file.unusedChunkList()) writer->unusedChunkList_ = *file.unusedChunkList();
    return writer;
}

std::int32_t KXAudioFileWriter::precisionOfFile(const KXAudioFile& file) {
    if (file.encoding() == KXFourCC("ulaw")) return 14;
    if (file.encoding() == KXFourCC("alaw")) return 13;
    if (file.isFloatingPoint()) return file.depth() == 64 ? 53 : 24;
    return std::int32_t(file.depth());
}

void KXAudioFileWriter::log(const char* source, const char* message, const char* function, int line) const {
    char sender[64];
    std::snprintf(sender, sizeof sender, "<KXAudioFileWriter: %p>", static_cast<const void*>(this));
    KXApplicationLog::log(KXLogRecord{KXLogLevel::information, "Writing", message, source, line, function, sender});
}

std::string KXAudioFileWriter::newTempFileName() {
    using namespace std::chrono;
    // Writers that begin in the same microsecond (on several threads) still get names of their
    // own: the stamps one process hands out only grow.
    static std::atomic<std::int64_t> last{0};
    std::int64_t stamp = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    std::int64_t previous = last.load();
    do {
        stamp = std::max(stamp, previous + 1);
    } while (!last.compare_exchange_weak(previous, stamp));
    return std::to_string(stamp);
}

std::uint32_t KXAudioFileWriter::blockSizeForRate(std::int32_t rate) {
    return rate < 1 ? 0 : std::uint32_t(std::ceil(double(rate) * 0.0009765625)) * 1024;
}

// --- Beginning

bool KXAudioFileWriter::beginWrite(KXError* error) {
    log(kSource, "beginWrite", "-[KXAudioFileWriter beginWrite:]", __LINE__);
    const std::uint32_t blockSize = blockSizeForRate(rate_);
    if (channels_ < 1 || blockSize == 0 ||
        std::uint64_t(channels_) * blockSize * sizeof(float) > kMaximumBlockBytes) {
        KXSetError(error, writingError(KXAudioFileErrorInitializationFailed));
        return false;
    }
    // Deliberate: AIFF-C floats are big-endian; 'fl32' and 'fl64' name no other order.
    if ((format_ == KXFourCC("AIFF") || format_ == KXFourCC("APLL")) && isFloatingPoint_) byteOrder_ = KXByteOrderBigValue;
    // Sound Designer samples are big-endian; Sound Designer I files are mono, so more channels
    // are written as a set of one file per channel (deliberate: the design wrote them interleaved
    // under a header that says nothing of channels).
    const bool soundDesigner = format_ == KXFourCC("SFIL") || format_ == KXFourCC("SDII") || format_ == kSplitSDII;
    if (soundDesigner) byteOrder_ = KXByteOrderBigValue;
    if (format_ == KXFourCC("SFIL") && channels_ > 1) isInterleaved_ = false;
    const std::uint32_t fileCount = isInterleaved_ ? 1 : std::uint32_t(channels_);
    tempFileName_ = newTempFileName();
    files_.clear();
    for (std::uint32_t i = 0; i < fileCount; ++i) {
        char extension[16];
        std::snprintf(extension, sizeof extension, ".%.2u", i);
        const std::string path = KXFile::pathByAppendingComponent(tempDirectory_, kTempFilePrefix + tempFileName_ + extension);
        auto file = KXWritingFile::writingFileWithPath(path, error);
        if (!file) return false;
        if (isREX(format_)) format_ = KXFourCC("APLL");
        if (!writePreDataHeader(*file, error)) {
            // The file whose header failed is not one of the writer's: nothing else would remove it.
            (void)file->close();
            KXFile::deleteFileAtPath(path);
            return false;
        }
        files_.push_back(std::move(file));
    }

    KXAudioStreamDescription source = KXAudioStreamDescription::description();
    source.setRate(rate_);
    source.setChannels(std::uint32_t(channels_));
    KXAudioStreamDescription destination;
    destination.setRate(rate_);
    destination.setChannels(std::uint32_t(channels_));
    destination.setFormat(encoding_);
    destination.setRange(std::uint32_t(std::max(depth_, 0)));
    std::uint32_t flags = 0;
    if (isFloatingPoint_) flags |= KXAudioStreamDescription::kFlagIsFloat;
    if (byteOrder_ != KXByteOrderLittleValue) flags |= KXAudioStreamDescription::kFlagIsBigEndian;
    // 8-bit WAVE samples are unsigned; 'ACID' at 8 bits stays signed, deliberately.
    if (!(format_ == KXFourCC("WAVE") && depth_ == 8)) flags |= KXAudioStreamDescription::kFlagIsSignedInteger;
    if (!isInterleaved_) flags |= KXAudioStreamDescription::kFlagIsNonInterleaved;
    destination.setFlags(flags);
    converter_ = KXConverter::converterWithSourceFormat(source, destination);
    if (!converter_) {
        KXSetError(error, writingError(KXAudioFileErrorUnsupportedFormat));
        return false;
    }
    converter_->setDither(dither_ && !isFloatingPoint_ && depth_ < sourcePrecision_);

    blockSize_ = blockSize;
    accumulationBuffer_ = std::make_unique<KXNativeAudioBuffer>(
        std::uint32_t(channels_),
        std::min<std::uint32_t>(blockSize_, std::max<std::uint32_t>(kFirstBlockFrames, kFirstBlockSamples / std::uint32_t(channels_))));
    spareBuffers_.clear();
    samplesWritten_ = 0;
    writeError_.reset();
    channelsList_ = KXChannelsList::channelsListWithChannelCount(std::uint32_t(channels_));
    // Named as a reader names them, so that the analysis stored with the file keeps the names:
    // by the source's speakers when they are known (formats whose headers say nothing of speakers
    // keep them in those names).
    channelsList_->loadDefaultNamesForFormat(format_);
    if (isInterleaved_ && speakers_.size() == std::size_t(channels_)) channelsList_->setSpeakers(speakers_);
    channelsList_->beginAnalysis(false);
    if (expectedFrames_ && format_ != KXFourCC("RAW ")) channelsList_->reserveAnalysisFrames(expectedFrames_);
    if (writeAsynchronous_) startWriterThread();
    return true;
}

// --- Feeding

void KXAudioFileWriter::writeSample(float value, std::int32_t channel) {
    KXNativeAudioBuffer* buffer = accumulationBuffer_.get();
    if (!buffer || channel < 0 || std::uint32_t(channel) >= buffer->numberOfChannels()) return;
    const std::uint32_t frame = buffer->range().length;
    if (frame == buffer->capacity()) reserveAccumulatedFrames(frame + 1);
    buffer->channel(std::uint32_t(channel))[frame] = value;
    if (std::uint32_t(channel) + 1 != buffer->numberOfChannels()) return;
    buffer->incrementRangeLength();
    if (buffer->range().length == blockSize_) flush(blockSize_, false);
}

void KXAudioFileWriter::writeBuffer(const KXNativeAudioBuffer& buffer) { writeBuffer(buffer, {0, buffer.frames()}); }

void KXAudioFileWriter::writeBuffer(const KXNativeAudioBuffer& buffer, const KXSampleRange& requested) {
    if (!accumulationBuffer_ || buffer.numberOfChannels() != accumulationBuffer_->numberOfChannels()) return;
    const KXSampleRange range = requested.intersection({0, buffer.frames()});
    std::uint32_t position = range.location, remaining = range.length;
    while (remaining > 0) {
        const std::uint32_t fill = accumulationBuffer_->range().length;
        const std::uint32_t piece = std::min(remaining, blockSize_ - fill);
        reserveAccumulatedFrames(fill + piece);
        if (!accumulationBuffer_->copyFrames({position, piece}, buffer, fill)) return;
        accumulationBuffer_->incrementRangeLength(piece);
        if (fill + piece == blockSize_) flush(blockSize_, false);
        position += piece;
        remaining -= piece;
    }
}

void KXAudioFileWriter::reserveAccumulatedFrames(std::uint32_t frames) {
    const std::uint32_t capacity = accumulationBuffer_->capacity();
    if (frames <= capacity) return;
    accumulationBuffer_->growCapacity(std::min(blockSize_, std::max(frames, capacity * 2)));
}

void KXAudioFileWriter::flush(std::uint32_t frames, bool synchronous) {
    // The full block leaves for the disk; a spare (or new) buffer takes its place.
    std::unique_ptr<KXNativeAudioBuffer> block = std::move(accumulationBuffer_);
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        if (!spareBuffers_.empty()) {
            accumulationBuffer_ = std::move(spareBuffers_.back());
            spareBuffers_.pop_back();
        }
    }
    if (!accumulationBuffer_)
        accumulationBuffer_ = std::make_unique<KXNativeAudioBuffer>(block->numberOfChannels(), block->capacity());
    accumulationBuffer_->resetRange();
    accumulationBuffer_->setFrames(accumulationBuffer_->capacity());
    block->setFrames(frames);

    if (!synchronous && writerThread_.joinable()) {
        std::unique_lock<std::mutex> lock(queueMutex_);
        queueChanged_.wait(lock, [&] { return queue_.size() < kMaximumQueuedBlocks; });
        queue_.push_back(std::move(block));
        lock.unlock();
        queueChanged_.notify_all();
        return;
    }
    convertBuffer_ = std::move(block);
    writeFileBufferToDisk();
}

void KXAudioFileWriter::writeFileBufferToDisk() {
    if (!convertBuffer_) return;
    writeBlock(*convertBuffer_);
    std::lock_guard<std::mutex> lock(queueMutex_);
    spareBuffers_.push_back(std::move(convertBuffer_));
}

void KXAudioFileWriter::writeBlock(KXNativeAudioBuffer& block) {
    const std::uint32_t channels = block.numberOfChannels();
    // The analysis sees the native samples and where in the file the block lies.
    if (format_ != KXFourCC("RAW ")) {
        block.setRange({std::uint32_t(samplesWritten_ / channels), block.frames()});
        channelsList_->analyzeBuffer(block);
    }
    if (block.frames() == 0 || !converter_) return;
    const std::uint32_t fileCount = std::uint32_t(files_.size());
    const std::size_t length =
        std::size_t(block.frames()) * converter_->bytesPerSample() * (converter_->isInterleaved() ? channels : 1);
    if (!fileBuffer_ || fileBuffer_->count() != fileCount || fileBuffer_->length() != length)
        fileBuffer_ = std::make_unique<KXAudioBuffer>(fileCount, length);
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        if (writeError_) return;
    }
    KXError error;
    const std::uint32_t converted = converter_->convertNativeBuffer(block, *fileBuffer_, &error);
    if (converted == 0) return recordWriteError(error);
    samplesWritten_ += std::uint64_t(converted) * channels;
    // No flush per block: the kernel's own writeback and the one flush at the end do better.
    for (std::uint32_t i = 0; i < fileCount; ++i)
        if (!files_[i]->writeBytes(fileBuffer_->bufferAtIndex(i), length, &error)) return recordWriteError(error);
}

void KXAudioFileWriter::recordWriteError(const KXError& error) {
    KXUserInterface::shared().presentError(error);
    std::lock_guard<std::mutex> lock(queueMutex_);
    if (!writeError_) writeError_ = error;
}

// --- The writer thread

void KXAudioFileWriter::startWriterThread() {
    stopWriterThread();
    stopWriter_ = false;
    writerThread_ = std::thread([this] {
        std::unique_lock<std::mutex> lock(queueMutex_);
        for (;;) {
            queueChanged_.wait(lock, [&] { return stopWriter_ || !queue_.empty(); });
            // Stopping drains the queue first.
            if (queue_.empty()) return;
            std::unique_ptr<KXNativeAudioBuffer> block = std::move(queue_.front());
            queue_.pop_front();
            lock.unlock();
            queueChanged_.notify_all();
            writeBlock(*block);
            lock.lock();
            spareBuffers_.push_back(std::move(block));
        }
    });
}

void KXAudioFileWriter::stopWriterThread() {
    if (!writerThread_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        stopWriter_ = true;
    }
    queueChanged_.notify_all();
    writerThread_.join();
}

// --- Ending

bool KXAudioFileWriter::endWrite(KXError* error) {
    log(kSource, "endWrite", "-[KXAudioFileWriter endWrite:]", __LINE__);
    if (!accumulationBuffer_ || !converter_) {
        KXSetError(error, writingError(KXAudioFileErrorInitializationFailed));
        return false;
    }
    stopWriterThread();
    flush(accumulationBuffer_->range().length, true);
    // A block that failed to reach the disk fails the whole file: nothing may be saved over an
    // older one as if it were complete.
    if (writeError_) {
        KXSetError(error, *writeError_);
        return false;
    }

    // A WAVE chunk of odd length is followed by a pad byte.
    if (format_ == KXFourCC("WAVE") || format_ == KXFourCC("ACID")) {
        if (dataBytesPerFile() % 2 == 1) {
            const std::uint8_t pad = 0;
            for (const auto& file : files_)
                if (!file->moveToEnd(error) || !file->writeBytes(&pad, 1, error)) return false;
        }
    }
    if (format_ != KXFourCC("RAW ")) {
        channelsList_->endAnalysis();
        if (format_ == KXFourCC("TESS")) {
            if (!writeTessaroHeader(error)) return false;
        } else if (writeAnalysis_ && !writeAnalysisHeader(error)) {
            return false;
        }
    }
    // One flush, once the header is complete: the file is still a temporary one, which saving
    // renames into place only after this, so the samples need no flush of their own before it.
    for (const auto& file : files_)
        if (!writePostDataHeader(*file, error) || !file->synchronize(error)) return false;
    converter_.reset();
    accumulationBuffer_.reset();
    spareBuffers_.clear();
    fileBuffer_.reset();
    return true;
}

// --- Saving

namespace {

// Formats and their file-name extensions. `written`: the extension a saved file of the format
// gets; `named`: the format an extension names when a caller chooses by extension.
struct ExtensionRule {
    std::uint32_t format;
    const char* extension;
    bool written, named;
};
constexpr ExtensionRule kExtensions[] = {
    {KXFourCC("AIFF"), "aif", true, true},   {KXFourCC("APLL"), "aif", true, false},
    {KXFourCC("WAVE"), "wav", true, true},   {KXFourCC("ACID"), "wav", true, false},
    {KXFourCC("CAFF"), "caf", true, true},   {KXFourCC("caff"), "caf", true, false},
    {KXFourCC("SDII"), "sd2", true, true},
    {KXAudioFileWriter::kSplitSDII, "sd2", true, false},
    {KXFourCC("SFIL"), "sd", true, true},    {KXFourCC("ULAW"), "au", true, true},
    {KXFourCC("REX1"), "rex", true, false},  {KXFourCC("REX2"), "rx2", true, false},
    {KXFourCC("RCY "), "rcy", true, false},  {KXFourCC("AIFF"), "aiff", false, true},
    {KXFourCC("AIFF"), "aifc", false, true}, {KXFourCC("WAVE"), "wave", false, true},
    {KXFourCC("ULAW"), "snd", false, true},  {KXFourCC("RAW "), "raw", false, true},
};

}  // namespace

std::optional<std::string> KXAudioFileWriter::extensionForFormat(std::uint32_t format) {
    for (const ExtensionRule& rule : kExtensions)
        if (rule.written && rule.format == format) return rule.extension;
    return std::nullopt;
}

std::optional<std::uint32_t> KXAudioFileWriter::formatForExtension(const std::string& extension) {
    for (const ExtensionRule& rule : kExtensions)
        if (rule.named && KXString::equalIgnoringCase(rule.extension, extension)) return rule.format;
    return std::nullopt;
}

std::optional<std::string> KXAudioFileWriter::formatExtension() const { return extensionForFormat(format_); }

bool KXAudioFileWriter::moveFile(KXWritingFile& file, const std::string& path, bool replacing, KXError* error) {
    return file.setPath(path, replacing, error);
}

bool KXAudioFileWriter::saveToPath(const std::string& path) { return saveWithInstructions({{"path", path}}); }

bool KXAudioFileWriter::saveWithInstructions(const KXDictionary& instructions, KXError* error) {
    log(kSource, "saveWithInstructions", "-[KXAudioFileWriter saveWithInstructions:error:]", __LINE__);
    const KXValue* pathValue = instructions.find("path");
    if (!pathValue || !pathValue->isString()) return false;
    const std::string path = pathValue->string();

    if (format_ == KXFourCC("TESS")) {
        // The editor document is a folder "<name>.tess" holding "<name>.00", "<name>.01" …
        const std::string name = KXFile::lastPathComponent(path);
        const std::string folder = withExtension(path, "tess");
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
        (void)KXFile::createDirectoryAtPath(folder);
        const std::string base = KXFile::pathByAppendingComponent(folder, name);
        for (const auto& file : files_)
            if (!moveFile(*file, withExtension(base, KXFile::pathExtension(file->path())), false, error)) return false;
        return true;
    }

    KXAudioFilename filename(path);
    if (isInterleaved_) filename.setScheme(KXAudioFilename::Scheme::dot);
    else if (format_ == kSplitSDII || format_ == KXFourCC("SDII")) filename.setScheme(KXAudioFilename::Scheme::hyphen);
    filename.setNumberOfFiles(std::uint32_t(files_.size()));
    const KXValue* forced = instructions.find("forcedExtension");
    if (instructions.objectForKey("ignoreExtension").boolValue()) filename.setExtension(std::nullopt);
    else if (forced && forced->isString()) filename.setExtension(forced->string());
    else filename.setExtension(formatExtension());

    const std::uint32_t existsAction = instructions.objectForKey("existsAction").unsignedIntValue();
    std::vector<bool> replacing(files_.size(), false);
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < files_.size(); ++i) {
        const std::string target = filename.pathForChannel(std::uint32_t(i)).value_or(filename.path());
        if (!KXFile::existsAtPath(target)) continue;
        if (existsAction == 0) {
            // Replaced by renaming the new file over it: never deleted first.
            replacing[i] = true;
        } else if (existsAction == 1) {
            if (number >= kMaximumNumber) {
                KXSetError(error, KXError::posixError(EEXIST, "Saving to " + target));
                return false;
            }
            filename.setNumber(number++);
            std::fill(replacing.begin(), replacing.end(), false);
            i = std::size_t(-1);  // the pass starts again with the new name
        } else if (existsAction == 2) {
            deleteFiles();
            return true;
        }
    }
    for (std::size_t i = 0; i < files_.size(); ++i) {
        const std::string target = filename.pathForChannel(std::uint32_t(i)).value_or(filename.path());
        if (!moveFile(*files_[i], target, replacing[i], error)) return false;
    }
    return true;
}

std::vector<std::string> KXAudioFileWriter::dropToPath(const std::string& directory, const std::string& proposed) {
    log(kSource, "dropToPath:filename", "-[KXAudioFileWriter dropToPath:filename:]", __LINE__);
    std::vector<std::string> names;
    KXAudioFilename filename(KXFile::pathByAppendingComponent(directory, proposed));
    // The proposed name itself first, then the numbered ones.
    const auto numbered = [&](std::uint32_t attempt) {
        filename.setNumber(attempt == 0 ? std::nullopt : std::optional<std::uint32_t>(attempt - 1));
    };
    if (format_ == KXFourCC("TESS")) {
        filename.setExtension("tess");
        std::uint32_t attempt = 0;
        for (numbered(attempt); KXFile::existsAtPath(filename.path()) && attempt <= kMaximumNumber;) numbered(++attempt);
        const std::string folder = filename.path();
        if (!KXFile::createDirectoryAtPath(folder)) return names;
        const std::string base = withoutExtension(filename.filename());
        for (const auto& file : files_)
            if (!moveFile(*file, KXFile::pathByAppendingComponent(folder, base + "." + KXFile::pathExtension(file->path())), false,
                          nullptr))
                return names;
        names.push_back(KXFile::lastPathComponent(folder));
        return names;
    }
    filename.setNumberOfFiles(std::uint32_t(files_.size()));
    filename.setExtension(formatExtension());
    const auto anyExists = [&] {
        for (std::uint32_t i = 0; i < files_.size(); ++i)
            if (KXFile::existsAtPath(filename.pathForChannel(i).value_or(filename.path()))) return true;
        return false;
    };
    std::uint32_t attempt = 0;
    for (numbered(attempt); anyExists() && attempt <= kMaximumNumber;) numbered(++attempt);
    if (anyExists()) return names;
    for (std::uint32_t i = 0; i < files_.size(); ++i) {
        const std::string target = filename.pathForChannel(i).value_or(filename.path());
        if (!moveFile(*files_[i], target, false, nullptr)) return names;
        names.push_back(KXFile::lastPathComponent(target));
    }
    return names;
}

std::optional<std::string> KXAudioFileWriter::saveToTempDirectory() {
    log(kSource, "saveToTempDirectory", "-[KXAudioFileWriter saveToTempDirectory]", __LINE__);
    const std::string base = KXFile::pathByAppendingComponent(tempDirectory_, "TSTemp_" + tempFileName_);
    for (const auto& file : files_) (void)moveFile(*file, base + "." + KXFile::pathExtension(file->path()), false, nullptr);
    if (isInterleaved_) return files_.empty() ? std::nullopt : std::optional<std::string>(files_.front()->path());
    return base + (format_ == KXFourCC("TESS") ? ".info" : ".L");
}

void KXAudioFileWriter::deleteFiles() {
    log(kSource, "delete", "-[KXAudioFileWriter delete]", __LINE__);
    for (const auto& file : files_) {
        (void)file->close();
        KXSourceReader::closeFileAtPath(file->path());
        KXFile::deleteFileAtPath(file->path());
    }
    files_.clear();
}

// --- Writer extensions of the native buffer

void KXNativeAudioBufferWriting::writeToWriter(const KXNativeAudioBuffer& buffer, KXAudioFileWriter& writer,
                                               const KXSampleRange& range, const KXIndexSet& channels) {
    if (writer.channels() < 0 || std::uint64_t(writer.channels()) != channels.count()) return;
    const std::vector<std::uint32_t> selected = channels.indexes();
    const std::uint64_t end = std::min<std::uint64_t>(range.end(), buffer.frames());
    for (std::uint64_t frame = range.location; frame < end; ++frame) {
        std::int32_t packed = 0;
        for (std::uint32_t c : selected) {
            if (c >= buffer.numberOfChannels()) continue;
            writer.writeSample(buffer.channel(c)[frame], packed++);
        }
    }
}

void KXNativeAudioBufferWriting::writeToWriter(const KXNativeAudioBuffer& buffer, KXAudioFileWriter& writer,
                                               const KXSampleRange& range) {
    writeToWriter(buffer, writer, range, KXIndexSet::indexSetWithIndexesInRange(0, buffer.numberOfChannels()));
}

void KXNativeAudioBufferWriting::writeToWriter(const KXNativeAudioBuffer& buffer, KXAudioFileWriter& writer) {
    writeToWriter(buffer, writer, {0, buffer.frames()});
}

void KXNativeAudioBufferWriting::writeEnabledChannelsToWriter(const KXNativeAudioBuffer& buffer,
                                                              KXAudioFileWriter& writer) {
    writeToWriter(buffer, writer, {0, buffer.frames()}, buffer.enabledChannels());
}

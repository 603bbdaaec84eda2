#pragma once
// KXAudioFileWriter: turns a stream of native float samples into one or more audio files.
//
//   configure (the setters, or writerWithAudioFile) → beginWrite → writeSample / writeBuffer …
//   → endWrite (exactly once after a successful begin) → saveWithInstructions / saveToPath /
//   dropToPath / saveToTempDirectory, or deleteFiles
//
// Until saved, each output file lives in the temporary directory under the writer's time stamp
// (microseconds since 1970) with the extension "00", "01" …: one file holding every channel when
// interleaved, else one per channel. Samples are gathered in blocks of ceil(rate ÷ 1024) × 1024
// frames (about a second: 45056 at 44100 Hz); each full block is analysed (the channel list),
// converted to the file's encoding and appended, one write per file.
//
// Asynchronous mode hands full blocks to a writer thread of the writer's own; the feeder waits
// only when two blocks are already waiting, so no block is ever lost. endWrite() writes the
// last block on the calling thread after the thread has finished.
//
// A disk write that fails while feeding cannot be answered to the feeder: it goes to the user
// interface's error display and the block is lost.
//
// Members are grouped as the sources are: KXAudioFileWriter.cpp (life, feeding, saving),
// KXAudioFileWriter_Access.cpp (settings, metadata, statistics) and
// KXAudioFileWriter_Headers.cpp (the header writers of each format).

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "KXAudioFile/KXAudioFileWriter/KXWritingFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunk.h"
#include "KXAudioFile/KXChannels/KXChannelsList.h"
#include "KXAudioFile/KXLabels/KXLoopList.h"
#include "KXAudioFile/KXLabels/KXMarkerList.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"
#include "KXAudioFile/KXLabels/KXSliceList.h"
#include "KXBase/KXConverter.h"
#include "KXBase/KXError.h"
#include "KXBase/KXIndexSet.h"
#include "KXBase/KXNativeAudioBuffer.h"
#include "KXBase/KXValue.h"

class KXAudioFile;
class KXResource;

class KXAudioFileWriter {
public:
    // The split Sound Designer II code: 'SDII' negated, compared as a plain 32-bit value.
    static constexpr std::uint32_t kSplitSDII = 0xACBBB6B7;

    // A new writer (init): an editor document ('TESS') of 32-bit big-endian float split
    // channels, 2 channels at 44100 Hz, analysis and unused chunks on, synchronous.
    KXAudioFileWriter();
    ~KXAudioFileWriter();
    KXAudioFileWriter(const KXAudioFileWriter&) = delete;
    KXAudioFileWriter& operator=(const KXAudioFileWriter&) = delete;
    static std::shared_ptr<KXAudioFileWriter> writer() { return std::make_shared<KXAudioFileWriter>(); }
    // A writer of an open file's format (REX formats become 'APLL'), sample format, labels,
    // metadata and unused chunks (initWithAudioFile:), set without the correcting setters.
    static std::shared_ptr<KXAudioFileWriter> writerWithAudioFile(const KXAudioFile& file);
    // The format that writes a file of `format`: REX formats become 'APLL', 'caff' 'CAFF'.
    static std::uint32_t formatForWriting(std::uint32_t format);

    // --- Lifecycle (KXAudioFileWriter.cpp)
    [[nodiscard]] bool beginWrite(KXError* error = nullptr);
    // One sample of one channel. Samples are given frame by frame, channel 0 first; a frame
    // counts once its last channel has arrived. A channel the writer does not have is ignored.
    void writeSample(float value, std::int32_t channel);
    // Every frame of the buffer (its `frames`), or `range` of them; a buffer of another channel
    // count is ignored.
    void writeBuffer(const KXNativeAudioBuffer& buffer);
    void writeBuffer(const KXNativeAudioBuffer& buffer, const KXSampleRange& range);
    [[nodiscard]] bool endWrite(KXError* error = nullptr);
    // Converts and writes the pending block (the asynchronous hand-off's target).
    void writeFileBufferToDisk();

    // --- The header update (KXAudioFileWriter_Update.cpp)
    // The label and metadata chunks that this writer's state makes for its format (WAVE, AIFF and
    // CAF and their loop-library forms), before and after the samples; nullopt for other formats.
    // Building them takes the metadata groups they hold out of the writer, as writing a header does.
    struct TagChunks {
        std::vector<KXChunk> beforeSamples, afterSamples;
    };
    std::optional<TagChunks> tagChunks();
    enum class HeaderUpdate { inPlace, rewritten };
    // Puts this writer's labels and metadata (a writerWithAudioFile of the file at `path`,
    // changed) into that file, leaving its samples and every chunk that is not a label or
    // metadata chunk byte for byte as they are. In place when the new chunks fit where the old
    // ones and the padding chunks before the samples were, within the file's first 4 KiB, and
    // nothing after the samples changes: one write, the length unchanged. Otherwise the file is
    // written anew beside itself (with a padding chunk that leaves room for the next update),
    // flushed, and renamed over the old one: a reader sees the old file or the new, never part of
    // one. WAVE (RIFF, RF64, BW64), AIFF and CAF files. AU and Sound Designer I and II files
    // (whose headers this writer writes whole) are always written anew through the writer, the
    // samples then copied over as the bytes they were. Split sets and other formats are refused
    // with -6.
    std::optional<HeaderUpdate> updateHeaderOfFile(const std::string& path, KXError* error = nullptr);

    // --- Saving (KXAudioFileWriter.cpp)
    // Instructions: "path" (string, required), "forcedExtension" (string), "existsAction"
    // (0 replace — the new file is renamed over the old in one step; 1 the next free number of
    // the naming scheme; 2 keep the existing file and delete the new ones, answering true),
    // "ignoreExtension" (no extension at all; wins over "forcedExtension").
    [[nodiscard]] bool saveWithInstructions(const KXDictionary& instructions, KXError* error = nullptr);
    [[nodiscard]] bool saveToPath(const std::string& path);
    // Moves the files into `directory` under the first free numbered name of `filename` and
    // answers the new file names.
    std::vector<std::string> dropToPath(const std::string& directory, const std::string& filename);
    // Moves the files to "TSTemp_<stamp>.<nn>" in the temporary directory and answers the path
    // that names the set: the file itself when interleaved, else the base with ".L" (".info" for
    // an editor document); nullopt when there are no files.
    std::optional<std::string> saveToTempDirectory();
    // Deletes every output file (delete).
    void deleteFiles();
    // "aif", "wav", "caf", "sd2", "sd", "au", "rex", "rx2", "rcy"; nullopt for 'RAW ', 'TESS'
    // and unknown codes.
    std::optional<std::string> formatExtension() const;
    static std::optional<std::string> extensionForFormat(std::uint32_t format);
    // The format a file-name extension names, in any case: "aif", "aiff", "aifc", "wav", "wave",
    // "au", "snd", "caf", "sd2", "sd", "raw"; nullopt for every other.
    static std::optional<std::uint32_t> formatForExtension(const std::string& extension);

    // --- Format and sample format (KXAudioFileWriter_Access.cpp)
    std::uint32_t format() const { return format_; }
    // Resets the sample format to what the format allows (see the source for the rules).
    void setFormat(std::uint32_t format);
    std::uint32_t encoding() const { return encoding_; }
    // 'lpcm', 'ulaw' or 'alaw', after setFormat (which sets the format's own encoding): a plain
    // store, for formats that hold more than one (formatHoldsEncoding); beginWrite refuses an
    // encoding the format's header cannot say, with -6.
    void setEncoding(std::uint32_t encoding) { encoding_ = encoding; }
    // Whether files of the format can hold samples of the encoding: 'lpcm' every format; 'ulaw'
    // and 'alaw' WAVE, AIFF-C, AU, CAF and raw files.
    static bool formatHoldsEncoding(std::uint32_t format, std::uint32_t encoding);
    // Whether the samples are written as G.711 ('ulaw', 'alaw'), one byte each whatever the depth.
    bool isG711() const { return encoding_ == KXFourCC("ulaw") || encoding_ == KXFourCC("alaw"); }
    // The bits one written sample takes: 8 for G.711, else the depth.
    std::uint32_t sampleBits() const { return isG711() ? 8 : std::uint32_t(depth_); }
    std::int32_t byteOrder() const { return byteOrder_; }
    void setByteOrder(std::int32_t order) { byteOrder_ = order; }
    std::int32_t rate() const { return rate_; }
    void setRate(std::int32_t rate) { rate_ = rate; }
    std::int32_t depth() const { return depth_; }
    void setDepth(std::int32_t depth);
    std::int32_t channels() const { return channels_; }
    void setChannels(std::int32_t channels) { channels_ = channels; }
    bool isFloatingPoint() const { return isFloatingPoint_; }
    void setIsFloatingPoint(bool floatingPoint);
    bool isInterleaved() const { return isInterleaved_; }
    void setInterleaved(bool interleaved);
    KXIndexSet channelSet() const;
    // Frames written so far; their length in seconds.
    std::uint32_t frames() const;
    double length() const;
    std::uint64_t samplesWritten() const { return samplesWritten_; }
    std::int64_t positionOfAudioDataForChannel(std::uint32_t channel) const;
    // The first file's path (for an editor document the folder that holds it).
    std::string filePath() const;
    std::vector<std::string> filePaths() const;
    const std::vector<std::shared_ptr<KXWritingFile>>& files() const { return files_; }
    const std::shared_ptr<KXChannelsList>& channelsList() const { return channelsList_; }
    // The block size of a rate: one second rounded up to whole 1024 frames.
    static std::uint32_t blockSizeForRate(std::int32_t rate);

    // --- Switches
    const std::string& tempDirectory() const { return tempDirectory_; }
    void setTempDirectory(const std::string& directory);
    const std::string& tempFileName() const { return tempFileName_; }
    bool writeAsynchronous() const { return writeAsynchronous_; }
    void setWriteAsynchronous(bool asynchronous) { writeAsynchronous_ = asynchronous; }
    bool writeAnalysis() const { return writeAnalysis_; }
    void setWriteAnalysis(bool write);
    bool writeUnusedChunks() const { return writeUnusedChunks_; }
    void setWriteUnusedChunks(bool write);
    // Whether the metadata no chunk of the format holds is kept in a 'KXmd' archive (on by
    // default); off, those keys are not written.
    bool writeArchive() const { return writeArchive_; }
    void setWriteArchive(bool write) { writeArchive_ = write; }
    // The frames the caller expects to write (a hint, 0 for none): the write-time analysis
    // allocates its overview tables for them when writing begins instead of growing them block
    // by block, which for a long file holds them twice over while they are copied.
    void setExpectedFrames(std::uint64_t frames) { expectedFrames_ = frames; }

    // The container of a WAVE file (deliberate extension): 'RIFF', the default, becomes RF64 when
    // the file passes 4 GiB − 1; 'RF64' or 'BW64' is that form whatever the size.
    std::uint32_t waveContainer() const { return waveContainer_; }
    void setWAVEContainer(std::uint32_t container) { waveContainer_ = container; }

    // Dither (deliberate extension): when the samples fed carry more precision than the file's
    // integers of 8 to 24 bits hold, TPDF dither is added where they are rounded (KXConverter),
    // unless it is switched off. The precision is in bits: 0, the default, takes the samples as
    // no finer than the file; writerWithAudioFile() sets the source file's (its depth; 24 for
    // 32-bit floats, 53 for 64-bit ones; 14 for µ-law, 13 for A-law); a caller whose processing
    // made the samples finer raises it.
    bool dither() const { return dither_; }
    void setDither(bool dither) { dither_ = dither; }
    std::int32_t sourcePrecision() const { return sourcePrecision_; }
    void setSourcePrecision(std::int32_t bits) { sourcePrecision_ = bits; }
    static std::int32_t precisionOfFile(const KXAudioFile& file);

    // The WAVE speakers of the channels, one a channel in channel order, each a single mask bit
    // (see KXChannelsList::setSpeakers); none, the default, takes the layout of the channel count.
    const std::vector<std::uint32_t>& speakers() const { return speakers_; }
    void setSpeakers(std::vector<std::uint32_t> speakers) { speakers_ = std::move(speakers); }
    // The same as a WAVE channel mask: 0 unless the speakers rise in channel order. Setting one
    // gives the channels its speakers in bit order.
    std::uint32_t channelMask() const;
    void setChannelMask(std::uint32_t mask);

    // --- Labels: the writer's own lists.
    const std::shared_ptr<KXMarkerList>& markerList() const { return markerList_; }
    const std::shared_ptr<KXSliceList>& sliceList() const { return sliceList_; }
    const std::shared_ptr<KXRegionList>& regionList() const { return regionList_; }
    const std::shared_ptr<KXLoopList>& loopList() const { return loopList_; }
    // Copies of the file's four lists, through their state.
    void setLabelListsFromAudioFile(const KXAudioFile& file);

    // --- Metadata
    const KXDictionary& metadata() const { return metadata_; }
    KXDictionary& mutableMetadata() { return metadata_; }
    const KXChunkArray& unusedChunkList() const { return unusedChunkList_; }
    void setUnusedChunkList(KXChunkArray chunks) { unusedChunkList_ = std::move(chunks); }
    void addMetadata(const KXDictionary& metadata, bool overwrite);
    void addMetadataObject(KXValue value, const std::string& key);
    bool hasMIDIMetadata() const;
    // Removes the program keys and the display keys — "MIDI HighVelocity" spelt without its
    // blank, so a "MIDI High Velocity" entry stays (deliberately).
    void removeMIDIMetadata();
    // "Tempo" survives (deliberately).
    void removeMusicalMetadata();
    bool hasAppleLoopMetadata() const;
    void removeAppleLoopMetadata();
    bool hasBroadcastWaveMetadata() const;
    void removeBroadcastWaveMetadata();
    bool hasIXMLMetadata() const;
    // Also removes the Broadcast WAVE metadata.
    void removeIXMLMetadata();

    // --- Typed readers for the header writers
    std::int32_t baseNote() const;
    std::int32_t highNote() const;
    std::int32_t lowNote() const;
    std::int32_t highVelocity() const;
    std::int32_t lowVelocity() const;
    std::int32_t detune() const;
    std::int32_t gain() const;
    float tempo() const;
    std::int32_t timeSignature() const;
    std::int32_t meterNumerator() const;
    std::int32_t meterDenominator() const;
    std::int32_t barsBeats() const;
    std::int32_t eighthBeats() const;
    std::int32_t key() const;
    std::int32_t scaleType() const;
    std::int32_t playbackType() const;

    // --- Statistics: "Channels" (per channel "Clipped", "Max", "RMS", "Magnitude Maxima",
    // "Root Mean Squares", "Magnitude Means") and "Difference" (left out when not measured).
    KXDictionary analysisForChannels(const KXIndexSet& channels) const;

    // --- Header writers (KXAudioFileWriter_Headers.cpp). Formats whose writer is not part of
    // the library yet refuse with -6 and the header's action text.
    [[nodiscard]] bool writePreDataHeader(KXWritingFile& file, KXError* error);
    [[nodiscard]] bool writePostDataHeader(KXWritingFile& file, KXError* error);
    [[nodiscard]] bool writeAnalysisHeader(KXError* error);
    [[nodiscard]] bool writeTessaroHeader(KXError* error);
    // The WAVE header (KXAudioFileWriter_WAVE.cpp) and its text builders: one RIFF INFO entry,
    // the iXML document, one iXML element. Each removes the keys it writes from the metadata.
    [[nodiscard]] bool writeWAVEPreDataHeader(KXWritingFile& file, KXError* error);
    std::optional<HeaderUpdate> rewriteThroughWriter(KXAudioFile& file, const std::string& path, KXError* error);
    TagChunks waveTagChunks();
    TagChunks aiffTagChunks();
    TagChunks cafTagChunks();
    [[nodiscard]] bool writeWAVEPostDataHeader(KXWritingFile& file, KXError* error);
    void appendWAVMetadataType(std::uint32_t id, const std::string& key, KXChunk& chunk);
    void appendIXMLToChunk(KXChunk& chunk);
    void appendIXMLKey(const std::string& key, KXChunk& chunk);
    void appendIXMLValue(const KXValue& value, const std::string& key, KXChunk& chunk);
    // The iXML chunk of the metadata, for a header of `format`, with its pad byte; nullopt without
    // iXML keys. Its keys (and the Broadcast WAVE ones it repeats) leave the metadata.
    std::optional<KXChunk> takeIXMLChunk(std::uint32_t format);
    // The source's kept chunks of `format`, when writeUnusedChunks is set; none otherwise.
    KXChunkArray keptChunksOfFormat(std::uint32_t format) const;
    // Appends a chunk and, after an odd payload, the pad byte that IFF and RIFF containers need.
    [[nodiscard]] static bool appendChunk(const KXChunk& chunk, KXWritingFile& file, KXError* error);
    // The speakers of the channels in output file `index` as a WAVE channel mask: the mask set
    // (or taken from the source file) when it names every channel, else the default layout's;
    // for a split writer the one speaker of that file's channel.
    std::uint32_t channelMaskForFile(std::size_t index) const;
    // The CAF header (KXAudioFileWriter_CAF.cpp).
    [[nodiscard]] bool writeCAFPreDataHeader(KXWritingFile& file, KXError* error);
    [[nodiscard]] bool writeCAFPostDataHeader(KXWritingFile& file, KXError* error);
    // The AIFF header (KXAudioFileWriter_AIFF.cpp).
    [[nodiscard]] bool writeAIFFPreDataHeader(KXWritingFile& file, KXError* error);
    [[nodiscard]] bool writeAIFFPostDataHeader(KXWritingFile& file, KXError* error);
    // The AU header (KXAudioFileWriter_AU.cpp).
    [[nodiscard]] bool writeULawPreDataHeader(KXWritingFile& file, KXError* error);
    [[nodiscard]] bool writeULawPostDataHeader(KXWritingFile& file, KXError* error);
    // The Sound Designer I and II headers (KXAudioFileWriter_SFIL.cpp, KXAudioFileWriter_SDII.cpp).
    [[nodiscard]] bool writeSFILPreDataHeader(KXWritingFile& file, KXError* error);
    [[nodiscard]] bool writeSFILPostDataHeader(KXWritingFile& file, KXError* error);
    [[nodiscard]] bool writeSDIIPreDataHeader(KXWritingFile& file, KXError* error);
    [[nodiscard]] bool writeSDIIPostDataHeader(KXWritingFile& file, KXError* error);
    // The 'KXmd' resource (ID 1000) archiving what is left of the metadata; nullptr when nothing is.
    std::shared_ptr<KXResource> archiveResource() const;
    // Writes the resources as the resource fork of `file` (its AppleDouble sidecar); nothing
    // when there are none.
    [[nodiscard]] static bool writeResourceFork(const KXWritingFile& file,
                                                std::vector<std::shared_ptr<KXResource>> resources, KXError* error);

private:
    // Bytes of one stored sample: the converter's (one for µ-law and A-law whatever the depth
    // says), else depth ÷ 8.
    std::uint64_t bytesPerStoredSample() const {
        return converter_ ? converter_->bytesPerSample() : std::uint64_t(std::max(depth_, 0) / 8);
    }
    // Bytes of samples written into each output file.
    std::uint64_t dataBytesPerFile() const {
        return bytesPerStoredSample() * samplesWritten_ / (isInterleaved_ ? 1 : std::uint64_t(std::max(channels_, 1)));
    }
    // The post-data header of the formats with one 32-bit big-endian data byte count at a fixed
    // place (AU, Sound Designer I): that count, then the file's type code.
    [[nodiscard]] bool patchDataByteCount(KXWritingFile& file, std::uint32_t fileType, KXError* error);
    // The time-stamped base name of the temporary files.
    static std::string newTempFileName();
    // Hands a full block to the disk (directly, or to the writer thread).
    void flush(std::uint32_t frames, bool synchronous);
    void writeBlock(KXNativeAudioBuffer& block);
    void recordWriteError(const KXError& error);
    // Makes room for `frames` gathered frames: the block grows as samples arrive, so that the
    // memory follows what is written, not the block size a rate asks for.
    void reserveAccumulatedFrames(std::uint32_t frames);
    void startWriterThread();
    void stopWriterThread();
    [[nodiscard]] bool moveFile(KXWritingFile& file, const std::string& path, bool replacing, KXError* error);
    // Before the first chunk: the container's type, a size of 0 that finishContainer patches, and
    // the form type.
    [[nodiscard]] bool beginContainer(KXWritingFile& file, std::uint32_t type, std::uint32_t form, KXError* error);
    // After the post-data chunks: the container size (file length − 8 in `order` at the file's
    // fileChunkSizePosition), then the creator and file type. Deliberate: a file past 2 GiB fails
    // without an error, as 32-bit container sizes cannot describe it.
    [[nodiscard]] bool finishContainer(KXWritingFile& file, KXByteOrder order, std::uint32_t fileType, KXError* error);
    // One information record in the domain "Writing".
    void log(const char* source, const char* message, const char* function, int line) const;

    std::uint32_t format_ = 0;
    std::vector<std::uint32_t> speakers_;
    std::uint32_t waveContainer_ = KXFourCC("RIFF");
    std::int32_t byteOrder_ = KXByteOrderBigValue;
    std::int32_t depth_ = 32;
    std::int32_t rate_ = 44100;
    std::int32_t channels_ = 2;
    bool isFloatingPoint_ = true;
    bool isInterleaved_ = false;
    bool dither_ = true;
    std::int32_t sourcePrecision_ = 0;
    std::uint32_t encoding_ = 0;
    std::shared_ptr<KXMarkerList> markerList_;
    std::shared_ptr<KXSliceList> sliceList_;
    std::shared_ptr<KXRegionList> regionList_;
    std::shared_ptr<KXLoopList> loopList_;
    KXDictionary metadata_;
    KXChunkArray unusedChunkList_;
    std::shared_ptr<KXChannelsList> channelsList_;
    std::string tempDirectory_;
    std::string tempFileName_;
    std::unique_ptr<KXConverter> converter_;
    std::unique_ptr<KXNativeAudioBuffer> accumulationBuffer_;
    // The pending block of writeFileBufferToDisk().
    std::unique_ptr<KXNativeAudioBuffer> convertBuffer_;
    std::uint32_t blockSize_ = 0;
    // Counted on the writer thread in asynchronous mode while the caller may read frames().
    std::atomic<std::uint64_t> samplesWritten_ = 0;
    bool writeAsynchronous_ = false;
    bool writeAnalysis_ = true;
    bool writeUnusedChunks_ = true;
    bool writeArchive_ = true;
    std::uint64_t expectedFrames_ = 0;
    std::vector<std::shared_ptr<KXWritingFile>> files_;

    // Blocks written and ready for reuse, and the stored bytes of one block.
    std::vector<std::unique_ptr<KXNativeAudioBuffer>> spareBuffers_;
    std::unique_ptr<KXAudioBuffer> fileBuffer_;
    // The writer thread of asynchronous mode and its queue; the mutex also guards spareBuffers_.
    std::thread writerThread_;
    std::mutex queueMutex_;
    std::condition_variable queueChanged_;
    std::deque<std::unique_ptr<KXNativeAudioBuffer>> queue_;
    bool stopWriter_ = false;
    // The first failure to convert or write a block (on either thread); later blocks are not
    // written, and endWrite answers it.
    std::optional<KXError> writeError_;
};

// Writing a native buffer's samples to a writer sample by sample (the buffer's writer
// extensions). Nothing is written unless the writer has as many channels as are selected; the
// selected channels are packed onto the writer's channels 0, 1, 2 … in ascending order.
namespace KXNativeAudioBufferWriting {
void writeToWriter(const KXNativeAudioBuffer& buffer, KXAudioFileWriter& writer, const KXSampleRange& range,
                   const KXIndexSet& channels);
void writeToWriter(const KXNativeAudioBuffer& buffer, KXAudioFileWriter& writer, const KXSampleRange& range);
void writeToWriter(const KXNativeAudioBuffer& buffer, KXAudioFileWriter& writer);
void writeEnabledChannelsToWriter(const KXNativeAudioBuffer& buffer, KXAudioFileWriter& writer);
}  // namespace KXNativeAudioBufferWriting

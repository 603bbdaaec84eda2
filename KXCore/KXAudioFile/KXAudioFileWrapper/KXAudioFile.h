#pragma once
// KXAudioFile: one audio file on disk — or, for a split multi-channel file, the set of files, one
// per channel — with its format description, metadata and the chunks it did not consume.
//
// Opening reads only the header: audioFileWithPath() recognises the format by the file's first
// four bytes, has the parser of that format read its chunks, and closes the file again.
//
// The object is its own progress delegate until another is set: that default does nothing and
// never stops an operation.
//
// Members are grouped as the sources are: KXAudioFile.cpp (life, paths, file operations),
// KXAudioFile_Access.cpp (properties, state and metadata), KXAudioFile_Chunks.cpp (chunk walks
// and lookups), KXAudioFile_Parse.cpp (opening and the format dispatch; each format's reader in a
// file of its own, KXAudioFile_Parse<Format>.cpp), KXAudioFile_ReadWrite.cpp (sample reading),
// KXAudioFile_Editing.cpp (edit operations, the pasteboard, saving as an editor document), and
// one file for each further group named below.

#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFilename.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunk.h"
#include "KXAudioFile/KXAudioFileWrapper/KXPlayBuffers.h"
#include "KXAudioFile/KXAudioFileWrapper/KXProcessInstructions.h"
#include "KXAudioFile/KXChannels/KXChannelsList.h"
#include "KXAudioFile/KXLabels/KXLoopList.h"
#include "KXAudioFile/KXLabels/KXMarkerList.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"
#include "KXAudioFile/KXLabels/KXSliceList.h"
#include "KXAudioFile/KXEditList/KXEditList.h"
#include "KXBase/KXAudioBuffer.h"
#include "KXBase/KXAudioStreamDescription.h"
#include "KXBase/KXConverter.h"
#include "KXBase/KXNativeAudioBuffer.h"
#include "KXBase/KXRange.h"
#include "KXBase/KXError.h"
#include "KXBase/KXProgressDelegate.h"
#include "KXBase/KXValue.h"
#include "KXREX/KXREX.h"

class KXAudioFileWriter;
class KXChunkList;

// Loudness as EBU R128 measures it; -infinity where there is nothing to measure (silence, or a
// range too short for the window).
struct KXLoudness {
    double integrated = -HUGE_VAL;    // LUFS
    double range = 0;                 // LU
    double maxMomentary = -HUGE_VAL;  // LUFS, 400 ms windows every 100 ms
    double maxShortTerm = -HUGE_VAL;  // LUFS, 3 s windows every 100 ms
    double maxTruePeak = -HUGE_VAL;   // dBTP
};
class KXFile;
class KXResourceFile;


class KXAudioFile : public KXProgressDelegate {
public:
    // A new, empty object (audioFile). Prefer the factories: the object is shared.
    KXAudioFile();
    ~KXAudioFile() override;
    KXAudioFile(const KXAudioFile&) = delete;
    KXAudioFile& operator=(const KXAudioFile&) = delete;

    static std::shared_ptr<KXAudioFile> audioFile() { return std::make_shared<KXAudioFile>(); }
    // Opens the file at `path`; nullptr with the error when it cannot be read. A success may
    // still leave a warning in `error` (-10: the container's size was corrected).
    static std::shared_ptr<KXAudioFile> audioFileWithPath(const std::string& path, KXError* error = nullptr);
    // Opens what a writer has finished and saved (an editor document by its header).
    static std::shared_ptr<KXAudioFile> audioFileWithWriter(const KXAudioFileWriter& writer, KXError* error = nullptr);
    // A copy of this open file (initWithAudioFile:): the same description, metadata and kept
    // chunks, and its own copies of every temporary file.
    std::shared_ptr<KXAudioFile> copy() const;

    // --- Path and name
    const std::optional<KXAudioFilename>& filename() const { return filename_; }
    // The first file's path; empty when the object has no file (a new or temporary object).
    std::string path() const;
    void setPath(const std::string& path);
    std::string displayName() const;
    std::optional<std::string> pathForChannel(std::uint32_t channel) const;

    // --- File operations on the whole file set
    // Moves every file of the set (and its cached analysis); a change of letter case alone is a
    // plain rename. The first failure stops: files moved so far stay moved and the object keeps
    // its old names.
    [[nodiscard]] bool moveToPath(const std::string& path);
    // Copies every file of the set (and its cached analysis); on success the object refers to the
    // copy.
    [[nodiscard]] bool copyToPath(const std::string& path);
    // Copies the set to the first free numbered name of its own name scheme ("Take_000.wav",
    // "Take_001.wav" …), whatever `path` says, and answers that path. The object then refers to
    // the duplicate.
    std::optional<std::string> duplicateToPath(const std::string& path);
    // Hands the files to this object alone: they join the temporary files, deleted by
    // removeTempFiles(), and the object no longer has a path.
    void setAsTemp();
    const std::vector<std::string>& tempFileList() const { return tempFileList_; }
    // Replaces every temporary file by a copy of its own, "TSTemp_<microseconds>.<ext>" in the
    // same folder. Copy errors are ignored.
    void duplicateTempFiles();
    void removeTempFiles();
    // Deletes every file of the set and its cached analysis (`delete`); false when any file could
    // not be deleted.
    bool deleteFiles();
    [[nodiscard]] bool moveToTrash();
    // Sets the HFS type code that belongs to the format on every file of the set.
    void conformHFSType();
    std::uint32_t creatorCode() const { return creator_; }
    std::string creator() const;
    // Parses the four-character text and, when it parses, sets it on every file of the set.
    void setCreator(const std::string& creator);
    // Makes the converter of the stored samples (one channel of them, from rate, encoding, depth,
    // byte order and signedness) to native floats.
    void setUpAudioConverter();
    const KXAudioStreamDescription& sourceDescription() const { return sourceDescription_; }
    const KXAudioStreamDescription& destinationDescription() const { return destinationDescription_; }
    // nullptr when the stored format is one the converter does not know.
    const KXConverter* fileConverter() const { return fileConverter_.get(); }
    // Mends a RIFF or FORM container whose size field disagrees with the file's length.
    static bool repairAtPath(const std::string& path);
    // Deliberate extension (KXAudioFile_Recover.cpp): recovers a WAVE or AIFF recording cut short
    // (opening it fails with -4): the container size is mended and the last sample chunk ('data',
    // 'SSND') is cut to the whole frames really there, in a copy that then replaces the file in
    // one step. True when it changed the file; false with no error when there was nothing to
    // mend; false with an error (-6 for other formats, -5 without samples, the file layer's).
    [[nodiscard]] static bool recoverAtPath(const std::string& path, KXError* error = nullptr);

    // --- Description
    std::uint64_t fileSize() const { return fileSize_; }
    void setFileSize(std::uint64_t fileSize) { fileSize_ = fileSize; }
    std::uint32_t format() const { return format_; }
    void setFormat(std::uint32_t format) { format_ = format; }
    std::uint32_t encoding() const { return encoding_; }
    void setEncoding(std::uint32_t encoding) { encoding_ = encoding; }
    std::int32_t blockSizeByteOrder() const { return blockSizeByteOrder_; }
    void setBlockSizeByteOrder(std::int32_t order) { blockSizeByteOrder_ = order; }
    std::int32_t audioDataByteOrder() const { return audioDataByteOrder_; }
    void setAudioDataByteOrder(std::int32_t order) { audioDataByteOrder_ = order; }
    std::uint32_t rate() const { return rate_; }
    void setRate(std::uint32_t rate) { rate_ = rate; }
    std::uint32_t depth() const { return depth_; }
    void setDepth(std::uint32_t depth) { depth_ = depth; }
    std::uint32_t numberOfChannels() const { return numberOfChannels_; }
    void setNumberOfChannels(std::uint32_t channels) { numberOfChannels_ = channels; }
    std::uint32_t frames() const { return frames_; }
    void setFrames(std::uint32_t frames) { frames_ = frames; }
    bool isFloatingPoint() const { return isFloatingPoint_; }
    void setIsFloatingPoint(bool floatingPoint) { isFloatingPoint_ = floatingPoint; }
    bool isInterleaved() const { return isInterleaved_; }
    void setIsInterleaved(bool interleaved) { isInterleaved_ = interleaved; }
    const KXDictionary& metadata() const { return metadata_; }
    KXDictionary& mutableMetadata() { return metadata_; }
    void setMetadata(std::optional<KXDictionary> metadata) { metadata_ = metadata.value_or(KXDictionary()); }
    // The labels by kind. Each list is owned by this file; a list set in replaces the old one.
    const std::shared_ptr<KXMarkerList>& markerList() const { return markerList_; }
    void setMarkerList(std::shared_ptr<KXMarkerList> list);
    const std::shared_ptr<KXSliceList>& sliceList() const { return sliceList_; }
    void setSliceList(std::shared_ptr<KXSliceList> list);
    const std::shared_ptr<KXRegionList>& regionList() const { return regionList_; }
    void setRegionList(std::shared_ptr<KXRegionList> list);
    const std::shared_ptr<KXLoopList>& loopList() const { return loopList_; }
    void setLoopList(std::shared_ptr<KXLoopList> list);
    // Channel names, statistics and overviews; never null (a null list set in becomes an empty one).
    const std::shared_ptr<KXChannelsList>& channelsList() const { return channelsList_; }
    void setChannelsList(std::shared_ptr<KXChannelsList> list) {
        channelsList_ = list ? std::move(list) : KXChannelsList::channelsList();
    }
    // Absent until a parser has kept chunks.
    const std::optional<KXChunkArray>& unusedChunkList() const { return unusedChunkList_; }
    void setUnusedChunkList(std::optional<KXChunkArray> chunks) { unusedChunkList_ = std::move(chunks); }

    // --- Progress. The object itself unless another delegate was set; not owned.
    KXProgressDelegate* progressDelegate() const { return progressDelegate_; }
    // Ignored for nullptr; the edit list reports to it too.
    void setProgressDelegate(KXProgressDelegate* delegate);

    // --- Properties (KXAudioFile_Access.cpp)
    const std::shared_ptr<KXEditList>& editList() const { return editList_; }
    // A null list becomes an empty one.
    void setEditList(std::shared_ptr<KXEditList> list);
    // "aif", "rx2", "rcy", "caf", "wav", "w64", "sd2", "sd", "au", "tess"; a REX1 file is
    // presented as AIFF ("aif"); nullopt for any other format.
    std::optional<std::string> formatExtension() const;
    KXIndexSet channelSet() const { return KXIndexSet::indexSetWithIndexesInRange(0, numberOfChannels_); }
    // In seconds; 0 without a rate.
    double length() const { return rate_ ? double(frames_) / rate_ : 0.0; }
    double sampleLength() const { return rate_ ? 1.0 / rate_ : 0.0; }
    // The file's length as a range at the file's rate.
    KXRange range() const;
    float max() const { return channelsList_->max(); }
    float maxOfChannels(const KXIndexSet& channels) const { return channelsList_->maxOfChannels(channels); }
    float rms() const { return channelsList_->rms(); }
    float rmsOfChannels(const KXIndexSet& channels) const { return channelsList_->rmsOfChannels(channels); }
    // −2.0 (not measured) for a one-channel file.
    float difference() const;
    // Clipped samples as a percentage of all samples; a negative count (not counted) as it is.
    float clipAsPercentage() const;
    // A tempo in 60 … 240 beats per minute from the length, meter and eighth beats; 0 without them.
    float tempoGuess() const;
    // Summary for file lists: name, size (narrowed to 32 bits), format, creator, depth (under
    // "range"), rate, channels, samples, length, label counts, the statistics when analysed,
    // then every metadata entry on top.
    KXDictionary fileEntry() const;
    // Flags that leave groups out of stateIgnoring(): file properties, labels, edit and analysis.
    static constexpr std::uint32_t kStateIgnoreProperties = 32, kStateIgnoreLabels = 1, kStateIgnoreEditing = 2;
    KXDictionary state() const { return stateIgnoring(0); }
    KXDictionary stateIgnoring(std::uint32_t flags) const;
    // Restores the keys present ("path" moves the object to another file; "filename" does not),
    // then recounts channels and frames, resets the read buffer and the converter.
    void setState(const KXDictionary& state);
    std::int32_t playbackRepeatStart() const { return playbackRepeatStart_; }
    std::int32_t playbackRepeatEnd() const { return playbackRepeatEnd_; }
    std::int32_t playbackRepeatDirectionType() const { return playbackRepeatDirectionType_; }
    void setPlaybackRepeatRange(KXRange range, std::int32_t direction);
    std::int32_t callbackReadLoc() const { return callbackReadLoc_; }
    void setCallbackReadLoc(std::int32_t location) { callbackReadLoc_ = location; }
    bool useThreadedPlayBufferLoading() const { return useThreadedPlayBufferLoading_; }
    void setUseThreadedPlayBufferLoading(bool threaded) { useThreadedPlayBufferLoading_ = threaded; }

    // --- Metadata with clamps. A getter reads the program key, else the display key; a setter
    // stores the program key only, and 0 removes both.
    std::int32_t MIDIBaseNote() const;
    void setMIDIBaseNote(std::int32_t note);  // 0 … 127
    std::int32_t MIDIHighNote() const;
    void setMIDIHighNote(std::int32_t note);
    std::int32_t MIDILowNote() const;
    void setMIDILowNote(std::int32_t note);
    std::int32_t MIDIHighVelocity() const;
    void setMIDIHighVelocity(std::int32_t velocity);
    std::int32_t MIDILowVelocity() const;
    void setMIDILowVelocity(std::int32_t velocity);
    std::int32_t detune() const;
    void setDetune(std::int32_t cents);  // −50 … 50
    std::int32_t gain() const;
    void setGain(std::int32_t gain);
    float tempo() const;
    void setTempo(float tempo);
    std::uint32_t timeSignature() const;
    void setTimeSignature(std::uint32_t signature);  // numerator × 256 + denominator
    std::uint32_t barsBeats() const;
    void setBarsBeats(std::uint32_t barsBeats);  // bars × 256 + beats
    std::int32_t scaleType() const;
    void setScaleType(std::int32_t scale);
    std::int32_t playbackType() const;
    void setPlaybackType(std::int32_t type);
    std::int32_t key() const;
    // ≤ 0 removes; 48 or more is stored less 48 (once, deliberately).
    void setKey(std::int32_t key);
    std::int32_t meterNumerator() const;
    std::int32_t meterDenominator() const;
    void setMeterNumerator(std::int32_t numerator);
    void setMeterDenominator(std::int32_t denominator);
    void setMeterNumeratorDenominator(std::int32_t numerator, std::int32_t denominator);
    std::int32_t eighthBeats() const;
    // Stores bars and beats for the current meter; nothing without one; 0 removes.
    void setEighthBeats(std::int32_t eighthBeats);
    bool hasBroadcastWaveMetadata() const;

    // --- Samples (KXAudioFile_ReadWrite.cpp). Reads go through a read buffer of 30,720
    // frames (122,880 bytes a channel) that the edit list fills, or for whole channels that it
    // does not hold straight into the caller's arrays; out-of-range requests give 0.0 or a size
    // of 0, never an error.
    static constexpr std::uint32_t kReadBufferBytes = 122880;
    static constexpr std::uint32_t kReadBufferFrames = kReadBufferBytes / sizeof(float);
    // The frames the read buffer holds: 30,720, or for a file of very many channels as many
    // whole 256-frame steps as keep all channels together within 64 MiB, so that no channel
    // count a header declares makes reading allocate without bound. Callers size their own
    // buffers by it.
    std::uint32_t readBufferFrames() const;
    // Deliberate: frame positions are 64-bit, so that every frame of the model's 2^32 − 1 can be
    // asked for (a signed 32-bit position stops at 2^31); negative ones read nothing.
    float readSample(std::int64_t frame, std::uint32_t channel);
    // Up to `size` frames of one channel into `destination` (zeroed first); `size` becomes what
    // was copied. Channel 1 of a one-channel file reads channel 0.
    void readSamplesToBuffer(float* destination, std::int64_t start, std::int32_t& size, std::uint32_t channel);
    // Channel i of the destination from file channel i, as many frames as it holds (its
    // `frames`); answers the frames read (a cut by the file's end applies to every channel).
    std::int32_t readSamplesToBuffer(KXNativeAudioBuffer& destination, std::int64_t start);
    // The given file channels, in ascending order, onto the destination's channels 0, 1 …; 0
    // when the set's count differs from the destination's channel count.
    std::int32_t readSamplesToBuffer(KXNativeAudioBuffer& destination, std::int64_t start, const KXIndexSet& channels);
    // The buffer overloads' way around the read buffer: frames [start, start + size) of the file
    // channels whose arrays are given (nullptr: not wanted) rendered straight into them, cut as
    // the read buffer would cut them, the rest of `size` zeroed in the first array given (as
    // the channel-by-channel reads leave it); `size` becomes the frames rendered. False, with nothing done, for a REX2 loop, a request out of range or one the
    // read buffer holds already.
    bool renderStraight(float* const* channels, std::int64_t start, std::int32_t& size);
    // Loads the read buffer so that it holds `range` (at most 30,720 frames) and answers where
    // its first frame lies in the buffer; 0 for a range past the file or too long.
    std::uint32_t offsetInBufferForRange(const KXSampleRange& range);
    KXSampleRange loadReadBufferFrom(std::int64_t frame, bool reverse);
    // Fills a whole buffer from the edit list: forward it ends at the file's end where it can,
    // reversed it ends at `frame`. Answers (start, the buffer's capacity).
    KXSampleRange loadBuffer(KXNativeAudioBuffer& buffer, std::int64_t frame, bool reverse);
    KXSampleRange loadBufferFromPCMSource(std::int64_t frame, KXNativeAudioBuffer& buffer, bool reverse);
    // REX2 loops: the slices that meet the span, each rendered by the REX library and laid at its
    // position, channels 0 and 1 only; frames no slice covers keep what the buffer held.
    KXSampleRange loadBufferFromREX2Source(std::int64_t frame, KXNativeAudioBuffer& buffer, bool reverse);
    // The open REX document of a REX2 file; nullptr for any other.
    REXHandle rexHandle() const { return rexHandle_; }
    // What loadBufferFromPCMSource does, from the edit list and converter given (nothing but
    // silence without a converter), for a file of `frames` frames.
    static KXSampleRange renderSpan(KXEditList& editList, const KXConverter* converter, std::uint32_t frames,
                                    std::int64_t frame, KXNativeAudioBuffer& buffer, bool reverse);
    void createReadBuffers();
    void destroyReadBuffers() { readBuffer_.reset(); }
    const KXNativeAudioBuffer* readBuffer() const { return readBuffer_.get(); }
    // Invalidates the read buffer and the play buffers (after the edit list or the channels
    // change); the play buffers are made anew when missing or of another channel count.
    void resetBuffers();

    // --- Playback (KXAudioFile_Playback.cpp). A player pulls frames through two play buffers of
    // readBufferFrames() frames that take turns: one is read while the span that playback needs
    // next is predicted and loaded into the other — on a loader thread of the file's own with
    // useThreadedPlayBufferLoading() (see KXPlayBuffers). Call them from one thread, the player's.
    // Frames are 64-bit (as in reading); the packed loadPlayBuffer argument holds 32 bits of frame.
    void createPlayBuffers();
    // Joins the loader thread and releases both buffers.
    void destroyPlayBuffers();
    // Loads buffer `index` forwards from `frame` on this thread and stores its range
    // (loadPlayBuffer:from:); makes missing buffers.
    void loadPlayBuffer(std::int32_t index, std::int64_t frame);
    // The loader's entry: the buffer index in the high 32 bits (below 0 taken as 0, above 1 as
    // 1), the frame in the low 32 bits.
    void loadPlayBuffer(std::int64_t indexAndFrame);
    // Playback from `frame`: forwards, the buffer holding it current (buffer 0 loaded from it when
    // neither does), then a prediction.
    void primePlayBuffersWithHintStart(std::int64_t frame);
    // Loads the span playback will need next into the buffer that is not current, following the
    // direction and the repeat range (types 0 loop forwards, 1 alternate, 2 loop backwards). A
    // turn of direction at the repeat end predicts the file's frame count: it loads nothing then.
    void predictNextPlayBuffer();
    // 0.0 outside the file or past its channels; channel 1 of a one-channel file plays channel 0.
    float playSample(std::int64_t frame, std::uint32_t channel);
    // Copies at most `frames` frames from `start` (backwards: the frames before `start`, then the
    // whole destination is reversed) into each channel of `destination` from `position`; `frames`
    // becomes what was copied. Each call copies from one play buffer: a request that crosses a
    // buffer's end is cut there, and the player asks again for the rest. A request reaching past
    // the file's start or end is cut at it; backwards from beyond the end, the file's last frame is
    // not played in that call (deliberate).
    void playSamplesToBuffers(KXAudioBuffer& destination, std::uint32_t position, std::int64_t start,
                              std::int32_t& frames, bool reverse);
    std::int32_t currentPlayBufferIndex() const { return playBuffers_.currentIndex(); }
    // The range of play buffer 0 or 1; (0, 0) for a missing one.
    KXSampleRange playBufferRange(std::int32_t index) const { return playBuffers_.range(index); }
    std::int32_t currentPlaybackDirection() const { return currentPlaybackDirection_; }
    // 0 forwards, 1 backwards: the direction predictions load in (priming sets forwards).
    void setCurrentPlaybackDirection(std::int32_t direction) { currentPlaybackDirection_ = direction; }
    KXPlayBufferStatistics playBufferStatistics() const { return playBuffers_.statistics(); }
    // Waits for the loader thread to finish what it was asked (tests and benchmarks).
    void waitForPlayBufferLoader() { playBuffers_.waitForLoader(); }

    // --- Chunks (KXAudioFile_Chunks.cpp)
    // Walks one flat file of this object's format into chunks (see KXChunkList).
    std::optional<KXChunkArray> chunksForFile(KXFile& file, KXError* error = nullptr);
    KXChunkArray chunksForResourceFile(const KXResourceFile& file) const;
    // The first chunk of a list that matches, or nullptr.
    static std::shared_ptr<KXChunk> chunkOfType(std::uint32_t type, const KXChunkArray& list);
    static std::shared_ptr<KXChunk> chunkOfTypeSubtype(std::uint32_t type, std::uint32_t subtype,
                                                       const KXChunkArray& list);
    static std::shared_ptr<KXChunk> chunkOfTypeChunkID(std::uint32_t type, std::int16_t chunkID,
                                                       const KXChunkArray& list);
    static std::shared_ptr<KXChunk> chunkOfTypeName(std::uint32_t type, const std::string& name,
                                                    const KXChunkArray& list);
    static std::shared_ptr<KXChunk> chunkWithUUID(const KXUUID& uuid, const KXChunkArray& list);
    // Walks the file at `path` (its resource fork for Sound Designer formats) and answers its
    // first chunk of `type`.
    std::shared_ptr<KXChunk> chunkOfTypeAtPath(std::uint32_t type, const std::string& path);

    // --- Analysis (KXAudioFile_Analysis.cpp)
    // Reads the channels' analysis: a 'KXAn' chunk, else an 'anal' chunk, else (when the cache is
    // enabled) the cache. A file without any simply has no analysis.
    void parseAnalysis(KXChunkList& chunkList);
    // One 'KXAn' or 'anal' chunk's contents for all channels (a resource, a cache entry).
    void parseKXAnChunk(const KXChunk& chunk);
    void parseAnalChunk(const KXChunk& chunk);
    enum class KXAnalysisPlace { file, resourceFork, cache, nowhere };
    // Stores the analysis where the format allows — a 'KXAn' chunk appended to AIFF and WAVE
    // files (the container size brought up to date, an earlier 'KXAn' chunk turned into 'JUNK'),
    // a 'uuid' chunk of CAF files, the resource fork of Sound Designer files — else, or when
    // "Waveform Cache Exclusive" is set or the file cannot be written, in the cache. Split files
    // get one chunk per channel file. Answers where the (last) analysis went.
    KXAnalysisPlace writeAnalysisHeader();

    // The analysis pass: reads `range` (widened to whole 256-frame blocks) of the given channels
    // through the read path into the channel list's statistics and overviews, reporting
    // progress under the title "Analyzing". False when the delegate stopped it (the partial
    // analysis is then removed).
    bool analyzeRange(KXRange range, const KXIndexSet& channels);
    // The pass over the whole file, unless it is analysed already; with `write`, the analysis is
    // then stored (writeAnalysisHeader).
    bool analyze(bool write);
    // The table of a channel's overview of `type` (KXWaveform::Type), analysing the file first
    // when it has none; nullopt for a channel the file does not have.
    std::optional<KXData> waveformOfType(std::int32_t type, std::uint32_t channel);

    // --- Measuring (KXAudioFile_Statistics.cpp)
    // The statistics report of `range` for the given channels (ascending): "Start", "End",
    // "Channels" (names), and per channel "\001Peak", "\002Peak Position" (seconds, single
    // precision), "\003RMS Power", "\004Positive Max", "\005Positive Max Position",
    // "\006Negative Max", "\007Negative Max Position", "\010DC Offset", "Clipped" (the third and
    // later samples of runs at the clip level, scanned from each block's peak on) and "Pitch" (a
    // note number). Read in 4096-frame blocks, one channel at a time, under the progress title
    // "Analyzing"; nullopt when the delegate answers kStop (any other answer goes on).
    std::optional<KXDictionary> statisticsForRange(KXRange range, const KXIndexSet& channels);
    // The loudest point: "value" (the largest entry of any channel's maximum overview, the lower
    // channel on ties), "frame" (the loudest sample of that 256-frame block), "channel".
    KXDictionary maximumStatistics();
    // The largest magnitude of the selected channels over frames [from, to), in 1024-frame blocks.
    float maximumFrom(std::int64_t from, std::int64_t to, const KXIndexSet& channels);
    float maximumOfRange(KXRange range, const KXIndexSet& channels);
    // The square root of the sum of squares over all selected channels divided by the frames
    // (deliberately not by frames × channels: two equal channels give √2 × one's RMS).
    float rmsFrom(std::int64_t from, std::int64_t to, const KXIndexSet& channels);
    float rmsOfRange(KXRange range, const KXIndexSet& channels);
    // The note number (440 Hz is 57) of the summed 4096-point magnitude spectra of the channels.
    std::int32_t pitchFrom(std::int64_t from, std::int64_t to, const KXIndexSet& channels);
    float pitchOfRange(KXRange range, const KXIndexSet& channels);
    // The note number of a magnitude spectrum of `size` bins at the file's rate: the largest bin
    // (from 5 on) of its harmonic product, or the octave below when that holds a tenth as much.
    // The spectrum is changed in place.
    std::int32_t pitchForFFT(float* spectrum, std::uint32_t size) const;
    // EBU R128 / ITU-R BS.1770 loudness of the selected channels over `range` (weighted by their
    // speakers: LFE left out, surrounds +1.5 dB), under the progress title "Measuring loudness";
    // nullopt without channels, for a rate libebur128 does not take, or when stopped.
    std::optional<KXLoudness> loudnessForRange(KXRange range, const KXIndexSet& channels);

    // --- Finding positions (KXAudioFile_Thresholds.cpp)
    // The first frame whose magnitude reaches `magnitude` on any selected channel (4,294,967,295
    // when none does), and one past the last (0 when none does); the position forms in seconds.
    std::uint32_t startAtThreshold(float magnitude);
    std::uint32_t startAtThreshold(float magnitude, const KXIndexSet& channels);
    std::uint32_t endAtThreshold(float magnitude);
    std::uint32_t endAtThreshold(float magnitude, const KXIndexSet& channels);
    double firstPositionOverThreshold(float magnitude);
    double firstPositionOverThreshold(float magnitude, const KXIndexSet& channels);
    double lastPositionOverThreshold(float magnitude);
    double lastPositionOverThreshold(float magnitude, const KXIndexSet& channels);
    // Zero crossings: a frame where any selected channel is exactly 0 or has changed sign from
    // `frame`. Next answers the crossing frame (the frame count at or past the last frame, for a
    // crossing at the last frame, and when there is none); previous answers the frame after the
    // crossing (0 when there is none); nearest takes the closer, next on a tie.
    std::uint32_t nextZeroCross(std::uint32_t frame);
    std::uint32_t nextZeroCross(std::uint32_t frame, const KXIndexSet& channels);
    std::uint32_t previousZeroCross(std::uint32_t frame);
    std::uint32_t previousZeroCross(std::uint32_t frame, const KXIndexSet& channels);
    std::uint32_t nearestZeroCross(std::uint32_t frame);
    std::uint32_t nearestZeroCross(std::uint32_t frame, const KXIndexSet& channels);
    double positionOfZeroCrossingAfter(double seconds);
    double positionOfZeroCrossingAfter(double seconds, const KXIndexSet& channels);
    double positionOfZeroCrossingBefore(double seconds);
    double positionOfZeroCrossingBefore(double seconds, const KXIndexSet& channels);
    double positionOfZeroCrossingNearestTo(double seconds);
    double positionOfZeroCrossingNearestTo(double seconds, const KXIndexSet& channels);
    // The ranges in which the level (the maximum overview's, over every channel) rises to
    // `attack` and has not stayed at or below `release` for `interval` seconds; a release is
    // cancelled only strictly above the attack (deliberate). A range still open at `to` ends at
    // the file's end.
    std::vector<KXRange> thresholdArrayAtAttackThreshold(float attack, float release, float interval, bool zeroCross,
                                                         std::uint32_t from, std::uint32_t to);
    std::vector<KXRange> thresholdArrayAtAttackThreshold(float attack, float release, float interval, bool zeroCross);
    // Instructions: "attack", "release" (linear), "interval" (seconds, 0.01), "sensitivity" (0 to 1,
    // replacing the three: 0 is -6 dB, 1 is -60 dB), "range" ([start, end] in seconds; the whole
    // file), "atZeroCross". Threshold ranges; onsets (ranges whose start is their end) where the
    // energy of 512-frame steps jumps (by 20 - 18.5 × sensitivity), or where it jumps below 100 Hz
    // or above 8 kHz; never within 0.075 s of the previous onset or of the file's start.
    std::vector<KXRange> rangesForThresholdsWithInstructions(const KXDictionary& instructions);
    std::vector<KXRange> rangesForEnergyWithInstructions(const KXDictionary& instructions);
    std::vector<KXRange> rangesForEnergyBandsWithInstructions(const KXDictionary& instructions);

    // --- Processing (KXAudioFile_Process.cpp). Each operation renders a changed copy of samples
    // into `writer`: it begins the writer's write, resets the progress delegate, reports progress
    // and ends the write, also when the delegate stopped it; it answers the last status (kGoOn when
    // done, else the delegate's answer that stopped it). Deliberate extension: instructions that
    // cannot be carried out, and a writer that fails to begin or end, answer kProcessFailed with
    // `error` (for bad instructions nothing is begun).
    static constexpr std::int32_t kProcessFailed = -1;
    // The selected frames and channels times "gain"; sets the writer's channels. Copying a range
    // is this without a gain. Deliberate: an end past the file stops where the reads give nothing.
    std::int32_t changeAmplitude(const KXAmplitudeInstructions& instructions, KXAudioFileWriter& writer,
                                 KXError* error = nullptr);
    // Frames [from, to) of `channels` faded in (type 0: (1 − t)·t·2·(1 − c) + t²) or out (type 1:
    // (1 − t)² + t·2·c·(1 − t)), t = i ÷ n never reaching 1; a curve c of 0.5 is a straight line.
    // Sets the writer's channels. Any other type writes nothing and answers `from` (deliberately).
    std::int32_t fade(KXAudioFileWriter& writer, std::uint32_t from, std::uint32_t to, const KXIndexSet& channels,
                      std::int32_t type, float curve, KXError* error = nullptr);
    // The whole file, every channel, faded in up to the anchor frame or out after it (the anchor
    // itself keeps gain 1); any other type copies. Does not set the writer's channels.
    std::int32_t fade(KXAudioFileWriter& writer, std::int32_t type, std::uint32_t anchor, float curve,
                      KXError* error = nullptr);
    // The selected frames, every channel, times an automation entry's value over 0 … 1 (see
    // KXAutomationEntry for its curves); sets the writer's channels.
    std::int32_t fade(const KXFadeInstructions& instructions, KXAudioFileWriter& writer, KXError* error = nullptr);
    // Every selected sample with its sign flipped (0.0 becomes -0.0); the writer must have as many
    // channels as are selected.
    std::int32_t invertPhase(KXAudioFileWriter& writer, KXError* error = nullptr);
    std::int32_t invertPhase(KXAudioFileWriter& writer, std::uint32_t from, std::uint32_t to,
                             const KXIndexSet& channels, KXError* error = nullptr);
    // A one-pole high-pass per channel, y = x − x₋₁ + R·y₋₁ with R = 1 − 126 ÷ rate in single
    // precision; the writer as for invertPhase.
    std::int32_t filterDCOffset(KXAudioFileWriter& writer, KXError* error = nullptr);
    std::int32_t filterDCOffset(KXAudioFileWriter& writer, std::uint32_t from, std::uint32_t to,
                                const KXIndexSet& channels, KXError* error = nullptr);
    // One channel (the writer must have one): the sum of the selected channels, or the first
    // minus each of the others; averaged by their count on request. Progress is the absolute
    // frame over the length (deliberately beyond 1 for a range not at 0).
    std::int32_t sumChannels(const KXIndexSet& channels, bool average, KXAudioFileWriter& writer,
                             KXError* error = nullptr);
    std::int32_t sumChannels(const KXIndexSet& channels, bool average, KXSampleRange range,
                             KXAudioFileWriter& writer, KXError* error = nullptr);
    std::int32_t subtractChannels(const KXIndexSet& channels, bool average, KXAudioFileWriter& writer,
                                  KXError* error = nullptr);
    std::int32_t subtractChannels(const KXIndexSet& channels, bool average, KXSampleRange range,
                                  KXAudioFileWriter& writer, KXError* error = nullptr);
    // Balance from -1 (left only) to 1 (right only): the far one of the first two selected
    // channels is scaled by 1 − |balance|, the near one and any other channel keep their level,
    // so 0 leaves the signal as it is (a balance control, not a panner). Sets the writer's channels.
    std::int32_t changeBalance(float balance, const KXProcessSelection& selection, KXAudioFileWriter& writer,
                               KXError* error = nullptr);
    // The selected frames from the last to the first; sets the writer's channels.
    std::int32_t reverse(const KXProcessSelection& selection, KXAudioFileWriter& writer, KXError* error = nullptr);
    // One output channel per matrix row (see KXChannelMatrix): extracting, swapping, mixing down
    // and up-mixing are matrices. Sets the writer's channels.
    std::int32_t mixChannels(const KXChannelMatrix& matrix, const KXProcessSelection& selection,
                             KXAudioFileWriter& writer, KXError* error = nullptr);
    // Every channel without the selected frames; sets the writer's channels.
    std::int32_t snip(const KXFrameSelection& selection, KXAudioFileWriter& writer, KXError* error = nullptr);
    // The selection at another rate (libsoxr; linear phase), round(frames × new ÷ old) frames
    // long; sets the writer's rate and channels.
    std::int32_t convertRate(const KXRateInstructions& instructions, KXAudioFileWriter& writer,
                             KXError* error = nullptr);
    // The selection stretched in time and shifted in pitch (SoundTouch), round(frames × factor)
    // frames long; factors of 0.25 to 4, up to 36 semitones either way, at most 16 channels.
    // Sets the writer's channels.
    std::int32_t stretch(const KXStretchInstructions& instructions, KXAudioFileWriter& writer,
                         KXError* error = nullptr);

    // --- Editing (KXAudioFile_Editing.cpp). Operations change the edit list and the labels,
    // never a source file: what they add is written to temporary files of this object. After
    // each, the list is sorted, the frame count is the end of its extent, the read and play
    // buffers are reset, and the analysis of the channels it touched is removed (updateRange
    // measures a range again). Positions are frames; labels (in seconds) follow the frames.
    void addTempFile(const std::string& path);
    // Whether `path` is one of this object's own files: its path, a channel's file, a temporary file.
    bool isOwnSource(const std::string& path) const;
    // Channels: the edit list's and the channel list's together. A new channel is silent.
    void addChannel() { addChannelAtIndex(numberOfChannels_); }
    void addChannelAtIndex(std::uint32_t index);
    void duplicateChannelAtIndex(std::uint32_t index);
    void removeChannelAtIndex(std::uint32_t index);
    void moveChannels(const KXIndexSet& channels, std::uint32_t index);
    // The pasteboard holds, under this type, an archived edit list (KXCoder) whose blocks name
    // their sources by absolute path; pasting makes those sources this file's own
    // (KXEditList::conformSourcesToAudioFile).
    static constexpr const char* kPasteboardType = "KXAudioPboardType";
    enum class KXDragOperation { copy, link };
    // The frames of the channels (KXEditList::editListFromRange) onto the pasteboard.
    void copyFrom(const KXSampleRange& range, const KXIndexSet& channels);
    static void copyEditList(const KXEditList& list);
    // The pasteboard's edit list in place of `range` (removed and closed up, then the material
    // inserted at its start), its channel k into the k-th channel given (one channel into
    // all). With `link`, material of another document pasted into a document stays linked.
    // False with the error when there is nothing to paste or its sources cannot be copied.
    bool pasteFromPasteboard(const KXSampleRange& range, const KXIndexSet& channels, bool link, KXError* error = nullptr);
    // Pasting at a frame without removing anything ("Dragging"); a link operation links.
    bool dropFromPasteboard(std::uint32_t position, const KXIndexSet& channels, KXDragOperation operation,
                            KXError* error = nullptr);
    void spliceRange(const KXSampleRange& range, const KXIndexSet& channels, const std::string& name);
    // What plays in the range is taken out, leaving silence; the labels within it go.
    void removeRange(const KXSampleRange& range, const KXIndexSet& channels);
    void removeEditList(const KXEditList& blocks);
    // What plays in the range is taken out and what follows moves up; the labels within it go,
    // those after it move with the frames.
    void deleteRange(const KXSampleRange& range, const KXIndexSet& channels);
    void deleteEditList(const KXEditList& blocks);
    // Only the range is kept; unless in place, it then starts at frame 0 (labels with it).
    void cropRange(const KXSampleRange& range, const KXIndexSet& channels, bool inPlace);
    // A gap of range.length frames at range.location (labels after it move), holding a "Silence"
    // block, or nothing when not asEditBlock.
    void insertSilence(const KXSampleRange& range, const KXIndexSet& channels) { insertSilence(range, channels, true); }
    void insertSilence(const KXSampleRange& range, const KXIndexSet& channels, bool asEditBlock);
    // Closes the gaps within the range where none of the channels plays (KXEditList::
    // collapseRange); answers the action's name, "collapseRange".
    std::string collapseRange(const KXSampleRange& range, const KXIndexSet& channels);
    bool mergeEditList(const KXEditList& blocks, KXError* error = nullptr);
    // The linked material of the given blocks (copies of this file's) copied into this file.
    bool localizeEditList(const KXEditList& blocks, KXError* error = nullptr);
    // A finished writer's files in place of `range` of the channels (its channel k into the
    // k-th given), as long as the writer's frames with `useWriterSize`, else as the range; the
    // files become temporary files of this object.
    bool writerFile(KXAudioFileWriter& writer, const KXSampleRange& range, const KXIndexSet& channels,
                    bool useWriterSize, KXError* error = nullptr);
    // Saves a finished writer's files to the temporary folder as this object's temporary files
    // and answers the path that names them (see KXAudioFileWriter::saveToTempDirectory).
    std::optional<std::string> writerFileAsTempFile(KXAudioFileWriter& writer);
    // A new, temporary file of this one's description that plays a copy of `list`, its sources
    // made its own (copied, or with `link` linked where that is allowed).
    std::shared_ptr<KXAudioFile> newFileFromEditList(const KXEditList& list, bool link, KXError* error = nullptr);
    // Measures the range of the channels again after an edit (the analysis pass over it).
    void updateRange(const KXSampleRange& range, const KXIndexSet& channels);
    // The four label lists together (KXLabelList's operations; ranges in seconds).
    void shiftLabels(const KXRange& by);
    void removeLabelsFromRange(const KXRange& range);
    void scaleLabels(float factor);
    void scaleLabels(float factor, const KXRange& range);
    // Frames `range` of the channels rendered into `writer` as they play (copy:channels:toWriter:,
    // changeAmplitude without a gain). False with the error when the writer failed or the
    // delegate stopped it.
    bool copy(const KXSampleRange& range, const KXIndexSet& channels, KXAudioFileWriter& writer, KXError* error = nullptr);
    // Saves the edit list as an editor document named after `base` ("Song.tess/Song": the header
    // "Song.tess/Song.info" and the parts beside it; the folder is made when missing).
    // Operation: "contiguous" (true: one rendered part a channel; false: one part a block),
    // "mergeRemote" (false: linked blocks stay linked), "extra" (seconds of handle around each
    // block of separate parts, 0). The channels are analysed first when they are not. The file
    // then is the document: its edit list plays the parts, its path is the header's and its
    // sample format the parts' (32-bit big-endian float). True, writing nothing, without an
    // edit list; false with the error of the part that failed.
    bool writeToTessaroFile(const std::string& base, const KXDictionary& operation, KXError* error = nullptr);

    // --- Opening (KXAudioFile_Parse.cpp and one file per format)
    // Replaces the channel list: for a set of one file per channel, one channel per file named
    // after the files' suffixes (and the file is no longer interleaved); otherwise
    // numberOfChannels channels with the format's default names.
    void buildChannelsList();
    // --- Chunk contents that several formats' readers share
    // An iXML document's entries into the metadata (its "bext" element onto the Broadcast WAVE
    // keys); a document that does not parse adds nothing.
    void parseIXMLChunk(const KXChunk& chunk);
    // A 'KXmd' chunk's property-list dictionary, merged into the metadata.
    void mergeArchivedMetadata(const KXChunk& chunk);
    // The Sound Designer II text resource ('STR ') of that name into the metadata, under
    // KXMetadata::keyForTitle(name), when its payload is not empty; it is then consumed.
    void parseSDIIMetadataChunkForKey(const std::string& name, KXChunkList& chunks);

    struct ContainerKind {
        std::uint32_t format;              // the format a chunk walk of such a file uses
        std::int32_t blockSizeByteOrder;   // 1 little-endian, 2 big-endian
        bool hasChunks;
        const char* name;
    };
    // What a file's first four bytes (read big-endian) make it, as the opening dispatch decides.
    static ContainerKind containerKindForLeadingBytes(std::uint32_t leadingBytes);

private:

    [[nodiscard]] bool initWithPath(const std::string& path, KXError* error);
    // The format, encoding, byte orders, depth, rate, floating point and interleaving.
    void copyDescriptionTo(KXAudioFile& other) const;
    // What an editor document's samples are: 'TESS', 32-bit big-endian floats, one file a channel.
    void setDocumentDescription();
    // After an edit of the channels: the list sorted, the frame count its extent's end, the
    // buffers reset and the channels' analysis removed.
    void editListChanged(const KXIndexSet& channels);
    // The range in seconds at the file's rate.
    KXRange secondsOf(const KXSampleRange& range) const;
    // Every label list of the file.
    std::vector<KXLabelList*> labelLists() const;
    // Playback (KXAudioFile_Playback.cpp): a render of the span from `frame` that owns its
    // sources, and the move to the play buffer holding `key` — the other one, or the other one
    // loaded from `key` (or ending at `end` when `key` lies before the current one) — with a
    // prediction.
    KXPlayBuffers::Render playBufferRender(std::int64_t frame);
    void switchPlayBufferTo(std::int64_t key, std::int64_t end);
    // The REX document of a REX2 file (KXAudioFile_ParseREX2.cpp): made from the whole file, and
    // released when the file goes. `answer` is what the REX library said.
    bool openREXDocument(KXFile& file, REXError* answer);
    void closeREXDocument();
    // How threshold ranges open and close (KXAudioFile_Thresholds.cpp).
    struct LevelRule {
        float attack, release;
        std::uint64_t intervalBlocks;  // 256-frame blocks the level must stay down
        bool cancelAtAttack;           // a release is cancelled at the attack level, else only above it
        bool zeroCross;
    };
    std::vector<KXRange> rangesAboveLevels(const LevelRule& rule, std::uint64_t from, std::uint64_t to);
    // The processing frame (KXAudioFile_Process.cpp): the write around an operation, and its
    // block loops (one report per frame, or per block).
    template <class Work>
    std::int32_t writeProcessed(KXAudioFileWriter& writer, KXError* error, Work&& work);
    template <class Frame, class Fraction>
    std::int32_t renderFrames(KXAudioFileWriter& writer, std::uint64_t from, std::uint64_t to, const KXIndexSet& channels,
                              std::uint32_t outputs, Frame&& frame, Fraction&& fraction);
    template <class Block, class Fraction>
    std::int32_t renderBlocks(KXAudioFileWriter& writer, std::uint64_t from, std::uint64_t to, const KXIndexSet& channels,
                              Block&& block, Fraction&& fraction);
    std::int32_t combineChannels(const KXIndexSet& channels, bool average, KXSampleRange range, bool difference,
                                 KXAudioFileWriter& writer, KXError* error);
    // The channels of `wanted` that the file has, ascending.
    std::vector<std::uint32_t> channelsIn(const KXIndexSet& wanted) const;
    // A channel's maximum overview (one entry per 256-frame block) as it stands, without
    // analysing; empty when it has none. Valid until the channel list changes.
    std::span<const float> maximumOverview(std::uint32_t channel) const;
    // Opens and parses the file set that filename_ names.
    [[nodiscard]] bool openFileSet(KXError* error);
    // Reads every file of a split set by its own header: all must agree in container, rate,
    // sample format and channel count, and each channel's samples start at its own file's offset.
    [[nodiscard]] bool verifySplitMembers(KXError* error);
    // Walks another flat file of this format without touching this object's fileSize.
    std::optional<KXChunkArray> chunksAtPath(const std::string& path);
    void parseKXAnFromList(KXChunkList* chunkList);
    void parseAnalFromList(KXChunkList& chunkList);
    bool appendAnalysisChunk(const std::string& path, const KXData& contents);
    // Each format's parser, given the open file.
    [[nodiscard]] bool parseAIFFHeader(KXFile& file, KXError* error);
    [[nodiscard]] bool parseWAVEHeader(KXFile& file, KXError* error);
    [[nodiscard]] bool parseWAVE64Header(KXFile& file, KXError* error);
    [[nodiscard]] bool parseSFILHeader(KXFile& file, KXError* error);
    [[nodiscard]] bool parseREX2Header(KXFile& file, KXError* error);
    [[nodiscard]] bool parseAUHeader(KXFile& file, KXError* error);
    [[nodiscard]] bool parseTessaroHeader(KXFile& file, KXError* error);
    [[nodiscard]] bool parseCoreAudioHeader(KXFile& file, KXError* error);
    [[nodiscard]] bool parseSDIIHeader(KXFile& file, KXError* error);
    // The 'fmt ' and 'data' chunks of WAVE and Wave64 files: the format fields, the channel list
    // (with the speakers of an extensible format's channel mask), the frames and the edit list.
    // -5 with `action` when either chunk is missing or the data holds no frame; -6 for a format
    // the library does not read or values that describe no samples.
    [[nodiscard]] bool readWAVEFormatAndData(const KXChunk* fmt, const KXChunk* data, const char* action, KXError* error);
    // CAF 'desc' into the format fields: -5 without one, -6 for anything but integer or float
    // PCM the converter reads, and for values that describe no samples.
    [[nodiscard]] bool readCAFDescription(const KXChunk* desc, KXError* error);
    // AIFF 'COMM' into the format fields (-5 without one, -6 for samples the library does not
    // read), and 'SSND' into the edit list (-5 when it holds fewer frames than 'COMM' says).
    [[nodiscard]] bool readAIFFCommon(const KXChunk* comm, KXError* error);
    [[nodiscard]] bool readAIFFSoundData(KXChunkList& chunks, KXError* error);

    std::optional<KXAudioFilename> filename_;
    std::uint32_t creator_ = 0;
    std::uint32_t numberOfChannels_ = 0;
    std::uint32_t frames_ = 0;
    KXAudioStreamDescription sourceDescription_;
    KXAudioStreamDescription destinationDescription_;
    std::shared_ptr<const KXConverter> fileConverter_;  // shared with a play-buffer load in flight
    std::shared_ptr<KXEditList> editList_ = KXEditList::editList();
    std::unique_ptr<KXNativeAudioBuffer> readBuffer_;
    REXHandle rexHandle_ = nullptr;
    KXPlayBuffers playBuffers_;
    std::int32_t currentPlaybackDirection_ = 0;
    std::int32_t playbackRepeatDirectionType_ = 0;
    std::int32_t playbackRepeatStart_ = 0;
    std::int32_t playbackRepeatEnd_ = 0;
    bool useThreadedPlayBufferLoading_ = true;
    std::int32_t callbackReadLoc_ = 0;
    std::uint32_t encoding_ = 0;
    std::uint64_t fileSize_ = 0;
    std::uint32_t format_ = 0;
    std::uint32_t depth_ = 0;
    std::uint32_t rate_ = 0;
    bool isFloatingPoint_ = false;
    bool isInterleaved_ = false;
    std::int32_t blockSizeByteOrder_ = 0;
    std::int32_t audioDataByteOrder_ = 0;
    std::shared_ptr<KXMarkerList> markerList_;
    std::shared_ptr<KXSliceList> sliceList_;
    std::shared_ptr<KXRegionList> regionList_;
    std::shared_ptr<KXLoopList> loopList_;
    std::shared_ptr<KXChannelsList> channelsList_ = KXChannelsList::channelsList();
    KXDictionary metadata_;
    std::optional<KXChunkArray> unusedChunkList_;
    std::vector<std::string> tempFileList_;
    KXProgressDelegate* progressDelegate_ = this;
};

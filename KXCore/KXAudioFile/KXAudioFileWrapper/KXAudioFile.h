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
// KXAudioFile_Chunks.cpp (chunk walks and lookups), KXAudioFile_Parse.cpp (opening and the
// format dispatch). Each format's reader gets a file of its own, KXAudioFile_Parse<Format>.cpp,
// as it arrives; until then its entry in KXAudioFile_Parse.cpp refuses the file.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFilename.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunk.h"
#include "KXAudioFile/KXChannels/KXChannelsList.h"
#include "KXAudioFile/KXLabels/KXLoopList.h"
#include "KXAudioFile/KXLabels/KXMarkerList.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"
#include "KXAudioFile/KXLabels/KXSliceList.h"
#include "KXBase/KXAudioStreamDescription.h"
#include "KXBase/KXError.h"
#include "KXBase/KXProgressDelegate.h"
#include "KXBase/KXValue.h"

class KXChunkList;
class KXFile;
class KXResourceFile;

using KXChunkArray = std::vector<std::shared_ptr<KXChunk>>;

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
    bool moveToPath(const std::string& path);
    // Copies every file of the set (and its cached analysis); on success the object refers to the
    // copy.
    bool copyToPath(const std::string& path);
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
    bool moveToTrash();
    // Sets the HFS type code that belongs to the format on every file of the set.
    void conformHFSType();
    std::uint32_t creatorCode() const { return creator_; }
    std::string creator() const;
    // Parses the four-character text and, when it parses, sets it on every file of the set.
    void setCreator(const std::string& creator);
    // Describes the stored samples for the converter: rate, encoding, depth and flags.
    void setUpAudioConverter();
    const KXAudioStreamDescription& sourceDescription() const { return sourceDescription_; }
    const KXAudioStreamDescription& destinationDescription() const { return destinationDescription_; }
    // Mends a RIFF or FORM container whose size field disagrees with the file's length.
    static bool repairAtPath(const std::string& path);

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
    // Ignored for nullptr.
    void setProgressDelegate(KXProgressDelegate* delegate);

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

    // --- Opening (KXAudioFile_Parse.cpp)
    struct ContainerKind {
        std::uint32_t format;              // the format a chunk walk of such a file uses
        std::int32_t blockSizeByteOrder;   // 1 little-endian, 2 big-endian
        bool hasChunks;
        const char* name;
    };
    // What a file's first four bytes (read big-endian) make it, as the opening dispatch decides.
    static ContainerKind containerKindForLeadingBytes(std::uint32_t leadingBytes);

private:

    bool initWithPath(const std::string& path, KXError* error);
    // Walks another flat file of this format without touching this object's fileSize.
    std::optional<KXChunkArray> chunksAtPath(const std::string& path);
    void parseKXAnFromList(KXChunkList* chunkList);
    void parseAnalFromList(KXChunkList& chunkList);
    bool appendAnalysisChunk(const std::string& path, const KXData& contents);
    // Each format's parser, given the open file. Until a format's reader is built its entry
    // refuses the file with -6 and the format's action text.
    bool parseAIFFHeader(KXFile& file, KXError* error);
    bool parseWAVEHeader(KXFile& file, KXError* error);
    bool parseWAVE64Header(KXFile& file, KXError* error);
    bool parseSFILHeader(KXFile& file, KXError* error);
    bool parseREX2Header(KXFile& file, KXError* error);
    bool parseAUHeader(KXFile& file, KXError* error);
    bool parseTessaroHeader(KXFile& file, KXError* error);
    bool parseCoreAudioHeader(KXFile& file, KXError* error);
    bool parseSDIIHeader(KXFile& file, KXError* error);

    std::optional<KXAudioFilename> filename_;
    std::uint32_t creator_ = 0;
    std::uint32_t numberOfChannels_ = 0;
    std::uint32_t frames_ = 0;
    KXAudioStreamDescription sourceDescription_;
    KXAudioStreamDescription destinationDescription_;
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

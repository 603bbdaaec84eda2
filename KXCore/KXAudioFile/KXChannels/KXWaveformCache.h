#pragma once
// KXWaveformCache: where the analysis of files that cannot carry it is kept — one cache file of
// 'KXAn' contents per audio file, found again by the audio file's path and dropped when the audio
// file's modification date changes. One cache serves the process.
//
// The cache folder holds "directory.xml", an XML property-list index ("Size": the total bytes of
// the cache files; every other key an audio file's path, whose entry holds "filename" and
// "modDate"), and the cache files "<microseconds since 1970>.analysis".
//
// User defaults: "Waveform Cache Enabled" (default false; when false, adding, moving, copying and
// removing do nothing), "Waveform Cache Exclusive" (default false; analysis goes to the cache even
// where a file could carry it), "Waveform Cache Location" (default "<application support>/Cache";
// "~" stands for the home folder).
//
// Modification dates are compared in whole seconds: property-list dates keep no fractions, and a
// date read back from the index must still match the file it describes.
//
// Not thread-safe: used from one thread at a time, like the audio files it serves.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXChunk.h"
#include "KXBase/KXData.h"
#include "KXBase/KXValue.h"

class KXWaveformCache {
public:
    static constexpr const char* kEnabledKey = "Waveform Cache Enabled";
    static constexpr const char* kExclusiveKey = "Waveform Cache Exclusive";
    static constexpr const char* kLocationKey = "Waveform Cache Location";

    // The process's cache, loaded on first use.
    static KXWaveformCache& sharedInstance();
    // Registers the defaults above, once per process (done on first use too).
    static void registerDefaults();
    static bool isEnabled();
    static bool isExclusive();

    void addEntry(const KXData& contents, const std::string& path);
    void moveEntry(const std::string& oldPath, const std::string& newPath);
    void copyEntry(const std::string& oldPath, const std::string& newPath);
    void removeEntryAtPath(const std::string& path);
    void removeEntriesAtPaths(const std::vector<std::string>& paths);
    // The contents for the path; nullopt when there are none or the file has changed since.
    std::optional<KXData> entryForPath(const std::string& path);
    // The contents as a 'KXAn' chunk.
    std::shared_ptr<KXChunk> chunkForPath(const std::string& path);

    // Both ask the user first ("Yes" empties or updates; "No" changes nothing).
    void emptyCache();
    // Drops the entries of files that are gone or have changed.
    void updateCache();
    std::uint64_t size() {
        ensureLoaded();
        return std::uint64_t(directory_.objectForKey("Size").longLongValue());
    }
    // The size as people read it ("1.5 MB").
    std::string cacheSize();
    // Moves the cache folder into `parent` as "Cache"; the location setting changes only when
    // the move succeeds.
    void setCacheLocation(const std::string& parent);
    // The cache folder, "~" expanded.
    std::string directoryPath();
    // Reads the index again from the folder the location setting names (creating it when
    // missing).
    void loadWaveformCache();

private:
    KXWaveformCache() = default;
    // Loads the index on first real use, so that a disabled cache never creates its folder.
    void ensureLoaded() {
        if (!loaded_) loadWaveformCache();
    }
    void writeIndex() const;
    void setSize(std::int64_t size) { directory_.setObject(std::max<std::int64_t>(size, 0), "Size"); }
    // Deletes an entry's cache file and takes its length off the size.
    void discardEntryFile(const KXDictionary& entry);
    std::string newCacheFileName() const;
    static std::optional<double> modificationSecond(const std::string& path);
    // Whether the entry was made for the file as it is now (it exists, same modification second).
    static bool isCurrent(const KXDictionary& entry, const std::string& path);

    KXDictionary directory_;
    std::string folder_;
    bool loaded_ = false;
};

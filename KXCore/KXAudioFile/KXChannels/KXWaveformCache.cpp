#include "KXAudioFile/KXChannels/KXWaveformCache.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "KXBase/KXDirectories.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXFileSizeFormatter.h"
#include "KXBase/KXPropertyList.h"
#include "KXBase/KXUserDefaults.h"
#include "KXBase/KXUserInterface.h"

namespace {

constexpr const char* kIndexName = "directory.xml";
constexpr std::uint64_t kMaximumIndexSize = 64u << 20;
constexpr std::uint64_t kMaximumEntrySize = 1u << 30;

std::string homeFolder() {
    const char* home = std::getenv("HOME");
    return home && *home ? home : "";
}

std::string expandTilde(const std::string& path) {
    if (path == "~" || path.starts_with("~/")) return homeFolder() + path.substr(1);
    return path;
}

std::string abbreviateWithTilde(const std::string& path) {
    const std::string home = homeFolder();
    if (home.empty() || !path.starts_with(home) || (path.size() > home.size() && path[home.size()] != '/')) return path;
    std::string abbreviated = "~";
    abbreviated.append(path, home.size(), std::string::npos);
    return abbreviated;
}

bool askUser(const char* question) {
    KXAlert alert{question, "This action is not undoable.", {"Yes", "No"}, 0};
    return KXUserInterface::shared().runAlert(alert) == 0;
}

}  // namespace

// --- Defaults and start

void KXWaveformCache::registerDefaults() {
    // Once per process: every cache operation and file move asks isEnabled() first.
    static std::once_flag registered;
    std::call_once(registered, [] {
        KXUserDefaults::standardUserDefaults().registerDefaults(
            {{kEnabledKey, false},
             {kExclusiveKey, false},
             {kLocationKey, KXDirectories::applicationSupportDirectory() + "/Cache"}});
    });
}

bool KXWaveformCache::isEnabled() {
    registerDefaults();
    return KXUserDefaults::standardUserDefaults().boolForKey(kEnabledKey);
}

bool KXWaveformCache::isExclusive() {
    registerDefaults();
    return KXUserDefaults::standardUserDefaults().boolForKey(kExclusiveKey);
}

KXWaveformCache& KXWaveformCache::sharedInstance() {
    static KXWaveformCache cache;
    return cache;
}

std::string KXWaveformCache::directoryPath() {
    ensureLoaded();
    return folder_;
}

void KXWaveformCache::loadWaveformCache() {
    loaded_ = true;
    registerDefaults();
    folder_ = expandTilde(KXUserDefaults::standardUserDefaults().stringForKey(kLocationKey));
    directory_.removeAllObjects();
    if (!KXFile::isDirectoryAtPath(folder_)) {
        (void)KXFile::createDirectoryAtPath(folder_);
        setSize(0);
        writeIndex();
    }
    const auto bytes = KXFile::dataWithContentsOfPath(folder_ + "/" + kIndexName, kMaximumIndexSize);
    if (bytes) {
        if (auto index = KXPropertyList::propertyListFromData(*bytes); index && index->type() == KXValue::Type::dictionary)
            directory_ = index->dictionary();
    }
    if (!directory_.contains("Size")) setSize(0);
}

void KXWaveformCache::writeIndex() const {
    (void)KXFile::writeDataToPath(KXPropertyList::xmlData(KXValue(directory_)), folder_ + "/" + kIndexName);
}

std::optional<double> KXWaveformCache::modificationSecond(const std::string& path) {
    const auto date = KXFile::modificationDateAtPath(path);
    if (!date) return std::nullopt;
    return std::floor(*date);
}

bool KXWaveformCache::isCurrent(const KXDictionary& entry, const std::string& path) {
    const KXValue& stored = entry.objectForKey("modDate");
    const auto modified = modificationSecond(path);
    return modified && stored.type() == KXValue::Type::date && stored.date().secondsSince1970 == *modified;
}

std::string KXWaveformCache::newCacheFileName() const {
    using namespace std::chrono;
    double stamp = double(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
    for (;; stamp += 1) {
        char name[64];
        std::snprintf(name, sizeof name, "%.0f.analysis", stamp);
        if (!KXFile::existsAtPath(folder_ + "/" + name)) return name;
    }
}

void KXWaveformCache::discardEntryFile(const KXDictionary& entry) {
    const std::string file = folder_ + "/" + entry.objectForKey("filename").stringValue();
    const std::uint64_t length = KXFile::lengthOfFileAtPath(file);
    KXFile::deleteFileAtPath(file);
    setSize(std::int64_t(size()) - std::int64_t(length));
}

// --- Entries

void KXWaveformCache::addEntry(const KXData& contents, const std::string& path) {
    if (!isEnabled()) return;
    ensureLoaded();
    if (const KXValue* old = directory_.find(path); old && old->type() == KXValue::Type::dictionary)
        discardEntryFile(old->dictionary());
    const std::string name = newCacheFileName();
    if (!KXFile::writeDataToPath(contents, folder_ + "/" + name)) return;
    KXDictionary entry{{"filename", name}, {"modDate", KXDate{modificationSecond(path).value_or(0)}}};
    directory_.setObject(std::move(entry), path);
    setSize(std::int64_t(size() + contents.size()));
    writeIndex();
}

void KXWaveformCache::moveEntry(const std::string& oldPath, const std::string& newPath) {
    if (!isEnabled()) return;
    ensureLoaded();
    const KXValue* entry = directory_.find(oldPath);
    if (!entry || oldPath == newPath) return;
    KXValue moved = *entry;
    directory_.removeObjectForKey(oldPath);
    directory_.setObject(std::move(moved), newPath);
    writeIndex();
}

void KXWaveformCache::copyEntry(const std::string& oldPath, const std::string& newPath) {
    if (!isEnabled()) return;
    ensureLoaded();
    const KXValue* entry = directory_.find(oldPath);
    if (!entry || entry->type() != KXValue::Type::dictionary) return;
    const auto contents = KXFile::dataWithContentsOfPath(
        folder_ + "/" + entry->dictionary().objectForKey("filename").stringValue(), kMaximumEntrySize);
    if (!contents) return;
    const std::string name = newCacheFileName();
    if (!KXFile::writeDataToPath(*contents, folder_ + "/" + name)) return;
    KXDictionary copy = entry->dictionary();
    copy.setObject(name, "filename");
    if (const KXValue* old = directory_.find(newPath); old && old->type() == KXValue::Type::dictionary)
        discardEntryFile(old->dictionary());
    directory_.setObject(std::move(copy), newPath);
    setSize(std::int64_t(size() + contents->size()));
    writeIndex();
}

void KXWaveformCache::removeEntryAtPath(const std::string& path) {
    if (!isEnabled()) return;
    ensureLoaded();
    const KXValue* entry = directory_.find(path);
    if (!entry || path == "Size") return;
    if (entry->type() == KXValue::Type::dictionary) discardEntryFile(entry->dictionary());
    directory_.removeObjectForKey(path);
    writeIndex();
}

void KXWaveformCache::removeEntriesAtPaths(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) removeEntryAtPath(path);
}

std::optional<KXData> KXWaveformCache::entryForPath(const std::string& path) {
    ensureLoaded();
    const KXValue* entry = directory_.find(path);
    if (!entry || entry->type() != KXValue::Type::dictionary || path == "Size") return std::nullopt;
    const KXDictionary& fields = entry->dictionary();
    if (!isCurrent(fields, path)) {
        removeEntryAtPath(path);
        return std::nullopt;
    }
    return KXFile::dataWithContentsOfPath(folder_ + "/" + fields.objectForKey("filename").stringValue(), kMaximumEntrySize);
}

std::shared_ptr<KXChunk> KXWaveformCache::chunkForPath(const std::string& path) {
    auto contents = entryForPath(path);
    if (!contents) return nullptr;
    auto chunk = KXChunk::chunk();
    chunk->setType(KXFourCC("KXAn"));
    chunk->mutableData() = std::move(*contents);
    return chunk;
}

// --- The whole cache

void KXWaveformCache::emptyCache() {
    ensureLoaded();
    if (!askUser("Are you sure you want to empty the waveform cache?")) return;
    for (const std::string& name : KXFile::contentsOfDirectoryAtPath(folder_)) KXFile::deleteFileAtPath(folder_ + "/" + name);
    directory_.removeAllObjects();
    setSize(0);
    writeIndex();
}

void KXWaveformCache::updateCache() {
    ensureLoaded();
    if (!askUser("Are you sure you want to update the waveform cache?")) return;
    const std::vector<std::string> paths = directory_.keys();
    for (const std::string& path : paths) {
        if (path == "Size") continue;
        const KXValue& entry = directory_.objectForKey(path);
        if (isCurrent(entry.dictionary(), path)) continue;
        if (entry.type() == KXValue::Type::dictionary) discardEntryFile(entry.dictionary());
        directory_.removeObjectForKey(path);
    }
    writeIndex();
}

std::string KXWaveformCache::cacheSize() { return KXFileSizeFormatter::stringForSize(size()); }

void KXWaveformCache::setCacheLocation(const std::string& parent) {
    ensureLoaded();
    const std::string target = KXFile::pathByAppendingComponent(expandTilde(parent), "Cache");
    if (!KXFile::movePath(folder_, target)) return;
    folder_ = target;
    KXUserDefaults::standardUserDefaults().setObject(abbreviateWithTilde(target), kLocationKey);
}

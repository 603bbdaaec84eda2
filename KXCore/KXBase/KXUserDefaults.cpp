#include "KXBase/KXUserDefaults.h"

#include <cstdlib>

#include "KXBase/KXFile.h"
#include "KXBase/KXPropertyList.h"

namespace {
constexpr std::size_t kMaximumDefaultsSize = 16u << 20;

std::string configurationDirectory() {
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg) return xdg;
    if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.config";
    return "/tmp";
}
}  // namespace

KXUserDefaults& KXUserDefaults::standardUserDefaults() {
    static KXUserDefaults defaults;
    return defaults;
}

std::string KXUserDefaults::storagePath() {
    std::lock_guard lock(mutex_);
    if (!storagePath_) storagePath_ = configurationDirectory() + "/kxaudio/defaults.plist";
    return *storagePath_;
}

void KXUserDefaults::setStoragePath(const std::string& path) {
    std::lock_guard lock(mutex_);
    storagePath_ = path;
    loaded_ = false;
    persistent_.removeAllObjects();
}

void KXUserDefaults::loadIfNeeded() {
    if (loaded_) return;
    loaded_ = true;
    if (!storagePath_) storagePath_ = configurationDirectory() + "/kxaudio/defaults.plist";
    auto file = KXFile::fileWithPath(*storagePath_);
    if (!file || file->length() > kMaximumDefaultsSize) return;
    const KXData bytes = file->readDataOfLengthAtPosition(std::size_t(file->length()), 0);
    if (auto value = KXPropertyList::propertyListFromData(bytes);
        value && value->type() == KXValue::Type::dictionary)
        persistent_ = value->dictionary();
}

void KXUserDefaults::registerDefaults(const KXDictionary& defaults) {
    std::lock_guard lock(mutex_);
    registered_.addEntriesFromDictionary(defaults);
}

KXValue KXUserDefaults::objectForKey(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (const KXValue* value = volatile_.find(key)) return *value;
    loadIfNeeded();
    if (const KXValue* value = persistent_.find(key)) return *value;
    return registered_.objectForKey(key);
}

void KXUserDefaults::setObject(KXValue value, const std::string& key) {
    std::lock_guard lock(mutex_);
    loadIfNeeded();
    persistent_.setObject(std::move(value), key);
}

void KXUserDefaults::removeObjectForKey(const std::string& key) {
    std::lock_guard lock(mutex_);
    loadIfNeeded();
    persistent_.removeObjectForKey(key);
}

bool KXUserDefaults::synchronize(KXError* error) {
    std::lock_guard lock(mutex_);
    loadIfNeeded();
    const std::string path = *storagePath_;
    if (!KXFile::createDirectoryAtPath(KXFile::directoryOfPath(path), error)) return false;
    // Written beside the old file, then renamed over it: a failure keeps the old settings.
    return KXFile::writeDataToPath(KXPropertyList::xmlData(KXValue(persistent_)), path, error);
}

void KXUserDefaults::setVolatileObject(KXValue value, const std::string& key) {
    std::lock_guard lock(mutex_);
    volatile_.setObject(std::move(value), key);
}

void KXUserDefaults::removeVolatileObjectForKey(const std::string& key) {
    std::lock_guard lock(mutex_);
    volatile_.removeObjectForKey(key);
}

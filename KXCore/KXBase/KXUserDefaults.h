#pragma once
// KXUserDefaults: the user's settings. A key is looked up, first match wins, in
//   1. the volatile domain: values the host (or a test) sets for this process only;
//   2. the persistent domain: an XML property list, "$XDG_CONFIG_HOME/kxaudio/defaults.plist"
//      (XDG_CONFIG_HOME defaults to ~/.config), read when first needed and written by
//      synchronize();
//   3. the registered defaults.
// All members are safe to call from several threads.

#include <mutex>
#include <optional>
#include <string>

#include "KXBase/KXError.h"
#include "KXBase/KXValue.h"

class KXUserDefaults {
public:
    static KXUserDefaults& standardUserDefaults();

    void registerDefaults(const KXDictionary& defaults);
    KXValue objectForKey(const std::string& key);
    bool boolForKey(const std::string& key) { return objectForKey(key).boolValue(); }
    std::int64_t integerForKey(const std::string& key) { return objectForKey(key).longLongValue(); }
    double doubleForKey(const std::string& key) { return objectForKey(key).doubleValue(); }
    std::string stringForKey(const std::string& key) { return objectForKey(key).stringValue(); }

    void setObject(KXValue value, const std::string& key);
    void removeObjectForKey(const std::string& key);
    [[nodiscard]] bool synchronize(KXError* error = nullptr);

    void setVolatileObject(KXValue value, const std::string& key);
    void removeVolatileObjectForKey(const std::string& key);

    // Where the persistent domain lives; setting it drops what was loaded from the old place.
    std::string storagePath();
    void setStoragePath(const std::string& path);

private:
    void loadIfNeeded();  // with the lock held

    std::mutex mutex_;
    std::optional<std::string> storagePath_;
    bool loaded_ = false;
    KXDictionary registered_, persistent_, volatile_;
};

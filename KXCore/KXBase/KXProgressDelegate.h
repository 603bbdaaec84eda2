#pragma once
// KXProgressDelegate: receives the progress of long operations. Every member has a default that
// does nothing and never stops the work, so an implementation overrides only what it shows.

#include <cstdint>
#include <string>

#include "KXBase/KXError.h"

class KXProgressDelegate {
public:
    static constexpr std::int32_t kGoOn = -1002;
    static constexpr std::int32_t kStop = -1000;

    virtual ~KXProgressDelegate() = default;
    virtual void open() {}
    virtual void reset() {}
    virtual void close() {}
    virtual void setTitle(const std::string& /*title*/) {}
    virtual void setTitle(const std::string& /*title*/, bool /*reset*/) {}
    virtual void setIsStoppable(bool /*stoppable*/) {}
    virtual bool isStoppable() const { return true; }
    // `fraction` of the work is done; answers kGoOn or kStop.
    virtual std::int32_t update(double /*fraction*/) { return kGoOn; }
    // false means the user cancelled; the caller then fails with -9.
    virtual bool update(double /*fraction*/, KXError* /*error*/) { return true; }
};

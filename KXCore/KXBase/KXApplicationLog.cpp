#include "KXBase/KXApplicationLog.h"

#include <mutex>

namespace {
std::mutex gSinkMutex;
std::shared_ptr<KXLogSink> gSink;
}  // namespace

namespace KXApplicationLog {

void setSink(std::shared_ptr<KXLogSink> sink) {
    std::lock_guard lock(gSinkMutex);
    gSink = std::move(sink);
}

void log(const KXLogRecord& record) {
    std::shared_ptr<KXLogSink> sink;
    {
        std::lock_guard lock(gSinkMutex);
        sink = gSink;
    }
    if (sink) sink->write(record);
}

}  // namespace KXApplicationLog

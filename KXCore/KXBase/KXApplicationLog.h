#pragma once
// KXApplicationLog: where the library's information records go. The host installs a sink; the
// default one discards every record.

#include <memory>
#include <string>

enum class KXLogLevel { debug, information, warning, error };

struct KXLogRecord {
    KXLogLevel level = KXLogLevel::information;
    std::string domain;  // e.g. "Writing"
    std::string message;
    const char* file = "";
    int line = 0;
    const char* function = "";
    std::string sender;  // the object that logged, as text
};

class KXLogSink {
public:
    virtual ~KXLogSink() = default;
    virtual void write(const KXLogRecord& record) = 0;
};

namespace KXApplicationLog {
// Installs `sink` (nullptr: the discarding default). Safe from any thread.
void setSink(std::shared_ptr<KXLogSink> sink);
void log(const KXLogRecord& record);
}  // namespace KXApplicationLog

#define KXLogInformation(domain, sender, message)                                            \
    KXApplicationLog::log(KXLogRecord{KXLogLevel::information, (domain), (message), __FILE__, \
                                      __LINE__, __func__, (sender)})

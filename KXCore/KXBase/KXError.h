#pragma once
// KXError: what went wrong (domain and code), what was being done (action), why (reason).
// Operations that can fail take a last `KXError* error = nullptr` and store into it only when it
// is not null; KXSetError is the one place that does so.

#include <cstdint>
#include <string>

class KXError {
public:
    KXError() = default;
    KXError(std::string domain, std::int64_t code, std::string action, std::string reason,
            std::string alertMessage = {});

    // An error of the operating system's file layer: the errno value and its text.
    static KXError posixError(int errnoValue, const std::string& action);

    const std::string& domain() const { return domain_; }
    std::int64_t code() const { return code_; }
    const std::string& action() const { return action_; }
    const std::string& reason() const { return reason_; }
    const std::string& alertMessage() const { return alertMessage_; }
    bool isPOSIXError() const;

    // "<action>: <reason> (code N)", the form the command-line tool prints.
    std::string description() const;

    friend bool operator==(const KXError&, const KXError&) = default;

private:
    std::string domain_;
    std::int64_t code_ = 0;
    std::string action_;
    std::string reason_;
    std::string alertMessage_;
};

inline constexpr const char* KXPOSIXErrorDomain = "KXPOSIXErrorDomain";

inline void KXSetError(KXError* error, KXError value) {
    if (error) *error = std::move(value);
}

#include "KXBase/KXError.h"

#include <cstring>

KXError::KXError(std::string domain, std::int64_t code, std::string action, std::string reason,
                 std::string alertMessage)
    : domain_(std::move(domain)),
      code_(code),
      action_(std::move(action)),
      reason_(std::move(reason)),
      alertMessage_(std::move(alertMessage)) {}

KXError KXError::posixError(int errnoValue, const std::string& action) {
    return KXError(KXPOSIXErrorDomain, errnoValue, action, std::strerror(errnoValue),
                   "A file system error occurred");
}

bool KXError::isPOSIXError() const { return domain_ == KXPOSIXErrorDomain; }

std::string KXError::description() const {
    return action_ + ": " + reason_ + " (code " + std::to_string(code_) + ")";
}

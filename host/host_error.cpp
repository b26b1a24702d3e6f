#include "host/host_error.h"

#include <system_error>

namespace tvsort::host {

HostError systemFailure(const std::string& what, int systemError, const std::string& advice) {
    std::string text = what + ": " + std::generic_category().message(systemError);
    if (!advice.empty()) text += "; " + advice;
    return {FailureKind::kSystemCall, text, ErrorCode::kSuccess, systemError};
}

HostError badUse(const std::string& text) {
    return {FailureKind::kBadUse, text};
}

HostError brokenResult(const std::string& text) {
    return {FailureKind::kProtocolBroken, text};
}

}  // namespace tvsort::host

#include "host/host_error.h"

#include <cerrno>
#include <system_error>

namespace tvsort::host {

HostError systemFailure(const std::string& what, int systemError, const std::string& advice) {
    std::string text = what + ": " + std::generic_category().message(systemError);
    if (systemError == EMFILE || systemError == ENFILE) {
        // Whatever was to be opened is not at fault.
        text += "; close other files or raise the limit of open files";
    } else if (!advice.empty()) {
        text.append("; ").append(advice);
    }
    return {FailureKind::kSystemCall, text, ErrorCode::kSuccess, systemError};
}

HostError badUse(const std::string& text) {
    return {FailureKind::kBadUse, text};
}

HostError brokenResult(const std::string& text) {
    return {FailureKind::kProtocolBroken, text};
}

}  // namespace tvsort::host

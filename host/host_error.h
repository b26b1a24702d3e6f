// The one exception of the host library.
//
// Its text is meant for the person in front of the command as much as for an engine's log: it says
// what could not be done, where, and what to do about it. The kind is for the caller's branches:
//
//     kSystemCall         a call to the operating system failed; `systemError` has its number
//     kProcessDied        the sort process ended although it was needed
//     kTimedOut           the sort process did not do something in the time that the caller granted
//     kAnsweredWithError  the sort process refused or failed a request; `errorCode` has its code
//     kProtocolBroken     what came back from the process is no message of the protocol, or cannot
//                         be the answer to what was sent
//     kBadUse             the caller asked for something that cannot be

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "protocol/error_code.h"

namespace tvsort::host {

enum class FailureKind : std::uint8_t {
    kSystemCall,
    kProcessDied,
    kTimedOut,
    kAnsweredWithError,
    kProtocolBroken,
    kBadUse,
};

class HostError : public std::runtime_error {
  public:
    HostError(FailureKind kind, const std::string& text, ErrorCode errorCode = ErrorCode::kSuccess,
              int systemError = 0)
        : std::runtime_error(text), kind_(kind), errorCode_(errorCode), systemError_(systemError) {}

    FailureKind kind() const { return kind_; }
    // The code of the answer, for kAnsweredWithError.
    ErrorCode errorCode() const { return errorCode_; }
    // The operating system's error number, where one belongs to the failure, else 0.
    int systemError() const { return systemError_; }

  private:
    FailureKind kind_;
    ErrorCode errorCode_;
    int systemError_;
};

// A failed system call: "<what>: <the system's words>; <advice>". `what` names the object too.
// Where the process has no descriptor left, the advice is about that.
HostError systemFailure(const std::string& what, int systemError, const std::string& advice = "");

// A request that cannot be met, in words that say what to ask for instead.
HostError badUse(const std::string& text);

// kProtocolBroken, for whoever reads a result and meets a record that cannot be in it. The text
// says what the process did; `SortSlot::read` puts the process's name before it.
HostError brokenResult(const std::string& text);

}  // namespace tvsort::host

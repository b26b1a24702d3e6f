// The bytes of the lines or rows that went to a process and have not come back.
//
// Each of them comes back once at most, whatever the mode. A process that gives back one long line
// many times keeps to every bound of a single record, and its result could be as large as records
// are many and the longest line is long together: without this it would fill a disk.

#pragma once

#include <cstdint>
#include <string>

#include "host/host_error.h"

namespace tvsort::tools {

class TextBalance {
  public:
    void goes(std::uint64_t byteCount) { byteCount_ += byteCount; }
    // More than went is kProtocolBroken.
    void comesBack(std::uint64_t byteCount) {
        if (byteCount > byteCount_) {
            throw host::brokenResult("gave back " + std::to_string(byteCount - byteCount_) +
                                     " bytes of text more than it got");
        }
        byteCount_ -= byteCount;
    }

  private:
    std::uint64_t byteCount_ = 0;
};

}  // namespace tvsort::tools

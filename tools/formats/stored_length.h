// The length before a value, in a record that came back from a process. It was right when the
// record went there; nobody but the process knows what it is now.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/host_error.h"
#include "protocol/bytes.h"

namespace tvsort::tools {

// The u16 at `field`, which counts the bytes behind it, of which `byteCountMax` belong to the
// field. One that is larger is kProtocolBroken.
inline std::size_t storedLength(const Byte* field, std::size_t byteCountMax) {
    const std::size_t byteCount = loadU16(field);
    if (byteCount <= byteCountMax) return byteCount;
    throw host::brokenResult("gave back a record with " + std::to_string(byteCount) +
                             " bytes where " + std::to_string(byteCountMax) + " have room");
}

}  // namespace tvsort::tools

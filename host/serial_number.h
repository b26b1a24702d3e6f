// A serial number in a part of the messages that belongs to the server: bytes 12 to 15 of a request
// come back in its reply as they were.

#pragma once

#include <cstddef>
#include <cstdint>

#include "protocol/bytes.h"
#include "protocol/messages.h"

namespace tvsort::host {

inline constexpr std::size_t kSerialOffset = 12;
static_assert(kSerialOffset >= offsetof(SortRequest, reserved1) &&
              kSerialOffset + sizeof(std::uint32_t) <= offsetof(SortRequest, workDirName));
static_assert(kSerialOffset >= offsetof(SortReply, reserved1) &&
              kSerialOffset + sizeof(std::uint32_t) <= offsetof(SortReply, osError));

inline std::uint32_t serialOf(const SortReply& reply) {
    return loadU32(reinterpret_cast<const Byte*>(&reply) + kSerialOffset);
}

}  // namespace tvsort::host

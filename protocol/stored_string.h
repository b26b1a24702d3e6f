// A string in a record: its length in bytes, i16, its content, and what is left of the field.

#pragma once

#include <algorithm>
#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort {

// Whether the field orders as its value: the length lies inside the field, and zeros follow the
// content. `fieldLength` counts the bytes of the length, too.
inline bool isZeroFilled(const Byte* field, std::uint16_t fieldLength) {
    const auto length = loadOnce<std::int16_t>(field);
    const int contentBytes = fieldLength - static_cast<int>(sizeof length);
    if (length < 0 || length > contentBytes) return false;
    const Byte* const content = field + sizeof length;
    return std::all_of(content + length, content + contentBytes,
                       [](Byte byte) { return byte == 0; });
}

}  // namespace tvsort

// Null indicators: one byte per request key, in the field that the descriptor of kind 4 names.

#pragma once

#include "process/job/key_rule.h"
#include "protocol/bytes.h"

namespace tvsort {

// 1 means null; every other value means that the record has a value for the key.
inline constexpr Byte kNullIndicator = 1;

inline bool isNull(const Byte* record, const KeyRule& rule) {
    return record[rule.nullOffset] == kNullIndicator;
}

}  // namespace tvsort

// The sort keys of a record as one string of bytes whose plain order is the records' order (M. W.
// Blasgen, R. G. Casey, K. P. Eswaran, An encoding method for multifield sorting and indexing, CACM
// 20/11, 1977). For keys that the distribution sort knows:
//
//     null indicator   1 byte, where the request has indicators; a null's value is all zeros
//     integer          2, 4 or 8 bytes, most significant first, the sign bit turned
//     decimal          1 byte of class rank, 15 digits, most significant first, turned below zero
//     bytes            as they are
//     string           the zero-filled content, then the length, high byte first
//     recordFlag       1 byte, last, in the set-operation modes
//
// The bytes of descending keys are turned; the indicator's sense is the placement's.

#pragma once

#include <cstdint>

#include "keys/decimal_value.h"
#include "service/sort_job.h"

namespace tvsort {

// Longer strings are not built: whole-record passes order such keys.
inline constexpr std::uint32_t kNormalizedBytesMax = 1024;

// Bytes of the request's normalized key.
std::uint32_t normalizedKeyBytes(const SortJob& job);

// Writes the normalized key of `record` to `target`. False when it has an invalid decimal under an
// ascending key, or one of an unknown class.
bool normalizeKey(const SortJob& job, const Byte* record, Byte* target);

// The class that a decimal is distributed by. Under descending keys an invalid digit has no code to
// be reported with, and the value goes where its class byte says; an unknown class byte goes
// nowhere.
DecimalClass distributedClass(const Byte* value, bool ascending);

}  // namespace tvsort

// Orders entries in the process's own memory, which the second cache holds: a few thousand, whose
// records stay where they are.
//
// One or two counting passes over the upper bits in which digits differ, and insertion, order them
// by their digits. What has the same digits then is equal in the key as far as the window reached.
// A few such records are compared; many are an open run, and all open runs get the digits of a
// window that goes on from there, round after round. Every round moves on in the key, so there are
// not more of them than words of the key. All of it keeps the order of what is equal.

#pragma once

#include <cstdint>

#include "process/sort/entry.h"
#include "process/sort/reading.h"
#include "process/storage/record_array.h"

namespace tvsort {

// Twice 192 KiB.
inline constexpr std::uint32_t kOwnEntriesMax = 16384;

extern Entry ownEntries[kOwnEntriesMax];

// Orders the first `count` of `ownEntries`, whose numbers are those of `records`; `after` tells how
// the keys of records with equal digits go on. Answers whether all digits are still the same.
bool orderOwnEntries(const NormalizedKey& key, const RecordArray& records, std::uint32_t count,
                     Continuation after);

// Fits a window to `records`, at most kOwnEntriesMax, makes entries of them by it, and orders
// these.
void orderOwnRecords(const NormalizedKey& key, const RecordArray& records, KeyWindow& window);

}  // namespace tvsort

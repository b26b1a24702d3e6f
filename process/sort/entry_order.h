// Orders the entries of a data set (sort/entry.h) by the keys of their records, which stay where
// they are. Equal records keep the order of their numbers.
//
// The entries are distributed, stably, by the upper bits in which their digits differ (H. H.
// Seward, 1954; D. E. Knuth, The Art of Computer Programming, volume 3, section 5.2, algorithm D).
// A part that the processor's cache holds is finished in the process's own memory
// (sort/own_entries.h). A larger one waits, and is distributed again: by the rest of its digits,
// or, where these are all the same, by those of a window that goes on. Each word of the key is read
// by at most two windows (sort/reading.h), so the work is bounded by the key's words times the
// records, whatever the data.
//
// The entries stand in the slot, which the server can write to: their counts are kept in the
// process, their numbers are bounded where they lead to a record, and a part is copied before it is
// finished.

#pragma once

#include <cstdint>

#include "process/sort/entry.h"
#include "process/sort/reading.h"
#include "process/storage/record_array.h"

namespace tvsort {

// The entries of a data set: `count` of them, and room for as many.
struct EntryArea {
    Entry* entries;
    Entry* others;
    std::uint32_t count;
};

// Orders the entries that stand in `area.others`, in the order of their records, into
// `area.entries`. All digits come from one window, below 2^`digitWidth`, and `after` tells how the
// keys of records with equal ones go on. Answers whether all digits are still those of that window.
bool orderEntries(const NormalizedKey& key, const RecordArray& records, const EntryArea& area,
                  std::uint32_t digitWidth, const Continuation& after);

}  // namespace tvsort

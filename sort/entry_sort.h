// The fast way of the distribution sort: order small entries instead of records, then move each
// record once.
//
// Moving whole records in every pass costs their length each time. An entry holds twelve bytes of
// the normalized key (sort/normalized_key.h) and the record's place:
//
//     0   u64   digits, the most significant bytes of the key
//     8   u32   digits that follow them
//     12  u32   the record's place
//
// Bytes that are the same in all records say nothing and are left out, so twelve are often the
// whole key. Entries are ordered by stable byte passes, short ranges by insertion. Where the key
// goes on, each run of entries with equal digits is given the next twelve bytes and ordered in
// turn, before the next run is looked for. Two arrays of entries stand at the end of the scratch
// area, records of 32 bytes and more leave room for them:
//
//     scratch area   | ...                | second array | entries |
//     gathering      | records in order -->              | entries |   never overtakes what is
//     unread
//
// Then the records are copied back into their blocks. Input that is in order already is seen while
// the entries are made and moves nothing.

#pragma once

#include <cstdint>

#include "service/sort_job.h"

namespace tvsort {

// Whether the scratch area of the distribution sort holds the entries, and the key is not too long.
bool entriesFit(const SortJob& job);

// Orders the data set by entries, with `scratchArea` of recordCount x recordLength bytes. Needs
// distributionSortApplies and entriesFit. Raises 1090 before any record has moved.
void sortByEntries(SortJob& job, Byte* scratchArea);

}  // namespace tvsort

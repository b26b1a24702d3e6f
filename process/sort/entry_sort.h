// The sort of a data set that lies in the frames, by entries: the fast way.
//
// Behind the data set's blocks the frames hold an entry for each record, twice. The entries get the
// first digits of their records' keys in one pass over the data, are ordered (sort/entry_order.h),
// and at the end each record moves once, in place (sort/permutation.h):
//
//     0                data set            fileBlocks frames
//     fileBlocks x F   entries             12 bytes for each record
//                      other entries       the same; at the end each place's record
//
// It sorts whatever has one order only. The pass finds the values about which the comparator would
// have something to say; ascending floats must not count as equal where they are unlike, and in
// sort modes 8 and 9 no two records may be equal in all keys but the last. Otherwise nothing has
// moved, and the quicksort sorts and raises codes as it always does. Records that are equal in
// every key stay in the order in which they arrived.
//
// Of large data sets with keys of integers, decimals, bytes and strings that fit into the frames
// twice, with counters, servers expect more: that order, whether or not there is room for entries;
// 1090 for a decimal that is none, before any record has moved; and no frame marked as changed.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"
#include "process/sort/entry_order.h"

namespace tvsort {

// Fewer records are ordered faster by comparing them.
inline constexpr std::int32_t kEntryRecordsMin = 200;

// From this many records on a data set that fits twice is expected to keep the order of arrival.
inline constexpr std::int32_t kStableRecordsMin = 10000;

// Whatever the data, records times words of the key times this is as often as words are read: by
// entries, in a window, one that goes back, and those of parts; by a copy, in up to seven windows
// of ever smaller parts; by blocks, while the range of a record is looked for and that is ordered.
inline constexpr std::int64_t kReadsPerWordMax = 32;

inline constexpr std::int32_t kEntriesBytes = 2 * sizeof(Entry);  // of a record

// Whether the frames hold an entry for each record, twice, behind the data set.
bool entriesFit(const SortJob& job);

// Whether the request is one of those of which servers expect the order of arrival: of 10000
// records or more, of which a copy and 262,148 bytes fit behind the data set, by keys of types 2,
// 4, 5, 6 and 9 only, no geometry among them.
bool isExpectedStable(const SortJob& job);

// Sorts the data set if it has one order only; `scratch` has kRecordBufferBytes. True when it is
// sorted or 1090 was raised; otherwise nothing has changed. Marks the frames of the data set dirty
// if any record has moved, unless the request is one of those above.
bool sortByEntries(SortJob& job, Byte* scratch);

// Leaves the entries of `records` in their order, if it is the only one: false otherwise.
bool orderByEntries(SortJob& job, const NormalizedKey& key, const RecordArray& records,
                    const EntryArea& area);

// Whether two records that follow each other in that order could stand otherwise: as floats that
// count as equal, or because the comparator would refuse them.
bool mayBeOtherwise(const SortJob& job, const NormalizedKey& key, const Byte* left,
                    const Byte* right);

}  // namespace tvsort

// Short ranges in one block: by insertion, or by entries.
//
// The last levels of a quicksort work on ranges of some tens of records, where partitions and
// insertions mostly mispredict branches and move each record again and again. If all records of
// such a range differ there is one order only, whichever way leads to it. So entries are ordered
// instead (sort/own_entries.h), by the word that a judge would judge by, and each record is moved
// once. There must be no doubt about any record, so that no comparison, not even of a pivot with
// its copy, could raise a code. No pivot of so short a range is drawn at random, so the sequence of
// random pivots is what it would have been.
//
// A range that insertion would sort may hold equal records too: entries keep their order as
// insertion does.

#pragma once

#include "process/job/sort_job.h"
#include "process/keys/normalized_key.h"
#include "process/storage/record_address.h"

namespace tvsort {

// Up to this distance of its ends a range may be sorted here: no pivot is drawn at random.
inline constexpr std::int32_t kShortRangeDistance = 100;

// A range whose ends lie closer together than this is sorted by insertion otherwise.
inline constexpr std::int32_t kInsertionDistance = 20;

// Sorts the records `low` to `high`, which stand in one pinned block, at most kShortRangeDistance
// apart, and marks the frame dirty if any record has moved. False, with nothing changed, when
// neither digits nor comparisons that can raise no code tell the order, or when the records do not
// fit into `scratch`, which has kRecordBufferBytes.
bool sortShortRange(SortJob& job, const NormalizedKey& key, const HeldRecord& low,
                    const HeldRecord& high, Byte* scratch);

// The same by insertion, for at most 20 records: one goes behind every earlier one that it does not
// precede. The comparator raises its codes; the range is then left as far as the work had got.
void insertRange(SortJob& job, const HeldRecord& low, const HeldRecord& high, Byte* scratch);

}  // namespace tvsort

// Short ranges whose records all differ.
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

// Sorts the records `low` to `high`, which stand in one pinned block, at most kShortRangeDistance
// apart, and marks the frame dirty if any record has moved. False, with nothing changed, when
// neither digits nor comparisons that can raise no code tell the order, or when the records do not
// fit into `scratch`, which has kRecordBufferBytes.
bool sortShortRange(SortJob& job, const NormalizedKey& key, const HeldRecord& low,
                    const HeldRecord& high, Byte* scratch);

}  // namespace tvsort

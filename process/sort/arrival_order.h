// What the distribution sort spares when the records arrive in order, or in exactly the reverse.
//
// Both are seen by comparing neighbours, and almost always refuted by the first few. Records in
// order stay. Records that descend are exchanged from both ends, each pair before its neighbours
// are looked at; where two neighbours turn out to ascend, the pairs exchanged so far are exchanged
// back. Equal neighbours, which the exchanges turned round, are turned back at the end. Either
// costs less than a pass over the records.

#pragma once

#include "process/sort/normalized_key.h"
#include "process/sort/record_array.h"

namespace tvsort {

// Whether no record precedes the one before it.
bool arriveInOrder(const NormalizedKey& key, const RecordArray& records);

// If no record precedes the one behind it: puts them in order. Otherwise they stay as they are, and
// the answer is false. Needs two records.
bool reverseDescending(const NormalizedKey& key, const RecordArray& records);

}  // namespace tvsort

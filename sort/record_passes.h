// The plain way of the distribution sort: stable passes over whole records.
//
// The records are packed back to back, and each pass moves them from the data area to the scratch
// area or back. Keys are taken from the last one to the first, the digits of a key from the least
// significant one, and every step keeps the order of what it does not separate.
//
// Nulls are split off once per key and the key's passes run over the other records only:
//
//     source   | values, in passes          | nulls |
//     then     | values in order            | nulls |   or   | nulls | values in order |
//
// A decimal key is first distributed by class; then the positive and the negative values are put in
// order of magnitude, each group in its own place.

#pragma once

#include "service/sort_job.h"

namespace tvsort {

// Orders the data set, with `scratchArea` of recordCount x recordLength bytes and `counters` of
// kCounterTableBytes, aligned. Needs distributionSortApplies. Raises 1090 when it comes to a key
// with an unknown decimal class, or an invalid decimal under an ascending key, and leaves the
// records wherever they are.
void sortByRecordPasses(SortJob& job, Byte* scratchArea, Byte* counters);

}  // namespace tvsort

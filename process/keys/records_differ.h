// The equality comparator: whether two records carry the same key values, and whether they start a
// new group where they do not. The passes over the sorted result ask it about neighbours.
//
// It walks the same keys and compares values by the same rules as the ordering comparator
// (keys/record_precedes.h). On purpose it differs in this:
//
//                         ordering                          equality
//     which keys          all                               without a row limit only the leading
//                                                           keys whose `groupKey` is not 0
//     direction           the key's                         none
//     floating values     tolerant ascending, exact         always tolerant
//                         descending
//     invalid decimals    equal, 1090 under ascending keys  different, no error
//     1411                the answer is false               the answer is kSame
//     unique check, recordFlag, compareState                none

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

enum class Difference : std::uint8_t {
    kSame = 0,
    kDifferent = 1,
    kNewGroup = 2,  // the first key that differs has groupKey 2
};

// Compares the records at the places `left` and `right`. Raises 181 for a geometry that cannot be
// read (the key then counts as equal) and 1411 for a stored length above the field's (kSame).
Difference recordsDiffer(SortJob& job, std::uint32_t left, std::uint32_t right);

}  // namespace tvsort

// Intersection and difference of any number of operands, by requests with two.
//
//     A INTERSECT B INTERSECT C     what all have: (A, B) -> result, (result, C) -> result
//     A EXCEPT B EXCEPT C           what only A has: (A, B and C) -> result
//
// Told of three operands, the process would intersect the first with what any other one has, and
// take the largest of the others' counts away from the first one's, not their sum. Two operands at
// a time give what chained set operations mean, with multiplicity (--all) too.
//
// The process leaves a data set of one record as it is; whether that record belongs to the result
// is decided here.

#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "host/request_builder.h"
#include "tools/formats/operand.h"
#include "tools/modes/framed_record.h"
#include "tools/run/sort_once.h"

namespace tvsort::tools {

struct SetCombination {
    const FramedRecord& frame;  // numbered
    SortMode mode;              // one of the four set operations
    std::vector<std::shared_ptr<Operand>> operands;
    std::filesystem::path tempDirectory;  // for results that are operands again
};

// Takes one framed record of the result.
using TakeFramed = std::function<void(const Byte* framed)>;

// Hands the result to `take`, in order. The statistics are those of all requests together.
SortStats combine(const SetCombination& combination, const SortOnce& sortOnce,
                  const TakeFramed& take);

}  // namespace tvsort::tools

// Finds two records with equal keys, when the process has said that there are some.

#pragma once

#include <cstdint>
#include <optional>

#include "tools/modes/framed_record.h"
#include "tools/modes/operand_input.h"
#include "tools/run/sort_once.h"

namespace tvsort::tools {

// Whether a record with a null key can equal another.
enum class Nulls : bool { kDistinct, kEqual };

struct EqualRecords {
    std::int32_t firstNumber;
    std::int32_t secondNumber;
};

// Has the input's records numbered and grouped and answers the numbers of the first two of the
// first group that has two.
std::optional<EqualRecords> findEqualRecords(const FramedRecord& frame, Nulls nulls,
                                             OperandInput& input, const SortOnce& sortOnce);

}  // namespace tvsort::tools

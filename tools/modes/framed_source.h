// User records on their way to the process, each laid behind its header.

#pragma once

#include <cstdint>

#include "host/data_set.h"
#include "protocol/bytes.h"
#include "tools/modes/framed_record.h"
#include "tools/modes/operand_input.h"
#include "tools/formats/outline_level.h"

namespace tvsort::tools {

// Flags of numbered records: the operand, where two are combined.
inline constexpr Byte kFirstOperand = 1;
inline constexpr Byte kOtherOperand = 2;

// The input's records behind numbers from `nextNumber` on, which is advanced, and this flag. All
// that is passed must outlive the source.
host::RecordSource numberedSource(OperandInput& input, const FramedRecord& frame, Byte flag,
                                  std::int64_t& nextNumber);

// The input's records behind their levels. Each operand is a hierarchy of its own; a level that
// does not fit is thrown as bad use that names the record.
host::RecordSource levelledSource(OperandInput& input, const FramedRecord& frame,
                                  const LevelReader& readLevel);

// One source's records, then the other's.
host::RecordSource concatenated(host::RecordSource first, host::RecordSource second);

}  // namespace tvsort::tools

// A sort's way from its inputs to its output, in the user's records.
//
// What all kinds of input, fixed-length records, text lines and CSV rows, have in common: how long
// a record is, how it is ordered, where records come from and where they go. What is made of them
// (tools/modes/shaped_sort.h) needs to know no more.

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "host/request_builder.h"
#include "tools/formats/operand.h"
#include "tools/formats/outline_level.h"
#include "tools/formats/record_field.h"
#include "tools/formats/record_output.h"
#include "tools/options/record_options.h"

namespace tvsort::tools {

struct RecordFlow {
    InputKind kind = InputKind::kRecords;
    char delimiter = '\0';  // of rows only
    std::uint16_t recordLength = 0;
    host::RequestBuilder request;
    std::vector<std::shared_ptr<Operand>> operands;  // one for each input
    std::shared_ptr<RecordOutput> output;
    std::vector<RecordField> fields;  // of records that the command has made
    // The output takes one of so many parts of the memory for itself; 0: nothing.
    std::uint64_t memoryShare = 0;
    LevelReader readLevel;  // for a hierarchy only
};

}  // namespace tvsort::tools

// A sort's way from its inputs to its output, in the user's records.
//
// What all kinds of input, fixed-length records, text lines and CSV rows, have in common: how long
// a record is, how it is ordered, where records come from and where they go. What is made of them
// (tools/modes/shaped_sort.h) needs to know no more.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/data_set.h"
#include "host/request_builder.h"
#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/formats/record_field.h"
#include "tools/formats/record_output.h"
#include "tools/modes/operand_input.h"
#include "tools/formats/outline_level.h"
#include "tools/options/mode_options.h"
#include "tools/options/record_options.h"

namespace tvsort::tools {

struct RecordFlow {
    InputKind kind = InputKind::kRecords;
    char delimiter = '\0';  // of rows only
    std::uint16_t recordLength = 0;
    host::RequestBuilder request;
    std::vector<Operand> operands;  // one for each input
    std::shared_ptr<RecordOutput> output;
    std::vector<RecordField> fields;  // of records that the command has made
    // The output takes one of so many parts of the memory for itself; 0: nothing.
    std::uint64_t memoryShare = 0;
    LevelReader readLevel;  // for a hierarchy only
};

// Fixed-length records as the options describe them. Inputs and output are needed as long as the
// flow is used.
RecordFlow fixedRecords(const RecordOptions& options, const ModeOptions& mode,
                        std::vector<InputFile>& inputs, OutputFile& output);

// Text lines, laid into records that hold the longest one of all inputs. The inputs are read to
// their ends and rewound, so they must be regular files.
RecordFlow lineRecords(const ModeOptions& mode, std::vector<InputFile>& inputs, OutputFile& output);

}  // namespace tvsort::tools

// CSV files through a sort: `tvsort-host sort data.csv --key name --key born:int:desc`.
//
// By ordered keys, rows are read with csv_keyed.h (tools/ordered/ordered_sort.h). Where the process
// compares the keys itself, of types that it alone knows and in a hierarchy:
//
//     scan   every input once: the header, the longest value of each key column, the longest row
//     load   every input again: rows into records (tools/formats/csv/csv_record.h)
//     write  the header of the first input, then the rows in the order of the result
//
// On its way from the file to the slot such a row is asked for from the top and comes from the
// bottom:
//
//     SlotSort              room in a block of the slot or the work file     run/slot_sort.h
//       OperandInput        one input behind the other                       modes/operand_input.h
//         Operand           counted                                          formats/operand.h
//           CsvSource       laid into a record, with CsvRecord               csv_flow.cpp
//             CsvTableRows  neither the header nor malformed                 csv_scan.h
//               CsvRows     taken apart                                      csv_rows.h
//
// Where the operation needs a header, FramedRecord lays it before the record above OperandInput.
//
// All inputs must have the same columns. Inputs are read twice, so they must be regular files.

#pragma once

#include <cstddef>
#include <vector>

#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/formats/ordered_flow.h"
#include "tools/formats/record_flow.h"
#include "tools/options/mode_options.h"
#include "tools/options/record_options.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

// The rows with their ordered keys; every key must have one. `memoryBytes` is the memory of the
// whole sort. All that is passed must outlive the flow.
OrderedFlow csvOrderedFlow(const RecordOptions& options, const ModeOptions& mode,
                           std::vector<InputFile>& inputs, std::uint64_t memoryBytes,
                           OutputFile& output);

// Scans the inputs and gives the flow of the rows. `memoryBytes` is the memory of the whole sort,
// of which the flow says how much it takes. All that is passed must outlive the flow.
RecordFlow csvRecords(const RecordOptions& options, const ModeOptions& mode,
                      std::vector<InputFile>& inputs, std::uint64_t memoryBytes, RowErrors& errors,
                      OutputFile& output);

}  // namespace tvsort::tools

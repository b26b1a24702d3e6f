// Files of text lines through a sort.

#pragma once

#include <vector>

#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/formats/ordered_flow.h"
#include "tools/options/mode_options.h"
#include "tools/options/record_options.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

// Lines with their keys. `memoryBytes` is the memory of the whole sort. All that is passed
// must outlive the flow.
OrderedFlow lineOrderedFlow(const RecordOptions& options, const ModeOptions& mode,
                            std::vector<InputFile>& inputs, std::uint64_t memoryBytes,
                            OutputFile& output);

}  // namespace tvsort::tools

// Files of text lines through a sort that orders them by their bytes.

#pragma once

#include <vector>

#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/formats/record_flow.h"
#include "tools/options/mode_options.h"

namespace tvsort::tools {

// Lines, laid into records that hold the longest one of all inputs. The inputs are read to their
// ends and rewound, so they must be regular files.
RecordFlow lineRecords(const ModeOptions& mode, std::vector<InputFile>& inputs, OutputFile& output);

}  // namespace tvsort::tools

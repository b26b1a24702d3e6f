// An input that can be read twice.
//
// The longest line must be known before the first one can be laid into a record, so lines are read
// once to look and once to sort. What cannot be read twice (a pipe) is copied to a file without a
// name, which goes away by itself.

#pragma once

#include <cstdint>
#include <filesystem>

#include "tools/files/input_file.h"

namespace tvsort::tools {

// The input itself where it is a regular file, else a copy of it under the same display name.
InputFile makeRereadable(InputFile input, const std::filesystem::path& tempDirectory);

struct LongestLine {
    std::int64_t lineCount = 0;
    std::int64_t lineNumber = 0;  // of the longest, the first of several
    std::size_t bytes = 0;
};

// Reads the input to its end and back to its start.
LongestLine findLongestLine(InputFile& input);

}  // namespace tvsort::tools

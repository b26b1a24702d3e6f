// `tvsort-host sort`: files through the sort process.
//
//     input -> load -> frames, work file -> the process sorts -> read -> output
//
// Records stream; only the process's memory limits what is held at once.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/mode_options.h"
#include "tools/record_options.h"

namespace tvsort::tools {

struct SortOptions {
    RecordOptions records;
    ModeOptions mode;
    std::vector<std::string> inputs;
    std::string output;     // empty: standard output
    std::string collation;  // file or locale; empty: UCS-2 keys compare by code unit
    std::uint64_t memoryBytes = std::uint64_t{64} * 1024 * 1024;
    std::optional<std::int32_t> blockPages;
    std::string tempDirectory;
    std::optional<double> timeoutSeconds;
    std::string process;
    std::string stats;  // empty, "text" or "json"
};

// Sorts as the options say, with words on standard error for --groups and --stats; throws when it
// cannot.
void sortFile(const SortOptions& options);

// Pages per block for records of this length where nobody has chosen: as large as a block can be
// used, but small enough that the memory makes a pool of many frames.
std::int32_t defaultBlockPages(std::uint16_t recordLength, std::int64_t memoryPages);

}  // namespace tvsort::tools

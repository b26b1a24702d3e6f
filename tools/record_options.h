// The options that say what a file's records are and how they are to be ordered, which all commands
// share that deal with ordered files:
//
//     --record-length N --key TYPE:OFFSET... [--nulls OFFSET] [--weights FILE]
//     --lines [--as TYPE]

#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/request_builder.h"

namespace tvsort::tools {

struct RecordOptions {
    bool lines = false;
    std::string as;  // type of the values that the lines are; empty: they are ordered as bytes
    std::optional<std::uint16_t> recordLength;
    std::vector<std::string> keys;
    std::optional<std::uint16_t> nullsOffset;
    std::string weightsFile;
};

// Adds the options to a subcommand; they fill `options` when it is parsed.
void addRecordOptions(CLI::App& command, RecordOptions& options);

// The request that the options of fixed-length records describe. Throws when one is missing, not
// understood, or reaches beyond the record.
host::RequestBuilder requestFor(const RecordOptions& options);

// Throws when `--lines` and the options of fixed-length records are mixed, or neither is given.
void checkRecordOptions(const RecordOptions& options);

}  // namespace tvsort::tools

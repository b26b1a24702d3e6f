// One input of a sort that is done elsewhere, range by range of its keys.
//
// Several machines share a sort by ranges: each range of keys is sorted by itself, of all inputs
// together. What one input takes part in that with is here: its rows with their ordered keys, and
// how they are written: rows alone, whose columns go by number (`keysByNumber`). What the output of
// one sort has before them, a header say, is the head of `form`.

#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/formats/ordered_flow.h"
#include "tools/options/record_options.h"

namespace tvsort::tools {

struct RangeOptions {
    RecordOptions records;
    std::string input;
    std::uint64_t memoryBytes = std::uint64_t{64} * 1024 * 1024;
    std::string tempDirectory;
    std::string share;  // BEGIN:END
};

// Adds the options that both commands of ranges have.
void addRangeOptions(CLI::App& command, RangeOptions& options);

class RangeInput {
  public:
    // Opens and unpacks the input. Bad use: keys that do not become ordered bytes, the type auto,
    // whose meaning all inputs together decide, and what a sort refuses as well.
    explicit RangeInput(const RangeOptions& options);

    const KeyedInput& rows() const { return *flow_.input; }
    const RowWriter::Form& form() const { return flow_.writer->form(); }
    const std::vector<InputFile>& files() const { return files_; }
    // With the format recognised.
    const RecordOptions& options() const { return options_; }
    // The input was unpacked, as a whole.
    bool wasPacked() const { return wasPacked_; }
    // Of a header; none without one.
    const std::vector<std::string>& columns() const { return columns_; }
    // How many a row has; none of other inputs than rows, and of ragged ones.
    std::optional<std::size_t> columnCount() const { return columnCount_; }
    // The keys of rows that have no header before them.
    std::vector<std::string> keysByNumber() const;

  private:
    void open(const RangeOptions& options);
    void readColumns();

    RecordOptions options_;
    std::vector<InputFile> files_;  // one
    bool wasPacked_ = false;
    OutputFile nowhere_;  // a flow wants one; nothing is written to it
    OrderedFlow flow_;
    std::vector<std::string> columns_;
    std::optional<std::size_t> columnCount_;
};

}  // namespace tvsort::tools

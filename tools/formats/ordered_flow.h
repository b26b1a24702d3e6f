// A sort's way by ordered keys, from its inputs to its output.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/formats/keyed_input.h"
#include "tools/formats/row_writer.h"

namespace tvsort::tools {

// Of a row in a hierarchy.
struct RowLevel {
    std::optional<std::int32_t> level;  // none where it cannot be read
    std::string problem;                // to follow the row's name
};
// Of the row that the reader found last.
using RowLevelReader = std::function<RowLevel(const RowReader& reader, const KeyedRow& row)>;

struct OrderedFlow {
    std::unique_ptr<KeyedInput> input;
    std::unique_ptr<RowWriter> writer;
    char delimiter = '\0';  // of rows only
    std::string lineEnd = "\n";
    RowLevelReader readLevel;  // for a hierarchy only
};

}  // namespace tvsort::tools

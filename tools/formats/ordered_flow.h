// A sort's way by ordered keys, from its inputs to its output.

#pragma once

#include <memory>
#include <string>

#include "tools/formats/keyed_input.h"
#include "tools/formats/row_writer.h"

namespace tvsort::tools {

struct OrderedFlow {
    std::unique_ptr<KeyedInput> input;
    std::unique_ptr<RowWriter> writer;
    char delimiter = '\0';  // of rows only
    std::string lineEnd = "\n";
};

}  // namespace tvsort::tools

// A part of a record that the command has made, for people who want to see the layout.

#pragma once

#include <cstddef>
#include <string>

namespace tvsort::tools {

struct RecordField {
    std::size_t offset;
    std::size_t byteCount;
    std::string content;
};

}  // namespace tvsort::tools

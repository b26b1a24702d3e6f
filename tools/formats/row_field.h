// A field of a row.

#pragma once

#include <string_view>

namespace tvsort::tools {

struct RowField {
    std::string_view text;
    bool isNull;  // it has no value, whatever the text is
};

}  // namespace tvsort::tools

// The `--key` of a CSV file: which column, and what its values are.
//
//     COLUMN[:TYPE[:LENGTH]][:asc|:desc][:nulls-first|:nulls-last]
//
//     name                  text without a type
//     born:int:desc         a number, the largest first
//     price:decimal:2       LENGTH is the scale of a decimal
//     "a:b":text:40         a name with a colon stands in quotes; room for 40 bytes
//     3:int                 the third column of a file without a header
//
// The names of types stand in tools/formats/csv/column_field.h.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/formats/csv/column_field.h"

namespace tvsort::tools {

struct CsvKey {
    std::string column;  // name or number, as written
    const ColumnType* type;
    std::string scale;                    // where the type needs one
    std::optional<std::uint16_t> length;  // where one was written
    std::uint8_t kindFlags;               // direction and place of nulls, as descriptors have it
};

// Throws, naming the text and what is wrong with it.
CsvKey parseCsvKey(const std::string& text);

// The index of the column that `name` stands for: a name of the header, or a number from 1 where
// `names` is empty and the file has `columnCount` columns. `option` is for the message when there
// is none.
std::size_t columnIndexOf(const std::string& name, const std::vector<std::string>& names,
                          std::size_t columnCount, const std::string& option);

}  // namespace tvsort::tools

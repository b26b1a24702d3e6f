// The text of a key, in one grammar for the three kinds of input:
//
//     records   --key  TYPE:OFFSET[:LENGTH][:WORD]...
//     lines     --as   TYPE[:ARGUMENT]...[:WORD]...
//     columns   --key  COLUMN[:TYPE[:ARGUMENT]...][:WORD]...
//
//     int32:0                  an integer at the record's start
//     string:32:40:desc        a field of 2 + 40 bytes, the greatest value first
//     decimal:nulls-first      lines that are numbers, the empty ones first
//     name                     a column of text
//     name:text:de:primary     as German has it, letters only
//     price:decimal:2          of exact numbers, two digits behind the point at most
//     "a:b":date               whose name has a colon
//     3:int                    the third column of a file without a header
//
// The types of lines and columns stand in host/keys/ordered_type.h, those of records, and the few
// that the process has to compare itself, in host/values/value_format.h. The words are asc or desc,
// nulls-first or nulls-last, nan-first or nan-last.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/keys/ordered_key.h"
#include "host/values/value_format.h"
#include "protocol/messages.h"

namespace tvsort::tools {

struct KeyText {
    std::string column;  // name or number, as written
    // Of a type whose values become ordered bytes; else the format counts.
    std::optional<host::KeyForm> ordered;
    host::ValueFormat format;
    std::uint16_t fieldOffset;
    std::optional<std::uint16_t> length;  // where one was written
    std::uint8_t kindFlags;               // direction and place of nulls, as descriptors have it

    // Of values that have up to `contentBytes`; ascending unless the text says otherwise.
    KeyDescriptor descriptor(std::uint16_t contentBytes) const;
};

// All types as lines for a help text, and those of one kind of input.
std::string typesHelp();
std::string typesHelp(host::ValuePlace place);

// Throws bad use that names the option, its text, what is wrong with it, and the grammar.
// `isReversed`: in the other direction than it says.
KeyText parseKey(const std::string& text, host::ValuePlace place, bool isReversed = false);

// The index of the column that `name` stands for: a name of the header, #NUMBER, or a number from 1
// where `names` is empty and the file has `columnCount` columns. `option` is for the message when
// there is none.
std::size_t columnIndexOf(const std::string& name, const std::vector<std::string>& names,
                          std::size_t columnCount, const std::string& option);

}  // namespace tvsort::tools

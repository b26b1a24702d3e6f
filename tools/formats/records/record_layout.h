// The layout of a record as a table for people.
//
//     offset  bytes  content            type      key     null byte
//          0     11  column name        string    1 asc   19
//         11      8  column born        integer   2 desc  20

#pragma once

#include <string>
#include <vector>

#include "host/request_builder.h"
#include "protocol/messages.h"
#include "tools/formats/record_field.h"

namespace tvsort::tools {

// All keys of the request and all fields, by their offsets, each line indented.
std::string describeLayout(const host::RequestBuilder& request,
                           const std::vector<RecordField>& fields);

// The type of a key in a word or two.
std::string typeWord(const KeyDescriptor& key);

}  // namespace tvsort::tools

// The text of a `--key` option.
//
//     TYPE:OFFSET[:LENGTH][:asc|:desc][:nulls-first|:nulls-last]
//
// for example int32:0, bytes:10:20:desc, string:32:40:nulls-first.

#pragma once

#include <string>

#include "protocol/messages.h"

namespace tvsort::tools {

// The descriptor that the text describes; ascending unless it says otherwise. Throws, naming the
// text and what is wrong with it.
KeyDescriptor parseKey(const std::string& text);

// Takes one of the words behind the colons: asc, desc, nulls-first, nulls-last. False when it is
// none of them.
bool applyKeyWord(const std::string& word, KeyDescriptor& key);

// Bytes of the record that a key of `parseKey` takes from its offset on.
std::uint32_t keyBytes(const KeyDescriptor& key);

}  // namespace tvsort::tools

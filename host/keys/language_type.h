// Text as a language has it, by ICU.
//
//     text:LANGUAGE     ICU's sort key at the strength (tertiary, unless another one is named),
//                       which ends with 00 and has it nowhere else
//
// With `numeric` runs of digits count as numbers.

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/keys/ordered_type.h"

namespace tvsort::host {

// LANGUAGE[:STRENGTH][:numeric], taken apart. A locale that ICU does not know is bad use.
std::unique_ptr<OrderedType> makeLanguageText(const std::vector<std::string>& arguments);

// The text with its case folded, to `folded`. What is no UTF-8 is bad use.
void foldCase(std::string_view text, std::string& folded);

}  // namespace tvsort::host

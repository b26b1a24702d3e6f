// UCS-2 code units from UTF-8 text.

#pragma once

#include <string_view>
#include <vector>

#include "protocol/bytes.h"

namespace tvsort::host {

// Appends the text's code units, little-endian. Bytes that are no UTF-8, and characters beyond the
// basic plane, which UCS-2 cannot hold, are bad use; the error names the character's number in the
// text, from 1.
void appendUcs2(std::string_view text, std::vector<Byte>& target);

}  // namespace tvsort::host

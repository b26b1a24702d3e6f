// What the first bytes of a text file say about it.

#pragma once

#include <string>

#include "tools/files/input_file.h"

namespace tvsort::tools {

// Up to four bytes of a regular file, wherever it has been read to; none of a plain one.
std::string firstBytes(const InputFile& input);

// Text in UTF-16 is bad use, with how to convert it.
void refuseWideText(const InputFile& input);

}  // namespace tvsort::tools

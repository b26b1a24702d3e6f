// What the option parser says, in the command's own words: which option, what was written, and what
// to write instead.

#pragma once

#include <string>

namespace tvsort::tools {

std::string ownWords(const std::string& parserWords);

}  // namespace tvsort::tools

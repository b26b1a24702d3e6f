// Words on standard error. They may hold what a file or its name holds: what a terminal would obey
// is left out. That they cannot be written makes no failure of a command.

#pragma once

#include <string>

namespace tvsort::tools {

// The text with question marks for control characters but the end of a line.
std::string harmless(std::string text);

// Lines, each with its end.
void speak(const std::string& text);

}  // namespace tvsort::tools

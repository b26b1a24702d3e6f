// Where the sort process's program is.

#pragma once

#include <filesystem>
#include <string>

namespace tvsort::tools {

// The program that the option names; without one "tvsort" beside this command, in "../libexec"
// seen from it, or in PATH. Throws when there is none.
std::filesystem::path findProcess(const std::string& option);

}  // namespace tvsort::tools

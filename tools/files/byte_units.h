// Numbers of bytes as people read them.

#pragma once

#include <cstdint>
#include <string>

namespace tvsort::tools {

// "700 bytes", "12.5 MiB": with the unit that leaves a number below 1024.
std::string inUnits(std::int64_t byteCount);

}  // namespace tvsort::tools

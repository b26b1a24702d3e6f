#include "tools/files/byte_units.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>

namespace tvsort::tools {

std::string inUnits(std::int64_t byteCount) {
    constexpr std::array<const char*, 5> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB"};
    constexpr double kStep = 1024;
    if (byteCount < static_cast<std::int64_t>(kStep)) return fmt::format("{} bytes", byteCount);
    auto number = static_cast<double>(byteCount) / kStep;
    std::size_t unit = 0;
    for (; number >= kStep && unit + 1 < kUnits.size(); ++unit)
        number /= kStep;
    return fmt::format("{:.1f} {}", number, kUnits[unit]);
}

}  // namespace tvsort::tools

// How many processes a sort is worth where nobody has said it.

#pragma once

#include <sched.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace tvsort::tools {

// The processors that this command may use; one for inputs of which several processes would take
// longer to start than they gain.
inline std::size_t workersFor(std::uint64_t inputBytes) {
    constexpr std::uint64_t kSharedBytesMin = std::uint64_t{8} << 20;
    cpu_set_t processors;
    if (inputBytes < kSharedBytesMin || sched_getaffinity(0, sizeof processors, &processors) != 0)
        return 1;
    return static_cast<std::size_t>(std::max(CPU_COUNT(&processors), 1));
}

}  // namespace tvsort::tools

// What a data set of so many records takes of memory and disk.

#pragma once

#include <cstdint>
#include <string>

#include "host/data_set.h"
#include "tools/run/memory_plan.h"

namespace tvsort::tools {

struct SpillForecast {
    host::Geometry geometry;
    host::Extent extent;
    std::int32_t frameCount;  // of each process
    bool fits;                // in the frames of all of them
    std::int64_t slotBytes;   // of each process, frames and what describes them

    // Where blocks spill, the work files have room for all of them.
    std::int64_t workFileBytes() const {
        return fits ? 0 : extent.fileBlocks * static_cast<std::int64_t>(geometry.blockBytes());
    }
};

SpillForecast forecastSpill(const MemoryPlan& plan, int processCount, std::uint16_t recordLength,
                            std::int64_t recordCount);

// Words of warning, `9 times the inputs; order by less, ...`, where so much of a work file for so
// much of inputs is rather a mistake than what somebody wants; else empty.
std::string spillWarning(std::int64_t workFileBytes, std::int64_t inputBytes);

}  // namespace tvsort::tools

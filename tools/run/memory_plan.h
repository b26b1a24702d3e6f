// How the memory of a sort is used.

#pragma once

#include <cstdint>
#include <optional>

namespace tvsort::tools {

struct MemoryRequest {
    std::uint64_t memoryBytes;               // for the whole sort
    std::optional<std::int32_t> blockPages;  // where the user has chosen
    std::uint16_t recordLength;
    std::uint64_t outputShare;  // one of so many parts is the output's; 0: none
    int processCount;           // that share the rest
};

struct MemoryPlan {
    std::int32_t pages;       // of each process
    std::int32_t blockPages;  // pages per block
};

MemoryPlan planMemory(const MemoryRequest& request);

// The plan with no more pages than all slots have together, whose places have 32 bits: what is
// granted beyond 4 GiB is left to the system, which keeps files with it.
MemoryPlan withinSlots(MemoryPlan plan, int processCount);

// Pages per block for records of this length where nobody has chosen: as large as a block can be
// used, but small enough that the memory makes a pool of many frames.
std::int32_t defaultBlockPages(std::uint16_t recordLength, std::int64_t memoryPages);

}  // namespace tvsort::tools

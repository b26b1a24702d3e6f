#include "tools/run/memory_plan.h"

#include <algorithm>
#include <limits>

#include "host/data_set.h"
#include "protocol/slot_layout.h"

namespace tvsort::tools {

namespace {

// More pages would not hold more records: each starts below byte 65536 of its block.
constexpr std::int32_t kBlockPagesMax = 16;
constexpr std::int64_t kFramesWanted = 16;
constexpr std::uint64_t kFramesMin = 5;  // the least that the process sorts with

}  // namespace

MemoryPlan planMemory(const MemoryRequest& request) {
    constexpr auto kPage = static_cast<std::uint64_t>(kPageBytes);
    const auto processes = static_cast<std::uint64_t>(request.processCount);
    const std::uint64_t output =
        request.outputShare == 0 ? 0 : request.memoryBytes / request.outputShare;
    const auto blockPages = static_cast<std::uint64_t>(
        request.blockPages.value_or(host::blockPagesFor(request.recordLength)));
    // All but what the output takes, if that makes a pool.
    std::uint64_t pages = (request.memoryBytes - output) / kPage / processes;
    if (pages < kFramesMin * blockPages) pages = request.memoryBytes / kPage / processes;
    MemoryPlan plan = {};
    plan.pages = static_cast<std::int32_t>(
        std::min<std::uint64_t>(pages, std::numeric_limits<std::int32_t>::max()));
    plan.blockPages =
        request.blockPages.value_or(defaultBlockPages(request.recordLength, plan.pages));
    return plan;
}

MemoryPlan withinSlots(MemoryPlan plan, int processCount) {
    // A spare block, two pages of messages, one that the arrays end in, and 28 bytes for each page
    // (protocol/slot_layout.h).
    constexpr std::int64_t kBytesBesides = 28;
    constexpr std::int64_t kPagesBesides = 3;
    const std::int64_t pagesMax = kFrameAreaBytesMax / processCount / (kPageBytes + kBytesBesides) -
                                  plan.blockPages - kPagesBesides;
    plan.pages = static_cast<std::int32_t>(std::clamp<std::int64_t>(pagesMax, 0, plan.pages));
    return plan;
}

std::int32_t defaultBlockPages(std::uint16_t recordLength, std::int64_t memoryPages) {
    std::int32_t blockPages = kBlockPagesMax;
    while (blockPages / 2 >= std::max(host::blockPagesFor(recordLength), 1) &&
           memoryPages / blockPages < kFramesWanted) {
        blockPages /= 2;
    }
    return blockPages;
}

}  // namespace tvsort::tools

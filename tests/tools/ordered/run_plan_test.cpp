#include "tools/ordered/run_plan.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tools/ordered/sorted_run.h"
#include "tools/ordered/tiled_output.h"

namespace tvsort::tools {
namespace {

// A run that is read has a row at hand at least, and the row's whole key where others are like it.
TEST(RunPlan, MergesNoMoreRunsAtOnceThanRowsHaveRoom) {
    constexpr std::uint64_t kInputBytes = std::uint64_t{1} << 36;
    for (std::uint64_t rowBytes = 1; rowBytes <= kHeldBytesMax; rowBytes *= 4) {
        for (std::uint64_t memory = 1 << 20; memory <= kInputBytes; memory *= 4) {
            for (const std::uint64_t workers : {1U, 2U, 8U}) {
                const RunFacts facts = {
                    kInputBytes, kInputBytes / rowBytes, false, rowBytes, 1 << 20, 32};
                const RunPlan plan = planRuns(facts, {memory, workers, {}});
                const std::size_t count = runsAtOnce(plan);
                const std::uint64_t taken =
                    count * std::max<std::uint64_t>(runBufferBytes(plan, count), 2 * rowBytes);
                EXPECT_LE(taken, std::max<std::uint64_t>(memory / workers, 2 << 20))
                    << rowBytes << " bytes a row, " << memory << " for " << workers;
            }
        }
    }
}

}  // namespace
}  // namespace tvsort::tools

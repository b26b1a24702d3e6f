// Data sets larger than the frames, distributed block by block: every record is there, in order, and
// equal ones are as they came.

#include "process/sort/block_distribution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "process/keys/record_precedes.h"
#include "tests/support/random_demand.h"

namespace tvsort::test {
namespace {

// Whether the pivots' random numbers were left alone.
bool noPivotWasDrawn() {
    const int next = rand();
    srand(1);
    return next == rand();
}

struct Outcome {
    ErrorCode code;
    bool distributed;
    Records result;
};

class World {
  public:
    explicit World(const Demand& demand)
        : served_({demand.frames, demand.geometry.blockPages}), demand_(demand) {}

    Outcome serve() {
        Request request = served_.lay(demand_.records, demand_.geometry);
        request.keys = demand_.keys;
        request.items = {{7, 1, 0, {3, 2, 1}}};
        request.head.sortMode = static_cast<std::uint16_t>(demand_.mode);
        srand(1);
        const Answer answer = served_.ask(request);
        const bool distributed = noPivotWasDrawn();
        const bool good = answer.errorCode() == ErrorCode::kSuccess;
        return {answer.errorCode(), distributed, good ? served_.result(answer) : Records()};
    }

    // Whether `left` stands before `right` by the request's keys.
    bool precedes(const Bytes& left, const Bytes& right) {
        SortJob& job = served_.job();
        std::copy(left.begin(), left.end(), recordAt(job, 0));
        std::copy(right.begin(), right.end(), recordAt(job, kPageBytes));
        return recordPrecedes(job, 0, kPageBytes);
    }

    // Of the quicksort's results, whose order others hold to its own, that no record is lost.
    void expectSorted(const Records& result, bool distributed) {
        ASSERT_EQ(result.size(), demand_.records.size());
        std::vector<bool> seen(result.size());
        for (std::size_t i = 0; i < result.size(); ++i) {
            const std::uint32_t number = numberOf(result[i]);
            ASSERT_LT(number, result.size());
            ASSERT_FALSE(seen[number]) << "record " << number << " came twice";
            seen[number] = true;
            ASSERT_EQ(result[i], demand_.records[number]);
            if (i == 0 || !distributed) continue;
            ASSERT_FALSE(precedes(result[i], result[i - 1])) << "place " << i;
            if (!precedes(result[i - 1], result[i])) {
                ASSERT_LT(numberOf(result[i - 1]), number) << "place " << i;
            }
        }
    }

  private:
    ServedJob served_;
    const Demand& demand_;
};

TEST(BlockDistribution, EveryTypeIsInOrderAndEqualRecordsStayAsTheyCame) {
    int distributed = 0;
    for (std::uint32_t seed = 1; seed <= 80; ++seed) {
        SCOPED_TRACE(seed);
        const Demand demand = randomLargeDemand(seed, ~0U);
        World world(demand);
        const Outcome outcome = world.serve();
        // Not unique, or unreadable: the quicksort says so.
        if (outcome.code != ErrorCode::kSuccess) {
            EXPECT_FALSE(outcome.distributed);
            continue;
        }
        distributed += outcome.distributed ? 1 : 0;
        world.expectSorted(outcome.result, outcome.distributed);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(distributed, 40);
}

}  // namespace
}  // namespace tvsort::test

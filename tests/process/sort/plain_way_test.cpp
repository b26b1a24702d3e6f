// Where entries do not fit, every request ends as the plain quicksort ends it: code, places of the
// records, work file, and the pivots that follow.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "tests/support/plain_sort.h"
#include "tests/support/random_demand.h"

namespace tvsort::test {
namespace {

// Whatever shows that two ways were not the same.
struct Outcome {
    ErrorCode code;
    Bytes frames;
    Bytes file;
    int nextPivot;

    bool operator==(const Outcome&) const = default;
};

Outcome serve(const Demand& demand) {
    ServedJob served({demand.frames, demand.geometry.blockPages});
    Request request = served.lay(demand.records, demand.geometry);
    request.keys = demand.keys;
    request.items = {{7, 1, 0, {3, 2, 1}}};
    request.head.sortMode = static_cast<std::uint16_t>(demand.mode);
    srand(1);
    const ErrorCode code = served.ask(request).errorCode();
    const Byte* const frames = served.frames();
    const auto bytes = static_cast<std::size_t>(served.layout().frameAreaBytes()) -
                       kPageBytes * static_cast<std::size_t>(demand.geometry.blockPages);
    return {code, Bytes(frames, frames + bytes), served.workFile(), rand()};
}

Outcome servePlainly(const Demand& demand) {
    const PlainSort plain;
    return serve(demand);
}

TEST(PlainWay, EveryRequestEndsAsThePlainQuicksortEndsIt) {
    std::map<ErrorCode, int> codes;
    for (std::uint32_t seed = 1; seed <= 6000; ++seed) {
        const Demand demand = randomDemand(seed);
        const Outcome outcome = serve(demand);
        EXPECT_TRUE(outcome == servePlainly(demand))
            << "seed " << seed << ", type " << int{demand.keys[0].dataType} << " and "
            << int{demand.keys[1].dataType} << ", " << demand.records.size() << " records, frames "
            << demand.frames << " per block " << demand.geometry.recordsPerBlock << " mode "
            << int(demand.mode) << " code " << int(outcome.code) << " dir "
            << int(demand.keys[0].kindFlags);
        codes[outcome.code] += 1;
    }
    for (const ErrorCode code :
         {ErrorCode::kSuccess, ErrorCode::kDecimalInvalid, ErrorCode::kValueTooLong,
          ErrorCode::kNotUnique, ErrorCode::kGeometryUnreadable}) {
        EXPECT_GT(codes[code], 20) << static_cast<int>(code);
    }
}

}  // namespace
}  // namespace tvsort::test

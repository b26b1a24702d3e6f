// The built process, while a thread of its server writes over all of its slot: whatever it answers,
// it answers, and serves the next request as if nothing had been.

#include <gtest/gtest.h>

#include "tests/fault/shaped_case.h"
#include "tests/support/scribbler.h"
#include "tests/system/numbers_sorted.h"

namespace tvsort::test {
namespace {

// A pool and a data set, of hundreds of records, that lead to one way of sorting.
struct Way {
    const char* name;
    std::int32_t memoryPages;
    std::int32_t scale;
    std::int32_t recordsPerPage;
    int times;  // each sort mode
};

const Way kWays[] = {
    {"Quicksort", 60, 4, 10, 100}, {"Spilled", 5, 2, 10, 100}, {"ByEntries", 256, 100, 160, 20}};

std::ostream& operator<<(std::ostream& out, const Way& way) {
    return out << way.name;
}

std::vector<ShapedCase> casesOfAllModes(std::int32_t scale) {
    std::vector<ShapedCase> cases = shapedCases(scale);
    for (const SortMode mode : {SortMode::kIntersectAll, SortMode::kExceptAll, SortMode::kUnique,
                                SortMode::kUniqueUnlessNull}) {
        cases.push_back(plainCase(scale));
        cases.back().mode = mode;
    }
    return cases;
}

class ScribbledProcess : public testing::TestWithParam<Way> {};

TEST_P(ScribbledProcess, AnswersEveryRequest) {
    const Way& way = GetParam();
    host::SortServer server(host::optionsFor(way.memoryPages, 1));
    host::SortSlot& slot = server.slot(1);
    const host::Geometry geometry = {24, 1, static_cast<std::uint16_t>(way.recordsPerPage)};
    for (const ShapedCase& shaped : casesOfAllModes(way.scale)) {
        SCOPED_TRACE(shaped.name);
        const Scribbler scribbler(server.memory().slot(1).data(), server.memory().layout(),
                                  static_cast<std::uint32_t>(shaped.mode));
        for (int i = 0; i < way.times; ++i) {
            const host::LoadedData loaded = shaped.load(slot, geometry);
            slot.connection().send(shaped.request().build(geometry, loaded.extent), host::kSoon);
            slot.connection().receiveRaw(host::kSoon);
        }
    }
    plainCase(way.scale).expectServed(slot, geometry);
}

INSTANTIATE_TEST_SUITE_P(OfWays, ScribbledProcess, testing::ValuesIn(kWays),
                         [](const auto& way) { return way.param.name; });

}  // namespace
}  // namespace tvsort::test

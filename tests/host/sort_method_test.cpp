// The forecast of the method against the process, which betrays its method by what it does with
// equal records: the distribution sort keeps their order, the quicksort does not.

#include "host/sort_method.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "host/sort_server.h"

namespace tvsort::host {
namespace {

constexpr std::uint16_t kRecordLength = 40;
constexpr std::uint16_t kNumberOffset = 32;
constexpr std::int32_t kBlockPages = 2;

// A key of few values in each field, and a number that is no key.
std::vector<Byte> recordOf(std::int32_t number, bool dirtyString) {
    std::vector<Byte> record(kRecordLength);
    storeAs(record.data(), number % 7);
    storeAs(record.data() + 8, std::uint16_t{1});
    record[10] = static_cast<Byte>('a' + number % 3);
    if (dirtyString && number == 5) record[12] = 1;
    storeAs(record.data() + kNumberOffset, number);
    return record;
}

struct Case {
    const char* name;
    std::vector<KeyDescriptor> keys;
    std::int32_t recordCount;
    bool dirtyString;
    MethodReason reason;  // with frames in plenty
};

bool sortsStably(const Case& c, std::int32_t frames, MethodForecast& forecast) {
    ServerOptions options;
    options.processPath = TVSORT_PROGRAM;
    options.memoryPages = frames * kBlockPages;
    options.pagesPerBlock = kBlockPages;
    SortServer server(options);
    RequestBuilder request;
    for (const KeyDescriptor& key : c.keys)
        request.addKey(key);
    MethodForecaster forecaster(request);
    std::int32_t next = 0;
    const Geometry geometry = chooseGeometry(kRecordLength, kBlockPages);
    const SortResult result =
        server.slot(1).sort(request, geometry, [&](Byte* target, std::size_t) -> std::size_t {
            if (next == c.recordCount) return 0;
            const std::vector<Byte> record = recordOf(next++, c.dirtyString);
            forecaster.look(record.data());
            std::copy(record.begin(), record.end(), target);
            return 1;
        });
    forecast = forecaster.forecast(geometry, result.loaded.extent, frames);
    std::vector<std::vector<Byte>> sorted;
    result.read([&](const Byte* records, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            sorted.emplace_back(records + i * kRecordLength, records + (i + 1) * kRecordLength);
    });
    const auto isAsSorted = [&](const std::vector<Byte>& left, const std::vector<Byte>& right) {
        const bool sameKey = std::equal(left.begin(), left.begin() + 11, right.begin());
        return !sameKey ||
               loadI32(left.data() + kNumberOffset) < loadI32(right.data() + kNumberOffset);
    };
    return std::adjacent_find(sorted.begin(), sorted.end(),
                              [&](const auto& left, const auto& right) {
                                  return !isAsSorted(left, right);
                              }) == sorted.end();
}

TEST(MethodForecast, IsWhatTheProcessDoes) {
    const KeyDescriptor integer = ascendingKey(DataType::kInteger, 0, 4);
    const KeyDescriptor string = descendingKey(DataType::kString, 8, 10);
    const KeyDescriptor byte = ascendingKey(DataType::kSingleByte, 10, 1);
    const Case cases[] = {
        {"integer", {integer}, 10000, false, MethodReason::kDistributes},
        {"few", {integer}, 9999, false, MethodReason::kFewRecords},
        {"string", {string, integer}, 12345, false, MethodReason::kDistributes},
        {"dirty string", {integer, string}, 12345, true, MethodReason::kStringRest},
        {"byte", {integer, byte}, 12345, false, MethodReason::kKeyType},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        MethodForecast forecast = {};
        constexpr std::int32_t kPlenty = 400;
        const bool distributes = c.reason == MethodReason::kDistributes;
        EXPECT_EQ(sortsStably(c, kPlenty, forecast), distributes);
        EXPECT_EQ(forecast.reason, c.reason);
        if (!distributes) continue;
        const auto wanted = static_cast<std::int32_t>(forecast.framesWanted);
        EXPECT_TRUE(sortsStably(c, wanted, forecast));
        EXPECT_EQ(forecast.reason, MethodReason::kDistributes);
        EXPECT_FALSE(sortsStably(c, wanted - 1, forecast));
        EXPECT_EQ(forecast.reason, MethodReason::kTooFewFrames);
    }
}

}  // namespace
}  // namespace tvsort::host

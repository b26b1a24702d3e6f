// The forecast of the method against the process, which betrays its method by what it does with
// equal records: by entries and by a copy it keeps their order, by comparing it does not.

#include "host/sort_method.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "host/sort_server.h"

namespace tvsort::host {
namespace {

constexpr std::uint16_t kNumberOffset = 16;
constexpr std::int32_t kFramesMin = 5;
constexpr std::int32_t kBlockPages = 2;

// A key of few values in each field, and a number that is no key.
std::vector<Byte> recordOf(std::int32_t number, std::uint16_t recordLength) {
    std::vector<Byte> record(recordLength);
    storeAs(record.data(), number % 7);
    storeAs(record.data() + 8, std::uint16_t{1});
    record[10] = static_cast<Byte>('a' + number % 3);
    storeAs(record.data() + kNumberOffset, number);
    return record;
}

struct Case {
    const char* name;
    std::vector<KeyDescriptor> keys;
    std::int32_t recordCount;
    std::uint16_t recordLength;
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
    std::int32_t next = 0;
    const Geometry geometry = chooseGeometry(c.recordLength, kBlockPages);
    const SortResult result =
        server.slot(1).sort(request, geometry, [&](Byte* target, std::size_t) -> std::size_t {
            if (next == c.recordCount) return 0;
            const std::vector<Byte> record = recordOf(next++, c.recordLength);
            std::copy(record.begin(), record.end(), target);
            return 1;
        });
    forecast = forecastMethod(request, geometry, result.loaded.extent, frames);
    std::vector<std::vector<Byte>> sorted;
    result.read([&](const Byte* records, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            sorted.emplace_back(records + i * c.recordLength, records + (i + 1) * c.recordLength);
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
        {"few", {integer}, 199, 40, MethodReason::kFewRecords},
        {"integer", {integer}, 200, 40, MethodReason::kEntries},
        {"string", {string, integer}, 12345, 40, MethodReason::kEntries},
        {"byte", {integer, byte}, 12345, 24, MethodReason::kEntries},
        {"integer of a short record", {integer}, 10000, 24, MethodReason::kCopies},
        {"one fewer", {integer}, 9999, 24, MethodReason::kEntries},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        MethodForecast forecast = {};
        constexpr std::int32_t kPlenty = 400;
        const bool stable = keepsArrival(c.reason);
        EXPECT_EQ(sortsStably(c, kPlenty, forecast), stable);
        EXPECT_EQ(forecast.reason, c.reason);
        if (!stable) continue;
        const auto wanted = static_cast<std::int32_t>(forecast.framesWanted);
        EXPECT_TRUE(sortsStably(c, std::max(wanted, kFramesMin), forecast));
        EXPECT_NE(forecast.reason, MethodReason::kTooFewFrames);
        if (wanted <= kFramesMin) continue;
        EXPECT_FALSE(sortsStably(c, wanted - 1, forecast));
        EXPECT_EQ(forecast.reason, MethodReason::kTooFewFrames);
    }
}

TEST(MethodForecast, LargerThanTheFramesGoesByBlocks) {
    const Case c = {
        "spilled", {ascendingKey(DataType::kInteger, 0, 4)}, 40000, 100, MethodReason::kBlocks};
    MethodForecast forecast = {};
    EXPECT_TRUE(sortsStably(c, 64, forecast));
    EXPECT_EQ(forecast.reason, MethodReason::kBlocks);
    EXPECT_FALSE(sortsStably(c, 63, forecast));
    EXPECT_EQ(forecast.reason, MethodReason::kTooFewFrames);
}

TEST(MethodForecast, NamesTheKeyThatMustBeCompared) {
    KeyDescriptor geometry = ascendingKey(DataType::kString, 12, 2);
    geometry.geometryType = 1;
    RequestBuilder request;
    request.addKey(ascendingKey(DataType::kFloat, 0, 8)).addKey(geometry);
    const Geometry blocks = chooseGeometry(40, kBlockPages);
    const MethodForecast forecast = forecastMethod(request, blocks, {1000, 5}, 100);
    EXPECT_EQ(forecast.reason, MethodReason::kKeyType);
    EXPECT_EQ(forecast.keyIndex, 1U);
}

}  // namespace
}  // namespace tvsort::host

// Orders that are hard for a quicksort, measured in comparisons and not in time: each call of the
// ordering comparator is counted where the linker sends it past this file.
//
// A partition of m records compares each with the pivot once, and at most two more where the
// cursors meet, and leaves two parts that are both smaller. So no input and no comparator,
// consistent or not, costs more than m + 2 comparisons for m = 2, 3, ... n, which is (n + 5) n / 2;
// a good pivot costs about 1.4 n log2 n. Of the two parts the larger one waits, so while d ranges
// wait, the range at work has at most n / 2^d records.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "process/sort/sort_driver.h"
#include "tests/support/small_world.h"

namespace tvsort::test {
namespace {

// Answers comparisons in place of the keys: M. D. McIlroy, A Killer Adversary for Quicksort, 1999.
// No record has a value until it has to: the pivot then gets the smallest value left, and nearly
// all of the range comes behind it. Which record becomes the pivot need not be known beforehand, so
// a random choice does not help.
class Adversary {
  public:
    explicit Adversary(std::size_t count) : values_(count, kNone) {}

    bool precedes(std::uint32_t left, std::uint32_t right) {
        if (values_[left] == kNone && values_[right] == kNone) {
            values_[left == candidate_ ? left : right] = next_++;
        }
        if (values_[left] == kNone) candidate_ = left;
        if (values_[right] == kNone) candidate_ = right;
        return values_[left] < values_[right];
    }
    // The values that it decided on; a sort with the same pivots meets the same answers.
    const std::vector<std::int32_t>& values() const { return values_; }

  private:
    static constexpr std::int32_t kNone = 0x7fffffff;
    std::vector<std::int32_t> values_;
    std::int32_t next_ = 0;
    std::uint32_t candidate_ = 0;
};

struct Watch {
    std::int64_t comparisons = 0;
    int depthMax = 0;
    Adversary* adversary = nullptr;
};

Watch* watch = nullptr;

}  // namespace
}  // namespace tvsort::test

using tvsort::test::watch;

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" bool __real__ZN6tvsort14recordPrecedesERNS_7SortJobEjj(tvsort::SortJob& job,
                                                                  std::uint32_t left,
                                                                  std::uint32_t right);
extern "C" bool __wrap__ZN6tvsort14recordPrecedesERNS_7SortJobEjj(tvsort::SortJob& job,
                                                                  std::uint32_t left,
                                                                  std::uint32_t right) {
    if (watch != nullptr) {
        watch->comparisons += 1;
        watch->depthMax = std::max(watch->depthMax, job.partitionDepth);
        if (watch->adversary != nullptr) {
            const std::uint32_t leftNumber = tvsort::loadU32(tvsort::recordAt(job, left));
            const std::uint32_t rightNumber = tvsort::loadU32(tvsort::recordAt(job, right));
            if (leftNumber == rightNumber) return false;
            job.compareState = 1;
            return watch->adversary->precedes(leftNumber, rightNumber);
        }
    }
    return __real__ZN6tvsort14recordPrecedesERNS_7SortJobEjj(job, left, right);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace tvsort::test {
namespace {

constexpr std::uint16_t kRecordBytes = 44;
constexpr std::uint16_t kKeyOffset = 6;
constexpr std::uint16_t kNullsOffset = 42;

// Numbered records, in blocks of few, so that every range spans many.
Records numberedRecords(std::size_t count) {
    Records records(count, Bytes(kRecordBytes, 0));
    for (std::size_t i = 0; i < count; ++i) {
        storeAs(records[i].data(), static_cast<std::uint32_t>(i));
        records[i][kNullsOffset] = 1;
    }
    return records;
}

Records withValues(const std::vector<std::int32_t>& values) {
    Records records = numberedRecords(values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        storeAs(records[i].data() + kKeyOffset, values[i]);
    return records;
}

// Sorts with every comparison counted: behind a geometry, which is null here, no word of a key is
// read. Expects what holds for every input: all records are there, the stack stays within its
// logarithm and the comparisons within their square.
Watch countedSort(const Records& records, KeyDescriptor key, unsigned seed,
                  Adversary* adversary = nullptr, Records* result = nullptr) {
    ServedJob served;
    const auto count = static_cast<std::int64_t>(records.size());
    Watch counted = {.adversary = adversary};
    key.orderNumber = 2;
    KeyDescriptor geometry = ascendingKey(DataType::kString, 0, 2, 1);
    geometry.geometryType = 1;
    srand(seed);
    watch = &counted;
    Records sorted = served.sort(records, {.recordsPerBlock = 25, .recordLength = kRecordBytes},
                                 {geometry, key, nullIndicators(kNullsOffset)});
    watch = nullptr;
    EXPECT_GE(counted.comparisons, count - 1) << "not every comparison is counted";
    EXPECT_LE(counted.comparisons, (count + 5) * count / 2);
    EXPECT_LE(counted.depthMax, std::log2(count));
    if (result != nullptr) *result = sorted;
    Records expected = records;
    std::sort(expected.begin(), expected.end());
    std::sort(sorted.begin(), sorted.end());
    EXPECT_TRUE(sorted == expected) << "records lost";
    return counted;
}

double perRecordAndLevel(const Watch& counted, std::size_t count) {
    return static_cast<double>(counted.comparisons) /
           (static_cast<double>(count) * std::log2(static_cast<double>(count)));
}

const KeyDescriptor kIntegerKey = ascendingKey(DataType::kInteger, kKeyOffset, 4);

TEST(AdversarialOrders, ArrangedInputsCostWhatRandomOnesDo) {
    constexpr int kCount = 4000;
    struct Case {
        const char* name;
        int (*value)(int i);
        double costMax;  // comparisons per n log2 n
    };
    constexpr double kUsual = 2.0;
    const Case cases[] = {
        {"random", [](int i) { return (i * 7919 + i * i % 977) % 4001; }, kUsual},
        {"sorted", [](int i) { return i; }, kUsual},
        {"reversed", [](int i) { return -i; }, kUsual},
        {"two values", [](int i) { return i % 2; }, 0.5},
        {"organ pipe", [](int i) { return std::min(i, kCount - i); }, kUsual},
        {"runs", [](int i) { return i % 64; }, kUsual},
        {"runs downward", [](int i) { return -(i % 500); }, kUsual},
        {"all equal", [](int) { return 1; }, 0.09},  // one comparison for each record
        {"one other", [](int i) { return i == 1234 ? 1 : 0; }, 0.5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::int32_t> values(kCount);
        for (int i = 0; i < kCount; ++i)
            values[static_cast<std::size_t>(i)] = c.value(i);
        Records result;
        const Watch counted = countedSort(withValues(values), kIntegerKey, 1, nullptr, &result);
        ASSERT_EQ(result.size(), values.size());
        std::sort(values.begin(), values.end());
        for (std::size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(loadI32(result[i].data() + kKeyOffset), values[i]);
        EXPECT_LE(perRecordAndLevel(counted, kCount), c.costMax);
    }
}

// The entry sort compares nothing, but looks for orders that spare it its passes.
TEST(AdversarialOrders, TheEntrySortTakesNoOrderForAnother) {
    constexpr std::int32_t kCount = 10000;
    const KeyDescriptor down = descendingKey(DataType::kInteger, kKeyOffset, 4);
    for (const KeyDescriptor& key : {kIntegerKey, down}) {
        for (const std::int32_t turned : {0, 2, 5000, kCount - 1, kCount}) {
            SCOPED_TRACE(turned);
            std::vector<std::int32_t> values(kCount);
            std::iota(values.begin(), values.end(), 0);
            std::reverse(values.begin(), values.begin() + turned);
            ServedJob served({520, 1});
            const Records sorted =
                served.sort(withValues(values), {.recordLength = kRecordBytes}, {key});
            ASSERT_EQ(sorted.size(), values.size());
            for (std::int32_t i = 0; i < kCount; ++i) {
                const Byte* const value = sorted[static_cast<std::size_t>(i)].data() + kKeyOffset;
                ASSERT_EQ(loadI32(value), key.kindFlags == 1 ? i : kCount - 1 - i);
            }
        }
    }
}

TEST(AdversarialOrders, AKillerMakesTheCostSquareAndTheStackNoDeeper) {
    constexpr std::size_t kCount = 2000;
    Adversary adversary(kCount);
    const Watch live = countedSort(numberedRecords(kCount), kIntegerKey, 1, &adversary);
    const Records killer = withValues(adversary.values());
    const Watch replayed = countedSort(killer, kIntegerKey, 1);
    const Watch spared = countedSort(killer, kIntegerKey, 2);
    EXPECT_GT(live.comparisons, std::int64_t{kCount * kCount / 5}) << "no killer";
    EXPECT_EQ(replayed.comparisons, live.comparisons);  // the same pivots, the same answers
    EXPECT_LE(perRecordAndLevel(spared, kCount), 1.5);  // other pivots: an input like any other
}

TEST(AdversarialOrders, IntransitiveValuesInManyBlocksLoseNoRecord) {
    constexpr std::size_t kCount = 3000;
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        Records floats = numberedRecords(kCount);
        Records envelopes = floats;
        // Neighbouring values tie, values some steps apart do not.
        for (std::size_t i = 0; i < kCount; ++i) {
            storeAs(floats[i].data() + kKeyOffset,
                    1.0 + static_cast<double>(random() % 9) * 0x1p-50);
            storeAs(envelopes[i].data() + kKeyOffset, std::uint16_t{32});
            std::array<double, 4> corners = {};
            for (double& corner : corners)
                corner = static_cast<double>(random() % 5) * 0.7e-10;
            std::memcpy(envelopes[i].data() + kKeyOffset + 2, corners.data(), sizeof corners);
        }
        KeyDescriptor envelopeKey = ascendingKey(DataType::kString, kKeyOffset, 34);
        envelopeKey.geometryType = 1;
        envelopeKey.kindFlags |= kEnvelopeBit;
        const Watch byFloat =
            countedSort(floats, ascendingKey(DataType::kFloat, kKeyOffset, 8), seed);
        EXPECT_LE(perRecordAndLevel(byFloat, kCount), 1.5);
        EXPECT_LE(perRecordAndLevel(countedSort(envelopes, envelopeKey, seed), kCount), 1.5);
    }
}

}  // namespace
}  // namespace tvsort::test

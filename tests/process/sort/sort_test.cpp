// The in-memory sort: order, permutation and the exact places of equal records, in pools of many
// shapes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "process/keys/record_precedes.h"
#include "process/sort/entry_sort.h"
#include "process/sort/sort_driver.h"
#include "tests/support/small_world.h"

namespace tvsort::test {
namespace {

constexpr Geometry kSmallBlocks = {.blockPages = 1, .recordLength = kWorldRecordLength};

std::vector<std::uint32_t> arrivals(const Records& records) {
    std::vector<std::uint32_t> numbers;
    for (const Bytes& record : records)
        numbers.push_back(arrivalOf(record));
    return numbers;
}

bool isOrdered(const Records& records, const std::vector<KeyDescriptor>& keys) {
    return std::is_sorted(records.begin(), records.end(), [&](const Bytes& l, const Bytes& r) {
        return compareByModel(l, r, keys) < 0;
    });
}

bool isPermutation(Records left, Records right) {
    std::sort(left.begin(), left.end());
    std::sort(right.begin(), right.end());
    return left == right;
}

int below(std::mt19937& random, unsigned bound) {
    return static_cast<int>(random() % bound);
}

TEST(SortDriver, OrdersRandomWorldsInPoolsOfEveryShape) {
    struct Pool {
        SlotLayout layout;
        std::int32_t blockPages;
    };
    const Pool pools[] = {{{5, 1}, 1}, {{5, 2}, 1}, {{5, 2}, 2}, {{6, 3}, 2}, {{40, 1}, 1}};
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        const Pool& pool = pools[seed % 5];
        const int count = 2 + static_cast<int>(random() % (seed % 3 == 0 ? 40 : 4000));
        const Records records =
            randomWorld(random, count, 1 + static_cast<int>(seed % 50), 3, true);
        Geometry geometry = {.blockPages = pool.blockPages, .recordLength = kWorldRecordLength};
        geometry.recordsPerBlock = static_cast<std::uint16_t>(1 + random() % 170);
        const std::vector<KeyDescriptor> keys = randomKeys(random);
        ServedJob served(pool.layout);
        const Records sorted = served.sort(records, geometry, keys);
        EXPECT_TRUE(isOrdered(sorted, keys));
        EXPECT_TRUE(isPermutation(sorted, records));
        EXPECT_EQ(served.job().partitionDepth, 0);
        for (int frame = 0; frame < served.job().framesInUse; ++frame) {
            EXPECT_EQ(served.job().pageDescriptors[frame].pinned, 0) << "frame " << frame;
        }
    }
}

// The pivots are the C library's unseeded sequence, and every exchange follows from the
// comparisons: equal records have one place each. 130 records in two blocks, key number mod 7.
TEST(SortDriver, EqualRecordsEndWherePivotsAndExchangesPutThem) {
    Records records;
    for (int i = 0; i < 130; ++i) {
        Bytes record(kWorldRecordLength, 0);
        storeAs(record.data(), i);
        storeAs(record.data() + kKeyAOffset, static_cast<std::int16_t>(i % 7));
        records.push_back(record);
    }
    srand(1);  // the state in which the C library starts
    ServedJob served;
    const Geometry geometry = {
        .blockPages = 1, .recordsPerBlock = 65, .recordLength = kWorldRecordLength};
    const auto key = ascendingKey(DataType::kInteger, kKeyAOffset, 2);
    const std::vector<std::uint32_t> first = arrivals(served.sort(records, geometry, {key}));
    const std::vector<std::uint32_t> second = arrivals(served.sort(records, geometry, {key}));
    EXPECT_THAT(std::vector<std::uint32_t>(first.begin(), first.begin() + 19),
                testing::ElementsAre(42, 91, 84, 35, 98, 49, 28, 105, 77, 21, 112, 56, 14, 119, 0,
                                     63, 126, 7, 70));
    EXPECT_THAT(std::vector<std::uint32_t>(second.begin(), second.begin() + 19),
                testing::ElementsAre(126, 119, 112, 105, 98, 91, 84, 77, 70, 63, 56, 49, 42, 35, 28,
                                     21, 7, 14, 0));  // the sequence has run on
}

TEST(SortDriver, TheStackRefusesMoreThanItHolds) {
    ServedJob served;
    SortJob& job = served.job();
    for (int i = 0; i < 31; ++i)
        pushRange(job, 1, 2);
    EXPECT_EQ(job.errorCode, ErrorCode::kSuccess);
    pushRange(job, 1, 2);
    EXPECT_EQ(job.errorCode, ErrorCode::kPartitionStackFull);
    job.partitionDepth = -1;
    pushRange(job, 1, 2);
    EXPECT_EQ(job.errorCode, ErrorCode::kPartitionDepthNegative);
}

// Tolerant floats are not transitive, and NaN ties with everything under a descending key: there is
// no order to check, but no record is lost and the sort ends.
TEST(SortDriver, IntransitiveComparisonsLoseNoRecord) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        Records records = randomWorld(random, 3000, 5, 3, false);
        for (Bytes& record : records) {
            const double value = random() % 10 == 0 ? std::numeric_limits<double>::quiet_NaN()
                                                    : 1.0 + below(random, 64) * 0x1p-50;
            storeAs(record.data() + kKeyAOffset, value);
        }
        ServedJob served;
        for (const auto& key : {ascendingKey(DataType::kFloat, kKeyAOffset, 8),
                                descendingKey(DataType::kFloat, kKeyAOffset, 8)}) {
            EXPECT_TRUE(isPermutation(served.sort(records, kSmallBlocks, {key}), records))
                << "seed " << seed;
        }
    }
}

TEST(SortDriver, AFailedRequestCostsTheNextOneNoFrame) {
    std::mt19937 random(7);
    Records records = randomWorld(random, 4000, 1000, 1, false);
    const Records good = records;
    storeAs<std::int16_t>(records[3999].data() + kKeyAOffset, 30000);  // a length beyond the field
    ServedJob served;
    for (int i = 0; i < 10; ++i) {
        Request request = served.lay(records, kSmallBlocks);
        request.keys = {ascendingKey(DataType::kString, kKeyAOffset, 6)};
        EXPECT_EQ(served.ask(request).errorCode(), ErrorCode::kValueTooLong);
    }
    const auto keys = randomKeys(random);
    EXPECT_TRUE(isOrdered(served.sort(good, kSmallBlocks, keys), keys));
}

// The places of a served request, and whatever shows that two ways were not the same.
struct Outcome {
    ErrorCode code;
    Bytes frames;
    Bytes file;
    int nextPivot;

    bool operator==(const Outcome&) const = default;
};

Outcome serve(const Records& records, Geometry geometry, const std::vector<KeyDescriptor>& keys,
              std::int32_t memoryFrames) {
    ServedJob served({memoryFrames, geometry.blockPages});
    Request request = served.lay(records, geometry);
    request.keys = keys;
    srand(1);
    const ErrorCode code = served.ask(request).errorCode();
    const Byte* const frames = served.frames();
    return {code, Bytes(frames, frames + memoryFrames * geometry.blockPages * kPageBytes),
            served.workFile(), rand()};
}

// Short ranges are sorted by way of a copy, if it has room for them.
TEST(SortDriver, LargeRecordsInLargeBlocksStayInTheirBounds) {
    for (const int bytes : {655, 5000, 32768, 65533, 65534, 65535}) {
        const auto length = static_cast<std::uint16_t>(bytes);
        const auto perBlock = static_cast<std::uint16_t>(65535 / length + 1);
        const Geometry geometry = {
            .blockPages = 32, .recordsPerBlock = perBlock, .recordLength = length};
        Records records(perBlock, Bytes(length, 0));
        for (std::size_t i = 0; i < records.size(); ++i)
            storeAs(records[i].data() + length - 4, static_cast<std::uint32_t>(records.size() - i));
        const int number = bytes - 4;
        ServedJob served({5, 32});
        const Records sorted =
            served.sort(records, geometry,
                        {ascendingKey(DataType::kInteger, static_cast<std::uint16_t>(number), 4)});
        const auto before = [&](const Bytes& left, const Bytes& right) {
            return loadI32(left.data() + number) < loadI32(right.data() + number);
        };
        EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end(), before)) << length;
        EXPECT_TRUE(isPermutation(sorted, records)) << length;
    }
}

// A key without a byte of its own reads none, wherever it stands; neither does one whose bytes end
// with the record read more than the slot holds.
TEST(SortDriver, KeysWithoutBytesMayStandAnywhere) {
    const DataType types[] = {DataType::kBytes, DataType::kWeightedBytes, DataType::kUnits};
    for (const int count : {2, 50, 500}) {
        Records records(static_cast<std::size_t>(count), Bytes(72, 0));
        for (std::size_t i = 0; i < records.size(); ++i)
            records[i][0] = static_cast<Byte>(records.size() - i);
        const Geometry geometry = {.recordsPerBlock = 56, .recordLength = 72};
        const auto expected = serve(records, geometry, {ascendingKey(DataType::kBytes, 0, 1)}, 10);
        for (const DataType type : types) {
            for (const std::uint16_t offset :
                 std::initializer_list<std::uint16_t>{0, 72, 32768, 65535}) {
                const auto outcome = serve(
                    records, geometry,
                    {ascendingKey(type, offset, 0, 1), ascendingKey(DataType::kBytes, 0, 1, 2)},
                    10);
                EXPECT_EQ(outcome.code, ErrorCode::kSuccess);
                if (count <= 256) {
                    EXPECT_EQ(outcome.frames, expected.frames);
                }
            }
        }
        ServedJob served({10, 1});
        EXPECT_EQ(served.sort(records, geometry, {ascendingKey(DataType::kString, 70, 2)}).size(),
                  records.size());
    }
}

// A value may state two bytes more than its record holds. What follows the pivot's copy is not what
// follows the record, and must not count.
TEST(SortDriver, ContentEndsWithTheRecord) {
    Records records(1280, Bytes(16, 0));
    for (std::size_t i = 0; i < records.size(); ++i) {
        storeAs<std::int16_t>(records[i].data() + 6, 10);
        records[i][15] = static_cast<Byte>(i % 2);
    }
    ServedJob served;
    std::fill_n(served.frames() + 5 * 4096, 4096, Byte{0xff});  // an earlier pivot's remains
    const Records sorted = served.sort(records, {.recordsPerBlock = 256, .recordLength = 16},
                                       {ascendingKey(DataType::kString, 6, 10)});
    EXPECT_TRUE(isPermutation(sorted, records));
    EXPECT_TRUE(served.workFile().empty());
}

// The frames alone decide which method runs: up to 190 blocks of data fit into both pools.
const SlotLayout kRoomForTwice = {520, 1};
const SlotLayout kRoomForOnce = {190, 1};

void makeLonger(Records& records, std::size_t length) {
    for (Bytes& record : records)
        record.resize(length, 0xa5);
}

TEST(EntrySort, KeepsTheOrderOfArrivalFromTheVeryFrameAndRecordOn) {
    struct Case {
        std::int32_t frames, records;
        bool applies;
    };
    const Case cases[] = {{559, 10000, true}, {558, 10000, false}, {559, 9999, false}};
    for (const Case& c : cases) {
        ServedJob served({c.frames, 1});
        Records records(static_cast<std::size_t>(c.records), Bytes(100, 0));
        Request request = served.lay(records, {.blockPages = 1, .recordLength = 100});
        request.head.fileBlocks = 250;
        request.keys = {ascendingKey(DataType::kInteger, 0, 4)};
        ASSERT_EQ(served.ask(request).errorCode(), ErrorCode::kSuccess);
        EXPECT_EQ(isExpectedStable(served.job()), c.applies);
    }
}

TEST(EntrySort, GivesTheStableOrderAndAgreesWithTheQuicksort) {
    for (std::uint32_t seed = 1; seed <= 24; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        Records records = randomWorld(random, 10000 + static_cast<int>(random() % 9000),
                                      seed % 2 == 0 ? 5 : 20000, 4, true);
        Geometry geometry = kSmallBlocks;
        if (seed % 4 < 2) geometry.recordLength = 40;
        makeLonger(records, geometry.recordLength);
        const std::vector<KeyDescriptor> keys = randomKeys(random);
        const SortMode mode = seed % 3 == 0 ? SortMode::kUnique : SortMode::kOrder;
        ServedJob roomy(kRoomForTwice);
        const Records fast = roomy.sort(records, geometry, keys, mode);
        EXPECT_TRUE(isExpectedStable(roomy.job()));
        std::stable_sort(records.begin(), records.end(), [&](const Bytes& l, const Bytes& r) {
            return compareByModel(l, r, keys) < 0;
        });
        EXPECT_EQ(fast, records);

        ServedJob tight(kRoomForOnce);
        const Records quicksorted = tight.sort(fast, geometry, keys, mode);
        EXPECT_TRUE(isOrdered(quicksorted, keys));
        EXPECT_TRUE(isPermutation(quicksorted, records));
    }
}

// The operand's tag decides among equal records, in the last key's direction, and with it which of
// them the set operation finds in one group.
TEST(EntrySort, BringsTheOperandsOfASetTogetherAsTheQuicksortDoes) {
    std::size_t survivors = 0;
    for (std::uint32_t seed = 1; seed <= 16; ++seed) {
        std::mt19937 random(seed);
        const auto mode = static_cast<SortMode>(3 + seed % 4);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", mode " << int(mode));
        Geometry geometry = kSmallBlocks;
        if (seed % 2 == 0) geometry.recordLength = 40;
        Records records = randomWorld(random, 10000, 40, 2 + static_cast<int>(seed % 3), true);
        makeLonger(records, geometry.recordLength);
        const std::vector<KeyDescriptor> keys = randomKeys(random);
        ServedJob roomy(kRoomForTwice);
        const Records fast = roomy.sort(records, geometry, keys, mode);
        ServedJob tight(kRoomForOnce);
        const Records quicksorted = tight.sort(records, geometry, keys, mode);
        ASSERT_EQ(fast.size(), quicksorted.size());
        for (std::size_t i = 0; i < fast.size(); ++i)
            ASSERT_EQ(compareByModel(fast[i], quicksorted[i], keys), 0) << "record " << i;
        survivors += fast.size();
    }
    EXPECT_GT(survivors, 1000U);
}

struct FieldCase {
    DataType type;
    std::uint16_t offset, length;
};

// A value of few distinct bytes, valid for its type.
void fillField(std::mt19937& random, const FieldCase& c, Byte* field) {
    const std::uint32_t bytes = keyFieldBytes(static_cast<std::uint8_t>(c.type), c.length);
    const bool decimal = c.type == DataType::kDecimal || c.type == DataType::kAlsoDecimal;
    for (std::uint32_t b = 0; b < bytes; ++b) {
        field[b] = static_cast<Byte>(decimal ? below(random, 40) / 39 : below(random, 5) * 63);
    }
    if (decimal) field[0] = static_cast<Byte>(1 + below(random, 2));
    if (c.type != DataType::kString) return;
    const int length = below(random, c.length - 1U);
    storeAs(field, static_cast<std::int16_t>(length));
    std::fill(field + 2 + length, field + c.length, Byte{0});
}

// Whether neighbours are in the comparator's order, and equal ones in order of arrival.
void expectStableOrder(const Records& sorted, const KeyDescriptor& key, std::uint16_t length) {
    ServedJob comparing;
    comparing.sort({sorted[0], sorted[1]}, {.recordLength = length}, {key});
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        std::copy(sorted[i - 1].begin(), sorted[i - 1].end(), comparing.frames());
        std::copy(sorted[i].begin(), sorted[i].end(), comparing.frames() + length);
        ASSERT_FALSE(recordPrecedes(comparing.job(), length, 0)) << "record " << i;
        if (!recordPrecedes(comparing.job(), 0, length)) {
            ASSERT_LT(arrivalOf(sorted[i - 1]), arrivalOf(sorted[i])) << "not stable";
        }
    }
}

// Keys of each type it knows, at odd and even offsets, short and long, in records of two lengths,
// against the comparator of the quicksort.
TEST(EntrySort, OrdersEveryTypeAsTheComparatorDoes) {
    const FieldCase cases[] = {
        {DataType::kInteger, 5, 2}, {DataType::kInteger, 6, 4}, {DataType::kInteger, 7, 8},
        {DataType::kInteger, 6, 3}, {DataType::kBytes, 5, 5},   {DataType::kBytes, 6, 5},
        {DataType::kBytes, 7, 1},   {DataType::kString, 5, 9},  {DataType::kString, 6, 8},
        {DataType::kDecimal, 5, 0}, {DataType::kBytes, 4, 36},  {DataType::kAlsoDecimal, 6, 0},
        {DataType::kString, 5, 31},
    };
    std::mt19937 random(42);
    for (const std::uint16_t recordLength : {std::uint16_t{24}, std::uint16_t{40}}) {
        for (const FieldCase& c : cases) {
            if (c.offset + c.length > recordLength) continue;
            SCOPED_TRACE(testing::Message()
                         << "type " << int(c.type) << " at " << c.offset << " of " << recordLength);
            Records records(10007, Bytes(recordLength, 0));
            for (std::size_t i = 0; i < records.size(); ++i) {
                storeAs(records[i].data(), static_cast<std::uint32_t>(i));
                fillField(random, c, records[i].data() + c.offset);
            }
            for (const auto& key : {ascendingKey(c.type, c.offset, c.length),
                                    descendingKey(c.type, c.offset, c.length)}) {
                ServedJob roomy(kRoomForTwice);
                const Records sorted = roomy.sort(records, {.recordLength = recordLength}, {key});
                ASSERT_TRUE(isExpectedStable(roomy.job()));
                expectStableOrder(sorted, key, recordLength);
                EXPECT_TRUE(isPermutation(sorted, records));
            }
        }
    }
}

// As the frames hold them.
Records recordsLeft(const ServedJob& served, std::size_t count) {
    Answer answer = {Bytes(sizeof(SortReply))};
    storeAs(answer.bytes.data() + offsetof(SortReply, recordCount),
            static_cast<std::int32_t>(count));
    return served.result(answer);
}

struct SpoiledCase {
    const char* what;
    DataType type;
    std::vector<Byte> field;  // of one record; the others are zero
    bool ascending;
    ErrorCode code;
};

// Whether it is sorted or refused, the records that came are there, and unmoved by 1090 where the
// order of arrival is expected.
void expectCodeAndAllRecords(const SpoiledCase& c, const Records& records, SlotLayout layout,
                             bool staysPut) {
    ServedJob served(layout);
    Request request = served.lay(records, {1, 0, static_cast<std::uint16_t>(records[0].size())});
    for (const bool hasIndicators : {false, true}) {
        SCOPED_TRACE(testing::Message() << c.what << ", " << records.size() << " records of "
                                        << records[0].size() << " bytes");
        request.keys = {c.ascending ? ascendingKey(c.type, 6, 6) : descendingKey(c.type, 6, 6)};
        if (hasIndicators) request.keys.push_back(nullIndicators(23));  // no value is null
        EXPECT_EQ(served.ask(request).errorCode(), c.code);
        const Records left = recordsLeft(served, records.size());
        EXPECT_TRUE(isPermutation(left, records));
        if (staysPut && c.code == ErrorCode::kDecimalInvalid) {
            EXPECT_EQ(left, records);
        }
        served.lay(records, {1, 0, static_cast<std::uint16_t>(records[0].size())});
    }
}

TEST(EntrySort, ValuesThatOnlyComparingOrdersGoToTheQuicksortOrHaveTheirCode) {
    const auto good = ErrorCode::kSuccess;
    const SpoiledCase cases[] = {
        {"bytes behind a value", DataType::kString, {1, 0, 'a', 'b', 0, 0}, true, good},
        {"a length beyond the content", DataType::kString, {5, 0}, true, good},
        {"a negative length", DataType::kString, {0xff, 0xff}, true, good},
        {"a length beyond the field", DataType::kString, {7, 0}, true, ErrorCode::kValueTooLong},
        {"a digit above 99", DataType::kDecimal, {1, 100}, true, ErrorCode::kDecimalInvalid},
        {"the same descending", DataType::kDecimal, {1, 100}, false, good},
        {"a zero with a digit", DataType::kDecimal, {0, 1}, true, ErrorCode::kDecimalInvalid},
        {"an unknown class", DataType::kDecimal, {5}, false, ErrorCode::kDecimalInvalid},
        {"units", DataType::kUnitString, {7, 0}, false, ErrorCode::kValueTooLong},
    };
    for (const SpoiledCase& c : cases) {
        for (const std::size_t length : {24U, 40U}) {
            Records records(10000, Bytes(length, 0));
            for (std::size_t i = 0; i < records.size(); ++i)
                storeAs(records[i].data(), static_cast<std::uint32_t>(i));
            std::copy(c.field.begin(), c.field.end(), records[5000].begin() + 6);
            expectCodeAndAllRecords(c, records, kRoomForTwice, true);
            records.erase(records.begin(), records.begin() + 4900);
            records.resize(400);
            // Comparing raises nothing about decimals of a descending key.
            SpoiledCase few = c;
            if (c.type == DataType::kDecimal && !c.ascending) few.code = good;
            expectCodeAndAllRecords(few, records, {20, 1}, false);
        }
    }
}

TEST(EntrySort, KeepsTheUniqueCheck) {
    std::mt19937 random(3);
    Records records = randomWorld(random, 10000, 20000, 1, false);
    for (std::size_t i = 0; i < records.size(); ++i) {
        storeAs(records[i].data() + 6, static_cast<std::uint32_t>(i));
        storeAs(records[i].data() + 10, std::uint32_t{3});
    }
    const std::vector<KeyDescriptor> keys = {ascendingKey(DataType::kBytes, 6, 4, 1),
                                             ascendingKey(DataType::kInteger, 10, 4, 2)};
    for (const std::int32_t frames : {kRoomForTwice.memoryBlocks, 122}) {  // 59 of data, entries
        ServedJob served({frames, 1});
        served.sort(records, kSmallBlocks, keys, SortMode::kUnique);
        Records alike = records;
        storeAs(alike[77].data() + 6, std::uint32_t{9999});
        storeAs(alike[77].data() + 10, std::uint32_t{4});
        Request request = served.lay(alike, kSmallBlocks);
        request.keys = keys;
        request.head.sortMode = 8;
        EXPECT_EQ(served.ask(request).errorCode(), ErrorCode::kNotUnique);
        EXPECT_TRUE(isPermutation(recordsLeft(served, alike.size()), alike));
    }
}

}  // namespace
}  // namespace tvsort::test

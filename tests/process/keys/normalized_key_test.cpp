#include "process/keys/normalized_key.h"

#include <gtest/gtest.h>

#include <set>

#include "process/keys/record_precedes.h"
#include "tests/process/keys/key_worlds.h"

namespace tvsort::test {
namespace {

Bytes fieldOf(std::initializer_list<int> bytes) {
    Bytes field(16);
    std::transform(bytes.begin(), bytes.end(), field.begin(),
                   [](int byte) { return static_cast<Byte>(byte); });
    return field;
}

TEST(NormalizedKey, WordsAreThoseOfTheFormat) {
    struct Case {
        const char* name;
        DataType type;
        std::uint16_t length;
        Bytes field;
        std::vector<std::uint64_t> words;
    };
    const Case cases[] = {
        {"-2", DataType::kInteger, 2, fieldOf({0xfe, 0xff}), {0x7ffe000000000000}},
        {"1", DataType::kInteger, 4, fieldOf({1, 0, 0, 0}), {0x8000000100000000}},
        {"-1", DataType::kInteger, 8, Bytes(16, 0xff), {0x7fffffffffffffff}},
        {"nine bytes",
         DataType::kBytes,
         9,
         fieldOf({1, 2, 3, 4, 5, 6, 7, 8, 9}),
         {0x0102030405060708, 0x0900000000000000}},
        {"string ab",
         DataType::kString,
         5,
         fieldOf({2, 0, 0x61, 0x62, 0}),
         {0x6162000000000000, 0x8002000000000000}},
        {"zero", DataType::kDecimal, 16, fieldOf({2}), {0x0200000000000000, 0}},
        {"lowest", DataType::kDecimal, 16, fieldOf({3, 7}), {0, 0}},
        {"highest", DataType::kDecimal, 16, fieldOf({4}), {0x0400000000000000, 0}},
        {"205",
         DataType::kDecimal,
         16,
         fieldOf({2, 5, 2}),
         {0x0300000000000000, 0x0000000000000205}},
        {"-205",
         DataType::kDecimal,
         16,
         fieldOf({1, 5, 2}),
         {0x017f7f7f7f7f7f7f, 0x7f7f7f7f7f7f7d7a}},
        {"fifteen digits",
         DataType::kDecimal,
         16,
         fieldOf({2, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}),
         {0x0301020304050607, 0x08090a0b0c0d0e0f}},
    };
    ServedJob served;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes record = c.field;
        record.resize(32);
        for (const bool ascending : {true, false}) {
            const KeyDescriptor key =
                ascending ? ascendingKey(c.type, 0, c.length) : descendingKey(c.type, 0, c.length);
            served.sort({record}, {.recordLength = 32}, {key});
            NormalizedKey normalized;
            describeKey(served.job(), normalized);
            std::vector<std::uint64_t> words;
            for (std::uint32_t s = 0; s < normalized.segmentCount; ++s) {
                for (std::uint32_t w = 0; w < normalized.segments[s].words; ++w) {
                    const KeyWord word = wordAt(normalized, s, w);
                    const std::uint64_t turn = ascending ? 0 : ~std::uint64_t{0};
                    words.push_back((readWord(word, record.data()) ^ turn) & word.bits);
                }
            }
            EXPECT_EQ(words, c.words) << (ascending ? "ascending" : "descending");
        }
    }
}

// Of records about whose values there is no doubt. Two that differ in nothing but the last key of
// the unique modes have a code instead.
TEST(NormalizedKey, OrdersRecordsAsTheComparatorDoes) {
    int refused = 0;
    std::set<Comparison> comparisons;
    for (std::uint32_t seed = 1; seed <= 600; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        KeyWorld world(seed, 40);
        SortJob& job = world.job();
        NormalizedKey key;
        describeKey(job, key);
        for (int k = 0; k < job.keyCount; ++k)
            comparisons.insert(job.keyRules[k].comparison);
        const auto isLess = [&](int i, int j) {
            job.errorCode = ErrorCode::kSuccess;
            return recordPrecedes(job, world.place(i), world.place(j));
        };
        for (int i = 0; i < 40; ++i) {
            if (doubtsAbout(key, world.record(i)) != kNoDoubts) continue;
            for (int j = 0; j < 40; ++j) {
                if (doubtsAbout(key, world.record(j)) != kNoDoubts) continue;
                const KeyOrder found =
                    compareKeys(key, kKeyStart, world.record(i), world.record(j));
                const bool refuses = found.order != 0 && found.segment == key.uniqueSegment;
                refused += refuses ? 1 : 0;
                ASSERT_EQ(isLess(i, j), found.order < 0 && !refuses);
                ASSERT_EQ(job.errorCode, refuses ? ErrorCode::kNotUnique : ErrorCode::kSuccess);
                ASSERT_EQ(isLess(j, i), found.order > 0 && !refuses);
            }
        }
    }
    EXPECT_GT(refused, 1000);
    EXPECT_EQ(comparisons.size(), 18U);  // all but geometries
}

// What the comparator would raise a code about, or tie with what it does not equal.
TEST(NormalizedKey, KnowsTheValuesThatHaveNoPlace) {
    struct Case {
        const char* name;
        DataType type;
        std::uint16_t length;
        Bytes field;
        Doubts ascending;
        Doubts descending;
    };
    const Case cases[] = {
        {"99", DataType::kDecimal, 16, fieldOf({2, 99}), kNoDoubts, kNoDoubts},
        {"a digit of 100", DataType::kDecimal, 16, fieldOf({2, 100}), kNoDecimal, kWideDecimal},
        {"zero with digits", DataType::kDecimal, 16, fieldOf({0, 1}), kNoDecimal, kWideDecimal},
        {"highest, wide", DataType::kDecimal, 16, fieldOf({4, 255}), kNoDecimal, kWideDecimal},
        {"class 5", DataType::kAlsoDecimal, 16, fieldOf({5}), kNoDecimal, kNoDecimal},
        {"class 255", DataType::kDecimal, 16, fieldOf({255, 1}), kNoDecimal, kNoDecimal},
        {"fits", DataType::kString, 8, fieldOf({8, 0}), kNoDoubts, kNoDoubts},
        {"too long", DataType::kString, 8, fieldOf({9, 0}), kNotOrdered, kNotOrdered},
        {"weighted", DataType::kWeightedString, 8, fieldOf({9, 0}), kNotOrdered, kNotOrdered},
        {"units", DataType::kUnitString, 8, fieldOf({9, 0}), kNotOrdered, kNotOrdered},
        {"negative", DataType::kString, 8, fieldOf({0, 0x80}), kNoDoubts, kNoDoubts},
        {"NaN", DataType::kFloat, 8, Bytes(16, 0xff), kNoDoubts, kNotOrdered},
        {"single NaN", DataType::kFloat, 4, Bytes(16, 0xff), kNoDoubts, kNotOrdered},
        {"inf", DataType::kFloat, 4, fieldOf({0, 0, 0x80, 0x7f}), kNoDoubts, kNoDoubts},
    };
    ServedJob served;
    for (const Case& c : cases) {
        for (const bool ascending : {true, false}) {
            const KeyDescriptor descriptor =
                ascending ? ascendingKey(c.type, 0, c.length) : descendingKey(c.type, 0, c.length);
            for (const bool isNull : {false, true}) {
                Bytes record = c.field;
                record.resize(24);
                record[20] = isNull ? 1 : 0;
                served.sort({record}, {.recordLength = 24}, {descriptor, nullIndicators(20)});
                NormalizedKey key;
                describeKey(served.job(), key);
                const Doubts expected = ascending ? c.ascending : c.descending;
                EXPECT_EQ(doubtsAbout(key, record.data()), isNull ? kNoDoubts : expected)
                    << c.name << (ascending ? ", ascending" : ", descending");
                admitWideDecimals(key);
                EXPECT_EQ(doubtsAbout(key, record.data()),
                          isNull ? kNoDoubts : expected & ~kWideDecimal)
                    << c.name;
            }
        }
    }
}

}  // namespace
}  // namespace tvsort::test

// What the sort modes make of the sorted records, against the plain model, in memory and spilled.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

#include "process/result/sibling_ranking.h"
#include "tests/support/small_world.h"

namespace tvsort::test {
namespace {

struct Pool {
    SlotLayout layout;
    std::int32_t blockPages;
};
const Pool kPools[] = {{{5, 1}, 1}, {{5, 2}, 1}, {{5, 2}, 2}, {{7, 3}, 1}, {{400, 1}, 1}};

// The order that the process gives, as records: the modes shape exactly this. The pivots start
// anew, and in the set-operation modes the operand's tag counts as one more key, as it does for
// equal records there.
Records sortedByProcess(ServedJob& served, const Records& records, const Geometry& geometry,
                        std::vector<KeyDescriptor> keys, SortMode mode, std::int32_t emptyBlocks) {
    if (mode >= SortMode::kIntersect && mode <= SortMode::kExceptAll) {
        KeyDescriptor tag = keys[1];
        tag.dataType = static_cast<std::uint8_t>(DataType::kSingleByte);
        tag.fieldOffset = kRecordFlagOffset;
        tag.orderNumber = 3;
        keys.push_back(tag);
    }
    srand(1);
    Request request = served.lay(records, geometry);
    request.keys = keys;
    request.head.fileBlocks += emptyBlocks;
    return served.result(served.ask(request));
}

class Shaping : public testing::TestWithParam<int> {};

TEST_P(Shaping, AgreesWithTheModelOnRandomWorlds) {
    const auto mode = static_cast<SortMode>(GetParam());
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed * 977 + static_cast<unsigned>(GetParam()));
        const Pool& pool = kPools[seed % 5];
        Geometry geometry = {.blockPages = pool.blockPages, .recordLength = kWorldRecordLength};
        geometry.recordsPerBlock = static_cast<std::uint16_t>(1 + random() % 20);
        const int count = 2 + static_cast<int>(random() % 600);
        const int distinct = 1 + static_cast<int>(random() % (seed % 2 == 0 ? 4 : 40));
        Records records = randomWorld(random, count, distinct, 3, true);
        const std::vector<KeyDescriptor> keys = randomKeys(random);
        if (mode >= SortMode::kIntersect && mode <= SortMode::kExceptAll) thinOut(records, keys);

        ServedJob served(pool.layout);
        // Blocks that no record fills may be announced.
        const auto emptyBlocks = static_cast<std::int32_t>(seed % 7 == 0 ? random() % 20 : 0);
        const Records sorted = sortedByProcess(served, records, geometry, keys, mode, emptyBlocks);
        std::int32_t groupCount = 0;
        const Records expected = shapedByModel(sorted, keys, mode, groupCount);
        srand(1);
        Request request = served.lay(records, geometry);
        request.keys = keys;
        request.head.sortMode = static_cast<std::uint16_t>(mode);
        request.head.fileBlocks += emptyBlocks;
        const Answer answer = served.ask(request);
        ASSERT_EQ(answer.errorCode(), ErrorCode::kSuccess);
        EXPECT_EQ(served.result(answer), expected);
        EXPECT_EQ(answer.reply().groupCount, groupCount);
        EXPECT_EQ(answer.reply().fileBlocks,
                  (static_cast<int>(expected.size()) + geometry.recordsPerBlock - 1) /
                      geometry.recordsPerBlock);
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, Shaping, testing::Values(1, 2, 3, 4, 5, 6, 10, 255));

// Nine frames of 4 records: chunks of 8 blocks. Runs of duplicates lie across every border.
TEST(Compaction, ChunkBordersNeitherLoseNorKeepARecord) {
    const Geometry geometry = {
        .blockPages = 1, .recordsPerBlock = 4, .recordLength = kWorldRecordLength};
    const KeyDescriptor key = ascendingKey(DataType::kInteger, kKeyAOffset, 2);
    for (const int count : {32, 33, 36, 37, 64, 65, 63, 96, 97, 128, 131}) {
        for (const int run : {1, 2, 3, 5, 31, 32, 33, 200}) {
            SCOPED_TRACE(testing::Message() << count << " records in runs of " << run);
            Records records;
            for (int i = 0; i < count; ++i) {
                Bytes record(kWorldRecordLength, 0);
                record[kRecordFlagOffset] = 1;
                storeAs(record.data() + kKeyAOffset, static_cast<std::int16_t>(i / run));
                records.push_back(record);
            }
            ServedJob served({9, 1});
            const Records kept = served.sort(records, geometry, {key}, SortMode::kDistinct);
            ASSERT_EQ(static_cast<int>(kept.size()), (count + run - 1) / run);
            for (std::size_t i = 0; i < kept.size(); ++i) {
                EXPECT_EQ(loadI16(kept[i].data() + kKeyAOffset), static_cast<std::int16_t>(i));
            }
            EXPECT_EQ(served.sort(records, geometry, {key}, SortMode::kGroups).size(),
                      records.size());
            EXPECT_EQ(served.job().groupCount, (count + run - 1) / run);
        }
    }
}

TEST(SetOperation, CountsUpToSixtyFourTags) {
    for (const int tags : {64, 65}) {
        Records records;
        for (int i = 0; i < tags; ++i) {
            Bytes record(kWorldRecordLength, 0);
            record[kRecordFlagOffset] = static_cast<Byte>(1 + i);
            records.push_back(record);
        }
        ServedJob served;
        Request request = served.lay(records, {.recordLength = kWorldRecordLength});
        request.keys = {ascendingKey(DataType::kInteger, kKeyAOffset, 2)};
        request.head.sortMode = 4;
        const Answer answer = served.ask(request);
        EXPECT_EQ(answer.errorCode(),
                  tags == 64 ? ErrorCode::kSuccess : ErrorCode::kTooManyOperands);
        if (tags == 64) {
            EXPECT_EQ(served.result(answer), Records{records[0]});
        }
    }
}

TEST(RowLimit, IsExtendedOverTiesAndNeverBeyondTheRecords) {
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        const Pool& pool = kPools[seed % 5];
        const int count = 2 + static_cast<int>(random() % 500);
        const Records records = randomWorld(random, count, 1 + static_cast<int>(seed % 9), 1, true);
        const std::vector<KeyDescriptor> keys = randomKeys(random);
        const Geometry geometry = {.blockPages = pool.blockPages,
                                   .recordsPerBlock = 7,
                                   .recordLength = kWorldRecordLength};
        ServedJob served(pool.layout);
        const Records sorted =
            sortedByProcess(served, records, geometry, keys, SortMode::kOrder, 0);
        const auto limit = static_cast<std::int32_t>(1 + random() % 520);
        srand(1);
        const Records limited = served.sort(records, geometry, keys, SortMode::kOrder, limit);
        const auto expected = limitByModel(sorted, keys, limit);
        EXPECT_EQ(limited, Records(sorted.begin(), sorted.begin() + expected));
    }
}

TEST(HierarchySort, AgreesWithTheModelOnRandomForests) {
    for (std::uint32_t seed = 1; seed <= 80; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        const Pool& pool = kPools[seed % 5];
        Records records = randomWorld(random, 2 + static_cast<int>(random() % 400), 4, 1, true);
        growForest(random, records, seed % 4 == 0 ? 1 : seed % 4 == 1 ? 3 : 100);
        std::vector<KeyDescriptor> keys = randomKeys(random);
        const Geometry geometry = {.blockPages = pool.blockPages,
                                   .recordsPerBlock = 7,
                                   .recordLength = kWorldRecordLength};
        // The request's first descriptor is no sort key in this mode, and the level stands before
        // the first that is left.
        std::vector<KeyDescriptor> sent = keys;
        sent.insert(sent.begin(), ascendingKey(DataType::kInteger, 0, 4, 9));
        // Indicators are found by the key's place in the request.
        for (KeyDescriptor& key : sent) {
            if ((key.kindFlags & 0x1f) == 4) key.fieldOffset -= 1;
        }
        ServedJob served(pool.layout);
        EXPECT_EQ(served.sort(records, geometry, sent, SortMode::kHierarchy),
                  hierarchyByModel(records, keys));
    }
}

// Keys of siblings compare with duplicates and in every direction above; here the ranking is pinned
// to the rule that it stands for: each sibling comes behind those that precede it, and among equals
// behind the earlier ones.
TEST(HierarchySort, RankingIsThePairwiseRule) {
    std::mt19937 random(11);
    for (const int count : {2, 3, 7, 64, 100}) {
        Records records = randomWorld(random, count, 6, 1, false);
        ServedJob served;
        const Geometry geometry = {.recordsPerBlock = 11, .recordLength = kWorldRecordLength};
        const KeyDescriptor key = ascendingKey(DataType::kInteger, kKeyAOffset, 2);
        const Records sorted = served.sort(records, geometry, {key, key}, SortMode::kHierarchy);
        for (const Bytes& record : sorted) {
            int before = 0;
            for (const Bytes& other : records) {
                const int order = compareByModel(other, record, {key});
                const bool earlier = arrivalOf(other) < arrivalOf(record);
                before += order < 0 || (order == 0 && earlier) ? 1 : 0;
            }
            EXPECT_EQ(loadI32(record.data() + 8), before);
        }
    }
}

// Of the values 0, 1 and 2 of each kind, 1 ties with the others, which differ. Whatever stands in
// the way, two siblings that tie and of which one has too long a string are answered with 1411.
struct LooseTie {
    const char* name;
    KeyDescriptor key;
    Bytes values[3];
};

Bytes doubles(std::initializer_list<double> values) {
    Bytes bytes(34);
    bytes[0] = 32;  // the stored length of an envelope
    std::size_t offset = values.size() == 1 ? 0 : 2;
    for (const double value : values) {
        storeAs(bytes.data() + offset, value);
        offset += sizeof value;
    }
    return bytes;
}

Bytes decimal(Byte kind, Byte digit) {
    Bytes bytes(34);
    bytes[0] = kind;
    bytes[1] = digit;
    return bytes;
}

KeyDescriptor envelopeKey(KeyDescriptor key) {
    key.geometryType = 1;
    key.kindFlags |= kEnvelopeBit;
    return key;
}

TEST(HierarchySort, LooseTiesHideNoValueThatCannotBeCompared) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    const LooseTie kinds[] = {
        {"descending NaN",
         descendingKey(DataType::kFloat, 16, 8),
         {doubles({5}), doubles({kNan}), doubles({7})}},
        {"tolerance",
         ascendingKey(DataType::kFloat, 16, 8),
         {doubles({1}), doubles({1 + 0x.bp-48}), doubles({1 + 0x1.6p-48})}},
        {"descending none",
         descendingKey(DataType::kDecimal, 16, 16),
         {decimal(2, 5), decimal(9, 0), decimal(2, 7)}},
        {"corner",
         envelopeKey(ascendingKey(DataType::kString, 16, 34)),
         {doubles({0, 0, 1, 1}), doubles({0.7e-10, 0, 1, 1}), doubles({1.4e-10, 0, 1, 1})}},
    };
    constexpr int kSiblings = 4;
    ServedJob served;
    for (const LooseTie& kind : kinds) {
        for (int world = 0; world < 81 * 16; ++world) {
            int value[kSiblings];
            bool tooLong[kSiblings];
            Records records;
            for (int i = 0, rest = world; i < kSiblings; ++i, rest /= 6) {
                value[i] = rest % 3;
                tooLong[i] = rest / 3 % 2 == 1;
                Bytes record(54);
                storeAs(record.data() + kLevelOffset, std::int32_t{1});
                const Bytes& field = kind.values[value[i]];
                std::copy(field.begin(), field.end(), record.begin() + 16);
                record[50] = tooLong[i] ? 5 : 2;
                records.push_back(record);
            }
            bool complains = false;
            for (int i = 0; i < kSiblings; ++i) {
                for (int j = 0; j < i; ++j) {
                    complains = complains ||
                                (std::abs(value[i] - value[j]) < 2 && (tooLong[i] || tooLong[j]));
                }
            }
            Request request = served.lay(records, {.recordLength = 54});
            request.keys = {ascendingKey(DataType::kNone, 0, 0), kind.key,
                            ascendingKey(DataType::kString, 50, 4, 2)};
            request.head.sortMode = 7;
            ASSERT_EQ(served.ask(request).errorCode(),
                      complains ? ErrorCode::kValueTooLong : ErrorCode::kSuccess)
                << kind.name << ", world " << world;
        }
    }
}

TEST(HierarchySort, LevelsThatMakeNoForestAreRefused) {
    struct Case {
        std::vector<std::int32_t> levels;
        ErrorCode code;
    };
    const Case cases[] = {
        {{1, 2, 3, 2, 1}, ErrorCode::kSuccess},       {{1, 3}, ErrorCode::kHierarchyInvalid},
        {{2, 1}, ErrorCode::kHierarchyInvalid},       {{1, 0}, ErrorCode::kHierarchyInvalid},
        {{1, 2, 1, 3}, ErrorCode::kHierarchyInvalid}, {{1, -1}, ErrorCode::kHierarchyInvalid},
    };
    std::mt19937 random(5);
    ServedJob served;
    const auto ask = [&](const std::vector<std::int32_t>& levels) {
        Records records = randomWorld(random, static_cast<int>(levels.size()), 5, 1, false);
        for (std::size_t i = 0; i < levels.size(); ++i) {
            storeAs(records[i].data() + kLevelOffset, levels[i]);
        }
        Request request = served.lay(records, {.recordLength = kWorldRecordLength});
        request.keys.assign(2, ascendingKey(DataType::kInteger, kKeyAOffset, 2));
        request.head.sortMode = 7;
        return served.ask(request).errorCode();
    };
    for (const Case& c : cases)
        EXPECT_EQ(ask(c.levels), c.code);
    std::vector<std::int32_t> chain(4095);
    for (int i = 0; i < 4095; ++i)
        chain[static_cast<std::size_t>(i)] = i + 1;
    EXPECT_EQ(ask(chain), ErrorCode::kSuccess);
    chain.push_back(4096);
    EXPECT_EQ(ask(chain), ErrorCode::kHierarchyInvalid);
}

}  // namespace
}  // namespace tvsort::test

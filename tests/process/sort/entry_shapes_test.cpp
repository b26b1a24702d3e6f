// The sort by entries or by a copy on data of every shape that leads it another way: digits that a
// sample does not show, ranges too large for a part, long runs of equal digits, records that arrive
// in order or reversed, and keys of many parts.

#include <gtest/gtest.h>

#include <algorithm>

#include "process/keys/decimal_value.h"
#include "process/keys/record_precedes.h"
#include "process/sort/entry_sort.h"
#include "process/storage/record_address.h"
#include "tests/support/small_world.h"

namespace tvsort::test {
namespace {

constexpr int kRecordCount = 20011;
// Every record whose number is a multiple of this one is in the sample.
constexpr int kSampleStep = 19;
constexpr std::uint16_t kFieldOffset = 6;
constexpr std::uint16_t kFieldBytes = 42;

Byte anyByte(std::mt19937& random) {
    return static_cast<Byte>(random());
}

// As bytes whose order is the numbers'.
void storeNumber(Byte* field, int number) {
    storeAs(field, __builtin_bswap32(static_cast<std::uint32_t>(number)));
}

Records numberedRecords(std::size_t count, std::uint16_t length) {
    Records records(count, Bytes(length, 0));
    for (std::size_t i = 0; i < count; ++i)
        storeAs(records[i].data(), static_cast<std::uint32_t>(i));
    return records;
}

// Sorts, and expects every record once, in the comparator's order, and equal ones as they arrived.
void expectStableSort(const Records& records, const std::vector<KeyDescriptor>& keys,
                      std::int32_t frames) {
    const auto length = static_cast<std::uint16_t>(records[0].size());
    ServedJob roomy({frames, 1});
    const Records sorted = roomy.sort(records, {.recordLength = length}, keys);
    ASSERT_TRUE(isExpectedStable(roomy.job()));
    ServedJob comparing;
    comparing.sort({records[0], records[1]}, {.recordLength = length}, keys);
    std::vector<bool> seen(records.size());
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const std::uint32_t arrival = arrivalOf(sorted[i]);
        ASSERT_FALSE(seen[arrival]) << "record " << i;
        seen[arrival] = true;
        ASSERT_EQ(sorted[i], records[arrival]) << "record " << i;
        if (i == 0) continue;
        std::copy(sorted[i - 1].begin(), sorted[i - 1].end(), comparing.frames());
        std::copy(sorted[i].begin(), sorted[i].end(), comparing.frames() + length);
        ASSERT_FALSE(recordPrecedes(comparing.job(), length, 0)) << "record " << i;
        if (!recordPrecedes(comparing.job(), 0, length)) {
            ASSERT_LT(arrivalOf(sorted[i - 1]), arrival) << "record " << i << " is not stable";
        }
    }
}

struct Shape {
    const char* what;
    void (*fill)(std::mt19937& random, int index, Byte* field);  // over zeros
};

const Shape kShapes[] = {
    {"few values", [](auto& random, int, Byte* field) { field[41] = anyByte(random) % 3; }},
    {"one value but for a few",
     [](auto& random, int, Byte* field) {
         if (random() % 64 == 0) field[random() % 20] = anyByte(random);
         field[40] = anyByte(random);
     }},
    {"half of them equal for long",
     [](auto& random, int, Byte* field) {
         if (random() % 2 == 0) field[0] = anyByte(random);
         std::fill_n(field + 1, 35, Byte{'a'});
         field[36] = anyByte(random);
         field[39] = anyByte(random);
     }},
    {"some that the sample does not show",
     [](auto& random, int index, Byte* field) {
         const int behind = index % kSampleStep;
         if (behind == 7) field[random() % 12] = anyByte(random);
         field[4] = anyByte(random);
         field[9] = anyByte(random);
     }},
    {"many that the sample does not show",
     [](auto& random, int index, Byte* field) {
         const int behind = index % kSampleStep;
         if (behind > 15) field[random() % 3] = anyByte(random);
         field[3] = anyByte(random) % 8;
         field[41] = anyByte(random);
     }},
    {"a sample of equal records",
     [](auto& random, int index, Byte* field) {
         if (index % kSampleStep != 0) field[20] = anyByte(random);
     }},
    {"a sample of equal records, and few others",
     [](auto& random, int index, Byte* field) {
         if (index % (2 * kSampleStep) == 1) field[20] = anyByte(random);
     }},
    {"bits that follow others, mostly",
     [](auto& random, int index, Byte* field) {
         const bool high = random() % 2 == 0;
         std::fill_n(field, 7, high ? Byte{0xff} : Byte{0});
         field[7] = anyByte(random);
         if (index % kSampleStep == 3 && random() % 4 == 0) field[random() % 7] ^= 0x10;
     }},
    {"runs of some ten equal records",
     [](auto& random, int, Byte* field) {
         const auto value = static_cast<std::uint32_t>(random() % (kRecordCount / 10));
         storeAs(field + 20, value * 0x9e3779b9);
         field[41] = anyByte(random) % 2;
     }},
    {"in order", [](auto&, int index, Byte* field) { storeNumber(field, index / 3); }},
    {"in order but for the last",
     [](auto&, int index, Byte* field) {
         storeNumber(field, index == kRecordCount - 1 ? 5 : index);
     }},
    {"descending, with runs",
     [](auto&, int index, Byte* field) { storeNumber(field, kRecordCount - index / 3); }},
    {"descending but for the middle",
     [](auto&, int index, Byte* field) {
         storeNumber(field, kRecordCount - index + index % 10000 / 9990 * 20);
     }},
};

TEST(EntryShapes, OrderEveryDataSetStably) {
    for (std::uint32_t seed = 1; seed <= 2; ++seed) {
        for (const Shape& shape : kShapes) {
            SCOPED_TRACE(testing::Message() << shape.what << ", seed " << seed);
            std::mt19937 random(seed);
            Records records = numberedRecords(kRecordCount, seed == 1 ? 48 : 57);
            for (int i = 0; i < kRecordCount; ++i)
                shape.fill(random, i, records[static_cast<std::size_t>(i)].data() + kFieldOffset);
            for (const KeyDescriptor& key :
                 {ascendingKey(DataType::kBytes, kFieldOffset, kFieldBytes),
                  descendingKey(DataType::kBytes, kFieldOffset, kFieldBytes)}) {
                expectStableSort(records, {key}, 640);
            }
        }
    }
}

// A decimal of any class, of up to 15 digits, positive or negative.
void fillDecimal(std::mt19937& random, Byte* field) {
    std::fill_n(field, kDecimalBytes, Byte{0});
    const auto drawn = random() % 20;
    field[0] = static_cast<Byte>(drawn < 5 ? drawn : 1 + drawn % 2);
    if (field[0] == 0) return;
    const auto digits = random() % (kDecimalDigitCount + 1);
    for (std::size_t i = 1; i <= digits; ++i)
        field[i] = static_cast<Byte>(random() % 3 * 49);
}

TEST(EntryShapes, OrderRecordsByManyKeysOfAllTypesAndNulls) {
    constexpr std::uint8_t kPlacements[] = {0, kNullsFirstBit, kNullsLastBit,
                                            kNullsFirstBit | kNullsLastBit};
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        Records records = numberedRecords(10000 + random() % 5000, 64);
        for (Bytes& record : records) {
            storeAs(record.data() + 6, static_cast<std::int16_t>(random() % 5 - 2));
            storeAs(record.data() + 8, static_cast<std::int64_t>(random() % 7) - 3);
            fillDecimal(random, record.data() + 16);
            const auto length = static_cast<std::uint16_t>(random() % 9);
            storeAs(record.data() + 32, length);
            for (std::size_t i = 0; i < length; ++i)
                record[34 + i] = static_cast<Byte>(random() % 2);
            for (std::size_t i = 43; i < 46; ++i)
                record[i] = static_cast<Byte>(random() % 4);
            for (std::size_t i = 46; i < 51; ++i)
                record[i] = random() % 9 == 0 ? Byte{1} : Byte{0};
        }
        std::vector<KeyDescriptor> keys = {
            ascendingKey(DataType::kInteger, 6, 2), ascendingKey(DataType::kInteger, 8, 8),
            ascendingKey(DataType::kDecimal, 16, 16), ascendingKey(DataType::kString, 32, 11),
            ascendingKey(DataType::kBytes, 43, 3)};
        std::shuffle(keys.begin(), keys.end(), random);
        keys.resize(1 + random() % keys.size());
        std::uint8_t orderNumber = 0;
        for (KeyDescriptor& key : keys) {
            key.orderNumber = ++orderNumber;
            if (random() % 2 == 0) key.kindFlags = static_cast<std::uint8_t>(KeyKind::kDescending);
            key.kindFlags |= kPlacements[random() % 4];
        }
        if (seed % 3 != 0) keys.push_back(nullIndicators(46));
        expectStableSort(records, keys, 640);
    }
}

// The words of such a key are read one window after the other until one tells records apart.
TEST(EntryShapes, OrderKeysOfMoreThanAThousandBytes) {
    constexpr std::uint16_t kLength = 1300;
    std::mt19937 random(5);
    Records records = numberedRecords(10001, kLength);
    for (Bytes& record : records) {
        record[700] = static_cast<Byte>(random() % 2);
        record[1290] = anyByte(random);
    }
    expectStableSort(records, {descendingKey(DataType::kBytes, 6, kLength - 6)}, 7200);
}

// A key in the last bytes of a record of this length, and a value of few bits for it.
struct LastField {
    KeyDescriptor key;
    void (*fill)(std::mt19937& random, Byte* field, std::uint16_t length);
};

void fillFew(std::mt19937& random, Byte* field, std::uint16_t length) {
    std::generate_n(field, length, [&] { return static_cast<Byte>(random() % 3); });
}

void fillString(std::mt19937& random, Byte* field, std::uint16_t length) {
    fillFew(random, field, length);
    storeAs(field, static_cast<std::uint16_t>(random() % (length + 1U)));
}

LastField lastField(std::mt19937& random, std::uint16_t recordLength, bool copies) {
    struct Field {
        DataType type;
        std::uint16_t length;
        void (*fill)(std::mt19937& random, Byte* field, std::uint16_t length);
    };
    // Of the first five the order of arrival is expected.
    const Field fields[] = {
        {DataType::kBytes, 1, fillFew},
        {DataType::kBytes, static_cast<std::uint16_t>(1 + random() % recordLength), fillFew},
        {DataType::kInteger, static_cast<std::uint16_t>(2U << random() % 3), fillFew},
        {DataType::kString, static_cast<std::uint16_t>(2 + random() % 20), fillString},
        {DataType::kDecimal, 16,
         [](std::mt19937& from, Byte* field, std::uint16_t) { fillDecimal(from, field); }},
        {DataType::kFloat, static_cast<std::uint16_t>(4U << random() % 2), fillFew},
        {DataType::kUnitString, static_cast<std::uint16_t>(2 + random() % 20), fillString},
        {DataType::kUnits, static_cast<std::uint16_t>(1 + random() % recordLength), fillFew},
    };
    for (;;) {
        const Field& field = fields[random() % (copies ? 5 : std::size(fields))];
        if (field.length > recordLength) continue;
        const auto offset = static_cast<std::uint16_t>(recordLength - field.length);
        return {random() % 2 == 0 ? ascendingKey(field.type, offset, field.length)
                                  : descendingKey(field.type, offset, field.length),
                field.fill};
    }
}

// The frames hold what is needed, or a block less than entries need: then they must not be there.
void expectOrder(std::mt19937& random, std::uint16_t length, bool copies) {
    const auto blockPages = static_cast<std::int32_t>(1 + random() % 3);
    const std::int32_t blockBytes = blockPages * static_cast<std::int32_t>(kPageBytes);
    const std::uint16_t fit = recordsThatFit(blockPages, length);
    const auto perBlock = static_cast<std::uint16_t>(fit - random() % (copies ? 2 : fit) % fit);
    const auto count = static_cast<std::int32_t>((copies ? 10000 : 200) + random() % 90);
    const std::int32_t blocks = (count + perBlock - 1) / perBlock;
    const std::int32_t entryBlocks = (24 * count + blockBytes - 1) / blockBytes;
    const std::int32_t behind = copies ? (length * count + 262148) / blockBytes + 1
                                       : entryBlocks - static_cast<std::int32_t>(random() % 2);
    const LastField last = lastField(random, length, copies);
    Records records(static_cast<std::size_t>(count), Bytes(length, 0));
    for (Bytes& record : records)
        last.fill(random, record.data() + last.key.fieldOffset, last.key.fieldLength);
    SCOPED_TRACE(testing::Message()
                 << count << " records of " << length << ", " << perBlock << " in " << blockPages
                 << " pages, type " << int{last.key.dataType} << " of " << last.key.fieldLength);
    ServedJob served({std::max(blocks + behind, 5), blockPages});
    Records sorted = served.sort(records, {blockPages, perBlock, length}, {last.key});
    SortJob& job = served.job();
    ASSERT_EQ(isExpectedStable(job), copies);
    for (std::int32_t n = 1; n < count; ++n)
        ASSERT_FALSE(recordPrecedes(job, placeInFrames(job, n + 1), placeInFrames(job, n))) << n;
    std::sort(records.begin(), records.end());
    std::sort(sorted.begin(), sorted.end());
    ASSERT_TRUE(sorted == records);
}

TEST(EntryShapes, OrderRecordsOfEveryLengthByTheirLastBytes) {
    std::mt19937 random(7);
    for (std::uint16_t length = 1; length <= 300; ++length) {
        for (int round = 0; round < 4; ++round)
            ASSERT_NO_FATAL_FAILURE(expectOrder(random, length, false));
        if (length <= 40 || length % 50 == 1) {
            ASSERT_NO_FATAL_FAILURE(expectOrder(random, length, true));
        }
    }
}

}  // namespace
}  // namespace tvsort::test

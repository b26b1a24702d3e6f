// How often words of the key are read and records compared, whatever the data: this program's sort
// counts the words, and the linker sends the ordering comparator past this file.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "process/keys/normalized_key.h"
#include "process/keys/record_precedes.h"
#include "process/sort/block_distribution.h"
#include "process/sort/entry_sort.h"
#include "tests/support/served_job.h"

namespace tvsort {

std::int64_t wordsRead = 0;

}  // namespace tvsort

namespace {

std::int64_t comparisons = 0;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" bool __real__ZN6tvsort14recordPrecedesERNS_7SortJobEjj(tvsort::SortJob& job,
                                                                  std::uint32_t left,
                                                                  std::uint32_t right);
extern "C" bool __wrap__ZN6tvsort14recordPrecedesERNS_7SortJobEjj(tvsort::SortJob& job,
                                                                  std::uint32_t left,
                                                                  std::uint32_t right) {
    comparisons += 1;
    return __real__ZN6tvsort14recordPrecedesERNS_7SortJobEjj(job, left, right);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace tvsort::test {
namespace {

constexpr int kCount = 40000;
constexpr std::uint16_t kKeyOffset = 4;

struct Order {
    const char* name;
    std::uint16_t keyBytes;
    // Of record `index`, over zeros.
    void (*fill)(std::mt19937& random, int index, Byte* key);
    bool isShuffled = false;
};

void setBit(Byte* key, std::size_t bit) {
    key[bit / 8] = static_cast<Byte>(0x80 >> bit % 8);
}

void putNumber(Byte* key, std::size_t number) {
    storeAs(key, __builtin_bswap32(static_cast<std::uint32_t>(number)));
}

void oneBitInFront(std::mt19937&, int index, Byte* key) {
    if (index < 2048) setBit(key, static_cast<std::size_t>(index));
}

const Order kOrders[] = {
    {"one bit in front, the highest first", 256, oneBitInFront},
    {"one bit each of some, shuffled", 256, oneBitInFront, true},
    {"one bit in front, the lowest first", 256,
     [](auto&, int index, Byte* key) {
         if (index < 2048) setBit(key, static_cast<std::size_t>(2047 - index));
     }},
    {"few enough strays at every word", 256,
     [](auto& random, int, Byte* key) {
         if (random() % 24 == 0) key[random() % 256] = static_cast<Byte>(random());
     }},
    {"the same in records too short for entries", 12,
     [](auto& random, int, Byte* key) {
         if (random() % 24 == 0) setBit(key, random() % 96);
     }},
    {"alike in the first KiB", 1032,
     [](auto& random, int, Byte* key) {
         std::fill_n(key, 1024, Byte{'a'});
         putNumber(key + 1024, random() % kCount);
     }},
    {"one giant bucket", 64,
     [](auto& random, int, Byte* key) {
         if (random() % 20 == 0) putNumber(key, random());
         putNumber(key + 59, random());
     }},
    {"all bits differ", 64,
     [](auto& random, int, Byte* key) {
         std::generate_n(key, 64, [&] { return static_cast<Byte>(random()); });
     }},
    {"one bit of each word differs", 256,
     [](auto& random, int, Byte* key) {
         for (int i = 0; i < 256; i += 8)
             key[i] = static_cast<Byte>(random() % 2);
     }},
    {"all equal", 256, [](auto&, int, Byte*) {}},
    {"organ pipe", 64,
     [](auto&, int index, Byte* key) {
         putNumber(key + 40, static_cast<std::size_t>(std::min(index, kCount - index)));
     }},
    // The first, middle and last of each range are its smallest.
    {"killer of medians", 64,
     [](auto&, int index, Byte* key) {
         const int half = kCount / 2;
         const int value = index >= half ? 2 * (index - half) : index % 2 * half + index;
         putNumber(key + 40, static_cast<std::size_t>(value));
     }},
};

// What the frames have room for.
struct Room {
    const char* name;
    std::int32_t (*frames)(std::int32_t blocks);
};

const Room kRooms[] = {
    {"a copy", [](std::int32_t blocks) { return 2 * blocks + 66; }},
    {"entries", [](std::int32_t blocks) { return blocks + 24 * kCount / 4096 + 1; }},
    {"the data set", [](std::int32_t blocks) { return blocks; }},
    {"a tenth", [](std::int32_t blocks) { return blocks / 10; }},
    {"20 blocks", [](std::int32_t) { return 20; }},
};

Records recordsIn(const Order& order) {
    std::mt19937 random(1);
    Records records(kCount, Bytes(kKeyOffset + std::size_t{order.keyBytes}, 0));
    for (int i = 0; i < kCount; ++i)
        order.fill(random, i, records[static_cast<std::size_t>(i)].data() + kKeyOffset);
    if (order.isShuffled) std::shuffle(records.begin(), records.end(), random);
    for (std::size_t i = 0; i < records.size(); ++i)
        storeAs(records[i].data(), static_cast<std::uint32_t>(i));
    return records;
}

bool isBefore(const Bytes& left, const Bytes& right) {
    return std::lexicographical_compare(left.begin() + kKeyOffset, left.end(),
                                        right.begin() + kKeyOffset, right.end());
}

// Among equal records.
void expectArrivalsToRise(const Records& sorted) {
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        if (isBefore(sorted[i - 1], sorted[i])) continue;
        ASSERT_LT(loadU32(sorted[i - 1].data()), loadU32(sorted[i].data())) << i;
    }
}

TEST(KeyReading, NoOrderOfRecordsCostsMoreThanIsPromised) {
    constexpr double kLevels = 15.3;  // log2 of kCount
    for (const Order& order : kOrders) {
        const Records records = recordsIn(order);
        const auto length = static_cast<std::uint16_t>(records[0].size());
        const int perBlock = recordsThatFit(1, length);
        const double words = (order.keyBytes + 7) / 8;
        for (const Room& room : kRooms) {
            SCOPED_TRACE(testing::Message() << order.name << ", room for " << room.name);
            const std::int32_t blocks = (kCount + perBlock - 1) / perBlock;
            const std::int32_t frames = room.frames(blocks);
            const bool isForQuicksort = frames == blocks || frames < kDistributionFramesMin;
            ServedJob served({frames, 1});
            Request request = served.lay(records, {1, 0, length});
            request.keys = {ascendingKey(DataType::kBytes, kKeyOffset, order.keyBytes)};
            srand(1);
            wordsRead = comparisons = 0;
            const Answer answer = served.ask(request);
            ASSERT_EQ(answer.errorCode(), ErrorCode::kSuccess);
            const Records sorted = served.result(answer);
            EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end(), isBefore));
            if (!isForQuicksort) expectArrivalsToRise(sorted);
            const double wordsOfEach = static_cast<double>(wordsRead) / kCount;
            const double comparisonsOfEach = static_cast<double>(comparisons) / kCount;
            if (isForQuicksort) {
                EXPECT_GE(wordsOfEach + comparisonsOfEach, 1) << "not all is counted";
                EXPECT_LE(wordsOfEach, 8 * (kLevels + words));
                EXPECT_LE(comparisonsOfEach, 2 * kLevels);
            } else {
                EXPECT_GE(wordsOfEach, 1) << "not all is counted";
                EXPECT_LE(wordsOfEach, static_cast<double>(kReadsPerWordMax) * words);
                EXPECT_EQ(comparisons, 0);
            }
        }
    }
}

}  // namespace
}  // namespace tvsort::test

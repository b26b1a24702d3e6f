// Bringing records into an order that is known, by memory of the heap that is as large as it must
// be: under the sanitizer each step out of it shows.

#include "process/sort/permutation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <random>

#include "tests/support/served_job.h"

namespace tvsort::test {
namespace {

using Order = std::vector<std::uint32_t>;

// A record shows which one it is in every byte.
Byte byteOf(std::uint32_t number, std::uint32_t at) {
    return static_cast<Byte>((number * 0x9e3779b1U >> (8 * (at % 4))) + at / 4);
}
constexpr Byte kGap = 0xa7;

class Permuted {
  public:
    Permuted(std::uint32_t count, std::uint32_t length, std::uint32_t perBlock)
        : saved_(new Byte[kRecordBufferBytes]) {
        const std::size_t blockBytes = std::size_t{perBlock} * length + length % 5;
        data_.resize((count - 1) / perBlock * blockBytes +
                         ((count - 1) % perBlock + 1) * std::size_t{length},
                     kGap);
        records_ = recordsInBlocks(data_.data(), count, length, perBlock, blockBytes);
        for (std::uint32_t i = 0; i < count; ++i) {
            for (std::uint32_t b = 0; b < length; ++b)
                records_.at(i)[b] = byteOf(i, b);
        }
    }
    void permute(Order order) {
        auto job = std::make_unique<SortJob>();
        permuteRecords(*job, records_, order.data(), saved_.get());
    }
    bool holds(std::uint32_t place, std::uint32_t number) const {
        for (std::uint32_t b = 0; b < records_.recordLength; ++b) {
            if (records_.at(place)[b] != byteOf(number, b)) return false;
        }
        return true;
    }
    bool gapsAreWhole() const {
        Bytes gaps = data_;
        for (std::uint32_t i = 0; i < records_.count; ++i)
            std::fill_n(gaps.data() + (records_.at(i) - data_.data()), records_.recordLength, kGap);
        return std::count(gaps.begin(), gaps.end(), kGap) ==
               static_cast<std::ptrdiff_t>(gaps.size());
    }

  private:
    Bytes data_;
    std::unique_ptr<Byte[]> saved_;
    RecordArray records_ = {};
};

struct Shape {
    const char* name;
    void (*arrange)(std::mt19937& random, Order& order);  // from 0, 1, 2, ...
};

void rotateParts(Order& order, std::size_t partMax) {
    for (std::size_t begin = 0; begin < order.size(); begin += partMax) {
        const auto from = order.begin() + static_cast<std::ptrdiff_t>(begin);
        const std::size_t part = std::min(partMax, order.size() - begin);
        std::rotate(from, from + 1, from + static_cast<std::ptrdiff_t>(part));
    }
}

const Shape kShapes[] = {
    {"random", [](auto& random, auto& order) { std::shuffle(order.begin(), order.end(), random); }},
    {"fixed points only", [](auto&, auto&) {}},
    {"one cycle, in steps of one", [](auto&, auto& order) { rotateParts(order, order.size()); }},
    {"one cycle, at random",
     [](auto& random, auto& order) {
         Order cycle = order;
         std::shuffle(cycle.begin(), cycle.end(), random);
         for (std::size_t i = 0; i < cycle.size(); ++i)
             order[cycle[i]] = cycle[(i + 1) % cycle.size()];
     }},
    {"pairs", [](auto&, auto& order) { rotateParts(order, 2); }},
    {"cycles of seventeen", [](auto&, auto& order) { rotateParts(order, 17); }},
    {"reversed", [](auto&, auto& order) { std::reverse(order.begin(), order.end()); }},
    {"mostly fixed points",
     [](auto& random, auto& order) {
         for (std::size_t i = 0; i < order.size(); i += 9)
             std::swap(order[i], order[random() % order.size()]);
     }},
};

Order inOrder(std::uint32_t count) {
    Order order(count);
    std::iota(order.begin(), order.end(), 0U);
    return order;
}

TEST(Permutation, BringsEachRecordToItsPlace) {
    std::mt19937 random(1);
    for (std::uint32_t length = 1; length <= 1000; length += length < 300 ? 1 : 7) {
        for (const Shape& shape : kShapes) {
            const auto count = static_cast<std::uint32_t>(1 + random() % 90);
            const auto perBlock = static_cast<std::uint32_t>(1 + random() % 40);
            SCOPED_TRACE(testing::Message() << shape.name << ", " << count << " records of "
                                            << length << ", " << perBlock << " in a block");
            Order order = inOrder(count);
            shape.arrange(random, order);
            Permuted permuted(count, length, perBlock);
            permuted.permute(order);
            for (std::uint32_t i = 0; i < count; ++i)
                ASSERT_TRUE(permuted.holds(i, order[i])) << "place " << i;
            ASSERT_TRUE(permuted.gapsAreWhole());
        }
    }
}

// Fewer records are saved at a time than there are chains.
TEST(Permutation, MovesRecordsThatAreNearlyAsLongAsTheBuffer) {
    for (const std::uint32_t length : {4096U, 4369U, 32768U, 65535U}) {
        for (const Shape& shape : kShapes) {
            std::mt19937 random(length);
            Order order = inOrder(40);
            shape.arrange(random, order);
            Permuted permuted(40, length, 7);
            permuted.permute(order);
            for (std::uint32_t i = 0; i < 40; ++i)
                ASSERT_TRUE(permuted.holds(i, order[i])) << shape.name << ", place " << i;
        }
    }
}

// The server may have written to it: records are named twice, do not exist, or look saved. There is
// an end, and every record is one of those that there were.
TEST(Permutation, OfNoPermutationMakesRecordsOfRecords) {
    std::mt19937 random(2);
    for (int round = 0; round < 3000; ++round) {
        const auto count = static_cast<std::uint32_t>(1 + random() % 200);
        Order order = inOrder(count);
        kShapes[random() % std::size(kShapes)].arrange(random, order);
        for (std::size_t spoiled = 1 + random() % (round % 2 == 0 ? 3 : count); spoiled > 0;
             --spoiled) {
            const std::uint32_t values[] = {static_cast<std::uint32_t>(random() % count), count,
                                            static_cast<std::uint32_t>(random()),
                                            ~static_cast<std::uint32_t>(random() % 20)};
            order[random() % count] = values[random() % std::size(values)];
        }
        Permuted permuted(count, 13, 1 + count / 3);
        permuted.permute(order);
        ASSERT_TRUE(permuted.gapsAreWhole());
        for (std::uint32_t i = 0; i < count; ++i) {
            bool isRecord = false;
            for (std::uint32_t number = 0; number < count && !isRecord; ++number)
                isRecord = permuted.holds(i, number);
            ASSERT_TRUE(isRecord) << "round " << round << ", place " << i;
        }
    }
}

}  // namespace
}  // namespace tvsort::test

// Data sets larger than the frames, distributed block by block: every record is there, in order,
// and equal ones are as they came.

#include "process/sort/block_distribution.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <string>

#include "process/keys/record_precedes.h"
#include "tests/support/random_demand.h"

namespace {
std::uint64_t looks = 0;  // at the server's end of the socket
std::int64_t expectedBytes = 0;
}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" int __real_poll(pollfd* sockets, nfds_t count, int timeout);
extern "C" int __wrap_poll(pollfd* sockets, nfds_t count, int timeout) {
    looks += 1;
    return __real_poll(sockets, count, timeout);
}
// Fails as it does for files of some systems.
extern "C" int __wrap_posix_fadvise(int, off_t, off_t bytes, int) {
    expectedBytes += bytes;
    return EINVAL;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace tvsort::test {
namespace {

// Whether the pivots' random numbers were left alone.
bool noPivotWasDrawn() {
    const int next = rand();
    srand(1);
    return next == rand();
}

struct Outcome {
    ErrorCode code;
    bool distributed;
    Records result;
};

class World {
  public:
    explicit World(const Demand& demand)
        : served_({demand.frames, demand.geometry.blockPages}), demand_(demand) {}

    Outcome serve() {
        Request request = served_.lay(demand_.records, demand_.geometry);
        request.keys = demand_.keys;
        request.items = {{7, 1, 0, {3, 2, 1}}};
        request.head.sortMode = static_cast<std::uint16_t>(demand_.mode);
        srand(1);
        const Answer answer = served_.ask(request);
        const bool distributed = noPivotWasDrawn();
        const bool good = answer.errorCode() == ErrorCode::kSuccess;
        return {answer.errorCode(), distributed, good ? served_.result(answer) : Records()};
    }

    bool isDirty() { return served_.job().pageDescriptors[0].dirty != 0; }

    // Whether `left` stands before `right` by the request's keys.
    bool precedes(const Bytes& left, const Bytes& right) {
        SortJob& job = served_.job();
        std::copy(left.begin(), left.end(), recordAt(job, 0));
        std::copy(right.begin(), right.end(), recordAt(job, kPageBytes));
        return recordPrecedes(job, 0, kPageBytes);
    }

    // Of the quicksort's results, whose order others hold to its own, that no record is lost.
    void expectSorted(const Records& result, bool distributed) {
        ASSERT_EQ(result.size(), demand_.records.size());
        std::vector<bool> seen(result.size());
        for (std::size_t i = 0; i < result.size(); ++i) {
            const std::uint32_t number = numberOf(result[i]);
            ASSERT_LT(number, result.size());
            ASSERT_FALSE(seen[number]) << "record " << number << " came twice";
            seen[number] = true;
            ASSERT_EQ(result[i], demand_.records[number]);
            if (i == 0 || !distributed) continue;
            ASSERT_FALSE(precedes(result[i], result[i - 1])) << "place " << i;
            if (!precedes(result[i - 1], result[i])) {
                ASSERT_LT(numberOf(result[i - 1]), number) << "place " << i;
            }
        }
    }

  private:
    ServedJob served_;
    const Demand& demand_;
};

// Answers how many of the demands were distributed.
int expectOrder(const std::function<void(Demand&)>& change) {
    int distributed = 0;
    for (std::uint32_t seed = 1; seed <= 80; ++seed) {
        SCOPED_TRACE(seed);
        Demand demand = randomLargeDemand(seed, ~0U);
        change(demand);
        World world(demand);
        const Outcome outcome = world.serve();
        // Not unique, or unreadable: the quicksort says so.
        if (outcome.code != ErrorCode::kSuccess) {
            EXPECT_FALSE(outcome.distributed);
            continue;
        }
        distributed += outcome.distributed ? 1 : 0;
        world.expectSorted(outcome.result, outcome.distributed);
        if (testing::Test::HasFatalFailure()) break;
    }
    return distributed;
}

TEST(BlockDistribution, EveryTypeIsInOrderAndEqualRecordsStayAsTheyCame) {
    EXPECT_GT(expectOrder([](Demand&) {}), 40);
}

TEST(BlockDistribution, InMemoryToo) {
    const auto makeItFit = [](Demand& demand) {
        const std::size_t perBlock = demand.geometry.recordsPerBlock;
        demand.frames =
            static_cast<std::int32_t>((demand.records.size() + perBlock - 1) / perBlock);
    };
    EXPECT_GT(expectOrder(makeItFit), 25);
}

// The entries of one block take most of the frames: of what is distributed again, nothing but a
// buffer may be left.
TEST(BlockDistribution, RecordsOfOneByteAreSorted) {
    Demand demand;
    demand.geometry = {1, 4000, 1};
    demand.frames = 64;
    demand.keys = {ascendingKey(DataType::kSingleByte, 0, 1)};
    std::mt19937 random(3);
    for (std::uint32_t i = 0; i < 65 * 4000; ++i)
        demand.records.push_back({static_cast<Byte>(random())});
    const Outcome outcome = World(demand).serve();
    EXPECT_TRUE(outcome.distributed);
    std::sort(demand.records.begin(), demand.records.end());
    EXPECT_EQ(outcome.result, demand.records);
}

// --- Shapes --------------------------------------------------------------------------------------

constexpr std::uint16_t kShapeBytes = 256;
constexpr std::uint16_t kShapeKeyBytes = 240;

struct Shape {
    const char* name;
    // The number that the last eight bytes of record i's key tell, of `count` records.
    std::function<std::uint64_t(std::uint64_t i, std::uint64_t count)> number;
};

const Shape kShapes[] = {
    {"ascending", [](std::uint64_t i, std::uint64_t) { return i; }},
    {"descending", [](std::uint64_t i, std::uint64_t count) { return count - i; }},
    {"equal", [](std::uint64_t, std::uint64_t) { return 7; }},
    {"two values", [](std::uint64_t i, std::uint64_t) { return i * 40503 % 65536 % 2; }},
    {"up and down", [](std::uint64_t i, std::uint64_t count) { return std::min(i, count - i); }},
    {"one value, and few others",
     [](std::uint64_t i, std::uint64_t) { return i % 50 == 0 ? i * 7919 % 65536 : 500; }},
    {"powers of two", [](std::uint64_t i, std::uint64_t) { return 1ULL << i * 40503 % 64; }},
    {"in order but for the last one",
     [](std::uint64_t i, std::uint64_t count) { return i + 1 == count ? 0 : i; }},
    {"in no order", [](std::uint64_t i, std::uint64_t) { return i * 0x9e3779b97f4a7c15; }},
};

// Bytes that this program has read and written.
std::uint64_t movedBytes() {
    std::ifstream counters("/proc/self/io");
    std::string word;
    std::uint64_t moved = 0;
    for (std::uint64_t number = 0; counters >> word >> number;)
        if (word == "rchar:" || word == "wchar:") moved += number;
    return moved;
}

// Keys that differ behind 232 bytes, in blocks of one page.
Demand demandOf(const Shape& shape, std::int32_t blocks, std::int32_t frames) {
    Demand demand;
    demand.geometry = {1, 16, kShapeBytes};
    demand.frames = frames;
    demand.keys = {ascendingKey(DataType::kBytes, 8, kShapeKeyBytes)};
    demand.records.assign(static_cast<std::size_t>(blocks) * 16 - 5, Bytes(kShapeBytes));
    for (std::size_t i = 0; i < demand.records.size(); ++i) {
        Byte* const record = demand.records[i].data();
        storeAs(record, static_cast<std::uint32_t>(i));
        storeAs(record + kShapeKeyBytes, __builtin_bswap64(shape.number(i, demand.records.size())));
    }
    return demand;
}

struct Size {
    std::int32_t blocks;
    std::int32_t frames;
    double movesMax;  // bytes for each byte of the data set; two of them lay and fetch it
};

TEST(BlockDistribution, FramesAreDirtyOnlyWhereRecordsHaveMoved) {
    const auto isDirtyAfter = [](const Shape& shape) {
        const Demand demand = demandOf(shape, 700, 700);
        World world(demand);
        EXPECT_TRUE(world.serve().distributed);
        return world.isDirty();
    };
    EXPECT_FALSE(isDirtyAfter(kShapes[0]));
    EXPECT_TRUE(isDirtyAfter(kShapes[1]));
}

// Many records that are equal in all keys are no reason to sort in another way.
TEST(BlockDistribution, EqualRecordsAreDistributedWhereOthersHaveToBeUnique) {
    Demand demand = demandOf(kShapes[3], 700, 200);
    demand.keys.push_back(ascendingKey(DataType::kInteger, 4, 4, 2));
    demand.mode = SortMode::kUnique;
    World world(demand);
    const Outcome outcome = world.serve();
    EXPECT_EQ(outcome.code, ErrorCode::kSuccess);
    EXPECT_TRUE(outcome.distributed);
    world.expectSorted(outcome.result, outcome.distributed);
}

// A sample that has room for fewer records than there are blocks to look at is of all the data.
TEST(BlockDistribution, LongRecordsAreSampledToTheEnd) {
    Demand demand;
    demand.geometry = {1, 1, 4000};
    demand.frames = 340;
    demand.keys = {ascendingKey(DataType::kInteger, 4, 4)};
    demand.records.assign(10003, Bytes(4000));
    for (std::size_t i = 0; i < demand.records.size(); ++i) {
        storeAs(demand.records[i].data(), static_cast<std::uint32_t>(i));
        storeAs(demand.records[i].data() + 4, static_cast<std::uint32_t>(i % 10002));
    }
    World world(demand);
    const Outcome outcome = world.serve();
    EXPECT_TRUE(outcome.distributed);
    world.expectSorted(outcome.result, outcome.distributed);
}

// Of what fits almost, most moves from frame to frame.
TEST(BlockDistribution, TheServerIsLookedForWhereNoFileIsTouched) {
    const Demand demand = demandOf(kShapes[std::size(kShapes) - 1], 8200, 8100);
    World world(demand);
    const std::uint64_t before = movedBytes();
    looks = 0;
    EXPECT_TRUE(world.serve().distributed);
    const std::uint64_t fetched = 8200 * kPageBytes;
    EXPECT_GT(looks << 20, movedBytes() - before - fetched);
}

// What the first pass reads, less its first chunk, and the blocks of all ranges that stand in the
// file, less those of the first.
TEST(BlockDistribution, TheSystemLearnsWhatWillBeRead) {
    constexpr std::int32_t kBlocks = 2000;
    constexpr std::int32_t kFrames = 500;
    const Demand demand = demandOf(kShapes[std::size(kShapes) - 1], kBlocks, kFrames);
    World world(demand);
    expectedBytes = 0;
    EXPECT_TRUE(world.serve().distributed);
    EXPECT_GT(expectedBytes, 7 * (kBlocks - kFrames) / 4 * kPageBytes);
}

// The first two fit. Of the fifth most ranges are distributed once more, of the last one twice.
constexpr Size kSizes[] = {{700, 700, 1.1},  {9000, 9000, 1.1}, {700, 340, 7.2}, {1500, 200, 7.8},
                           {1300, 64, 10.5}, {4000, 200, 8.2},  {7000, 64, 12.5}};

TEST(BlockDistribution, ShapesCostABoundedNumberOfTrips) {
    for (const Size& size : kSizes) {
        for (const Shape& shape : kShapes) {
            SCOPED_TRACE(std::string(shape.name) + ", blocks " + std::to_string(size.blocks));
            const Demand demand = demandOf(shape, size.blocks, size.frames);
            World world(demand);
            const std::uint64_t before = movedBytes();
            const Outcome outcome = world.serve();
            const auto moved = static_cast<double>(movedBytes() - before);
            EXPECT_EQ(outcome.code, ErrorCode::kSuccess);
            EXPECT_TRUE(outcome.distributed);
            world.expectSorted(outcome.result, outcome.distributed);
            if (HasFatalFailure()) return;
            EXPECT_LT(moved, size.movesMax * size.blocks * static_cast<double>(kPageBytes));
        }
    }
}

}  // namespace
}  // namespace tvsort::test

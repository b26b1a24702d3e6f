#include "tools/ordered/input_chunks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <thread>

#include "tests/tools/ordered/ordered_world.h"

namespace tvsort::tools {
namespace {

std::vector<std::vector<std::string>> drawInputs(std::mt19937& random) {
    std::vector<std::vector<std::string>> inputs(1 + random() % 5);
    for (auto& lines : inputs) {
        for (std::size_t count = random() % 3 * (random() % 30); count > 0; --count)
            lines.emplace_back(random() % 8 == 0 ? random() % 300 : random() % 12, 'x');
    }
    return inputs;
}

// Several workers, of which one that guessed asks for the truth: every row is read once.
TEST(InputChunks, HoldEveryRowOnceWhoeverReadsThem) {
    std::mt19937 random(16);
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        const OrderedWorld world(drawInputs(random));
        InputChunks chunks(*world.input, 1 + random() % 60);
        const std::size_t workerCount = 1 + random() % 4;
        std::mutex mutex;
        std::vector<std::uint64_t> read;
        std::vector<bool> isRead;
        bool isWrong = false;
        const auto work = [&](std::size_t) {
            while (const std::optional<InputChunk> chunk = chunks.next()) {
                if (chunk->number % 3 == 0) std::this_thread::yield();
                std::uint64_t row = chunks.firstRowOf(*chunk);
                std::vector<std::uint64_t> mine;
                for (const auto& [place, text] : world.rows) {
                    if (place.offset < row || row >= chunk->end) continue;
                    mine.push_back(place.offset);
                    row = place.offset + place.byteCount + 1;
                }
                {
                    const std::lock_guard lock(mutex);
                    read.insert(read.end(), mine.begin(), mine.end());
                    isRead.resize(std::max(isRead.size(), chunk->number + 1));
                    isRead[chunk->number] = true;
                }
                chunks.end(*chunk, row);
                if (chunk->number % 2 == 0) continue;
                chunks.awaitRead(*chunk);
                const std::lock_guard lock(mutex);
                const auto end = isRead.begin() + static_cast<std::ptrdiff_t>(chunk->number);
                isWrong = isWrong || std::find(isRead.begin(), end, false) != end;
            }
        };
        workTogether(workerCount, work, [&] { chunks.callOff(); });
        std::sort(read.begin(), read.end());
        std::vector<std::uint64_t> wanted;
        for (const OrderedWorld::Row& row : world.rows)
            wanted.push_back(row.place.offset);
        ASSERT_EQ(read, wanted);
        ASSERT_FALSE(isWrong);
    }
}

TEST(InputChunks, AreCalledOffWhereOneWorkerFails) {
    const OrderedWorld world({std::vector<std::string>(100, "line"), {"other"}});
    InputChunks chunks(*world.input, 100);
    std::atomic<int> ended{0};
    // The one with the first chunk fails; the others wait for it, or for what another one tells.
    const auto work = [&](std::size_t) {
        while (const std::optional<InputChunk> chunk = chunks.next()) {
            if (chunk->number == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                throw std::runtime_error("the first");
            }
            chunks.firstRowOf(*chunk);
            chunks.awaitRead(*chunk);
            ended += 1;
        }
    };
    EXPECT_THROW(workTogether(4, work, [&] { chunks.callOff(); }), std::runtime_error);
    EXPECT_EQ(ended, 0);
}

}  // namespace
}  // namespace tvsort::tools

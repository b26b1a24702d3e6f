// Sorted runs in memory and in files, merged and written in tiles, beside std::stable_sort.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <span>

#include "tests/tools/ordered/ordered_world.h"
#include "tools/ordered/run_merge.h"
#include "tools/ordered/tiled_output.h"

namespace tvsort::tools {
namespace {

using Row = OrderedWorld::Row;

// Many are alike in their first bytes or wholly, and some are too long to be held.
std::vector<std::string> drawLines(std::mt19937& random, std::size_t count) {
    std::vector<std::string> lines(count);
    for (std::string& line : lines) {
        const std::size_t longest = random() % 40 == 0 ? kHeldBytesMax - 2 : random() % 9 * 8;
        line = std::string(longest + random() % 5, 'w') + std::string(random() % 2, '\0');
        if (random() % 2 == 0) line += static_cast<char>(random());
        std::erase(line, '\n');
    }
    return lines;
}

struct World : OrderedWorld {
    World(std::mt19937& random, bool isDescending, const RunForm& runForm, std::size_t runCount)
        : OrderedWorld({drawLines(random, 400)}, isDescending), form(runForm), sorted(rows) {
        const auto stands = [isDescending](const Row& left, const Row& right) {
            return isDescending ? right.text < left.text : left.text < right.text;
        };
        reader = input->reader(form.record.form().keyBytes);
        for (std::size_t i = 0; i < runCount; ++i) {
            const std::size_t begin = i * rows.size() / runCount;
            const std::size_t end = (i + 1) * rows.size() / runCount;
            std::vector<Row> piece(rows.begin() + static_cast<std::ptrdiff_t>(begin),
                                   rows.begin() + static_cast<std::ptrdiff_t>(end));
            std::stable_sort(piece.begin(), piece.end(), stands);
            runs.push_back(random() % 2 == 0 ? runInFile(piece) : runInMemory(piece));
        }
        std::stable_sort(sorted.begin(), sorted.end(), stands);
    }

    RunRow encode(const Row& row) {
        reader->keyOf(row.text, key);
        const bool goesOn = key.size() > form.record.form().keyBytes;
        key.resize(form.record.form().keyBytes);
        const bool isHeld = row.place.byteCount <= kHeldBytesMax;
        return {key.data(), row.place,
                goesOn,     row.place.offset % 3 == 0,
                isHeld,     isHeld ? row.text : std::string_view()};
    }
    SortedRun runInFile(const std::vector<Row>& piece) {
        RunFileWriter writer(form, file);
        for (const Row& row : piece)
            writer.write(encode(row));
        return writer.finish();
    }
    SortedRun runInMemory(const std::vector<Row>& piece) {
        SortedRun run;
        run.rowCount = piece.size();
        run.textBytes = texts.front().size();
        run.text = PageMemory(run.textBytes);
        std::copy(texts.front().begin(), texts.front().end(), run.text.data());
        run.records = PageMemory(piece.size() * form.record.recordLength());
        for (std::size_t i = 0; i < piece.size(); ++i) {
            const RunRow row = encode(piece[i]);
            form.record.encode(
                {0, row.place, row.keyGoesOn, row.hasNull},
                {reinterpret_cast<const char*>(key.data()), key.size()},
                reinterpret_cast<Byte*>(run.records.data()) + i * form.record.recordLength());
        }
        return run;
    }
    // A row of a range, where the runs keep what `expected` knows.
    void check(const RunRow& row, const Row& expected) {
        const RunRow wanted = encode(expected);
        ASSERT_TRUE(std::equal(key.begin(), key.end(), row.key));
        ASSERT_EQ(row.isHeld, wanted.isHeld);
        ASSERT_TRUE(row.text == wanted.text);
        ASSERT_EQ(row.keyGoesOn, wanted.keyGoesOn);
        ASSERT_EQ(row.hasNull, wanted.hasNull);
        ASSERT_EQ(row.place.byteCount, wanted.place.byteCount);
        if (form.keepsPlaces || !row.isHeld) {
            ASSERT_EQ(row.place.offset, wanted.place.offset);
        }
    }

    RunForm form;
    std::vector<Row> sorted;
    std::unique_ptr<RowReader> reader;
    host::KeyBytes key;
    SpoolFile file{std::filesystem::temp_directory_path()};
    std::vector<SortedRun> runs;
};

template <typename Check>
void inManyWorlds(const Check& check) {
    std::mt19937 random(16);
    for (int round = 0; round < 40; ++round) {
        const RunForm form = {KeyRecord({false, 1 + random() % 30}), random() % 2 == 0,
                              random() % 2 == 0, 1 + random() % 2000};
        World world(random, random() % 2 == 0, form, 1 + random() % 9);
        SCOPED_TRACE(round);
        check(world, random);
        if (testing::Test::HasFatalFailure()) return;
    }
}

TEST(SortedRuns, MergedAreAllRowsInOrderInAnyRangesOfKeys) {
    inManyWorlds([](World& world, std::mt19937& random) {
        std::vector<std::string> borders(1);
        const std::size_t keyBytes = world.form.record.form().keyBytes;
        for (std::size_t count = random() % 20; count > 0; --count) {
            world.encode(world.rows[random() % world.rows.size()]);
            // Between keys, and keys themselves.
            world.key.back() = static_cast<Byte>(world.key.back() + random() % 2);
            borders.emplace_back(world.key.begin(), world.key.end());
        }
        std::sort(borders.begin(), borders.end());
        borders.erase(std::unique(borders.begin(), borders.end()), borders.end());
        borders.emplace_back();
        RunMerge merge(world.form, world.runs, *world.reader, 64 + random() % 5000);
        std::size_t count = 0;
        for (std::size_t i = 0; i + 1 < borders.size(); ++i) {
            merge.start({borders[i], borders[i + 1]});
            while (const RunRow* const row = merge.next()) {
                ASSERT_LT(count, world.sorted.size());
                const std::string key(row->key, row->key + keyBytes);
                ASSERT_GE(key, borders[i]);
                ASSERT_TRUE(borders[i + 1].empty() || key < borders[i + 1]);
                world.check(*row, world.sorted[count]);
                if (testing::Test::HasFatalFailure()) return;
                count += 1;
            }
        }
        ASSERT_EQ(count, world.sorted.size());
    });
}

TEST(SortedRuns, WrittenInTilesAreTheRowsInOrder) {
    const std::string name = testing::TempDir() + "tvsort-tiles-test";
    inManyWorlds([&](World& world, std::mt19937& random) {
        RunPlan plan = {};
        plan.workerCount = 1 + random() % 3;
        plan.readBytes = 1 << 16;
        plan.writeBytes = 1 + random() % 20000;
        OutputFile output(name);
        RowWriter writer({"head;", "\n", true}, world.files, 4096, output);
        Progress progress;
        const std::int64_t count =
            writeTiles(world.form, plan, *world.input, world.runs, writer, progress);
        output.finish();
        std::string wanted = "head;";
        for (const Row& row : world.sorted)
            wanted.append(row.text) += '\n';
        std::ifstream written(name, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(written), {}};
        ASSERT_EQ(count, static_cast<std::int64_t>(world.rows.size()));
        ASSERT_TRUE(text == wanted);
    });
    std::filesystem::remove(name);
}

}  // namespace
}  // namespace tvsort::tools

// The command beside a process that lies: an error with its name, never a crash, never the lie.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

#include "tests/lies/lies.h"
#include "tests/lies/ways.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

constexpr int kRandomLies = 300;

class LyingProcess : public CommandTest {
  protected:
    LyingProcess() {
        for (const auto& [name, content] : inputFiles())
            write(name, content);
    }

    Outcome sort(const std::string& words, const std::string& lies) const {
        setenv("TVSORT_LIES", lies.c_str(), 1);
        return run("sort -o out --process '" TVSORT_LYING_PROGRAM "' " + words);
    }
};

TEST_F(LyingProcess, ThatDoesNotLieIsBelieved) {
    for (const Way& way : kWays) {
        const Outcome outcome = sort(way.words, "");
        EXPECT_EQ(outcome.status, 0) << way.name << ": " << outcome.errors;
    }
}

TEST_F(LyingProcess, IsNamedAndTheOutputStaysAsItWas) {
    struct Lie {
        const char* words;
        const char* lies;
        const char* error;
    };
    const Lie kLies[] = {
        {"--lines lines", "word 68 4 0", "0 records where 40 can be"},
        {"--lines lines", "word 68 4 20", "20 records where 40 can be"},
        {"--lines lines", "word 68 4 -5", "-5 records"},
        {"--lines lines", "word 68 4 120", "120 records"},
        {"--lines lines", "word 60 4 -1", "-1 blocks"},
        {"--lines --distinct lines", "word 68 4 0", "0 records where 40 can be"},
        {"--record-length 8 --key byte:0 --distinct records", "word 68 4 0",
         "0 records where 1 to 13 can be"},
        {"--record-length 8 --key byte:0 --groups records", "word 72 4 41",
         "41 groups where 1 to 13 can be"},
        {"--record-length 8 --key byte:0 --groups records", "word 72 4 7",
         "answered with 7 groups and marked the ends of 1"},
        {"--record-length 8 --key byte:0 --limit 5 records", "word 68 4 4",
         "4 records where 5 to 13 can be"},
        {"--lines lines", "word 8 4 66439", "code 66439"},
        {"--lines lines", "word 0 4 79", "no reply of process"},
        {"--lines lines", "word 4 4 1", "no reply of process"},
        {"--lines lines", "hello 8 4 1401", "said hello with code 1401"},
        {"--lines lines", "part 79", "closed its connection|ended with status 0"},
        {"--lines lines", "end 3", "ended with status 3"},
        // Behind the key, here of 4 and 64 bytes, stand place, length and maybe the line.
        {"--lines lines", "record 7 4 4 -1", "of the inputs, where none can be"},
        {"--lines lines", "record 7 10 4 -1", "a row of 4294967295 bytes"},
        {"--lines lines", "records 10 4 3", "bytes of text more than it got"},
        {"--lines alike", "record 7 64 4 -1", "of the inputs, where none can be"},
        {"--lines alike", "records 0 4 -1", "gave back groups of other sizes"},
        // The process compares these itself: behind header, value and null byte stands the line.
        {"--lines --as ucs2 numbers", "record 3 14 2 700", "700 bytes where 2 have room"},
        {"--lines --hierarchy outline", "record 1 12 2 700", "a row of 179202 bytes"},
        // The last request of a hierarchy: header, rank, place and length.
        {"--lines --hierarchy outline", "records 24 4 9", "bytes of text more than it got"},
        {"--key number:ucs2 rows.csv", "record 3 14 2 6", "6 bytes where 5 have room"},
        {"--lines --as ucs2 many --memory 20K --block-pages 1", "file 8192", "without block "},
        {"--key number:int rows.csv", "record 3 9 4 6", "bytes of text more than it got"},
        {"--key number:int wide.csv", "record 3 5 4 -1", "at byte 4294967295 of the inputs"},
        {"--key number:int wide.csv", "record 3 3 4 -1", "of the inputs, where none can be"},
        {"--key number:int wide.csv", "record 3 9 4 -1", "a row of 4294967295 bytes"},
        {"--lines --as ucs2 numbers", "records 14 2 2", "bytes of text more than it got"},
        {"--key number:int rows.csv", "records 9 4 5", "bytes of text more than it got"},
        {"--key number:int wide.csv", "records 3 4 0;records 7 2 0;records 9 4 20000",
         "gave back a row that it did not get"},
        {"--intersect --record-length 8 --key byte:0 records records records", "twice",
         "sent the reply to request 1 instead of that to 2"},
        {"--record-length 8 --key byte:0 --unique records", "once;word 8 4 903;records 0 4 -7",
         "gave back record -7 of 13"},
    };
    for (const Lie& lie : kLies) {
        SCOPED_TRACE(std::string(lie.words) + " with " + lie.lies);
        write("out", "as it was");
        const Outcome outcome = sort(lie.words, lie.lies);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.errors, testing::ContainsRegex(lie.error));
        EXPECT_THAT(outcome.errors,
                    testing::ContainsRegex(
                        "sort process .*slot|of process [0-9]|the sort process answered"));
        EXPECT_EQ(read("out"), "as it was");
    }
}

TEST_F(LyingProcess, CannotCutOrStretchTheSharedObject) {
    for (const char* const lies : {"object 0", "object 4096", "object 1000000000"}) {
        EXPECT_EQ(sort("--lines lines", lies).status, 0) << lies;
    }
}

TEST_F(LyingProcess, ThatPrintsWithoutEndRunsOutOfTime) {
    const Outcome outcome = sort("--lines lines --timeout 0.3", "shout");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("let the time run out"));
}

// TVSORT_LIE_COUNT and TVSORT_LIE_SEED choose others.
TEST_F(LyingProcess, MayTellAnyLie) {
    const auto chosen = [](const char* name, int otherwise) {
        const char* const text = std::getenv(name);
        return text == nullptr ? otherwise : std::atoi(text);
    };
    const int count = chosen("TVSORT_LIE_COUNT", kRandomLies);
    const int seed = chosen("TVSORT_LIE_SEED", 1);
    std::mt19937 random(static_cast<unsigned>(seed));
    int refused = 0;
    for (int i = 0; i < count; ++i) {
        std::vector<Byte> bytes(40);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<Byte>(random()); });
        fuzz::FuzzInput input(bytes.data(), bytes.size());
        const std::string told = lies(input);
        const Way& way = kWays[static_cast<std::size_t>(i) % std::size(kWays)];
        const Outcome outcome = sort(std::string("--timeout 2 ") + way.words, told);
        refused += outcome.status == 2 ? 1 : 0;
        ASSERT_THAT(outcome.status, AnyOf(0, 2))
            << way.name << " with " << told << " of seed " << seed << ": " << outcome.errors;
        ASSERT_THAT(outcome.errors, Not(HasSubstr("Sanitizer"))) << told;
        // 80 rows, or 41 lines, each as long as the longest input is.
        ASSERT_LT(read("out").size(), 4000000U) << way.name << " with " << told;
    }
    std::printf("%d lies told, %d refused\n", count, refused);
    EXPECT_GT(refused, count / 10);
}

}  // namespace
}  // namespace tvsort::test

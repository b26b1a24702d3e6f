// What the command explains, beside what it then does.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::HasSubstr;

class Explain : public CommandTest {
  protected:
    // The memory that the explanation names behind these words, in KiB; 0 for none.
    static int memoryBehind(const std::string& words, const std::string& text) {
        std::smatch found;
        const bool any = std::regex_search(text, found, std::regex(words + " --memory (\\d+)K"));
        return any ? std::stoi(found[1]) : 0;
    }
    std::string explain(const std::string& words) const {
        const Outcome outcome = run("explain " + words);
        EXPECT_EQ(outcome.status, 0) << words << outcome.errors;
        return outcome.output;
    }
};

TEST_F(Explain, ShowsTheLayoutAndTheRequest) {
    write("a.csv", "name,born\nann,1950\nbo,\n");
    EXPECT_EQ(explain("a.csv --key name --key born:int16:desc:nulls-last --limit 7 --hex"),
              "record    19 bytes\n"
              "  offset  bytes  content                                       type   key    null "
              "byte\n"
              "       0     15  9 bytes of name text, born int16 desc; place  bytes  1 asc\n"
              "      15      4  length of the row\n"
              "rows      2\n"
              "runs      1 of all rows, made by 1 process\n"
              "slot      49152 bytes of shared memory\n"
              "fits      yes; runs go to temporary files below --memory 4K\n"
              "method    quicksort in each run\n"
              "disk      no temporary file\n"
              "request   98 bytes\n"
              "      0  62 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00\n"
              "     16  00 00 00 00 20 20 20 20 00 00 00 00 00 00 00 00\n"
              "     32  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n"
              "     48  00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00\n"
              "     64  01 00 00 00 02 00 00 00 d7 00 13 00 01 00 00 00\n"
              "     80  00 00 00 00 06 00 0f 00 00 00 01 00 01 00 00 00\n"
              "     96  00 00\n");
    EXPECT_THAT(explain("a.csv a.csv a.csv --key name:ucs2 --intersect"),
                HasSubstr("the first of 2"));
    write("records", "0123");
    EXPECT_THAT(explain("records --record-length 2 --key bytes:0:2 --unique"),
                HasSubstr("       0      4  number of the record         integer  2 asc\n"));
    EXPECT_THAT(explain("records --record-length 2 --key float:0 2>&1; true"),
                HasSubstr("reaches"));
}

// Strings that fill their fields to the end are compared by words like bytes without a length.
TEST_F(Explain, OfStringsHasTheMethodOfBytes) {
    std::string records;
    for (int i = 0; i < 5000; ++i) {
        const std::string digits = std::to_string(100000 + i * 7919 % 5000);
        records += std::string("\x14\0", 2) + std::string(14, '0') + digits;
    }
    write("records", records);
    for (const char* key : {"string:0:20", "bytes:2:20"}) {
        EXPECT_THAT(explain(std::string("records --record-length 22 --key ") + key),
                    HasSubstr("method    entry sort"));
    }
}

// A long value inflates the records of a type that the process compares.
TEST_F(Explain, ForetellsTheDiskAndWarnsWhereItIsMuch) {
    std::string lines = std::string(9000, 'x') + "\n";
    for (int i = 0; i < 3000; ++i)
        lines += std::to_string(i * 7919 % 3000) + "\n";
    write("lines", lines);
    const std::string words = "--lines --as ucs2 --memory 4M lines";
    const Outcome sorted = run("sort --stats=json -o out " + words);
    EXPECT_EQ(sorted.status, 0);
    const std::string warning = " times the inputs; order by less";
    EXPECT_THAT(sorted.errors, HasSubstr(" MiB go to the work file, "));
    EXPECT_THAT(sorted.errors, HasSubstr(warning));
    const auto stats = nlohmann::json::parse(sorted.errors.substr(sorted.errors.find('{')));
    const auto blockBytes =
        stats["block_count"].get<std::int64_t>() * stats["block_bytes"].get<std::int64_t>();
    const std::string text = explain(words);
    EXPECT_THAT(text, HasSubstr(warning));
    EXPECT_THAT(text,
                HasSubstr("disk      " + std::to_string(blockBytes) + " bytes of work file\n"));
    EXPECT_EQ(run("sort -o lines.gz --memory 1G --lines --as ucs2 lines").errors, "");
    EXPECT_THAT(explain("--lines lines.gz"),
                HasSubstr("disk      no temporary file, " + std::to_string(lines.size()) +
                          " of inputs, copied"));
}

TEST_F(Explain, SaysWhereFitAndMethodChange) {
    ASSERT_EQ(run("generate --records 20000 -o records").status, 0);
    for (const std::string words : {"records --record-length 100 --key bytes:0:10",
                                    "records --record-length 20 --key int32:0 --key int32:4"}) {
        SCOPED_TRACE(words);
        const int fits = memoryBehind("spill below", explain(words));
        const int comparesNot = memoryBehind("slower below", explain(words));
        ASSERT_GT(fits, 100);
        ASSERT_GT(comparesNot, fits);
        struct Case {
            int memory;
            bool fitted;
            bool comparesNot;
        };
        for (const Case& c : {Case{fits - 4, false, false}, Case{fits, true, false},
                              Case{comparesNot - 4, true, false}, Case{comparesNot, true, true}}) {
            const std::string memory = " --memory " + std::to_string(c.memory) + "K";
            const std::string text = explain(words + memory);
            const auto stats =
                nlohmann::json::parse(run("sort -o out --stats=json " + words + memory).errors);
            EXPECT_EQ(stats["fitted"], c.fitted) << memory;
            EXPECT_THAT(text, HasSubstr(c.fitted ? "fits      yes" : "fits      no")) << memory;
            EXPECT_THAT(text, HasSubstr("blocks    " + stats["block_count"].dump() + " of " +
                                        stats["block_bytes"].dump() + " bytes, " +
                                        stats["records_per_block"].dump() + " records"));
            EXPECT_THAT(text, HasSubstr("frames    " + stats["frame_count"].dump() + " in"));
            const bool distributes = c.fitted || stats["frame_count"] >= 64;
            const std::string method = c.comparesNot ? "method    (entry|copy) sort"
                                       : distributes ? "method    block distribution"
                                                     : "method    quicksort";
            EXPECT_THAT(text, testing::ContainsRegex(method));
        }
    }
}

TEST_F(Explain, ForetellsWhetherRunsStayInMemory) {
    std::string csv = "key,text\n";
    for (int i = 0; i < 60000; ++i)
        csv += std::to_string(i * 7919 % 60000) + "," + std::string(12, 'x') + "\n";
    write("in.csv", csv);
    const std::string words = "in.csv --key key:int";
    const int stays = memoryBehind("temporary files below", explain(words));
    ASSERT_GT(stays, 1000);
    for (const int memory : {stays - 4, stays}) {
        const std::string granted = " --memory " + std::to_string(memory) + "K";
        const auto stats =
            nlohmann::json::parse(run("sort -o out --stats=json " + words + granted).errors);
        EXPECT_EQ(stats["fitted"], memory == stays);
        const std::string text = explain(words + granted);
        EXPECT_THAT(text, HasSubstr(memory == stays ? "fits      yes" : "fits      no"));
        std::smatch runs;
        ASSERT_TRUE(std::regex_search(text, runs, std::regex("runs      (\\d+) of about")));
        EXPECT_EQ(stats["run_count"], std::stoi(runs[1]));
    }
}

}  // namespace
}  // namespace tvsort::test

// Several processes beside one another, beside one process that does it all.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <random>

#include "host/key_ranges.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::HasSubstr;

class Processes : public CommandTest {
  protected:
    void SetUp() override {
        std::mt19937 random(17);
        std::string csv = "number,key,word\n";
        std::string lines;
        std::string records;
        for (int i = 0; i < 4000; ++i) {
            const auto key = static_cast<int>(random() % 200);
            const std::string text = key < 5 ? "" : std::to_string(key);
            const std::string word(random() % 30, static_cast<char>('a' + key % 26));
            csv += std::to_string(i) + "," + text + ",\"" + word + "\"\n";
            lines += word + text + "\n";
            records += std::to_string(10000 + i) + static_cast<char>('A' + key % 7) + "..";
        }
        write("in.csv", csv);
        write("few.csv", "number,key,word\n1,,x\n2,7,x\n3,7,x\n");
        write("none.csv", "number,key,word\n");
        write("lines", lines);
        write("records", records);
    }
};

TEST_F(Processes, GiveWhatOneGives) {
    // Orders in which no two different records are equal, or that say how those stand.
    const char* const cases[] = {
        "in.csv --key key:int --key number:int",
        "in.csv --key word:desc --key key:int16:nulls-first --key number:int",
        "- --format csv --key key:decimal:0:desc --key number:int <in.csv",
        "in.csv --key key:int --distinct",
        "in.csv few.csv --key key:int --groups",
        "in.csv few.csv --key word:ucs2 --groups=count",
        "in.csv --key number:int --unique=nulls-not-distinct --limit 2500",
        "in.csv --key key:int --key number:int --limit 1",
        "in.csv --key key:int --key number:int --limit 1999",
        "in.csv --key key:int --key number:int --limit 99999",
        "few.csv --key key:int --key number:byte:desc",
        "few.csv --key key:int --groups",
        "none.csv --key key:int --groups=count",
        "--lines lines",
        "--lines lines --groups",
        "--lines lines --limit 1500",
        "--lines --as string:desc lines",
        "--record-length 8 --key bytes:5:1 --key bytes:0:5 records",
        "--record-length 8 --key bytes:0:5:desc records records records",
        "--record-length 8 --key byte:5 --key bytes:0:5:desc records",
        "--record-length 8 --key bytes:5:1 --groups records",
    };
    for (const std::string words : cases) {
        const Outcome one = run("sort " + words);
        ASSERT_EQ(one.status, 0) << words << one.errors;
        for (const char* options :
             {" --processes 2", " --processes 5 --memory 400K --block-pages 1"}) {
            const Outcome several = run("sort " + words + options);
            EXPECT_EQ(several.status, 0) << words << several.errors;
            EXPECT_TRUE(several.output == one.output) << words << options;
            EXPECT_EQ(several.errors, one.errors) << words << options;
        }
    }
}

// In an eighth of what the records take, so that they go through files; keys of 200 values and
// less keep the order of reading, whichever run a record is in.
TEST_F(Processes, MergeRunsOfRecordsStably) {
    std::mt19937 random(5);
    struct Record {
        std::int32_t key;
        char place[4];
    };
    std::vector<Record> records(200000);
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i].key = static_cast<std::int32_t>(random() % 200) - 100;
        storeAs(reinterpret_cast<Byte*>(records[i].place), static_cast<std::uint32_t>(i));
    }
    const auto bytes = [&records] {
        return std::string(reinterpret_cast<const char*>(records.data()),
                           records.size() * sizeof(Record));
    };
    write("many", bytes());
    for (const bool isDescending : {false, true}) {
        std::stable_sort(records.begin(), records.end(), [=](const Record& a, const Record& b) {
            return isDescending ? b.key < a.key : a.key < b.key;
        });
        for (const char* processes : {"2", "3"}) {
            const Outcome outcome =
                run(std::string("sort many --record-length 8 --memory 60K --block-pages 1 "
                                "--stats=json -o out --processes ") +
                    processes + " --key int32:0" + (isDescending ? ":desc" : ""));
            EXPECT_EQ(outcome.status, 0) << outcome.errors;
            const auto stats = nlohmann::json::parse(outcome.errors);
            EXPECT_EQ(stats["fitted"], false);
            // More than are merged at once.
            if (*processes == '3') {
                EXPECT_GT(stats["run_count"], 256);
            }
            EXPECT_TRUE(read("out") == bytes()) << isDescending << processes;
        }
    }
}

TEST_F(Processes, SayWhatCannotBeSplit) {
    const char* const cases[][2] = {
        {"in.csv few.csv --key key:double-tolerant --intersect",
         "--processes does not go with --intersect; it goes with a plain sort, --distinct"},
        {"--lines --as ucs2 lines --hierarchy", "--processes does not go with --hierarchy"},
        {"in.csv --key key:double-tolerant", "the keys hold floating-point values; leave it out"},
        {"in.csv --key word:ucs2 --collation fr", "the keys are ordered by a collation"},
        {"none.csv --key word:wkt", "the keys hold geometries"},
        {"in.csv --key key:ucs2 --memory 40K --block-pages 1",
         "needs memory for at least 5 blocks"},
        {"in.csv few.csv --key number:int --unique",
         "line 3 of in.csv and line 2 of few.csv have equal keys"},
        {"in.csv --key word:int", "in.csv, line 2, column word"},
    };
    for (const auto& [words, error] : cases) {
        const Outcome outcome = run(std::string("sort --processes 3 ") + words);
        EXPECT_EQ(outcome.status, 2) << words;
        EXPECT_EQ(outcome.output, "") << words;
        EXPECT_THAT(outcome.errors, HasSubstr(error));
    }
}

TEST(KeyRanges, AreOfAboutOneSizeAndInOrder) {
    host::RequestBuilder request;
    request.addKey(host::descendingKey(DataType::kInteger, 0, 4));
    std::vector<Byte> sample(4000 * sizeof(std::int32_t));
    std::mt19937 random(1);
    for (std::size_t at = 0; at < sample.size(); at += sizeof(std::int32_t))
        storeAs(sample.data() + at, static_cast<std::int32_t>(random() % 100000));
    const host::KeyRanges ranges(request, sizeof(std::int32_t), sample, 4);
    std::size_t counts[4] = {};
    std::size_t previous = 3;
    for (std::int32_t value = 0; value < 100000; ++value) {
        const std::size_t part = ranges.partOf(reinterpret_cast<const Byte*>(&value));
        ASSERT_LE(part, previous);
        previous = part;
        counts[part] += 1;
    }
    for (const std::size_t count : counts)
        EXPECT_NEAR(static_cast<double>(count), 25000, 2500);
}

}  // namespace
}  // namespace tvsort::test

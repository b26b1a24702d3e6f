// Sorts by ordered keys, beside std::stable_sort: whatever the memory, the processes, and how far
// keys are alike.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <random>

#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using Lines = std::vector<std::string>;

class OrderedRows : public CommandTest {
  protected:
    void writeLines(const std::string& name, const Lines& lines) const {
        write(name, joined(lines));
    }
    static std::string joined(const Lines& lines) {
        std::string text;
        for (const std::string& line : lines)
            text += line + "\n";
        return text;
    }
    void expect(const std::string& words, const std::string& output) const {
        const Outcome outcome = run("sort " + words);
        EXPECT_EQ(outcome.status, 0) << words << outcome.errors;
        EXPECT_TRUE(outcome.output == output) << words;
    }
    nlohmann::json stats(const std::string& words) const {
        const Outcome outcome = run("sort -o out --stats=json " + words);
        EXPECT_EQ(outcome.status, 0) << words << outcome.errors;
        return nlohmann::json::parse(outcome.errors);
    }
};

TEST_F(OrderedRows, OfNearFloatsStandExactlyAndNoneIsDropped) {
    std::mt19937 random(1);
    std::vector<double> times;
    for (int i = 0; i < 20000; ++i)
        times.push_back(1700000000.0 + i / 4e6);
    std::shuffle(times.begin(), times.end(), random);
    const auto text = [](const std::vector<double>& values) {
        Lines lines;
        for (const double value : values) {
            char digits[32];
            std::snprintf(digits, sizeof digits, "%.17g", value);
            lines.emplace_back(digits);
        }
        return lines;
    };
    writeLines("times", text(times));
    std::sort(times.begin(), times.end());
    for (const char* memory : {"64M", "100K"}) {
        expect(std::string("--lines --as double times --memory ") + memory, joined(text(times)));
        expect(std::string("--lines --as double --distinct times --memory ") + memory,
               joined(text(times)));
    }
}

TEST_F(OrderedRows, WithOneLongValueCostItsBytesAndNobodyElses) {
    std::string csv = "id,text\n";
    Lines lines;
    for (int i = 0; i < 50000; ++i) {
        csv += std::to_string(i * 7919 % 50000) + ",x\n";
        lines.push_back(std::to_string(i * 7919 % 50000));
    }
    csv += std::string(30000, '9') + ",x\n";
    lines.emplace_back(100000, '9');
    write("long.csv", csv);
    writeLines("long", lines);
    for (const std::string words : {"long.csv --key id:text", "--lines long"}) {
        const nlohmann::json spilled = stats(words + " --memory 400K");
        EXPECT_LT(spilled["record_length"], 64) << words;
        EXPECT_LT(spilled["spilled_bytes"], 5 * csv.size()) << words;
    }
    std::sort(lines.begin(), lines.end());
    EXPECT_TRUE(read("out") == joined(lines));
}

TEST_F(OrderedRows, ThatAreEqualStayInOrderWithAnyMemoryAndAnyProcesses) {
    std::mt19937 random(2);
    std::string input = "key,word,row\n";
    for (int i = 0; i < 20000; ++i) {
        // Cut anywhere, keys have others that are alike.
        std::string word(random() % 3 * 40, 'w');
        word += static_cast<char>('a' + random() % 3);
        input += std::to_string(random() % 50) + "," + word + "," + std::to_string(i) + "\n";
    }
    write("in.csv", input);
    const std::string words = "in.csv --key key:int --key word:natural ";
    const std::string one = run("sort " + words + "--key row:int").output;
    for (const char* memory : {"100K", "1M", "64M", "1G"}) {
        for (const char* processes : {"1", "2", "3", "4"}) {
            if (std::string(memory) == "100K" && *processes > '1') continue;
            expect(words + "--memory " + memory + " --processes " + processes, one);
        }
    }
}

// Keys of up to two kilobytes that differ at the front, in the middle or at the very end, or
// nowhere.
TEST_F(OrderedRows, OfLongKeysAreTheSameAsWithoutACut) {
    std::mt19937 random(3);
    const auto draw = [&random] {
        std::string line;
        while (random() % 5 != 0 && line.size() < 2000)
            line += std::string(1 + random() % 2 * 130, "ab\1"[random() % 3]);
        return line;
    };
    Lines lines(3000);
    std::generate(lines.begin(), lines.end(), draw);
    for (int i = 0; i < 1500; ++i)
        lines.push_back(lines[random() % lines.size()] + (i % 3 == 0 ? "z" : ""));
    const Lines first(lines.begin(), lines.begin() + 2500);
    const Lines second(lines.begin() + 2500, lines.end());
    writeLines("lines", lines);
    writeLines("first", first);
    writeLines("second", second);
    std::map<std::string, int> counts;
    std::map<std::string, int> firstCounts;
    for (const std::string& line : lines)
        counts[line] += 1;
    for (const std::string& line : first)
        firstCounts[line] += 1;
    Lines ordered = lines;
    std::sort(ordered.begin(), ordered.end());
    Lines descending(ordered.rbegin(), ordered.rend());
    Lines distinct;
    Lines counted;
    Lines intersection;
    Lines difference;
    for (const auto& [line, count] : counts) {
        distinct.push_back(line);
        counted.push_back(std::to_string(count) + "\t" + line);
        const int mine = firstCounts.count(line) > 0 ? firstCounts[line] : 0;
        intersection.insert(intersection.end(),
                            static_cast<std::size_t>(std::min(mine, count - mine)), line);
        difference.insert(difference.end(), static_cast<std::size_t>(std::max(0, 2 * mine - count)),
                          line);
    }
    for (const std::string memory : kMemories) {
        expect("--lines lines " + memory, joined(ordered));
        expect("--lines --as string:desc lines " + memory, joined(descending));
        expect("--lines --distinct lines " + memory, joined(distinct));
        expect("--lines --groups=count lines " + memory, joined(counted));
        expect("--lines --intersect --all first second " + memory, joined(intersection));
        expect("--lines --except --all first second " + memory, joined(difference));
        expect("--lines --limit 777 lines " + memory,
               joined(Lines(ordered.begin(), ordered.begin() + 777)));
        expect("--lines --distinct --limit 77 lines " + memory,
               joined(Lines(distinct.begin(), distinct.begin() + 77)));
    }
    EXPECT_GT(stats("--lines lines --memory 100K")["round_count"], 2);
    writeLines("unique", distinct);
    expect("--lines --unique unique --memory 100K", joined(distinct));
    distinct.push_back(distinct[5]);
    writeLines("twice", distinct);
    const Outcome outcome = run("sort --lines --unique twice --memory 100K");
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, testing::HasSubstr("line 6 of twice and line " +
                                                   std::to_string(distinct.size()) + " of twice"));
}

TEST_F(OrderedRows, OfManyMegabytesTakeLittleMemory) {
    const std::string text(24 << 20, 'x');
    write("lines", text + "b\n" + text + "a\n" + text + "b\n" + "short\n" + text);
    const nlohmann::json counted = stats("--lines lines --memory 1M");
    const bool hasOwnHeap = std::strstr(TVSORT_PROGRAM, "sanitize") != nullptr;
    EXPECT_TRUE(hasOwnHeap || counted["command_peak_bytes"] < 20 << 20) << counted;
    EXPECT_TRUE(read("out") ==
                "short\n" + text + "\n" + text + "a\n" + text + "b\n" + text + "b\n");
    EXPECT_LE(counted["round_count"], 4);
}

TEST_F(OrderedRows, BehindASmallLimitAreNotEvenSorted) {
    Lines lines;
    for (int i = 0; i < 30000; ++i)
        lines.push_back(std::to_string(i * 7919 % 30000 / 3));
    writeLines("lines", lines);
    const std::string words = "--lines --as int --limit 4 lines";
    EXPECT_LT(stats(words)["record_count"], 1000);
    EXPECT_EQ(read("out"), "0\n0\n0\n1\n");
    EXPECT_LT(stats(words + " --with-ties")["record_count"], 1000);
    EXPECT_EQ(read("out"), "0\n0\n0\n1\n1\n1\n");
    stats(words + " --groups=count");
    EXPECT_EQ(read("out"), "3\t0\n3\t1\n3\t2\n3\t3\n");
    for (const char* memory : {"20K", "1G"}) {
        const std::string limited = words + " --groups=count --processes 1 --memory ";
        EXPECT_EQ(stats(limited + memory)["group_count"], 4);
    }
}

// Some stand in runs, and of some that are alike nothing but their places.
TEST_F(OrderedRows, AroundTheLengthThatIsHeldAreComparedWholly) {
    std::mt19937 random(4);
    Lines lines = {"z"};
    for (int i = 0; i < 60; ++i)
        lines.push_back(std::string(65530 + random() % 9, 'x') + "abc"[random() % 3]);
    writeLines("lines", lines);
    std::sort(lines.begin(), lines.end());
    Lines distinct = lines;
    distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
    for (const char* memory : {"20K", "1M", "1G"}) {
        expect(std::string("--lines lines --memory ") + memory, joined(lines));
        expect(std::string("--lines --distinct lines --memory ") + memory, joined(distinct));
    }
}

TEST_F(OrderedRows, ThatAreShortBehindLongOnesMakeFewRuns) {
    Lines lines(100, std::string(90000, 'x'));
    for (int i = 0; i < 200000; ++i)
        lines.push_back(std::to_string(i * 7919 % 200000));
    writeLines("lines", lines);
    EXPECT_LT(stats("--lines lines --memory 1M")["run_count"], 200);
    std::sort(lines.begin(), lines.end());
    EXPECT_TRUE(read("out") == joined(lines));
}

// Wherever CSV is cut, in quotes too.
TEST_F(OrderedRows, OfCsvThatLookLikeOthersAreReadAsTheyStand) {
    std::mt19937 random(5);
    std::map<unsigned, std::string> rows;
    std::string input = "key,text\r\n";
    while (rows.size() < 1500) {
        std::string text;
        for (std::size_t i = random() % 4 == 0 ? random() % 2000 : random() % 3; i > 0; --i)
            text += Lines{"7,short\r\n", "\n", "7,\"\"a\"\"\r\n", "\"\",\n"}[random() % 4];
        const unsigned key = static_cast<unsigned>(random());
        const bool isNew = rows.emplace(key, std::to_string(key) + ",\"" + text + "\"\r\n").second;
        if (isNew) input += rows[key];
    }
    write("in.csv", input);
    std::string ordered = "key,text\r\n";
    for (const auto& [key, row] : rows)
        ordered += row;
    for (const char* memory : {"20K", "500K", "1G"}) {
        for (const char* processes : {"1", "2", "7"}) {
            expect(std::string("in.csv --key key:int --memory ") + memory + " --processes " +
                       processes,
                   ordered);
        }
    }
}

TEST_F(OrderedRows, ThatCannotBeReadAreNamedInTheOrderOfReading) {
    std::string rows;
    for (int i = 0; i < 25000; ++i)
        rows += std::to_string(i) + ",\"a\nb\"\n";
    write("1.csv", "key,text\n" + rows + "bad\n" + rows);
    write("2.csv", "key,text\n1,2,3\n" + rows);
    write("long.csv", "key,text\nbad\n1,2\n3," + std::string(5 << 20, 'x') + "\n");
    for (const std::string memory : {"100K", "8M", "1G"}) {
        for (const std::string processes : {"1", "2", "8"}) {
            const std::string words =
                " --key key:int --memory " + memory + " --processes " + processes;
            EXPECT_THAT(run("sort 1.csv 2.csv" + words).errors,
                        testing::HasSubstr("1.csv, line 50002: "));
            EXPECT_THAT(run("sort 2.csv 1.csv" + words).errors,
                        testing::HasSubstr("2.csv, line 2: "));
            const std::string errors =
                run("sort 1.csv 2.csv 2.csv --on-error=skip -o out" + words).errors;
            EXPECT_THAT(errors, testing::MatchesRegex("skipped: 1.csv, line 50002: .*\n"
                                                      "skipped: 2.csv, line 2: .*\n"
                                                      "skipped: 2.csv, line 2: .*\n"
                                                      "(.|\n)*3 rows skipped\n(.|\n)*"));
        }
    }
    EXPECT_THAT(run("sort long.csv --key key:int --memory 1M").errors,
                testing::HasSubstr("long.csv, line 2: "));
}

}  // namespace
}  // namespace tvsort::test

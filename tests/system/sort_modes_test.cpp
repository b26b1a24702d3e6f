// The sort modes through the command: everything on the way is real, and what comes out is compared
// with the plainest definition of each operation.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "service/bytes.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::HasSubstr;

// Ample, the smallest pool there is, and several frames per memory block.
const char* const kMemories[] = {"--memory 64M", "--memory 20K --block-pages 1",
                                 "--memory 100K --block-pages 4"};

// A record or line, and what compares as it does, smaller first.
struct Item {
    std::vector<int> rank;
    std::string bytes;
};
using Operand = std::vector<Item>;

// Items with one rank, in the order of reading.
struct Group {
    std::vector<Item> items;
    std::vector<int> counts;  // by operand
};

std::vector<Group> groupsOf(const std::vector<Operand>& operands) {
    std::map<std::vector<int>, Group> groups;
    for (std::size_t i = 0; i < operands.size(); ++i) {
        for (const Item& item : operands[i]) {
            Group& group = groups[item.rank];
            group.counts.resize(operands.size());
            group.items.push_back(item);
            group.counts[i] += 1;
        }
    }
    std::vector<Group> ordered;
    for (auto& [rank, group] : groups)
        ordered.push_back(std::move(group));
    return ordered;
}

// Which of a group's items, from one to another, an operation leaves.
std::pair<int, int> survivors(const std::string& operation, const std::vector<int>& counts) {
    const int least = *std::min_element(counts.begin(), counts.end());
    int others = 0;
    for (std::size_t i = 1; i < counts.size(); ++i)
        others += counts[i];
    if (operation == "--distinct") return {0, 1};
    if (operation == "--intersect") return {0, std::min(least, 1)};
    if (operation == "--intersect --all") return {0, least};
    if (operation == "--except") return {0, others == 0 ? 1 : 0};
    return {others, counts[0]};  // --except --all
}

enum class Form { kLines, kRecords };

std::string groupText(const std::string& operation, Form form, const Group& group) {
    const auto size = static_cast<std::int32_t>(group.items.size());
    const std::string& first = group.items[0].bytes;
    if (operation == "--groups=count") {
        if (form == Form::kLines) return std::to_string(size) + "\t" + first;
        return first + std::string(reinterpret_cast<const char*>(&size), sizeof size);
    }
    std::string text;
    for (std::int32_t i = 1; i <= size; ++i) {
        text += group.items[static_cast<std::size_t>(i) - 1].bytes;
        if (form == Form::kRecords) text += i == size ? '\1' : '\0';
    }
    return text;
}

std::string expectedOutput(const std::string& operation, Form form,
                           const std::vector<Operand>& operands) {
    std::string text;
    for (const Group& group : groupsOf(operands)) {
        if (operation.starts_with("--groups")) {
            const bool emptyLine = operation == "--groups" && form == Form::kLines;
            text += emptyLine && !text.empty() ? "\n" : "";
            text += groupText(operation, form, group);
            continue;
        }
        const auto [begin, end] = survivors(operation, group.counts);
        for (int i = begin; i < end; ++i)
            text += group.items[static_cast<std::size_t>(i)].bytes;
    }
    return text;
}

const char* const kOperations[] = {"--distinct",        "--groups", "--groups=count", "--intersect",
                                   "--intersect --all", "--except", "--except --all"};

class SortModes : public CommandTest {
  protected:
    // Writes the operands as files a, b, c and has them combined in every way.
    void tryAll(const std::vector<Operand>& operands, Form form, const std::string& options) {
        std::string names;
        for (std::size_t i = 0; i < operands.size(); ++i) {
            const std::string name(1, static_cast<char>('a' + i));
            std::string content;
            for (const Item& item : operands[i])
                content += item.bytes;
            write(name, content);
            names += " " + name;
        }
        for (const char* const memory : kMemories) {
            for (const char* const operation : kOperations) {
                SCOPED_TRACE(options + " " + operation + " " + memory);
                const Outcome outcome = run("sort " + options + " " + operation + " " + memory +
                                            names + " --stats=json");
                ASSERT_EQ(outcome.status, 0) << outcome.errors;
                ASSERT_TRUE(outcome.output == expectedOutput(operation, form, operands));
                const bool ample = memory == kMemories[0];
                EXPECT_THAT(outcome.errors, HasSubstr(ample ? "fitted\":true" : "fitted\":false"));
            }
        }
    }
};

TEST_F(SortModes, OfLinesGiveWhatTheirNamesSay) {
    for (std::uint32_t seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        std::vector<Operand> operands(2 + seed % 2);
        for (Operand& operand : operands) {
            for (int i = 0; i < 5000; ++i) {
                const std::string line = std::string(random() % 5, 'x') +
                                         std::to_string(random() % (seed < 3 ? 4 : 1500));
                operand.push_back({{line.begin(), line.end()}, line + "\n"});
            }
        }
        tryAll(operands, Form::kLines, "--lines");
    }
}

// Fields of a 16-byte record; the rest of it is its place in the reading.
struct Fields {
    int a;
    int b;
    bool aIsNull;
    bool bIsNull;
};

struct Keys {
    const char* options;
    std::vector<int> (*rankOf)(const Fields& fields);
};
const Keys kKeys[] = {
    {"--key int16:0 --key byte:2",
     [](const Fields& f) {
         return std::vector{f.a, f.b};
     }},
    {"--key int16:0:desc --key byte:2:desc",
     [](const Fields& f) {
         return std::vector{-f.a, -f.b};
     }},
    {"--key byte:2 --key int16:0:desc --nulls 3",
     [](const Fields& f) {
         return std::vector{f.bIsNull ? 999 : f.b, f.aIsNull ? -99999 : -f.a};
     }},
    {"--key byte:2:desc:nulls-last --nulls 3",
     [](const Fields& f) { return std::vector{f.bIsNull ? 999 : -f.b}; }},
};

TEST_F(SortModes, OfRecordsKeepTheOrderOfReadingInEveryDirection) {
    std::mt19937 random(17);
    for (const Keys& keys : kKeys) {
        std::vector<Operand> operands(3);
        std::int32_t place = 0;
        for (Operand& operand : operands) {
            for (int i = 0; i < 2500; ++i) {
                const Fields fields = {static_cast<int>(random() % 40) - 20,
                                       static_cast<int>(random() % 30), random() % 9 == 0,
                                       random() % 9 == 0};
                Byte record[16] = {};
                storeAs(record, static_cast<std::int16_t>(fields.a));
                record[2] = static_cast<Byte>(fields.b);
                record[3] = fields.bIsNull ? 1 : 0;
                record[4] = fields.aIsNull ? 1 : 0;
                storeAs(record + 8, place++);
                operand.push_back({keys.rankOf(fields), {record, record + sizeof record}});
            }
        }
        tryAll(operands, Form::kRecords, std::string("--record-length 16 ") + keys.options);
    }
}

TEST_F(SortModes, OfNextToNothingGiveNextToNothing) {
    write("none", "");
    write("x", "x\n");
    write("y", "y\n");
    const struct {
        const char* words;
        const char* output;
    } cases[] = {
        {"--intersect x none", ""},     {"--intersect none x", ""},
        {"--intersect x x", "x\n"},     {"--intersect x y", ""},
        {"--intersect x x none", ""},   {"--intersect --all none none", ""},
        {"--except x none", "x\n"},     {"--except none x", ""},
        {"--except x y none", "x\n"},   {"--except x x", ""},
        {"--distinct none x", "x\n"},   {"--groups none", ""},
        {"--groups=count x", "1\tx\n"}, {"--unique x", "x\n"},
        {"--hierarchy x", "x\n"},
    };
    for (const auto& [words, output] : cases) {
        const Outcome outcome = run(std::string("sort --lines ") + words);
        EXPECT_EQ(outcome.status, 0) << words << outcome.errors;
        EXPECT_EQ(outcome.output, output) << words;
    }
}

TEST_F(SortModes, LimitKeepsTies) {
    std::string content;
    for (int i = 0; i < 9000; ++i)
        content += std::to_string(i * 7 % 10) + "\n";
    write("digits", content);
    for (const char* const memory : kMemories) {
        const Outcome outcome = run(std::string("sort --lines --limit 901 digits ") + memory);
        std::string expected;
        for (int i = 0; i < 1800; ++i)
            expected += i < 900 ? "0\n" : "1\n";
        EXPECT_TRUE(outcome.output == expected) << outcome.errors;
    }
}

TEST_F(SortModes, UniqueNamesTheRecordsThatAreNot) {
    write("a", "pear\nfig\n");
    write("b", "apple\nfig\nplum\n");
    write("nulls", std::string("\1x\1y\0z", 6));
    const struct {
        const char* words;
        int status;
        const char* output;
        const char* error;
    } cases[] = {
        {"--lines --unique a", 0, "fig\npear\n", ""},
        {"--lines --unique --limit 1 a", 0, "fig\n", ""},
        {"--lines --unique a b", 2, "", "not unique: line 2 of a and line 2 of b are equal"},
        {"--lines --unique - <b", 0, "apple\nfig\nplum\n", ""},
        {"--record-length 2 --key byte:1 --unique - <nulls", 0, "\1x\1y", ""},
        {"--record-length 2 --key byte:0 --unique nulls", 2, "",
         "not unique: record 1 of nulls and record 2 of nulls have equal keys"},
        {"--record-length 2 --key byte:1 --nulls 0 --unique nulls", 0, "", ""},
        {"--record-length 2 --key byte:1 --nulls 0 --unique=nulls-not-distinct - <nulls", 2, "",
         "not unique: record 1 of standard input and record 2 of standard input"},
    };
    for (const auto& [words, status, output, error] : cases) {
        for (const char* const memory : kMemories) {
            const Outcome outcome = run(std::string("sort ") + words + " " + memory);
            EXPECT_EQ(outcome.status, status) << words << outcome.errors;
            EXPECT_THAT(outcome.output, testing::StartsWith(output)) << words;
            EXPECT_THAT(outcome.errors, HasSubstr(error)) << words;
        }
    }
}

struct Node {
    int key;
    std::string line;
    std::string record;
    std::vector<Node> below;
};

// The plainest hierarchy sort: each record's children in order, and theirs behind them.
void appendSorted(std::vector<Node>& nodes, std::string& lines, std::string& records) {
    std::stable_sort(nodes.begin(), nodes.end(),
                     [](const Node& left, const Node& right) { return left.key < right.key; });
    for (Node& node : nodes) {
        lines += node.line;
        records += node.record;
        appendSorted(node.below, lines, records);
    }
}

TEST_F(SortModes, HierarchiesStayWholeAndHaveTheirSiblingsSorted) {
    for (const std::uint32_t depthMax : {1U, 3U, 60U}) {
        std::mt19937 random(depthMax);
        std::string lines;
        std::string records;
        std::vector<Node> tree;
        std::uint32_t level = 0;
        for (std::int32_t i = 0; i < 9000; ++i) {
            level = 1 + static_cast<std::uint32_t>(random() % std::min(level + 1, depthMax));
            const int key = static_cast<int>(random() % 20);
            // The key, descending, at 0, the level at 2, the place in the reading at 6.
            Byte record[10] = {static_cast<Byte>(100 - key)};
            storeAs(record + 2, static_cast<std::int32_t>(level));
            storeAs(record + 6, i);
            std::vector<Node>* siblings = &tree;
            for (std::uint32_t above = 1; above < level; ++above)
                siblings = &siblings->back().below;
            const std::string line = std::string(level - 1, '\t') + static_cast<char>('a' + key);
            siblings->push_back({key, line + "\n", {record, record + sizeof record}, {}});
            lines += siblings->back().line;
            records += siblings->back().record;
        }
        write("lines", lines);
        write("records", records);
        lines.clear();
        records.clear();
        appendSorted(tree, lines, records);
        for (const std::string memory : kMemories) {
            EXPECT_TRUE(run("sort --lines --hierarchy lines " + memory).output == lines);
            EXPECT_TRUE(run("sort --record-length 10 --key byte:0:desc --hierarchy --level 2 "
                            "records " +
                            memory)
                            .output == records);
        }
    }
    write("spaces", "b\n  d\n  c\n    e\na\n");
    EXPECT_EQ(run("sort --lines --hierarchy --indent 2 spaces").output, "a\nb\n  c\n    e\n  d\n");
    // A tie is a sibling: the child of the last record is none.
    write("ties", "b\n\ta\na\n\ta\n\ta\n");
    EXPECT_EQ(run("sort --lines --hierarchy --limit 2 ties").output, "a\n\ta\n\ta\n");
}

TEST_F(SortModes, BigHierarchiesTakeSecondsWithTheSmallestPool) {
    std::mt19937 random(5);
    std::string roots;
    std::string chain;
    for (std::int32_t i = 1; i <= 100000; ++i) {
        Byte record[8] = {1};
        storeAs(record + 4, static_cast<std::uint32_t>(random()));
        roots.append(record, record + sizeof record);
        if (i > 4095) continue;
        storeAs(record, i);
        chain.append(record, record + sizeof record);
    }
    write("roots", roots);
    write("chain", chain);
    const std::string options =
        "sort --record-length 8 --key bytes:4:4 --hierarchy --level 0 --timeout 60 "
        "--memory 20K --block-pages 1 ";
    EXPECT_EQ(run(options + "roots -o sorted").status, 0);
    EXPECT_EQ(run("verify --record-length 8 --key bytes:4:4 sorted").status, 0);
    EXPECT_TRUE(run(options + "chain").output == chain);
}

TEST_F(SortModes, WhatTheyDoNotHaveIsRefusedWithWhatTheyHave) {
    write("a", "a\n");
    write("spaces", "a\n  b\n");
    write("deep", "a\n\t\tb\n");
    write("record", std::string("\0\0\0\0", 4));
    const struct {
        const char* words;
        const char* error;
    } cases[] = {
        {"--lines --distinct --groups a",
         "--distinct and --groups exclude one another; choose one"},
        {"--lines --distinct --limit 3 a",
         "--limit does not go with --distinct; it goes with a plain sort, --unique and "
         "--hierarchy"},
        {"--lines --unique --all a",
         "--all does not go with --unique; it goes with --intersect and --except"},
        {"--lines --level 0 a", "--level does not go with a plain sort; it goes with --hierarchy"},
        {"--lines --intersect a", "--intersect takes 2 inputs or more"},
        {"--lines --except - - <a", "standard input (-) can be read once only"},
        {"--lines --hierarchy --level 0 a", "--level is for fixed-length records"},
        {"--lines --hierarchy --indent 0 a", "--indent 0: write tab, or the number of spaces"},
        {"--lines --hierarchy spaces", "line 2 of spaces starts with a space"},
        {"--lines --hierarchy --indent 4 spaces",
         "line 2 of spaces starts with 2 spaces, which is no multiple of --indent 4"},
        {"--lines --hierarchy a deep",
         "line 2 of deep is on level 3 and the one before it on level 1"},
        {"--record-length 4 --key bytes:0:4 --hierarchy record", "add --level OFFSET"},
        {"--record-length 4 --key bytes:0:4 --hierarchy --level 1 record",
         "--level 1 reaches byte 5"},
        {"--record-length 4 --key bytes:0:4 --hierarchy --level 0 record",
         "record 1 of record is on level 0, and levels go from 1 to 4095"},
        {"--record-length 65535 --key byte:0 --distinct - </dev/null",
         "--distinct adds 5 bytes to each record, which makes 65540 where a record can have 65535"},
        {"--record-length 4 --key byte:0 --nulls 1 --unique --limit 1 record",
         "--limit goes with --unique=nulls-not-distinct where there are nulls"},
    };
    for (const auto& [words, error] : cases) {
        const Outcome outcome = run(std::string("sort ") + words);
        EXPECT_EQ(outcome.status, 2) << words;
        EXPECT_EQ(outcome.output, "") << words;
        EXPECT_THAT(outcome.errors, HasSubstr(error)) << words;
    }
}

}  // namespace
}  // namespace tvsort::test

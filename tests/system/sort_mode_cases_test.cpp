// The sort modes through the command: small cases one by one, what is refused, and hierarchies.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "protocol/bytes.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::HasSubstr;

// What one command line gives: its output, or an error that has these words.
struct Case {
    const char* words;
    const char* output;
    const char* error = nullptr;
};

const Case kCases[] = {
    {"--lines --intersect x none", ""},
    {"--lines --intersect none x", ""},
    {"--lines --intersect x x", "x\n"},
    {"--lines --intersect x y", ""},
    {"--lines --intersect x x none", ""},
    {"--lines --intersect --all none none", ""},
    {"--lines --except x none", "x\n"},
    {"--lines --except none x", ""},
    {"--lines --except x y none", "x\n"},
    {"--lines --except x x", ""},
    {"--lines --distinct none x", "x\n"},
    {"--lines --groups none", ""},
    {"--lines --groups=count x", "1\tx\n"},
    {"--lines --hierarchy x", "x\n"},
    {"--lines --hierarchy --indent 2 spaces", "a\nb\n  c\n    e\n  d\n"},
    {"--lines --hierarchy --indent tab spaces", "    e\n  c\n  d\na\nb\n"},
    // A tie is a sibling: the child of the last record is none.
    {"--lines --hierarchy --limit 2 --with-ties ties", "a\n\ta\n\ta\n"},
    {"--lines --hierarchy --limit 2 ties", "a\n\ta\n"},

    {"--lines --unique x", "x\n"},
    {"--lines --unique a", "fig\npear\n"},
    {"--lines --unique --limit 1 a", "fig\n"},
    {"--lines --unique a b", "", "not unique: line 2 of a and line 2 of b have equal keys; remove"},
    {"--lines --unique - <b", "apple\nfig\nplum\n"},
    {"--record-length 2 --key byte:1:desc --unique - <nulls", "0z1y1x"},
    {"--record-length 2 --key byte:0 --unique nulls", "",
     "not unique: record 1 of nulls and record 2 of nulls have equal keys"},

    {"--lines --distinct --groups x", "",
     "--distinct and --groups exclude one another; choose one"},
    {"--lines --distinct --limit 1 a a", "fig\n"},
    {"--lines --except --limit 3 x y", "",
     "--limit does not go with --except; it goes with a plain sort, --distinct, --groups, --unique "
     "and --hierarchy"},
    {"--lines --with-ties x", "", "--with-ties belongs to --limit"},
    {"--lines --unique --all x", "",
     "--all does not go with --unique; it goes with --intersect and --except"},
    {"--lines --level 0 x", "", "--level does not go with a plain sort; it goes with --hierarchy"},
    {"--lines --intersect x", "", "--intersect takes 2 inputs or more"},
    {"--lines --except - - <x", "", "standard input (-) can be read once only"},
    {"--lines --hierarchy --level 0 x", "", "--level is for fixed-length records"},
    {"--lines --hierarchy --indent 0 x", "", "--indent 0: write tab, or the number of spaces"},
    {"--lines --hierarchy spaces", "", "line 2 of spaces starts with a space"},
    {"--lines --hierarchy --indent 4 spaces", "",
     "line 2 of spaces starts with 2 spaces, which is no multiple of --indent 4"},
    {"--lines --hierarchy x deep", "",
     "line 2 of deep is on level 3 and the one before it on level 1"},
    {"--lines --hierarchy x indented", "",
     "line 1 of indented is the first of its hierarchy and on level 2"},
    {"--record-length 4 --key byte:0 --hierarchy zeros", "", "add --level OFFSET"},
    {"--record-length 4 --key byte:0 --hierarchy --level 1 zeros", "", "--level 1 reaches byte 5"},
    {"--record-length 4 --key byte:0 --hierarchy --level 0 zeros", "",
     "record 1 of zeros is on level 0, and levels go from 1 to 4095"},
    {"--record-length 65535 --key byte:0 --distinct - </dev/null", "",
     "--distinct adds 5 bytes to each record, which makes 65540 where a record can have 65535"},
    {"--record-length 4 --key byte:0 --nulls 1 --unique --limit 1 zeros", "",
     "--limit goes with --unique=nulls-not-distinct where keys can be null"},
};

class SortModes : public CommandTest {};

TEST_F(SortModes, GiveWhatTheyAreAskedForOrSayWhatCanBe) {
    write("none", "");
    write("x", "x\n");
    write("y", "y\n");
    write("a", "pear\nfig\n");
    write("b", "apple\nfig\nplum\n");
    write("nulls", "1x1y0z");
    write("spaces", "b\n  d\n  c\n    e\na\n");
    write("ties", "b\n\ta\na\n\ta\n\ta\n");
    write("deep", "a\n\t\tb\n");
    write("indented", "\ta\n");
    write("zeros", std::string(4, '\0'));
    for (const Case& c : kCases) {
        const Outcome outcome = run(std::string("sort ") + c.words);
        EXPECT_EQ(outcome.status, c.error == nullptr ? 0 : 2) << c.words << outcome.errors;
        EXPECT_EQ(outcome.output, c.output) << c.words;
        EXPECT_THAT(outcome.errors, HasSubstr(c.error == nullptr ? "" : c.error)) << c.words;
    }
}

TEST_F(SortModes, UniqueHoldsNullsDistinctUnlessToldOtherwise) {
    std::string records;
    for (char i = 0; i < 100; ++i)
        records += {'\0', i};
    records += {'\1', 'x', '\1', 'y'};
    write("records", records);
    const std::string sort = "sort --record-length 2 --key byte:1 --nulls 0 records --unique";
    for (const std::string memory : kMemories) {
        const Outcome distinct = run(sort + " " + memory);
        EXPECT_EQ(distinct.status, 0) << distinct.errors;
        EXPECT_TRUE(distinct.output == records);
        EXPECT_THAT(run(sort + "=nulls-not-distinct " + memory).errors,
                    HasSubstr("not unique: record 101 of records and record 102 of records"));
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
}

TEST_F(SortModes, HierarchiesOfRecordsKnowNullsAndTakeOnlySiblingsForTies) {
    using std::string_literals::operator""s;
    // Level, key and null indicator.
    const std::string a = "\1\0\0\0a\0"s;
    const std::string aWithBoth = "\1\0\0\0a\0\2\0\0\0a\0\2\0\0\0a\0"s;
    const std::string null = "\1\0\0\0z\1"s;
    write("records", aWithBoth + null);
    const std::string sort =
        "sort --record-length 6 --hierarchy --level 0 --nulls 5 records --key ";
    EXPECT_EQ(run(sort + "byte:4 --limit 1").output, a);
    EXPECT_EQ(run(sort + "byte:4 --limit 2 --with-ties").output, aWithBoth);
    EXPECT_EQ(run(sort + "byte:4:nulls-first").output, null + aWithBoth);
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

}  // namespace
}  // namespace tvsort::test

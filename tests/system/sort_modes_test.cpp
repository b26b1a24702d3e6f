// Distinct, groups, set operations and limit through the command, on random worlds, compared with
// the plainest definition of each.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "protocol/bytes.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::HasSubstr;

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

class SortWorlds : public CommandTest {
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
        for (const std::string memory : kMemories) {
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

TEST_F(SortWorlds, OfLinesGiveWhatTheirNamesSay) {
    for (std::uint32_t seed = 1; seed <= 3; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        std::vector<Operand> operands(2 + seed % 2);
        for (Operand& operand : operands) {
            for (int i = 0; i < 5000; ++i) {
                const std::string line = std::string(random() % 5, 'x') +
                                         std::to_string(random() % (seed == 1 ? 4 : 1500));
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

TEST_F(SortWorlds, OfRecordsKeepTheOrderOfReadingInEveryDirection) {
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

TEST_F(SortWorlds, LimitKeepsTies) {
    std::string content;
    for (int i = 0; i < 9000; ++i)
        content += std::to_string(i * 7 % 10) + "\n";
    write("digits", content);
    for (const std::string memory : kMemories) {
        const Outcome outcome =
            run(std::string("sort --lines --limit 901 --with-ties digits ") + memory);
        std::string expected;
        for (int i = 0; i < 1800; ++i)
            expected += i < 900 ? "0\n" : "1\n";
        EXPECT_TRUE(outcome.output == expected) << outcome.errors;
    }
}

}  // namespace
}  // namespace tvsort::test

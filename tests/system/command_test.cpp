// The command on good days: what it makes, beside plain definitions of it.

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <nlohmann/json.hpp>
#include <random>
#include <vector>

#include "tests/support/filter_expected.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

const char* const kMemories[] = {"--memory 64M", "--memory 20K --block-pages 1"};
const char kByKey[] = "--record-length 100 --key bytes:0:10 ";

using Command = CommandTest;

template <typename Number>
std::string bytesOf(Number number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

template <typename Number>
std::vector<std::string> numbers(const std::vector<Number>& values) {
    std::vector<std::string> fields;
    for (const Number value : values)
        fields.push_back(bytesOf(value));
    return fields;
}

std::string padded(std::string field, std::size_t byteCount) {
    field.resize(byteCount, '\x3f');
    return field;
}

std::vector<std::string> prefixed(const std::vector<std::string>& values) {
    std::vector<std::string> fields;
    for (const std::string& value : values)
        fields.push_back(padded(bytesOf(static_cast<std::uint16_t>(value.size())) + value, 8));
    return fields;
}

struct KeyCase {
    std::string type;
    std::string length;               // as the option has it
    std::vector<std::string> fields;  // in ascending order
};

std::vector<KeyCase> keyCases() {
    using namespace std::string_literals;
    // The first ten bytes of a field512 do not count: they fall where the others rise.
    const auto field512 = [](char ignored, char counted, char last) {
        return std::string(10, ignored) + std::string(511, counted) + last;
    };
    return {
        {"int16", "", numbers<std::int16_t>({SHRT_MIN, -257, -1, 0, 1, 255, 256, SHRT_MAX})},
        {"int32", "", numbers<std::int32_t>({INT_MIN, -65537, -1, 0, 1, 65536, INT_MAX})},
        {"int64", "",
         numbers<std::int64_t>(
             {LLONG_MIN, -4294967297, -1, 0, 1, 4294967295, 4294967296, LLONG_MAX})},
        {"float", "", numbers<float>({-1e30F, -1.5F, -1e-30F, 0, 1e-30F, 1.5F, 1.6F, 1e30F})},
        {"double", "", numbers<double>({-1e300, -1.5, -1e-300, 0, 1e-300, 1.5, 1.5000001, 1e300})},
        {"byte", "", {"\0"s, "\1", "\x7f", "\x80", "\xff"}},
        {"bytes",
         ":3",
         {"\0\0\0"s, "\0\0\1"s, "\0\1\0"s, "\x7f\xff\xff", "\x80\0\0"s, "\xff\0\0"s}},
        {"string", ":6", prefixed({"", "\0"s, "a", "a\0"s, "ab", "b", "\x80", "\xff\xff"})},
        // By the weights 255 - byte, the shorter of two that begin alike still first.
        {"weighted-bytes", ":2", {"\xff\xff", "\xff\0"s, "ba", "ab", "aa", "\0\0"s}},
        {"weighted-string", ":6", prefixed({"", "\xff", "b", "bb", "ba", "a", "aa", "\0"s})},
        {"ucs2", ":4", {"\0\0\xff\xff"s, "\xff\0\0\0"s, "\xff\0\1\0"s, "\0\1\0\0"s, "\0\xff\0\0"s}},
        {"ucs2-string", ":6", prefixed({"", "\xff\0"s, "\xff\0\xff\0"s, "\0\1"s, "\0\xff"s})},
        {"field512",
         "",
         {field512('c', '\0', 'z'), field512('b', 'a', 'a'), field512('a', 'a', 'b'),
          field512(0, '\xff', 'a')}},
    };
}

TEST_F(Command, OrdersEveryKeyTypeInBothDirectionsWithNullsInTheirPlace) {
    struct Direction {
        const char* words;
        bool descending;
        bool nullsFirst;
    };
    const Direction directions[] = {{"", false, false},
                                    {":desc", true, true},
                                    {":nulls-first", false, true},
                                    {":desc:nulls-last", true, false}};
    std::string weights;
    for (int byte = 0; byte < 256; ++byte)
        weights += static_cast<char>(255 - byte);
    write("weights", weights);
    struct Item {
        int rank;  // the place of its key
        std::string bytes;
    };
    for (const KeyCase& c : keyCases()) {
        for (const Direction& direction : directions) {
            std::mt19937 random(11);
            std::vector<Item> items;
            std::string input;
            // Number, two null indicators, key, and enough for the smallest pool to spill.
            const std::size_t recordLength = 6 + c.fields[0].size() + 100;
            for (std::int32_t number = 0; number < 300; ++number) {
                const auto place = static_cast<int>(random() % c.fields.size());
                const bool isNull = random() % 8 == 0;
                const int nullRank = direction.nullsFirst ? INT_MIN : INT_MAX;
                const int rank = direction.descending ? -place : place;
                items.push_back({isNull ? nullRank : rank,
                                 padded(bytesOf(number) + (isNull ? '\1' : '\0') + '\0' +
                                            c.fields[static_cast<std::size_t>(place)],
                                        recordLength)});
                input += items.back().bytes;
            }
            // The number is the second key, so equal keys keep their order.
            std::stable_sort(items.begin(), items.end(), [](const Item& left, const Item& right) {
                return left.rank < right.rank;
            });
            std::string expected;
            for (const Item& item : items)
                expected += item.bytes;
            write("in", input);
            const std::string options = " --record-length " + std::to_string(recordLength) +
                                        " --key " + c.type + ":6" + c.length + direction.words +
                                        " --key int32:0 --nulls 4 --weights weights ";
            for (const char* const memory : kMemories) {
                SCOPED_TRACE(options + memory);
                const Outcome outcome = run("sort in" + options + memory);
                EXPECT_EQ(outcome.status, 0);
                EXPECT_EQ(outcome.errors, "");
                ASSERT_TRUE(outcome.output == expected);
            }
            write("sorted", expected);
            EXPECT_EQ(run("verify sorted" + options).status, 0);
            EXPECT_EQ(run("verify in" + options).status, 1);
        }
    }
}

TEST_F(Command, OrdersLinesAsTheCLibraryDoes) {
    std::mt19937 random(13);
    std::string lines = "\n";
    for (int i = 0; i < 4000; ++i) {
        for (auto left = random() % 20; left > 0; --left)
            lines += "ab \t\xc3\xa4\x80\xff\x01Z"[random() % 10];
        lines += '\n';
    }
    lines += "the last one without a newline";
    write("lines", lines);
    ASSERT_EQ(std::system(("cd " + folder().string() + "; LC_ALL=C sort lines >sorted").c_str()),
              0);
    for (const char* const memory : kMemories) {
        for (const char* const way : {"lines", "lines -o -", "- <lines", "- -o out <lines"}) {
            const Outcome outcome = run(std::string("sort --lines ") + memory + " " + way);
            EXPECT_EQ(outcome.status, 0) << outcome.errors;
            EXPECT_EQ(outcome.errors, "");
            const std::string& result = std::strstr(way, "out") ? read("out") : outcome.output;
            EXPECT_TRUE(result == read("sorted")) << way << " " << memory;
        }
    }
    EXPECT_EQ(run("verify out --lines").output.substr(0, 13), "in order  yes");
}

TEST_F(Command, VerifyNamesTheFirstRecordOutOfOrderAndSharesItsChecksumWithTheResult) {
    // The same seed gives the same records on every machine.
    const std::string rest = "\nrecords   1000\nchecksum  00d2aa7283d84f83914bdb4bbac1c479\n";
    ASSERT_EQ(run("generate --records 1000 --seed 7 -o in").status, 0);
    const Outcome before = run(std::string("verify in ") + kByKey);
    EXPECT_EQ(before.status, 1);
    EXPECT_EQ(before.output, "in order  no: record 3 must not stand behind record 2" + rest);
    ASSERT_EQ(run(std::string("sort - -o out --memory 20K --block-pages 1 <in ") + kByKey).status,
              0);
    const Outcome after = run(std::string("verify - <out ") + kByKey);
    EXPECT_EQ(after.status, 0);
    EXPECT_EQ(after.output, "in order  yes" + rest);
}

TEST_F(Command, StatsCountWhatHappened) {
    EXPECT_EQ(run("generate --records 3000 -o records").status, 0);
    const auto stats = [this](const std::string& memory) {
        return nlohmann::json::parse(
            run("sort records --stats=json -o out " + (kByKey + memory)).errors);
    };
    nlohmann::json ample = stats("--memory 64M");
    nlohmann::json spilled = stats("--memory 40K --block-pages 2");
    for (nlohmann::json* const times : {&ample, &spilled}) {
        for (const std::string stage : {"read", "load", "sort", "write"}) {
            for (const std::string unit : {"_seconds", "_cpu_seconds"}) {
                EXPECT_GE(times->at(stage + unit), 0.0) << stage << unit;
                times->erase(stage + unit);
            }
        }
        for (const char* const name : {"process_peak_bytes", "command_peak_bytes"}) {
            EXPECT_GT(times->at(name), 4096);
            times->erase(name);
        }
        EXPECT_EQ(times->at("system_calls_filtered"), filterExpected());
        times->erase("system_calls_filtered");
        EXPECT_EQ(times->at("huge_pages"), false);
        times->erase("huge_pages");
    }
    // Every block is written, those without a frame are read, and the frames once more at the end.
    EXPECT_GE(spilled["blocks_written"], 38);
    EXPECT_GE(spilled["blocks_read"], 33 + 5);
    spilled.erase("blocks_written");
    spilled.erase("blocks_read");
    EXPECT_EQ(ample, nlohmann::json::parse(R"({"record_count": 3000, "record_length": 100,
        "read_count": 3000, "result_count": 3000, "written_count": 3000, "skipped_count": 0,
        "duplicate_count": 0, "group_count": 0, "run_count": 0, "round_count": 1,
        "records_per_block": 655, "block_bytes": 65536,
        "block_count": 5, "frame_count": 1024, "fitted": true, "spilled_bytes": 0,
        "blocks_read": 0, "blocks_written": 0})"));
    EXPECT_EQ(spilled, nlohmann::json::parse(R"({"record_count": 3000, "record_length": 100,
        "read_count": 3000, "result_count": 3000, "written_count": 3000, "skipped_count": 0,
        "duplicate_count": 0, "group_count": 0, "run_count": 0, "round_count": 1,
        "records_per_block": 81, "block_bytes": 8192,
        "block_count": 38, "frame_count": 5, "fitted": false, "spilled_bytes": 270336})"));
}

TEST_F(Command, HugePagesAreTriedForcedOrLeftAndToldOf) {
    EXPECT_EQ(run("generate --records 3000 -o records").status, 0);
    const auto sorted = [this](const std::string& words) {
        return run("sort records --stats=json " + (kByKey + words));
    };
    const std::string expected = sorted("").output;
    const Outcome tried = sorted("--huge-pages=try");
    const bool canHave = nlohmann::json::parse(tried.errors).at("huge_pages");
    EXPECT_EQ(tried.output, expected);
    const Outcome forced = sorted("--huge-pages=on");
    if (canHave) {
        EXPECT_TRUE(nlohmann::json::parse(forced.errors).at("huge_pages"));
        EXPECT_EQ(forced.output, expected);
    } else {
        EXPECT_EQ(forced.status, 2);
        EXPECT_THAT(forced.errors, testing::HasSubstr("no huge pages"));
    }
    EXPECT_EQ(sorted("--huge-pages=few").status, 2);
}

}  // namespace
}  // namespace tvsort::test

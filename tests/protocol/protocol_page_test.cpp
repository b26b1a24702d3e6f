// The tables of docs/protocol.md against the headers. The byte maps and the error codes are held to
// them by scripts/check-docs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "process/result/set_operation.h"
#include "protocol/slot_layout.h"
#include "tests/support/served_job.h"

namespace tvsort::test {
namespace {

using Row = std::vector<std::string>;

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? ""
                                      : text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

// The rows of the table that begins with `header`, without it and the line below it.
std::vector<Row> tableOf(const std::string& header) {
    std::ifstream page(TVSORT_PROTOCOL_PAGE);
    std::string line;
    while (std::getline(page, line) && line.rfind(header, 0) != 0) {
    }
    EXPECT_TRUE(page) << "no table begins with " << header;
    std::vector<Row> rows;
    std::getline(page, line);
    while (std::getline(page, line) && !line.empty()) {
        std::istringstream cells(line.substr(1));
        Row row;
        for (std::string cell; std::getline(cells, cell, '|');)
            row.push_back(trimmed(cell));
        rows.push_back(row);
    }
    return rows;
}

// "1, 10 to 12" is 1, 10, 11 and 12.
std::vector<int> numbersOf(const std::string& text) {
    std::vector<int> numbers;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        const std::size_t range = part.find(" to ");
        const int first = std::stoi(part);
        const int last = range == std::string::npos ? first : std::stoi(part.substr(range + 4));
        for (int number = first; number <= last; ++number)
            numbers.push_back(number);
    }
    return numbers;
}

// The row in whose first cell each number from 0 to `last` stands, which is to be just one.
std::vector<Row> rowsByNumber(const std::string& header, int last) {
    std::vector<Row> byNumber(static_cast<std::size_t>(last) + 1);
    for (const Row& row : tableOf(header)) {
        for (const int number : numbersOf(row[0])) {
            EXPECT_TRUE(byNumber.at(static_cast<std::size_t>(number)).empty()) << number;
            byNumber[static_cast<std::size_t>(number)] = row;
        }
    }
    for (const Row& row : byNumber)
        EXPECT_FALSE(row.empty()) << header << ": number " << &row - byNumber.data();
    return byNumber;
}

TEST(ProtocolPage, EveryTypeReadsTheBytesThatItIsSaidToRead) {
    const std::map<std::string, std::function<int(int)>> widths = {
        {"none", [](int) { return 0; }},
        {"1", [](int) { return 1; }},
        {"16", [](int) { return 16; }},
        {"522", [](int) { return 522; }},
        {"*fl*", [](int length) { return length; }},
        {"*fl*, 2 at least", [](int length) { return std::max(length, 2); }},
        {"*fl* if 4, else 8", [](int length) { return length == 4 ? 4 : 8; }},
        {"*fl* if 2 or 4, else 8",
         [](int length) { return length == 2 || length == 4 ? length : 8; }},
    };
    const std::vector<Row> rows = rowsByNumber("| Code | Bytes |", 255);
    for (int code = 0; code <= 255; ++code) {
        const auto& width = widths.at(rows[static_cast<std::size_t>(code)].at(1));
        for (const int length : {0, 1, 2, 3, 4, 5, 8, 16, 522, 65535}) {
            EXPECT_EQ(
                keyFieldBytes(static_cast<std::uint8_t>(code), static_cast<std::uint16_t>(length)),
                static_cast<std::uint32_t>(width(length)))
                << "type " << code << ", length " << length;
        }
    }
}

TEST(ProtocolPage, EveryKindAndModeHasItsRow) {
    using testing::HasSubstr;
    const std::vector<Row> kinds = rowsByNumber("| Kind |", kKeyKindMask);
    const auto kind = [&](KeyKind value) { return kinds[static_cast<std::size_t>(value)].at(1); };
    EXPECT_THAT(kind(KeyKind::kAscending), HasSubstr("sort key, ascending"));
    EXPECT_THAT(kind(KeyKind::kDescending), HasSubstr("sort key, descending"));
    EXPECT_THAT(kind(KeyKind::kAlsoDescending), HasSubstr("sort key, descending"));
    EXPECT_THAT(kind(KeyKind::kNullIndicators), HasSubstr("null indicators"));
    EXPECT_THAT(kind(KeyKind::kIgnored), HasSubstr("passed over"));
    const std::vector<Row> modes = rowsByNumber("| Mode | Result |", 255);
    const auto mode = [&](SortMode value) { return modes[static_cast<std::size_t>(value)].at(1); };
    EXPECT_EQ(mode(SortMode::kOrder), "every record");
    EXPECT_THAT(mode(SortMode::kDistinct), HasSubstr("that are equal, one"));
    EXPECT_THAT(mode(SortMode::kGroups), HasSubstr("number of groups"));
    EXPECT_THAT(mode(SortMode::kHierarchy), HasSubstr("siblings in order"));
    EXPECT_THAT(mode(SortMode::kUnique), HasSubstr("code 903"));
    EXPECT_THAT(mode(SortMode::kUniqueUnlessNull), HasSubstr("null"));
    rowsByNumber("| Mode | Bytes of the record", 255);
}

TEST(ProtocolPage, FortyPagesAreLaidOutAsShown) {
    const std::vector<Row> rows = tableOf("| Offset in the slot |");
    constexpr SlotLayout layout = {5, 8};
    const std::int64_t ends[] = {
        layout.frameAreaOffset(), layout.pageDescriptorsOffset(), layout.hashTableOffset(),
        layout.hashTableOffset() + layout.framesMax() * 4, layout.slotBytes()};
    ASSERT_EQ(rows.size(), std::size(ends));
    std::int64_t offset = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(std::stoll(rows[i].at(2)), offset);
        EXPECT_EQ(std::stoll(rows[i].at(3)), ends[i] - offset);
        offset = ends[i];
    }
    EXPECT_EQ(rows[2].at(1), "*B* × *P* × " + std::to_string(sizeof(PageDescriptor)));
}

TEST(ProtocolPage, ListsStandBehindTheRequestAsShown) {
    std::ifstream page(TVSORT_PROTOCOL_PAGE);
    const std::string text(std::istreambuf_iterator<char>(page), {});
    const std::string keys = std::to_string(sizeof(KeyDescriptor)) + " × `keyCount` |";
    const std::string items = std::to_string(sizeof(ByteWeightTable)) + " × `itemCount` |";
    const auto at = [](std::size_t offset) { return "| " + std::to_string(offset); };
    for (const std::string& row : {at(sizeof(SortRequest)) + " | " + keys,
                                   at(itemCountOffset(0)) + " + " + keys + " 2 | `itemCount`",
                                   at(itemCountOffset(0) + 2) + " + " + keys + " " + items})
        EXPECT_THAT(text, testing::HasSubstr(row));
}

TEST(ProtocolPage, LimitsAreThoseOfTheHeaders) {
    std::vector<std::int64_t> limits;
    for (const Row& row : tableOf("| What | At most |"))
        limits.push_back(std::stoll(row.at(1)));
    EXPECT_THAT(limits, testing::ElementsAre(kMessageBytesMax, kMessageBufferBytes, kKeysMax,
                                             kItemsMax, kOperandTagsMax, kHierarchyLevelMax, 65535,
                                             2147483647, kFrameAreaBytesMax, 65535));
}

// One record each for the counts of a row, and as many as it says come back.
TEST(ProtocolPage, OperandsAreCountedAsShown) {
    constexpr std::uint16_t kLength = 9;
    ServedJob served;
    int answers = 0;
    for (const Row& row : tableOf("| Equal records of operands 1, 2, 3 |")) {
        Records records = {Bytes(kLength, 2), Bytes(kLength, 3)};  // so that there are two
        const std::vector<int> counts = numbersOf(row[0]);
        for (std::size_t operand = 0; operand < counts.size(); ++operand) {
            Bytes record(kLength);
            record[kRecordFlagOffset] = static_cast<Byte>(operand + 1);
            records.insert(records.end(), static_cast<std::size_t>(counts[operand]), record);
        }
        KeyDescriptor key = ascendingKey(DataType::kInteger, 5, 4);
        key.groupKey = 1;
        for (std::uint8_t mode = 3; mode <= 6; ++mode, ++answers) {
            EXPECT_EQ(
                served.sort(records, {.recordLength = kLength}, {key}, static_cast<SortMode>(mode)),
                Records(static_cast<std::size_t>(std::stoi(row.at(mode - 2U))),
                        Bytes{0, 0, 0, 0, 1, 0, 0, 0, 0}))
                << row[0] << ", mode " << int{mode};
        }
    }
    EXPECT_GE(answers, 24);
}

}  // namespace
}  // namespace tvsort::test

// The collated comparison of UCS-2 strings, and keys of types 11 and 12 with a table in force.

#include "process/keys/collated_text.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/process/keys/key_cases.h"
#include "tests/support/collation_bytes.h"

namespace tvsort::test {
namespace {

Bytes unitBytes(const std::u16string& string) {
    Bytes bytes;
    for (const char16_t unit : string) {
        bytes.push_back(static_cast<Byte>(unit & 0xff));
        bytes.push_back(static_cast<Byte>(unit >> 8));
    }
    return bytes;
}

// The space weighs 10, a and A 20, b 30, c 5 (less than the space), tab what the space weighs.
// U+0400 to U+0402 have entries whose ranges do not give them a weight.
CollationBytes smallTable() {
    CollationBytes bytes;
    for (const auto& [unit, weight] :
         {std::pair{0x20, 10}, {0x09, 10}, {'a', 20}, {'A', 20}, {'b', 30}, {'c', 5}}) {
        bytes.setWeight(static_cast<std::uint16_t>(unit), static_cast<std::uint16_t>(weight));
    }
    bytes.setEntry(0x0400, 0x0800, 0x0400, 0x04ff);  // a range without own weights
    bytes.setEntry(0x0401, 0x0a00, 0x0500, 0x05ff);  // outside of its range
    bytes.setEntry(0x0402, 0x0c00, 0x0300, 0x0401);
    bytes.setEntry(0x0403, 0x0c00, 0x0403, 0x0403);  // in its range: 0x403
    bytes.setEntry(0x0404, 0x07ff, 0x0404, 0x0007);  // no range: 7
    return bytes;
}

int collate(const Byte* table, const std::u16string& left, const std::u16string& right,
            bool padded) {
    const Bytes a = unitBytes(left);
    const Bytes b = unitBytes(right);
    return collateCompare({table}, a.data(), static_cast<std::int32_t>(left.size()), b.data(),
                          static_cast<std::int32_t>(right.size()), padded);
}

TEST(CollatedText, ComparesByWeightPaddedAndUnpadded) {
    struct Case {
        std::u16string left, right;
        int padded, unpadded;
    };
    const Case collated[] = {
        {u"", u"", 0, 0},
        {u"ab", u"abb", -1, -1},
        {u"ab", u"abc", 1, -1},  // c weighs less than the space that stands against it
        {u"ab", u"ab  \t", 0, -1},
        {u"", u" ", 0, -1},
        {u"aA", u"Aa", 0, 0},
        {u"ab", u"A", 1, 1},
        {u"b", u"aaaa", 1, 1},
        {u"\u4e00", u"\u4e01", -1, -1},  // own values
        {u"a", u"\u4e00", -1, -1},
        {u"\u0400", u"\u0401", 0, 0},  // unmapped units are equal
        {u"\u0401", u"\u0402", 0, 0},
        {u"\u0400", u"\ufffe", 1, 1},  // and weigh the most
        {u"\u0402", u"\uffff", 0, 0},
        {u"\u0403", u"\u0402", -1, -1},
        {u"\u0404", u"c", 1, 1},
        {u"\u0404", u" ", -1, -1},
    };
    const CollationBytes bytes = smallTable();
    for (const Case& c : collated) {
        SCOPED_TRACE(&c - collated);
        EXPECT_EQ(collate(bytes.table(), c.left, c.right, true), c.padded);
        EXPECT_EQ(collate(bytes.table(), c.right, c.left, true), -c.padded);
        EXPECT_EQ(collate(bytes.table(), c.left, c.right, false), c.unpadded);
        EXPECT_EQ(collate(bytes.table(), c.right, c.left, false), -c.unpadded);
    }
}

TEST(CollatedText, AnUnmappedSpacePadsWithUnmappedUnits) {
    CollationBytes bytes = smallTable();
    bytes.setEntry(0x20, 0x0800, 0, 0);
    EXPECT_EQ(collate(bytes.table(), u"a", u"ab", true), 1);
    EXPECT_EQ(collate(bytes.table(), u"a", u"a\u0400\uffff", true), 0);
}

// The rule without any shortcut: every unit looked up, the shorter string padded to the longer.
int plainOrder(const Byte* table, std::u16string left, std::u16string right, bool padded) {
    if (padded) {
        left.resize(std::max(left.size(), right.size()), u' ');
        right.resize(left.size(), u' ');
    }
    for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
        const int difference = unitWeight({table}, left[i]) - unitWeight({table}, right[i]);
        if (difference != 0) return difference < 0 ? -1 : 1;
    }
    return left.size() == right.size() ? 0 : (left.size() < right.size() ? -1 : 1);
}

TEST(CollatedText, AgreesWithThePlainRuleOnRandomStrings) {
    constexpr unsigned kSeed = 20561;
    std::mt19937 random(kSeed);
    const CollationBytes bytes = smallTable();
    const std::u16string units = u" \taAbc\u0400\u0403\u4e00";
    const auto string = [&] {
        std::u16string made(random() % 5, u' ');
        for (char16_t& unit : made)
            unit = units[random() % units.size()];
        return made;
    };
    for (int i = 0; i < 20000; ++i) {
        const std::u16string left = string();
        const std::u16string right = string();
        for (const bool padded : {false, true}) {
            ASSERT_EQ(collate(bytes.table(), left, right, padded),
                      plainOrder(bytes.table(), left, right, padded))
                << "seed " << kSeed << ", pair " << i << ", padded " << padded;
        }
    }
}

class TableInForce {
  public:
    explicit TableInForce(const CollationBytes& bytes) : table_{bytes.table()} {
        collationTable = &table_;
    }
    ~TableInForce() { collationTable = nullptr; }

  private:
    CollationTable table_;
};

TEST(CollatedText, KeysFollowTheTableInForce) {
    const CollationBytes bytes = smallTable();
    const TableInForce inForce(bytes);
    KeyCases cases;
    struct Case {
        DataType type;
        Bytes left, right;
        Verdict ascending;
    };
    const auto prefixedUnits = [](std::int16_t length, const std::u16string& string) {
        std::u16string field(1, static_cast<char16_t>(length));
        return unitBytes(field + string);
    };
    const Case keys[] = {
        {DataType::kUnits, unitBytes(u"cb"), unitBytes(u"ac"), Verdict::kLeftFirst},
        {DataType::kUnits, unitBytes(u"aA"), unitBytes(u"Aa"), Verdict::kTie},
        {DataType::kUnitString, prefixedUnits(2, u"a"), prefixedUnits(4, u"Ac"),
         Verdict::kLeftFirst},
        {DataType::kUnitString, prefixedUnits(4, u"ab"), prefixedUnits(4, u"AA"),
         Verdict::kRightFirst},
        {DataType::kUnitString, prefixedUnits(2, u"a"), prefixedUnits(2, u"A"), Verdict::kTie},
        {DataType::kUnitString, prefixedUnits(3, u"ab"), prefixedUnits(2, u"A"), Verdict::kTie},
        {DataType::kUnitString, prefixedUnits(-4, u"b"), prefixedUnits(0, u"a"), Verdict::kTie},
        {DataType::kUnitString, prefixedUnits(-4, u"b"), prefixedUnits(2, u"c"),
         Verdict::kLeftFirst},
    };
    for (const Case& c : keys) {
        SCOPED_TRACE(&c - keys);
        cases.setKeys({ascendingKey(c.type, 0, 4)});
        EXPECT_EQ(cases.order(c.left, c.right), c.ascending);
        EXPECT_EQ(cases.difference() == Difference::kSame, c.ascending == Verdict::kTie);
        cases.setKeys({descendingKey(c.type, 0, 4)});
        EXPECT_EQ(cases.order(c.right, c.left), c.ascending);
    }
    cases.setKeys({ascendingKey(DataType::kUnitString, 0, 4)});
    cases.order(prefixedUnits(6, u"aaa"), prefixedUnits(2, u"a"));
    EXPECT_EQ(cases.job().errorCode, ErrorCode::kValueTooLong);
}

}  // namespace
}  // namespace tvsort::test

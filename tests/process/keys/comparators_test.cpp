// The order and the equality of values, type by type, and what both comparators make of them.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "tests/process/keys/key_cases.h"

namespace tvsort::test {
namespace {

constexpr auto kLeftFirst = Verdict::kLeftFirst;
constexpr auto kTie = Verdict::kTie;
constexpr auto kRightFirst = Verdict::kRightFirst;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

Verdict reversed(Verdict verdict) {
    if (verdict == kTie) return kTie;
    return verdict == kLeftFirst ? kRightFirst : kLeftFirst;
}

Bytes text(const std::string& characters) {
    return Bytes(characters.begin(), characters.end());
}

Bytes units(const std::u16string& string) {
    Bytes bytes;
    for (const char16_t unit : string) {
        bytes.push_back(static_cast<Byte>(unit & 0xff));
        bytes.push_back(static_cast<Byte>(unit >> 8));
    }
    return bytes;
}

Bytes unitString(std::int16_t length, const std::u16string& string) {
    Bytes bytes = bytesOf(length);
    const Bytes content = units(string);
    bytes.insert(bytes.end(), content.begin(), content.end());
    return bytes;
}

struct ValueCase {
    DataType type;
    std::uint16_t fieldLength;
    Bytes left;
    Bytes right;
    Verdict ascending;
};

// Values that compare the same way in both directions and for equality.
const ValueCase kValueCases[] = {
    {DataType::kInteger, 2, bytesOf<std::int16_t>(-2), bytesOf<std::int16_t>(1), kLeftFirst},
    {DataType::kInteger, 4, bytesOf(-7), bytesOf(5), kLeftFirst},
    {DataType::kInteger, 4, bytesOf(0x7fffffff), bytesOf(-0x7fffffff), kRightFirst},
    {DataType::kInteger, 8, bytesOf<std::int64_t>(-1), bytesOf<std::int64_t>(1LL << 40),
     kLeftFirst},
    {DataType::kInteger, 3, bytesOf<std::int64_t>(1LL << 40), bytesOf<std::int64_t>(1),
     kRightFirst},
    {DataType::kInteger, 0, bytesOf<std::int64_t>(5), bytesOf<std::int64_t>(5), kTie},
    {DataType::kFloat, 8, bytesOf(1.0), bytesOf(2.0), kLeftFirst},
    {DataType::kFloat, 8, bytesOf(-0.0), bytesOf(0.0), kTie},
    {DataType::kFloat, 4, bytesOf(-1.5F), bytesOf(-2.5F), kRightFirst},
    {DataType::kFloat, 8, bytesOf(1e308), bytesOf(-1e308), kRightFirst},
    {DataType::kBytes, 3, text("abc"), text("abd"), kLeftFirst},
    {DataType::kBytes, 2, text("abc"), text("abd"), kTie},
    {DataType::kBytes, 1, text("\x7f"), text("\x80"), kLeftFirst},
    {DataType::kBytes, 0, text("a"), text("b"), kTie},
    {DataType::kString, 8, prefixed("ab"), prefixed("abc"), kLeftFirst},
    {DataType::kString, 8, prefixed("b"), prefixed("abc"), kRightFirst},
    {DataType::kString, 8, prefixed(0, "x"), prefixed(-3, "y"), kRightFirst},
    {DataType::kString, 8, prefixed(-1, ""), prefixed("a"), kLeftFirst},
    {DataType::kString, 3, prefixed("abc"), prefixed("abd"), kLeftFirst},
    {DataType::kSingleByte, 9, text("\x7f"), text("\xff"), kLeftFirst},
    {DataType::kUnits, 5, units(u"aé"), units(u"aë"), kLeftFirst},
    {DataType::kUnits, 3, units(u"aé"), units(u"aë"), kTie},
    {DataType::kUnits, 2, units(u"\u0100"), units(u"\u00ff"), kRightFirst},
    {DataType::kUnitString, 8, unitString(2, u"a"), unitString(4, u"ab"), kLeftFirst},
    {DataType::kUnitString, 8, unitString(3, u"ab"), unitString(2, u"ab"), kRightFirst},
    {DataType::kNone, 4, bytesOf(1), bytesOf(2), kTie},
    {DataType::kAlsoNone, 4, bytesOf(1), bytesOf(2), kTie},
    {static_cast<DataType>(14), 4, bytesOf(1), bytesOf(2), kTie},
};

TEST(Comparators, ValuesOfEveryTypeCompareInBothDirectionsAndForEquality) {
    KeyCases cases;
    for (const ValueCase& c : kValueCases) {
        SCOPED_TRACE(testing::Message()
                     << "type " << int(c.type) << ", case " << (&c - kValueCases));
        cases.setKeys({ascendingKey(c.type, 0, c.fieldLength)});
        EXPECT_EQ(cases.order(c.left, c.right), c.ascending);
        EXPECT_EQ(cases.job().compareState, c.ascending == kTie ? 0 : 1);
        EXPECT_EQ(cases.difference(),
                  c.ascending == kTie ? Difference::kSame : Difference::kNewGroup);
        cases.setKeys({descendingKey(c.type, 0, c.fieldLength)});
        EXPECT_EQ(cases.order(), reversed(c.ascending));
        EXPECT_EQ(cases.job().errorCode, ErrorCode::kSuccess);
    }
}

TEST(Comparators, FloatsAreTolerantAscendingAndForEqualityAndExactDescending) {
    struct Case {
        Bytes left, right;
        std::uint16_t length;
        Verdict ascending, descending;
        Difference difference;
    };
    const auto same = Difference::kSame;
    const auto other = Difference::kNewGroup;
    const Case floats[] = {
        {bytesOf(1.0), bytesOf(1.0 + 0x1p-50), 8, kTie, kRightFirst, same},
        {bytesOf(1.0), bytesOf(1.0 + 0x1p-47), 8, kLeftFirst, kRightFirst, other},
        {bytesOf(1.0F), bytesOf(1.0F + 0x1p-20F), 4, kTie, kRightFirst, same},
        {bytesOf(1.0F), bytesOf(1.0F + 0x1p-18F), 4, kLeftFirst, kRightFirst, other},
        {bytesOf(1e308), bytesOf(-kInfinity), 8, kLeftFirst, kLeftFirst, other},
        {bytesOf(kNan), bytesOf(-1e308), 8, kRightFirst, kTie, other},
        {bytesOf(kNan), bytesOf(kInfinity), 8, kTie, kTie, same},
        {bytesOf(-kInfinity), bytesOf(kInfinity), 8, kTie, kRightFirst, same},
    };
    KeyCases cases;
    for (const Case& c : floats) {
        SCOPED_TRACE(&c - floats);
        cases.setKeys({ascendingKey(DataType::kFloat, 0, c.length)});
        EXPECT_EQ(cases.order(c.left, c.right), c.ascending);
        EXPECT_EQ(cases.difference(), c.difference);
        cases.setKeys({descendingKey(DataType::kFloat, 0, c.length)});
        EXPECT_EQ(cases.order(), c.descending);
        EXPECT_EQ(cases.difference(), c.difference);
    }
}

TEST(Comparators, TheFixedFieldSkipsItsFirstTenBytes) {
    KeyCases cases;
    cases.setKeys({ascendingKey(DataType::kFixedField, 0, 0)});
    Bytes left(522, 'a');
    Bytes right = left;
    right[9] = 'b';
    EXPECT_EQ(cases.order(left, right), kTie);
    left[521] = 'b';
    EXPECT_EQ(cases.order(left, right), kRightFirst);
}

TEST(Comparators, WeightTablesApplyByIdentifierAndSwitch) {
    KeyCases cases;
    SortJob& job = cases.job();
    job.itemCount = 3;
    for (int i = 0; i < 3; ++i) {
        for (int b = 0; b < 256; ++b) {
            job.items[i].weights[b] = static_cast<std::uint8_t>(255 - b);
        }
    }
    job.items[0].identifier = 7;  // switched off
    job.items[1].identifier = 9;
    job.items[1].applies = 1;
    job.items[1].weights[0x78] = job.items[1].weights[0x79];  // x weighs what y weighs
    job.items[2].identifier = 7;  // never reached: the first match decides
    job.items[2].applies = 1;
    const auto weighted = [&](DataType type, std::uint16_t identifier) {
        KeyDescriptor key = ascendingKey(type, 0, 4);
        key.weightTableId = identifier;
        cases.setKeys({key});
    };
    weighted(DataType::kWeightedBytes, 9);
    EXPECT_EQ(cases.order(text("aaaa"), text("aaab")), kRightFirst);
    EXPECT_EQ(cases.order(text("aaax"), text("aaay")), kTie);
    EXPECT_EQ(cases.difference(), Difference::kSame);
    for (const std::uint16_t identifier : {std::uint16_t{7}, std::uint16_t{8}}) {
        weighted(DataType::kWeightedBytes, identifier);
        EXPECT_EQ(cases.order(text("aaaa"), text("aaab")), kLeftFirst);
        weighted(DataType::kWeightedString, identifier);
        EXPECT_EQ(cases.order(prefixed("aa"), prefixed("ab")), kLeftFirst);
    }
    weighted(DataType::kWeightedString, 9);
    EXPECT_EQ(cases.order(prefixed("aa"), prefixed("ab")), kRightFirst);
    EXPECT_EQ(cases.order(prefixed("x"), prefixed("ya")), kLeftFirst);  // equal weights, shorter
    weighted(DataType::kBytes, 9);
    EXPECT_EQ(cases.order(text("aaaa"), text("aaab")), kLeftFirst);
}

TEST(Comparators, StoredLengthsAboveTheFieldsStopTheComparison) {
    for (const DataType type :
         {DataType::kWeightedString, DataType::kString, DataType::kUnitString}) {
        KeyCases cases;
        cases.setKeys({ascendingKey(type, 0, 4), ascendingKey(DataType::kSingleByte, 20, 1)});
        EXPECT_EQ(cases.order(prefixed(5, "aaaaa"), prefixed(1, "b")), kTie);
        EXPECT_EQ(cases.job().errorCode, ErrorCode::kValueTooLong);
        EXPECT_EQ(cases.job().compareState, 1);
        EXPECT_EQ(cases.difference(), Difference::kSame);
        EXPECT_EQ(cases.job().errorCode, ErrorCode::kValueTooLong);
        cases.order(prefixed(4, "aaaa"), prefixed(4, "aaaa"));
        EXPECT_EQ(cases.job().errorCode, ErrorCode::kSuccess);
    }
}

TEST(Comparators, NullsStandWhereTheirKeyPutsThem) {
    struct Case {
        std::uint8_t kindFlags;
        Verdict leftIsNull;
    };
    const Case placements[] = {
        {0x01, kRightFirst}, {0x00, kLeftFirst}, {0x02, kLeftFirst},
        {0x41, kLeftFirst},  {0x40, kLeftFirst}, {0x21, kRightFirst},
        {0x20, kRightFirst}, {0x60, kLeftFirst}, {0x61, kLeftFirst},
    };
    KeyCases cases;
    cases.job().hasKind4Key = 1;
    cases.job().kind4Key.fieldOffset = 10;
    for (const Case& c : placements) {
        SCOPED_TRACE(int{c.kindFlags});
        KeyDescriptor key = ascendingKey(DataType::kInteger, 0, 4);
        key.kindFlags = c.kindFlags;
        cases.setKeys({key});
        Bytes left = bytesOf(std::int64_t{5});
        left.resize(11, 0);
        Bytes right = left;
        right[0] = 6;
        left[10] = 1;
        EXPECT_EQ(cases.order(left, right), c.leftIsNull);
        EXPECT_EQ(cases.difference(), Difference::kNewGroup);
        right[10] = 1;  // both null: the values do not count
        EXPECT_EQ(cases.order(left, right), kTie);
        EXPECT_EQ(cases.difference(), Difference::kSame);
        left[10] = 2;  // only 1 means null
        right[10] = 0;
        EXPECT_NE(cases.order(left, right), kTie);
        EXPECT_EQ(cases.order(left, right) == kLeftFirst, (c.kindFlags & 0x1f) == 1);
    }
}

TEST(Comparators, UniqueCheckRefusesRecordsThatDifferInTheLastKeyOnly) {
    KeyCases cases;
    SortJob& job = cases.job();
    const auto record = [](std::int32_t first, std::int32_t last, Byte firstNull) {
        Bytes bytes = bytesOf(first);
        const Bytes rest = bytesOf(last);
        bytes.insert(bytes.end(), rest.begin(), rest.end());
        bytes.insert(bytes.end(), {firstNull, 0});
        return bytes;
    };
    const auto check = [&](SortMode mode, const KeyDescriptor& last, bool indicators) {
        job.sortMode = mode;
        job.hasKind4Key = indicators ? 1 : 0;
        job.kind4Key.fieldOffset = 8;
        cases.setKeys({ascendingKey(DataType::kInteger, 0, 4), last});
    };
    const KeyDescriptor last = ascendingKey(DataType::kInteger, 4, 4, 2);
    for (const SortMode mode : {SortMode::kUnique, SortMode::kUniqueUnlessNull}) {
        check(mode, last, true);
        EXPECT_EQ(cases.order(record(1, 5, 0), record(1, 6, 0)), kTie);
        EXPECT_EQ(job.errorCode, ErrorCode::kNotUnique);
        EXPECT_EQ(cases.order(record(1, 5, 0), record(1, 5, 0)), kTie);
        EXPECT_EQ(job.errorCode, ErrorCode::kSuccess);
        EXPECT_EQ(cases.order(record(1, 5, 0), record(2, 5, 0)), kLeftFirst);
        EXPECT_EQ(job.errorCode, ErrorCode::kSuccess);
        EXPECT_EQ(cases.difference(), Difference::kNewGroup);
    }
    cases.order(record(1, 5, 1), record(2, 6, 1));
    EXPECT_EQ(job.errorCode, ErrorCode::kSuccess);  // mode 9: a null among the earlier keys
    check(SortMode::kUnique, last, true);
    cases.order(record(1, 5, 1), record(2, 6, 1));
    EXPECT_EQ(job.errorCode, ErrorCode::kNotUnique);
    check(SortMode::kUniqueUnlessNull, last, false);
    cases.order(record(1, 5, 1), record(1, 6, 1));
    EXPECT_EQ(job.errorCode, ErrorCode::kNotUnique);  // no indicators, no nulls
    for (const KeyDescriptor& unchecked :
         {descendingKey(DataType::kInteger, 4, 4, 2), ascendingKey(DataType::kInteger, 4, 2, 2),
          ascendingKey(DataType::kBytes, 4, 4, 2)}) {
        check(SortMode::kUnique, unchecked, true);
        EXPECT_NE(cases.order(record(1, 5, 0), record(1, 6, 0)), kTie);
        EXPECT_EQ(job.errorCode, ErrorCode::kSuccess);
    }
}

TEST(Comparators, OperandTagsDecideBetweenEqualRecords) {
    KeyCases cases;
    cases.job().modeFlag = 1;
    const Bytes left = {7, 0, 0, 0, 1};
    const Bytes right = {7, 0, 0, 0, 2};
    cases.setKeys({ascendingKey(DataType::kInteger, 0, 4)});
    EXPECT_EQ(cases.order(left, right), kLeftFirst);
    EXPECT_EQ(cases.job().compareState, 1);
    EXPECT_EQ(cases.difference(), Difference::kSame);
    cases.setKeys({descendingKey(DataType::kInteger, 0, 4)});
    EXPECT_EQ(cases.order(left, right), kRightFirst);
    cases.setKeys({});
    EXPECT_EQ(cases.order(left, right), kLeftFirst);
    EXPECT_EQ(cases.order(left, left), kTie);
    EXPECT_EQ(cases.job().compareState, 0);
}

TEST(Comparators, GroupKeysBoundTheEqualityUnlessThereIsALimit) {
    KeyCases cases;
    const Bytes left = {1, 1, 1};
    const Bytes right = {1, 1, 2};
    const auto setGroups = [&](std::uint8_t first, std::uint8_t second, std::uint8_t third) {
        KeyDescriptor keys[3];
        const std::uint8_t groups[] = {first, second, third};
        for (std::uint8_t i = 0; i < 3; ++i) {
            keys[i] = ascendingKey(DataType::kSingleByte, i, 1);
            keys[i].groupKey = groups[i];
        }
        cases.setKeys({keys[0], keys[1], keys[2]});
        cases.setRecords(left, right);
    };
    setGroups(2, 2, 1);
    EXPECT_EQ(cases.difference(), Difference::kDifferent);
    setGroups(2, 0, 2);
    EXPECT_EQ(cases.difference(), Difference::kSame);
    setGroups(0, 2, 2);
    EXPECT_EQ(cases.difference(), Difference::kSame);
    cases.job().limitCount = 5;
    EXPECT_EQ(cases.difference(), Difference::kNewGroup);
}

}  // namespace
}  // namespace tvsort::test

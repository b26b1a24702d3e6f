// The order of decimal values and what the comparators make of invalid ones.

#include "process/keys/decimal_value.h"

#include <gtest/gtest.h>

#include "tests/process/keys/key_cases.h"

namespace tvsort::test {
namespace {

struct Digit {
    int place;  // byte of the value, 1 the least significant
    Byte digit;
};

Bytes decimal(Byte classByte, std::initializer_list<Digit> digits = {}) {
    Bytes value(kDecimalBytes, 0);
    value[0] = classByte;
    for (const Digit& digit : digits)
        value[static_cast<std::size_t>(digit.place)] = digit.digit;
    return value;
}

Bytes fullDecimal(Byte classByte) {
    Bytes value(kDecimalBytes, 99);
    value[0] = classByte;
    return value;
}

// From the smallest on; the values of a row are equal.
const std::vector<std::vector<Bytes>> kAscending = {
    {decimal(3), decimal(3, {{1, 5}}), fullDecimal(3)},
    {fullDecimal(1)},
    {decimal(1, {{15, 1}})},
    {decimal(1, {{8, 1}, {7, 1}})},
    {decimal(1, {{8, 1}})},
    {decimal(1, {{7, 99}, {1, 99}})},
    {decimal(1, {{1, 5}})},
    {decimal(1, {{1, 3}})},
    {decimal(0), decimal(1), decimal(2)},
    {decimal(2, {{1, 3}})},
    {decimal(2, {{1, 99}})},
    {decimal(2, {{2, 1}})},
    {decimal(2, {{7, 99}, {1, 99}})},
    {decimal(2, {{8, 1}})},
    {decimal(2, {{15, 1}})},
    {decimal(2, {{15, 1}, {1, 1}})},
    {fullDecimal(2)},
    {decimal(4), decimal(4, {{15, 7}})},
};

const std::vector<Bytes> kInvalid = {
    decimal(0, {{1, 1}}),
    decimal(0, {{15, 1}}),
    decimal(5),
    decimal(255),
    decimal(2, {{1, 100}}),
    decimal(1, {{15, 100}}),
    decimal(2, {{8, 128}, {1, 1}}),
    decimal(1, {{8, 100}}),
    decimal(3, {{7, 100}}),
    decimal(4, {{1, 255}}),
};

TEST(DecimalValues, CompareByClassAndMagnitude) {
    for (std::size_t left = 0; left < kAscending.size(); ++left) {
        for (std::size_t right = 0; right < kAscending.size(); ++right) {
            const int wanted = left < right ? -1 : (left > right ? 1 : 0);
            for (const Bytes& a : kAscending[left]) {
                for (const Bytes& b : kAscending[right]) {
                    EXPECT_EQ(int(compareDecimals(a.data(), b.data())), wanted)
                        << "rows " << left << " and " << right;
                }
            }
        }
    }
}

TEST(DecimalValues, WhatIsNoDecimalComparesAsInvalidWithEverything) {
    for (const Bytes& invalid : kInvalid) {
        SCOPED_TRACE(&invalid - kInvalid.data());
        EXPECT_EQ(decimalClass(invalid.data()), DecimalClass::kInvalid);
        for (const auto& row : kAscending) {
            EXPECT_EQ(int(compareDecimals(invalid.data(), row[0].data())), 5);
            EXPECT_EQ(int(compareDecimals(row[0].data(), invalid.data())), 5);
        }
        EXPECT_EQ(int(compareDecimals(invalid.data(), kInvalid[0].data())), 5);
    }
}

TEST(DecimalValues, StandInBothDirectionsAndInvalidOnesRaiseUnderAscendingKeysOnly) {
    KeyCases cases;
    for (const DataType type : {DataType::kDecimal, DataType::kAlsoDecimal}) {
        Bytes small = decimal(1, {{1, 5}});
        Bytes large = decimal(1, {{1, 3}});
        Bytes invalid = decimal(7);
        small.push_back(1);
        large.push_back(2);
        invalid.push_back(3);
        const KeyDescriptor next = ascendingKey(DataType::kSingleByte, 16, 1, 2);

        cases.setKeys({ascendingKey(type, 0, 0), next});
        EXPECT_EQ(cases.order(small, large), Verdict::kLeftFirst);
        EXPECT_EQ(cases.difference(), Difference::kNewGroup);
        EXPECT_EQ(cases.job().errorCode, ErrorCode::kSuccess);
        EXPECT_EQ(cases.order(invalid, small), Verdict::kRightFirst) << "the next key decides";
        EXPECT_EQ(cases.job().errorCode, ErrorCode::kDecimalInvalid);
        cases.setRecords(invalid, invalid);
        EXPECT_EQ(cases.difference(), Difference::kNewGroup);
        EXPECT_EQ(cases.job().errorCode, ErrorCode::kSuccess);

        cases.setKeys({descendingKey(type, 0, 0), next});
        EXPECT_EQ(cases.order(small, large), Verdict::kRightFirst);
        EXPECT_EQ(cases.order(invalid, small), Verdict::kRightFirst);
        EXPECT_EQ(cases.job().errorCode, ErrorCode::kSuccess);
    }
}

}  // namespace
}  // namespace tvsort::test

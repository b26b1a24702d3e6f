// Key values from text: what each format makes of a text, byte for byte, and what it refuses.

#include "host/values/value_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/host_error.h"
#include "host/values/decimal_text.h"
#include "host/values/ucs2_text.h"

namespace tvsort::host {
namespace {

using testing::HasSubstr;

std::string hex(const std::vector<Byte>& bytes) {
    std::string text;
    for (const Byte byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string encoded(const std::string& format, const std::string& text) {
    try {
        ValueEncoder encoder(valueFormat(format));
        return hex(encoder.encode(text));
    } catch (const HostError& error) {
        EXPECT_EQ(error.kind(), FailureKind::kBadUse);
        return error.what();
    }
}

// Without the zeros that nearly all decimals end in.
std::string decimal(const std::string& text, int scale) {
    std::string bytes = encoded("decimal:" + std::to_string(scale), text);
    return bytes.size() == 32 ? bytes.substr(0, bytes.find_last_not_of('0') + 1) : bytes;
}

TEST(ValueText, DecimalsStandAtTheKeysScale) {
    EXPECT_EQ(decimal("-12.50", 2), "01320c");
    EXPECT_EQ(decimal("-12.5", 2), "01320c");
    EXPECT_EQ(decimal("-12.5", 1), "011901");
    EXPECT_EQ(decimal("12", 4),
              "02"
              "00000c");
    EXPECT_EQ(decimal("+.07", 2), "0207");
    EXPECT_EQ(decimal("007.", 0), "0207");
    EXPECT_EQ(decimal("-0.00", 2), "");  // zero has no sign
    EXPECT_EQ(decimal("lowest", 2), "03");
    EXPECT_EQ(decimal("highest", 2), "04");
    EXPECT_EQ(decimal("99" + std::string(28, '9'), 0),
              "02"
              "636363636363636363636363636363");
    EXPECT_EQ(decimal("1." + std::string(28, '0') + "9", 29), "0209000000000000000000000000000a");
}

TEST(ValueText, DecimalsAreNeverRounded) {
    EXPECT_THAT(decimal("-12.505", 2), HasSubstr("3 digits behind the point, and the scale is 2"));
    EXPECT_THAT(decimal("1" + std::string(28, '0'), 2), HasSubstr("room for 28 digits"));
    for (const char* text : {"", "-", ".", "1,5", "1e5", "--1", "1.2.3", " 1", "0x1"}) {
        EXPECT_THAT(decimal(text, 3), HasSubstr("is no decimal")) << text;
    }
}

TEST(ValueText, NumbersFillTheirBytes) {
    const char* const numbers[][3] = {
        {"int16", "-32768", "0080"},           {"int32", "+7", "07000000"},
        {"int64", "-2", "feffffffffffffff"},   {"byte", "255", "ff"},
        {"float", "1.5", "0000c03f"},          {"double", "-2e0", "00000000000000c0"},
        {"double", "inf", "000000000000f07f"},
    };
    for (const auto& [format, text, bytes] : numbers)
        EXPECT_EQ(encoded(format, text), bytes);
    const char* const refused[][3] = {
        {"int16", "32768", "out of range"}, {"byte", "-1", "is no number from 0 to 255"},
        {"int32", "7 ", "nothing else"},    {"int32", "", "nothing else"},
        {"int64", "+-7", "nothing else"},   {"double", "1e999", "out of range"},
        {"float", "1.5x", "nothing else"},
    };
    for (const auto& [format, text, words] : refused) {
        EXPECT_THAT(encoded(format, text), HasSubstr(words)) << text;
    }
}

TEST(ValueText, Ucs2HoldsTheBasicPlaneAndNamesTheCharacterThatLiesBeyond) {
    EXPECT_EQ(encoded("ucs2", "aé€"), "6100e900ac20");
    EXPECT_EQ(encoded("ucs2", ""), "");
    EXPECT_EQ(encoded("ucs2", "\xef\xbf\xbf"), "ffff");
    EXPECT_THAT(encoded("ucs2", "né😀"), HasSubstr("character 3, U+1F600, lies beyond"));
    EXPECT_THAT(encoded("ucs2", "é\xff"), HasSubstr("character 2 is not UTF-8"));
    EXPECT_THAT(encoded("ucs2", "\xc3"), HasSubstr("character 1 is not UTF-8"));
    EXPECT_THAT(encoded("ucs2", "\xed\xa0\x80"), HasSubstr("character 1 is not UTF-8"));
    EXPECT_EQ(encoded("ucs2", "ok"), "6f006b00");  // after a failure too
}

TEST(ValueText, GeometriesBecomeLittleEndianBinaryOfTwoDimensions) {
    const std::string one = "000000000000f03f";
    const std::string two = "0000000000000040";
    const std::string nowhere(32, 'f');
    EXPECT_EQ(encoded("wkt", "POINT (1 2)"), "0101000000" + one + two);
    EXPECT_EQ(encoded("wkt", "POINT Z (1 2 3)"), "0101000000" + one + two);
    EXPECT_EQ(encoded("wkt", "POINT EMPTY"), "0101000000" + nowhere);
    EXPECT_EQ(encoded("wkt", "MULTIPOINT (1 2)"),
              "010400000001000000"
              "0101000000" +
                  one + two);
    EXPECT_EQ(encoded("wkt", "GEOMETRYCOLLECTION (POINT EMPTY, LINESTRING (1 2, 2 1))"),
              "010700000002000000"
              "0101000000" +
                  nowhere + "010200000002000000" + one + two + two + one);
    EXPECT_EQ(encoded("wkt-envelope", "LINESTRING (2 1, 1 2)"), one + one + two + two);
    EXPECT_EQ(encoded("wkt-envelope", "POLYGON EMPTY"),
              "ffffffffffffef7fffffffffffffef7fffffffffffffefffffffffffffffefff");
    for (const char* text : {"", "POINT", "POINT (1)", "CIRCLE (1 2)"}) {
        EXPECT_THAT(encoded("wkt", text), HasSubstr("is no geometry: ParseException")) << text;
    }
    EXPECT_THAT(encoded("wkt", std::string("POINT (1 2)\0)", 13)), HasSubstr("zero byte"));
}

TEST(ValueText, StringsAreTheirBytesAndEndWhereALengthDoes) {
    EXPECT_EQ(encoded("string", "a\xff"), "61ff");
    EXPECT_EQ(encoded("string", std::string(32767, 'a')).size(), 2U * 32767);
    EXPECT_THAT(encoded("string", std::string(32768, 'a')), HasSubstr("takes 32768 bytes"));
    EXPECT_THAT(encoded("ucs2", std::string(16384, 'a')), HasSubstr("takes 32768 bytes"));
}

TEST(ValueText, FormatsAreNamedWithAScaleWhereTheyHaveOne) {
    for (const char* text : {"decimal", "decimal:", "decimal:31", "decimal:-1", "decimal:2x"}) {
        EXPECT_THAT(encoded(text, "1"), HasSubstr("from 0 to 30"));
    }
    EXPECT_THAT(encoded("int32:2", "1"), HasSubstr("only decimal takes one"));
    EXPECT_THAT(encoded("text", "1"), HasSubstr("the types are int16, int32"));
}

TEST(ValueText, KeysDescribeTheirValues) {
    const KeyDescriptor decimal = valueFormat("decimal:2").key(8, 0);
    EXPECT_EQ(decimal.dataType, 4);
    EXPECT_EQ(decimal.fieldOffset, 8);
    const KeyDescriptor wkt = valueFormat("wkt").key(0, 93);
    EXPECT_EQ(wkt.dataType, 9);
    EXPECT_EQ(wkt.geometryType, 255);
    EXPECT_EQ(wkt.fieldLength, 93);
    EXPECT_EQ(wkt.kindFlags, 0x01);
    EXPECT_EQ(valueFormat("wkt-envelope").key(0, 0).kindFlags, 0x81);
}

}  // namespace
}  // namespace tvsort::host

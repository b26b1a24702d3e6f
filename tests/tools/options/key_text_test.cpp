// The one grammar of keys: what each kind of input makes of a text, and what it refuses.

#include "tools/options/key_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/host_error.h"

namespace tvsort::tools {
namespace {

using testing::HasSubstr;

constexpr auto kRecord = host::ValuePlace::kRecord;
constexpr auto kLine = host::ValuePlace::kLine;
constexpr auto kColumn = host::ValuePlace::kColumn;

// The descriptor's type, offset, length, kind bits and geometry, of values up to 9 bytes where the
// text leaves the length open.
std::vector<int> described(const std::string& text, host::ValuePlace place) {
    const KeyText parsed = parseKey(text, place);
    const KeyDescriptor key = parsed.descriptor(parsed.length.value_or(9));
    return {key.dataType, key.fieldOffset, key.fieldLength, key.kindFlags, key.geometryType};
}

std::string refusal(const std::string& text, host::ValuePlace place) {
    try {
        parseKey(text, place);
        return "taken";
    } catch (const host::HostError& error) {
        EXPECT_EQ(error.kind(), host::FailureKind::kBadUse);
        return error.what();
    }
}

TEST(KeyText, SaysTypePlaceAndOrder) {
    struct Case {
        const char* text;
        host::ValuePlace place;
        std::vector<int> descriptor;
    };
    const Case cases[] = {
        {"int16:7", kRecord, {2, 7, 2, 0x01, 0}},
        {"double:65535:desc", kRecord, {3, 65535, 8, 0x00, 0}},
        {"decimal:1:asc:nulls-last", kRecord, {4, 1, 16, 0x21, 0}},
        {"bytes:10:20:nulls-first:desc", kRecord, {6, 10, 20, 0x40, 0}},
        {"string:0:0", kRecord, {9, 0, 0, 0x01, 0}},
        {"field512:3", kRecord, {13, 3, 522, 0x01, 0}},
        {"wkt", kLine, {9, 0, 9, 0x01, 255}},
        {"wkt-envelope:desc", kLine, {9, 0, 32, 0x80, 255}},
        {"a:double-tolerant:nulls-first", kColumn, {3, 0, 8, 0x41, 0}},
        {"a:weighted-text:40:desc", kColumn, {8, 0, 40, 0x00, 0}},
        {"a:wkt:90", kColumn, {9, 0, 90, 0x01, 255}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(described(c.text, c.place), c.descriptor) << c.text;
    EXPECT_EQ(parseKey("a:wkt", kColumn).length, std::nullopt);
}

// The type, then the letters of what is said of it.
TEST(KeyText, SaysHowOrderedBytesAreMade) {
    const char* const cases[][2] = {
        {"a", "text"},
        {"a:desc", "text d"},
        {"a:text:de:primary:desc", "text:de:primary d"},
        {"a:decimal:2:nulls-first", "decimal:2 n"},
        {"a:double:nan-first:nulls-last:asc", "double Na"},
        {"a:auto:nan-last", "auto A"},
    };
    for (const auto& [text, expected] : cases) {
        const std::optional<host::KeyForm> form = parseKey(text, kColumn).ordered;
        ASSERT_TRUE(form.has_value()) << text;
        std::string words = form->type.text() + " ";
        if (form->isDescending) words += 'd';
        if (form->nulls != host::Placement::kDefault)
            words += form->nulls == host::Placement::kFirst ? 'n' : 'N';
        if (form->nans != host::Placement::kDefault)
            words += form->nans == host::Placement::kFirst ? 'a' : 'A';
        if (words.ends_with(' ')) words.pop_back();
        EXPECT_EQ(words, expected) << text;
    }
    EXPECT_EQ(parseKey("inet", kLine).ordered->type.name, "inet");
    EXPECT_EQ(parseKey("int:0", kRecord).ordered, std::nullopt);
    EXPECT_EQ(parseKey("a:wkt", kColumn).ordered, std::nullopt);
}

TEST(KeyText, NamesAColumnInQuotesWhereItHasAColon) {
    EXPECT_EQ(parseKey("\"a:b\":int:desc", kColumn).column, "a:b");
    EXPECT_EQ(parseKey("3:int", kColumn).column, "3");
    EXPECT_EQ(parseKey("\"a\"\":\":int", kColumn).column, "a\":");
    EXPECT_EQ(parseKey("int", kColumn).column, "int");
    EXPECT_THAT(refusal("\"a:int", kColumn), HasSubstr("the quote is not closed"));
}

// In each place, two words for one type; `ucs2` alone is not the same everywhere.
TEST(KeyText, KnowsTheWordsOfEachPlaceInTheOthers) {
    struct Case {
        host::ValuePlace place;
        const char* word;
        const char* other;
    };
    const Case cases[] = {
        {kRecord, "int:4", "int64:4"},
        {kRecord, "text:4:5", "string:4:5"},
        {kRecord, "weighted-text:4:5", "weighted-string:4:5"},
        {kRecord, "ucs2:4:6", "padded-ucs2:4:6"},
        {kLine, "ucs2", "ucs2-string"},
        {kColumn, "a:weighted-string", "a:weighted-text"},
        {kColumn, "a:ucs2:4", "a:ucs2-string:4"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(described(c.word, c.place), described(c.other, c.place)) << c.word;
    EXPECT_EQ(described("ucs2:4:6", kRecord)[0], 11);
    EXPECT_EQ(described("ucs2", kLine)[0], 12);
    EXPECT_EQ(described("a:ucs2:4", kColumn)[0], 12);
}

TEST(KeyText, SaysWhatIsWrongAndWhatToWrite) {
    struct Case {
        const char* text;
        host::ValuePlace place;
        const char* reason;
    };
    const Case cases[] = {
        {"", kRecord, "there is no type \"\" of fields; the types are text, int16"},
        {"wkt:0:9", kRecord, "there is no type \"wkt\""},
        {"int16", kRecord, "the offset is missing"},
        {"int16:", kRecord, "the offset \"\" is no number from 0 to 65535"},
        {"int16:65536", kRecord, "the offset \"65536\" is no number"},
        {"int16:-1", kRecord, "the offset \"-1\" is no number"},
        {"int16:0:2", kRecord, "the length of type int16 is given by the type"},
        {"field512:0:522", kRecord, "the length of type field512 is given"},
        {"bytes:0", kRecord, "a key of type bytes needs a length"},
        {"bytes:0:desc", kRecord, "a key of type bytes needs a length"},
        {"bytes:0:4:", kRecord, "\"\" is not known; write TYPE:OFFSET[:LENGTH]["},
        {"bytes:0:70000", kRecord, "the length \"70000\" is no number"},
        {"bytes:0:4:5", kRecord, "\"5\" is not known"},
        {"bytes", kLine, "there is no type \"bytes\"; the types are text"},
        {"decimal:-1", kLine, "\"-1\" is no scale"},
        {"decimal:2:3", kLine, "\"2:3\" is no scale"},
        {"int:2", kLine, "the length of type int is given by the type; write TYPE["},
        {"int:desc:asc", kLine, "\"asc\" says the direction once more"},
        {"int:nulls-first:nulls-first", kLine, "says the nulls' place once more"},
        {"bytes:0:4:desc:desc", kRecord, "says the direction once more"},
        {"int:nan-first", kLine, "\"nan-first\" is for double, float and decimal"},
        {"double:0:nan-first", kRecord, "is for double, float and decimal"},
        {"int:down", kLine, "--as int:down: \"down\" is not known"},
        {"a:integer", kColumn, "there is no type and no word \"integer\"; the types are text"},
        {"a:", kColumn, "there is no type and no word \"\""},
        {"a:int:8", kColumn, "--key a:int:8: the length of type int is given by the type"},
        {"a:text:x", kColumn, "ICU knows no locale \"x\""},
        {"a:string:x", kColumn, "\"x\" is not known; write COLUMN[:TYPE]["},
        {"a:desc:int", kColumn, "\"int\" is not known"},
    };
    for (const Case& c : cases)
        EXPECT_THAT(refusal(c.text, c.place), HasSubstr(c.reason)) << c.text;
}

TEST(KeyText, FindsColumnsByNameOrNumber) {
    const std::vector<std::string> names = {"a", "b", "a", "2"};
    EXPECT_EQ(columnIndexOf("b", names, 4, "--key"), 1U);
    EXPECT_EQ(columnIndexOf("2", names, 4, "--key"), 3U);
    EXPECT_EQ(columnIndexOf("4", {}, 4, "--key"), 3U);
    for (const char* const none : {"0", "5", "b", "-1", "1x", ""})
        EXPECT_THROW(columnIndexOf(none, {}, 4, "--key"), host::HostError) << none;
    for (const char* const none : {"a", "c", "1"})
        EXPECT_THROW(columnIndexOf(none, names, 4, "--key"), host::HostError) << none;
}

}  // namespace
}  // namespace tvsort::tools

// Text lines that are values, and collations, through the built command.

#include <gmock/gmock.h>

#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::HasSubstr;

class ValueLines : public CommandTest {};

TEST_F(ValueLines, AreOrderedByWhatTheyMean) {
    struct Case {
        const char* options;
        const char* input;
        const char* output;
    };
    const Case cases[] = {
        {"--as int32", "10\n9\n-1\n\n+9\n", "-1\n9\n+9\n10\n\n"},
        {"--as int64:desc", "10\n\n9\n", "\n10\n9\n"},
        {"--as int16:desc:nulls-last", "10\n\n9\n", "10\n9\n\n"},
        {"--as int16:nulls-first", "10\n\n9", "\n9\n10\n"},
        {"--as decimal:2", "3.5\n-12.50\n100\n-0.05\n", "-12.50\n-0.05\n3.5\n100\n"},
        {"--as double", "1e3\n-inf\n5\n", "-inf\n5\n1e3\n"},
        {"--as double-tolerant", "1e3\n-inf\n5\n", "5\n1e3\n-inf\n"},
        {"--as double:desc:nan-last", "nan\n1\n\n2\n", "\n2\n1\nnan\n"},
        {"--as decimal", "1e3\n-0.5\n20\n", "-0.5\n20\n1e3\n"},
        {"--as version:desc", "1.9\n1.10\n", "1.10\n1.9\n"},
        {"--as auto", "10\n9.5\n", "9.5\n10\n"},
        {"--as text:de", "Zebra\nähnlich\nApfel\n", "ähnlich\nApfel\nZebra\n"},
        {"--as ucs2", "é\nz\n\na\n", "\na\nz\né\n"},
        {"--as ucs2 --collation fr", "é\nz\nF\n\ne\nE\n", "\ne\nE\né\nF\nz\n"},
        {"--as ucs2:desc --collation sv", "o\nö\nz\nå\n", "ö\nå\nz\no\n"},
        {"--as ucs2 --collation primary.col --distinct", "é\nz\ne\nZ\n", "é\nz\n"},
        {"--as wkt", "POINT (2 1)\nLINESTRING (0 3, 5 0)\n",
         "LINESTRING (0 3, 5 0)\nPOINT (2 1)\n"},
        {"--as wkt-envelope", "POINT (2 1)\nPOINT (2 0)\n", "POINT (2 0)\nPOINT (2 1)\n"},
        {"--as decimal:1 --groups=count", "2\n1\n2.0\n", "1\t1\n2\t2\n"},
    };
    ASSERT_EQ(run("collation root --strength primary -o primary.col").status, 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options);
        write("input", c.input);
        for (const char* memory : {"64M", "80K"}) {
            const Outcome outcome =
                run(std::string("sort --lines input --memory ") + memory + " " + c.options);
            EXPECT_EQ(outcome.status, 0) << outcome.errors;
            EXPECT_EQ(outcome.output, c.output);
        }
    }
}

TEST_F(ValueLines, ThatAreNoValuesAreNamed) {
    const char* const cases[][3] = {
        {"--as int16", "1\n2\n99999\n", "line 3 of input: \"99999\" is no integer of 16 bits"},
        {"--as decimal:2", "1.234\n", "line 1 of input: \"1.234\" is no decimal: it has 3 digits"},
        {"--as ucs2", "a\nné😀\n",
         "line 2 of input: \"né😀\" is no UCS-2 text: character 3, U+1F600"},
        {"--as wkt", "POINT (1 2)\nPUNKT (1 2)\n",
         "line 2 of input: \"PUNKT (1 2)\" is no geometry"},
        {"--as txt", "a\n", "there is no type \"txt\"; the types are text, string, int"},
        {"--as int16:down", "1\n", "--as int16:down: \"down\" is not known"},
        {"--as ucs2 --collation input", "a\n", "input is no collation file: its 2 bytes"},
        {"--as ucs2 --collation xy", "a\n", "ICU knows no locale \"xy\""},
        {"--as string --collation fr", "a\n",
         "--collation orders UCS-2 text, and there is no such key"},
    };
    for (const auto& [options, input, words] : cases) {
        write("input", input);
        const Outcome outcome = run(std::string("sort --lines input ") + options);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(outcome.errors, HasSubstr(words));
    }
}

TEST_F(ValueLines, AreVerifiedByTheirMeaning) {
    write("input", "9\n10\n\n");
    EXPECT_EQ(run("verify --lines --as int32 input").status, 0);
    EXPECT_EQ(run("verify --lines input").status, 1);
    write("input", "9\n10\n");
    const Outcome outcome = run("verify --lines --as int32:desc input");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("line 2 must not stand behind line 1"));
    write("input", "9\nx\n");
    EXPECT_THAT(run("verify --lines --as int32 input").errors, HasSubstr("line 2 of input"));
}

}  // namespace
}  // namespace tvsort::test

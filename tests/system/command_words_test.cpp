// Words that users of other programs bring: what each of them makes of a few rows.

#include <gmock/gmock.h>

#include <algorithm>

#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class Words : public CommandTest {
  protected:
    Words() {
        write("lines", "b\na\nc\na\n");
        write("zeros", std::string("b\nx\0a\0", 6));
        write("fields", "x  10 b\n\ty 9  a z\nz\n");
        write("a.csv", "id,v,v\n1,b,\n2,a,7\n1,b,\n");
        write("bad.csv", "id,v\n3,x\nq,y\n1\n,w\n2,z\n");
        write("odd.csv", "n,t\nshort\n\"\",a\nshort\n\"\",b\n1,\n");
        write("ragged.csv", "a,b\n2\n\n1,x,y\n");
        write("null.csv", "n\n2\n\\N\n1\n");
        write("sorted", "1\n2\n10\n");
    }
};

TEST_F(Words, MakeWhatTheyMean) {
    struct Case {
        const char* words;
        std::string output;
        int status = 0;
    };
    const Case cases[] = {
        {"sort --lines --reverse lines", "c\nb\na\na\n"},
        {"sort --lines -r --as int:desc sorted", "1\n2\n10\n"},
        {"sort --record-length 2 --key byte:0 -r lines", "c\nb\na\na\n"},
        {"sort --lines -z zeros", std::string("a\0b\nx\0", 6)},
        {"sort --lines -z --groups zeros 2>.errors", std::string("a\0\0b\nx\0", 7)},
        {"sort --format fields --key 2:int fields", "\ty 9  a z\nx  10 b\nz\n"},
        {"sort --format fields --key 3- fields", "\ty 9  a z\nx  10 b\nz\n"},
        {"sort --format fields --key 1-2:text:desc fields", "z\n\ty 9  a z\nx  10 b\n"},
        {"sort a.csv --key '#3:int'", "id,v,v\n2,a,7\n1,b,\n1,b,\n"},
        {"sort a.csv --distinct", "id,v,v\n1,b,\n2,a,7\n"},
        {"sort a.csv --groups=count 2>.errors", "count,id,v,v\n2,1,b,\n1,2,a,7\n"},
        {"sort ragged.csv --ragged --key a:int", "a,b\n1,x,y\n2\n\n"},
        {"sort ragged.csv --ragged --key b", "a,b\n1,x,y\n2\n\n"},
        {"sort null.csv --null '\\N' --key n:int:nulls-first", "n\n\\N\n1\n2\n"},
        {"sort --lines --as int --null c lines --on-error=skip", "c\n", 3},
        {"sort --lines --as int:desc --on-error=last lines sorted", "10\n2\n1\na\na\nb\nc\n", 3},
        {"sort bad.csv --key id:int --on-error=last", "id,v\n2,z\n3,x\n,w\n1\nq,y\n", 3},
        {"sort odd.csv --key n:int --on-error=last", "n,t\n1,\nshort\n\"\",a\nshort\n\"\",b\n", 3},
        {"sort --lines --check lines", "", 1},
        {"sort --lines -c sorted --as int", ""},
        {"sort a.csv --check --key id:int", "", 1},
        {"sort --record-length 2 --key byte:0 -c lines", "", 1},
    };
    for (const Case& c : cases) {
        for (const char* memory : {"", " --memory 100K"}) {
            const Outcome outcome = run(c.words + std::string(memory));
            EXPECT_EQ(outcome.status, c.status) << c.words << outcome.errors;
            EXPECT_EQ(outcome.output, c.output) << c.words;
        }
    }
}

TEST_F(Words, NameRowsThatAreNotInOrder) {
    const char* const cases[][2] = {
        {"sort --lines --check lines",
         "not in order: line 2 of lines, \"a\", must not stand behind line 1 of lines, \"b\","},
        {"sort a.csv --check --key v",
         "more than one column has the name \"v\"; name it by its number, as #2"},
        {"sort a.csv --check --key '#1:int'",
         "line 4 of a.csv, \"1,b,\", must not stand behind line 3 of a.csv, \"2,a,7\","},
        {"verify a.csv --key '#1:int'", "because   line 4 of a.csv, \"1,b,\", must not"},
        {"sort --lines -c lines sorted --as text:de",
         "line 2 of lines, \"a\", must not stand behind line 1 of lines, \"b\","},
    };
    for (const auto& [words, error] : cases) {
        const Outcome outcome = run(words);
        EXPECT_THAT(outcome.errors + outcome.output, HasSubstr(error)) << words;
    }
    EXPECT_EQ(run("verify a.csv --key id:int:nulls-first --on-error=skip").status, 1);
    EXPECT_EQ(run("verify --format fields --key 1 fields").status, 0);
    // The first bytes of long lines are alike.
    const std::string text(100000, 'x');
    write("long", text + "a\n" + text + "b\n" + text + "a\n");
    EXPECT_THAT(run("sort --lines --check long").errors, HasSubstr("line 3 of long"));
}

TEST_F(Words, OfChanceMixTheSameWayForTheSameNumber) {
    std::string lines;
    for (int i = 0; i < 2000; ++i)
        lines += std::to_string(i) + "\n";
    write("many", lines);
    const std::string one = run("sort --lines --random 1 many").output;
    EXPECT_EQ(run("sort --lines --random 1 many --memory 100K").output, one);
    const std::string two = run("sort --lines --random 2 many").output;
    EXPECT_NE(one, two);
    EXPECT_NE(one, lines);
    write("mixed", two);
    EXPECT_EQ(run("sort --lines --as int mixed").output, lines);
    EXPECT_EQ(run("sort --lines --random 1 --limit 3 many").output,
              one.substr(0, one.find('\n', one.find('\n', one.find('\n') + 1) + 1) + 1));
}

TEST_F(Words, MergeWhatIsInOrderAndNameWhatIsNot) {
    const std::string text(200000, 'x');
    write("long", "b\n" + text + "a\n" + text + "c\n");
    write("other", "a\nb\n" + text + "b\n" + text + "c");
    for (const std::string options :
         {"", " --distinct", " --groups=count", " --limit 3", " --intersect"}) {
        const std::string words = "sort --lines long other" + options;
        EXPECT_TRUE(run(words + " --merge").output == run(words).output) << options;
    }
    write("b.csv", "id,v,v\n0,z,\n1,c,\n");
    write("c.csv", "id,v,v\n1,b,\n1,a,\n7,,\n");
    EXPECT_EQ(run("sort -m b.csv c.csv --key id:int").output,
              "id,v,v\n0,z,\n1,c,\n1,b,\n1,a,\n7,,\n");
    const Outcome outcome = run("sort -m b.csv a.csv --key id:int -o out.csv");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("and line 4 of a.csv, \"1,b,\", must not stand behind"));
    EXPECT_FALSE(std::filesystem::exists(folder() / "out.csv"));
    // Taken for granted, their order is theirs.
    EXPECT_EQ(run("sort -m b.csv a.csv --key id:int --check=off").output,
              "id,v,v\n0,z,\n1,c,\n1,b,\n2,a,7\n1,b,\n");
    EXPECT_THAT(run("sort a.csv --key id --check=off").errors, HasSubstr("belongs to --merge"));
    EXPECT_THAT(run("sort -m --lines --hierarchy lines").errors, HasSubstr("--merge takes lines"));
}

TEST_F(Words, PackedFilesAreReadAndWritten) {
    std::string lines;
    for (int i = 0; i < 200000; ++i)
        lines += std::to_string(i * 7919 % 200000) + "\n";
    write("lines", lines);
    const std::string sorted = run("sort --lines --as int lines").output;
    for (const std::string ending : {".gz", ".zst"}) {
        ASSERT_EQ(run("sort --lines --as int lines -o sorted" + ending).status, 0);
        EXPECT_LT(std::filesystem::file_size(folder() / ("sorted" + ending)), sorted.size() / 2);
        EXPECT_TRUE(run("sort --lines --as int:desc --reverse sorted" + ending).output == sorted);
        EXPECT_TRUE(run("sort --lines --as int - <sorted" + ending).output == sorted);
        // One packed file behind another is one, too.
        const std::string packed = read("sorted" + ending);
        write("twice" + ending, packed + packed);
        EXPECT_TRUE(run("sort --lines --as int --distinct twice" + ending).output == sorted);
        write("cut" + ending, packed.substr(0, packed.size() - 9));
        EXPECT_THAT(run("sort --lines cut" + ending).errors,
                    HasSubstr("cut" + ending + " is cut short"));
        write("bad" + ending, packed.substr(0, 4000) + "x" + packed.substr(4000));
        EXPECT_THAT(run("sort --lines bad" + ending).errors, HasSubstr("bad" + ending + " is"));
    }
    // Unpacked, they fill buffers to the last byte.
    std::string whole;
    for (int i = 0; i < 1 << 13; ++i)
        whole += std::to_string(100000000000000 + i) + "\n";
    write("whole", whole + whole);
    for (const std::string ending : {".gz", ".zst"}) {
        ASSERT_EQ(run("sort --lines whole -o whole" + ending).status, 0);
        EXPECT_TRUE(run("sort --lines --distinct whole" + ending).output == whole) << ending;
    }
    ASSERT_EQ(run("sort a.csv --distinct -o a.csv.gz").status, 0);
    EXPECT_EQ(run("sort a.csv.gz --key id:desc").output, "id,v,v\n2,a,7\n1,b,\n");
    ASSERT_EQ(run("generate --records 100 -o records.gz").status, 0);
    const std::string words = "sort --record-length 100 --key bytes:0:10 ";
    EXPECT_EQ(run(words + "records.gz").output.size(), 10000);
    ASSERT_EQ(run(words + "records.gz -o ordered.zst").status, 0);
    for (const char* const checked : {"--record-length 100 --key bytes:0:10 ordered.zst",
                                      "--lines --as ucs2 whole.gz", "--lines whole.zst"})
        EXPECT_EQ(run(std::string("verify ") + checked).status, 0) << checked;
    write("wide.csv",
          "\xff\xfe"
          "a");
    EXPECT_THAT(run("sort wide.csv --key a").errors, HasSubstr("wide.csv is text in UTF-16"));
}

TEST_F(Words, OfHelpAreThoseOfTheKindOfInput) {
    const std::string all = run("sort --help").output;
    struct Case {
        const char* words;
        const char* shown;
        const char* hidden;
    };
    const Case cases[] = {
        {"sort --help csv", "COLUMN a name", "--record-length"},
        {"sort a.csv --help", "--ragged", "--indent"},
        {"sort --format fields --help", "NUMBER[-NUMBER]", "--no-header"},
        {"explain --help lines", "--as TEXT", "--key"},
        {"verify --record-length 8 --help", "--nulls", "--as"},
        {"sort --help types", "timestamptz", "--key"},
        {"sort --help=csv", "weighted-text", "--lines"},
    };
    for (const Case& c : cases) {
        const Outcome outcome = run(c.words);
        EXPECT_EQ(outcome.status, 0) << c.words;
        EXPECT_THAT(outcome.output, HasSubstr(c.shown)) << c.words;
        // Not as an option of its own; others may name it.
        EXPECT_THAT(outcome.output, Not(HasSubstr(std::string("\n  ") + c.hidden))) << c.words;
        EXPECT_THAT(all, HasSubstr(c.hidden));
    }
    EXPECT_EQ(run("sort --help nothing").output, all);
}

TEST_F(Words, ThatDoNotGoTogetherAreRefused) {
    const char* const cases[][2] = {
        {"a.csv --key id -z", "--zero-terminated is for lines"},
        {"--lines --hierarchy --as wkt --null x lines", "--null does not go with fixed-length"},
        {"--lines --hierarchy --check lines", "leave --hierarchy out"},
        {"--record-length 2 --key byte:0 -z lines", "are for lines and rows"},
        {"--lines --as wkt --random 1 lines", "--random does not go with"},
        {"a.csv --key id --random 1", "leave --key out"},
        {"--format fields fields", "say what to order by"},
        {"--format fields --key x fields", "--key x: fields have numbers from 1"},
        {"--format fields --key 0 fields", "fields have numbers from 1"},
        {"--format fields --lines --key 1 fields", "leave --lines"},
        {"a.csv --key '#4'", "\"#4\" is no column; by number, name one of the columns #1 to 3"},
        {"--lines --ragged lines", "are for CSV files"},
        {"a.csv --key id --delimiter ''", "--delimiter : name one character"},
        {"a.csv --key id --delimiter= --key v", "--delimiter : name one character"},
        {"--lines --limit x lines", "--limit x: write a number from 1 to 2147483647"},
        {"--lines --timeout 0 lines", "--timeout 0: write a number from 0.001 to 1000000000;"},
        {"--lines --memory 5Q lines", "write one such as 512K, 64M or 2G"},
        {"--lines --nulls x lines", "--nulls x: write a number"},
        {"--lines --limit 1 --limit 2 lines", "--limit is said more than once; say it once"},
        {"--lines --nope lines", "--nope: there is no such option or word here"},
        {"--format x lines", "--format x: write one of csv,tsv,fields"},
    };
    for (const auto& [words, error] : cases) {
        const Outcome outcome = run(std::string("sort ") + words);
        EXPECT_EQ(outcome.status, 2) << words;
        EXPECT_THAT(outcome.errors, HasSubstr(error)) << words;
    }
}

// What follows is a word of its own.
TEST_F(Words, MayBeEmpty) {
    std::filesystem::copy_file(folder() / "a.csv", folder() / "--key=");
    EXPECT_EQ(run("sort --format csv --null= --key=id -- --key=").output,
              run("sort --null '' --key id a.csv").output);
    EXPECT_EQ(run("sort a.csv --key id -o --x=").status, 0);
}

TEST_F(Words, OfAFileReachNoTerminal) {
    write("escape.csv", "\x1b[31m,b\n1,2\n");
    const Outcome outcome = run("sort escape.csv --key c");
    EXPECT_THAT(outcome.errors, HasSubstr("the columns are ?[31m, b"));
    // Nor from reports of rows and from files' names.
    const std::string words = " --lines --as int --on-error=skip 'name\x1b[31m' -o out";
    write("name\x1b[31m", "x\n1\n");
    for (const std::string& errors :
         {run("sort escape.csv --key '\x1b[31m:date' --on-error=skip").errors,
          run("sort" + words).errors, run("sort --check" + words).errors}) {
        EXPECT_THAT(errors, HasSubstr("?[31m"));
        EXPECT_THAT(errors, Not(HasSubstr("\x1b")));
    }
    write("wide.csv", std::string(5000, ',') + "\n");
    EXPECT_LT(run("sort wide.csv --key c").errors.size(), 1000);
}

TEST_F(Words, EndInSilenceWhenTheReaderHasGone) {
    write("many", std::string(2000000, '\n'));
    run("verify --lines many; '" TVSORT_HOST_PROGRAM
        "' sort --lines many 2>.said | head -n 1 >.first");
    EXPECT_EQ(read(".said"), "");
    EXPECT_EQ(read(".first"), "\n");
}

TEST_F(Words, OfASortAreTakenByItsExplanation) {
    const Outcome outcome =
        run("explain --lines lines -o out --processes 2 --stats --timeout 5 --check");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_FALSE(std::filesystem::exists(folder() / "out"));
    write("many", std::string(2000000, '\n'));
    EXPECT_THAT(run("explain --lines many --memory 100K").output,
                testing::ContainsRegex("disk      about [0-9]+ bytes of temporary files"));
}

}  // namespace
}  // namespace tvsort::test

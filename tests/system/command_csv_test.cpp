// CSV files through the built command.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <tuple>
#include <vector>

#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class CsvFiles : public CommandTest {
  protected:
    using Files = std::map<std::string, std::string>;

    // A ~ in files and output stands for nothing, and once more for so much that records do not
    // carry their rows.
    void expect(const Files& files, const std::string& words, const std::string& output) const {
        SCOPED_TRACE(words);
        for (const std::string& filling : {std::string(), std::string(150, '~')}) {
            for (const auto& [name, content] : files)
                write(name, filled(content, filling));
            for (const char* memory : kMemories) {
                const Outcome outcome = run("sort " + words + " " + memory);
                EXPECT_EQ(outcome.status, 0) << outcome.errors;
                EXPECT_EQ(outcome.output, filled(output, filling)) << memory;
            }
        }
    }
    void expectFailure(const std::string& words, const std::string& error) const {
        SCOPED_TRACE(words);
        const Outcome outcome = run("sort " + words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(outcome.errors, HasSubstr(error));
    }

  private:
    static std::string filled(std::string text, const std::string& filling) {
        for (std::size_t at = 0; (at = text.find('~', at)) != std::string::npos;) {
            text.replace(at, 1, filling);
            at += filling.size();
        }
        return text;
    }
};

TEST_F(CsvFiles, AreOrderedByColumnsAndRowsTravelByteForByte) {
    const std::string head = "name,born,note~\r\n";
    const std::string bob = "Bob,1960,\"x, y\"\r\n";
    const std::string ann = "\"Ann \"\"A\"\"\",1970,\"two\r\nlines~\"\r\n";
    const std::string cid = "Cid,,\r\n";
    const std::string low = "ann,1950,  last~ ";
    const Files a = {{"a.csv", head + bob + ann + cid + low}};
    const std::string lowEnded = low + "\r\n";
    expect(a, "a.csv --key name:text --key born:int:desc:nulls-last",
           head + ann + bob + cid + lowEnded);
    expect(a, "a.csv --key born:int:desc:nulls-last", head + ann + bob + lowEnded + cid);
    expect(a, "a.csv --key born:int:desc", head + cid + ann + bob + lowEnded);
    expect(a, "--format csv - --key '\"name\":text:9:desc' <a.csv",
           head + lowEnded + cid + bob + ann);
    const std::string far = "dan,1955,\"" + std::string(300000, 'x') + "\n" + "\"\n";
    const Files both = {{"a.csv", head + bob + low}, {"b.csv", "\"name\",born,note~\n" + far}};
    expect(both, "a.csv b.csv --key born:int16", head + lowEnded + far + bob);
    expect(both, "b.csv a.csv --key born:int16", "\"name\",born,note~\n" + low + "\n" + far + bob);
    expect({{"a.csv", "\xef\xbb\xbfn\n2\n1\n\n\"\"\n"}}, "a.csv --key n",
           "\xef\xbb\xbfn\n\"\"\n1\n2\n\n");
    expect({{"a.tsv", "2\tb,y~\n1\tx;z\n"}}, "a.tsv --no-header --key 1:int", "1\tx;z\n2\tb,y~\n");
    expect({{"a", "b;\"2;~\"\na;1~\n"}}, "--format csv a --no-header --delimiter ';' --key 2:text",
           "a;1~\nb;\"2;~\"\n");
    expect({{"a.csv", ""}}, "a.csv --no-header --key 1:int", "");
}

TEST_F(CsvFiles, HaveEveryKeyType) {
    struct Case {
        const char* key;
        std::vector<std::string> ascending;
    };
    const Case cases[] = {
        {"text", {"\"\"", "B", "B a", "a", "\xc3\xa9"}},
        {"text:4", {"\"\"", "abc", "abcd", "b"}},
        {"int", {"-9223372036854775808", "-1", "+7", "10"}},
        {"int64", {"-5", "4294967296"}},
        {"int32", {"-2147483648", "9", "10"}},
        {"int16", {"-32768", "9", "10"}},
        {"float", {"-1e30", "1.5", "2"}},
        {"double", {"-inf", "-1e300", "1.5", "1.5000000000000002", "inf", "nan"}},
        {"double-tolerant", {"-1e300", "1.5", "1.50001", "-inf"}},
        {"decimal:2", {"lowest", "-12.50", "0.01", "3.5", "100"}},
        {"byte", {"0", "9", "10", "255"}},
        {"bytes", {"\"\"", "Ab", "a", "aa"}},
        {"bytes:8", {"\"\"", "12345678"}},
        {"weighted-text --weights weights", {"\"\"", "b", "ba", "a", "aa"}},
        {"weighted-bytes --weights weights", {"ba", "b", "ab", "a", "\"\""}},
        {"ucs2", {"\"\"", "a", "z", "\xc3\xa9"}},
        {"ucs2 --collation fr", {"\"\"", "a", "e", "\xc3\xa9", "z"}},
        {"padded-ucs2", {"\"\"", "a", "a b", "z", "\xc3\xa9"}},
        {"padded-ucs2:3 --collation fr", {"a", "e", "\xc3\xa9", "z"}},
        {"field512", {"\"\"", "A", "a", "aa"}},
        {"wkt", {"\"LINESTRING (0 3, 5 0)\"", "POINT (2 1)", "POINT (3 0)"}},
        {"wkt-envelope", {"POINT (2 0)", "POINT (2 1)"}},
    };
    std::string weights;
    for (int byte = 0; byte < 256; ++byte)
        weights += static_cast<char>(255 - byte);
    write("weights", weights);
    std::mt19937 random(3);
    for (const Case& c : cases) {
        std::vector<std::string> values = c.ascending;
        const auto rows = [&] {
            std::string text = "id,value\n";
            for (const std::string& value : values)
                text += "x~," + value + "\n";
            return text;
        };
        values.emplace_back();
        const std::string output = rows();
        std::shuffle(values.begin(), values.end(), random);
        expect({{"in.csv", rows()}}, std::string("in.csv --key value:") + c.key, output);
    }
}

TEST_F(CsvFiles, TakeEveryMode) {
    const Files files = {{"a.csv", "id,kind,note\n1,x,~\n2,\"y\",~\n3,x,~\n4,,\n5,,\n"},
                         {"b.csv", "id,kind,note\n8,\"y\",~\n9,z,~\n"},
                         {"tree.csv", "level,name\n1,b~\n2,d~\n2,c\n1,a~\n"}};
    const char* const cases[][2] = {
        {"a.csv b.csv --key kind --distinct", "id,kind,note\n1,x,~\n2,\"y\",~\n9,z,~\n4,,\n"},
        {"a.csv b.csv --key kind --groups 2>.errors",
         "group,id,kind,note\n1,1,x,~\n1,3,x,~\n2,2,\"y\",~\n2,8,\"y\",~\n3,9,z,~\n4,4,,\n4,5,,\n"},
        {"a.csv b.csv --key kind --groups=count",
         "count,id,kind,note\n2,1,x,~\n2,2,\"y\",~\n1,9,z,~\n2,4,,\n"},
        {"a.csv --no-header --key 2 --groups=count",
         "1,id,kind,note\n2,1,x,~\n1,2,\"y\",~\n2,4,,\n"},
        {"a.csv b.csv --key kind --intersect", "id,kind,note\n2,\"y\",~\n"},
        {"a.csv b.csv --key kind --except --all", "id,kind,note\n1,x,~\n3,x,~\n4,,\n5,,\n"},
        {"a.csv --key id:int:desc --unique=nulls-not-distinct --limit 2",
         "id,kind,note\n5,,\n4,,\n"},
        {"b.csv a.csv --key id:int:desc --unique",
         "id,kind,note\n9,z,~\n8,\"y\",~\n5,,\n4,,\n3,x,~\n2,\"y\",~\n1,x,~\n"},
        {"a.csv --key kind:desc --limit 1 --with-ties", "id,kind,note\n4,,\n5,,\n"},
        {"a.csv --key kind:desc --limit 1", "id,kind,note\n4,,\n"},
        {"a.csv b.csv --key kind --distinct --limit 2", "id,kind,note\n1,x,~\n2,\"y\",~\n"},
        {"a.csv b.csv --key kind --groups=count --limit 1", "count,id,kind,note\n2,1,x,~\n"},
        {"a.csv b.csv --key kind --groups --limit 3 2>.errors",
         "group,id,kind,note\n1,1,x,~\n1,3,x,~\n2,2,\"y\",~\n"},
        {"tree.csv --key name --hierarchy --level level", "level,name\n1,a~\n1,b~\n2,c\n2,d~\n"},
    };
    for (const auto& [words, output] : cases)
        expect(files, words, output);
}

TEST_F(CsvFiles, AreRefusedWhereTheyAreWrong) {
    write("a.csv", "name,born\nann,1950\n\"b\nob\",196O\n\"cid\",1970\n");
    write("b.csv", "name,age\nx,1\n");
    write("quote.csv", "a\nx\"y\n\"b\"c\n\"d\ne\n");
    write("return.csv", "a\nx\ry\n\"x\"\r\"y\"\n\"ok\rok\"\nz\r");
    write("fields.csv", "a,b\n1,2\n3\n\n4,5\n");
    write("tree.csv", "level,name\n1,a\n,b\n");
    write("long.csv", "a\n" + std::string(40000, 'x') + "\n" + std::string(40000, 'y') + "\n");
    write("empty.csv", "");
    const char* const cases[][2] = {
        {"a.csv --key born:int", "a.csv, line 3, column born: \"196O\" is no integer of 64 bits"},
        {"a.csv --key name:text:3", "line 3, column name: \"b?ob\" is no value of up to 3 bytes"},
        {"a.csv --key age:int", "no column \"age\"; the columns are name, born"},
        {"a.csv --key born:integer",
         "there is no type and no word \"integer\"; the types are text"},
        {"a.csv --key born:int:8", "the length of type int is given by the type"},
        {"a.csv --key name:text:x", "ICU knows no locale \"x\""},
        {"a.csv --key name:decimal:x", "\"x\" is no scale"},
        {"a.csv --key name:weighted-text:40000", "makes values of more than 32767 bytes"},
        {"a.csv --no-header --key name", "name one of the columns 1 to 2"},
        {"a.csv b.csv --key name", "column 2 is \"born\" in a.csv and \"age\" in b.csv"},
        {"a.csv fields.csv --key name", "column 1 is \"name\" in a.csv and \"a\" in fields.csv"},
        {"a.csv empty.csv --key name", "empty.csv is empty"},
        {"a.csv", "say what to order by: --key COLUMN"},
        {"a.csv --key name --nulls 3", "leave --lines, --as, --record-length and --nulls out"},
        {"a.csv --key name --delimiter '\"'", "name one character"},
        {"--lines a.csv --no-header", "are for CSV files"},
        {"a.csv --key name --hierarchy", "add --level COLUMN"},
        {"tree.csv --key name --hierarchy --level level", "line 3, column level: it is empty"},
        {"quote.csv --key a", "quote.csv, line 2: the row has a quote in the wrong place"},
        {"return.csv --key a", "return.csv, line 2: the row holds a carriage return"},
        {"fields.csv --key a",
         "fields.csv, line 3: the row has 1 fields where the first row has 2"},
        {"long.csv --key a:weighted-text", "is no value of up to 32767 bytes: it has 40000"},
        {"long.csv --key a:bytes --key a:bytes", "column a needs most, 40000 bytes"},
    };
    for (const auto& [words, error] : cases)
        expectFailure(words, error);
}

TEST_F(CsvFiles, CanBeSortedWithoutTheirBadRows) {
    write("a.csv",
          "name,born\nann,1950\nbob,196O\n\"cid\",1940\nd\"d,1\neve\n\"fay,1930\nguy,1920\n");
    const Outcome outcome = run("sort a.csv --key born:int --on-error=skip --stats=json");
    EXPECT_EQ(outcome.status, 3) << outcome.errors;
    EXPECT_EQ(outcome.output, "name,born\nguy,1920\n\"cid\",1940\nann,1950\n");
    EXPECT_THAT(outcome.errors,
                AllOf(HasSubstr("skipped: a.csv, line 3, column born: \"196O\" is no"),
                      HasSubstr("skipped: a.csv, line 5: the row has a quote"),
                      HasSubstr("skipped: a.csv, line 6: the row has 1 fields"),
                      HasSubstr("skipped: a.csv, line 7: the row opens a quote"),
                      HasSubstr("4 rows skipped")));
    const auto stats = nlohmann::json::parse(outcome.errors.substr(outcome.errors.find('{')));
    EXPECT_EQ(stats["read_count"], 3);
    EXPECT_EQ(stats["skipped_count"], 4);
    const Outcome distinct = run("sort a.csv --key born:int --distinct --on-error=skip --stats");
    EXPECT_THAT(distinct.errors, HasSubstr("records written  3\nrows skipped     4\n"));
    write("b.csv", "a\nx\n\"y\nx\n");
    EXPECT_THAT(run("sort b.csv --key a --unique --on-error=skip").errors,
                HasSubstr("line 2 of b.csv and line 4 of b.csv have equal keys"));
}

TEST_F(CsvFiles, TenTimesTheMemoryAreSortedInTheMemory) {
    constexpr std::int64_t kMemory = 4 << 20;
    // What programs take for themselves, code and libraries included.
    constexpr std::int64_t kProcessOwn = 3 << 20;
    constexpr std::int64_t kCommandOwn = 14 << 20;
    if (std::strstr(TVSORT_PROGRAM, "sanitize") != nullptr) GTEST_SKIP() << "has its own heap";
    for (const std::size_t filling : {60U, 1000U}) {
        std::mt19937 random(1);
        std::string input = "key,text\n";
        while (static_cast<std::int64_t>(input.size()) < 10 * kMemory) {
            input += std::to_string(random()) + "," + std::string(filling, 'x') + "\n";
        }
        write("in.csv", input);
        const Outcome outcome =
            run("sort in.csv --key key:int --memory 4M --stats=json -o out.csv");
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        const auto stats = nlohmann::json::parse(outcome.errors);
        EXPECT_LT(stats["process_peak_bytes"], kMemory + kProcessOwn) << filling;
        EXPECT_LT(stats["command_peak_bytes"], kMemory + kCommandOwn) << filling;
        EXPECT_EQ(std::filesystem::file_size(folder() / "out.csv"), input.size());
        EXPECT_EQ(run("sort out.csv --key key:int -o again.csv").status, 0);
        EXPECT_TRUE(read("again.csv") == read("out.csv"));
    }
}

// Against the standard library, on files of rows short and long.
TEST_F(CsvFiles, OfRandomRowsComeOutAsAStableSortHasThem) {
    for (const std::size_t longest : {20U, 2000U}) {
        std::mt19937 random(static_cast<unsigned>(longest));
        std::vector<std::tuple<bool, int, std::string>> rows;
        std::string input = "number,key,text\n";
        for (int i = 0; i < 3000; ++i) {
            const bool isNull = random() % 10 == 0;
            const int key = static_cast<int>(random() % 1000) - 500;
            std::string text(random() % longest, static_cast<char>('a' + random() % 26));
            if (random() % 4 == 0) text = "\"" + text + "\"\"\n,\"";
            rows.emplace_back(
                isNull, isNull ? 0 : key,
                std::to_string(i) + "," + (isNull ? "" : std::to_string(key)) + "," + text + "\n");
            input += std::get<2>(rows.back());
        }
        write("in.csv", input);
        std::stable_sort(rows.begin(), rows.end(), [](const auto& left, const auto& right) {
            return std::tie(std::get<0>(left), std::get<1>(left)) <
                   std::tie(std::get<0>(right), std::get<1>(right));
        });
        std::string expected = "number,key,text\n";
        for (const auto& row : rows)
            expected += std::get<2>(row);
        for (const char* memory : kMemories) {
            const Outcome outcome =
                run(std::string("sort in.csv --key key:int --key number:int ") + memory);
            EXPECT_EQ(outcome.status, 0) << outcome.errors;
            EXPECT_TRUE(outcome.output == expected) << memory << ", seed " << longest;
        }
    }
}

}  // namespace
}  // namespace tvsort::test

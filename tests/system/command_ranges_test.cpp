// `sample` and `split`: ranges of keys that other machines sort.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using Json = nlohmann::json;
using testing::HasSubstr;

class Ranges : public CommandTest {
  protected:
    Ranges() {
        write("a.csv", "\xef\xbb\xbfn,t\r\n3,c\r\n1,a\r\n,\"x\r\ny\"\r\n2,b");
        write("borders", "028101\n028102\n03\n");
    }

    // The pieces, each behind its number.
    std::string pieces() const {
        std::string all;
        for (int i = 0; i < 5; ++i) {
            const std::string name = "P0000" + std::to_string(i);
            if (std::filesystem::exists(folder() / name))
                all += std::to_string(i) + "=" + read(name);
        }
        return all;
    }
};

TEST_F(Ranges, EachRowGoesBehindTheBordersThatAreNotGreater) {
    const Outcome outcome = run("split a.csv --key n:int --splitters borders -o P");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(pieces(), "0=\xef\xbb\xbfn,t\r\n1=1,a\r\n2=3,c\r\n2,b\r\n3=,\"x\r\ny\"\r\n");
    const Json report = Json::parse(outcome.output);
    EXPECT_EQ(report["pieces"].dump(),
              R"([{"bytes":0,"rows":0},{"bytes":5,"rows":1},{"bytes":10,"rows":2},)"
              R"({"bytes":9,"rows":1}])");
}

TEST_F(Ranges, LinesOfAnyLengthAndEndGoWhole) {
    const std::string large(700'000, 'q');
    write("lines", "ca\n" + large + "\na");
    write("border", "0271\n");  // "q"
    EXPECT_EQ(run("split --lines lines --splitters border -o P").status, 0);
    EXPECT_EQ(pieces(), "0=ca\na\n1=" + large + "\n");
    write("zeros", std::string("q\0a", 3));
    EXPECT_EQ(run("split --lines -z zeros --splitters border -o P").status, 0);
    EXPECT_EQ(pieces(), std::string("0=a\0", 4) + std::string("1=q\0", 4));
}

TEST_F(Ranges, UnreadableRowsFollowThePolicy) {
    write("bad.csv", "n\n1\nx\n\"2\n3\n");
    write("border", "028102\n04\n");
    const Outcome stopped = run("split bad.csv --key n:int --splitters border -o P");
    EXPECT_EQ(stopped.status, 2);
    EXPECT_THAT(stopped.errors, HasSubstr("bad.csv, line 3, column n: \"x\" is no integer"));
    EXPECT_EQ(pieces(), "");
    const Outcome skipped =
        run("split bad.csv --key n:int --splitters border -o P --on-error=skip");
    EXPECT_EQ(skipped.status, 3);
    EXPECT_EQ(Json::parse(skipped.output)["skipped"], 2);
    EXPECT_EQ(pieces(), "0=n\n1\n1=3\n2=");
    EXPECT_EQ(run("split bad.csv --key n:int --splitters border -o P --on-error=last").status, 3);
    EXPECT_EQ(pieces(), "0=n\n1\n1=3\n2=x\n\"2\n");
}

TEST_F(Ranges, KeysAreSampledEvenlyInAFileOfAnySize) {
    const Json small = Json::parse(run("sample a.csv --key n:int:desc --samples 100").output);
    EXPECT_EQ(small["format"], "csv");
    EXPECT_EQ(small["keys_by_number"].dump(), R"(["1:int:desc"])");
    EXPECT_EQ(small["columns"].dump(), R"(["6e","74"])");
    EXPECT_EQ(small["line_end"], "0d0a");
    EXPECT_EQ(small["bytes"], 22);
    std::string rows = "\"a:b\",x\n";
    for (int i = 0; i < 200'000; ++i)
        rows += std::to_string(i) + ",\"two\nlines of a row, long enough\"\n";
    write("large.csv", rows);
    const Json large = Json::parse(run("sample large.csv --key '\"a:b\":int' --samples 9").output);
    EXPECT_EQ(large["keys_by_number"].dump(), R"(["1:int"])");
    ASSERT_EQ(large["samples"].size(), 9u);
    for (std::size_t i = 0; i < 9; ++i) {
        const std::string key = large["samples"][i];
        // 02, how many bytes, and these.
        const double number = std::stoi(key.substr(4), nullptr, 16);
        EXPECT_NEAR(number, (static_cast<double>(i) + 0.5) * 200'000 / 9, 5000) << key;
    }
}

TEST_F(Ranges, WhatCannotBeSplitIsSaid) {
    write("wrong", "02\nzz\n");
    write("falling", "03\n02\n");
    write("wide", "\xff\xfe");
    const std::pair<std::string, const char*> cases[] = {
        {"split a.csv --key n --splitters wrong -o P", "line 2 of wrong is no splitter"},
        {"split a.csv --key n --splitters falling -o P", "line 2 of falling"},
        {"split a.csv --key n --splitters missing -o P", "cannot open the input missing"},
        {"split a.csv --key n --splitters borders -o none/P", "cannot create the output"},
        {"sample a.csv --key n:auto --samples 1", "name the type that is meant"},
        {"sample a.csv --key n:wkt --samples 1", "no ordered bytes"},
        {"sample a.csv --key x --samples 1", "there is no column \"x\""},
        {"sample a.csv --samples 1", "say what to order by"},
        {"sample --record-length 4 --key int32:0 a.csv --samples 1", "lines and rows"},
        {"sample --lines /dev/null --samples 1", "no regular file"},
        {"sample --lines wide --samples 1", "UTF-16"},
    };
    for (const auto& [words, said] : cases) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.status, 2) << words;
        EXPECT_THAT(outcome.errors, HasSubstr(said)) << words;
    }
    EXPECT_EQ(pieces(), "");
}

}  // namespace
}  // namespace tvsort::test

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
    EXPECT_EQ(pieces(), "0=1=1,a\r\n2=3,c\r\n2,b\r\n3=,\"x\r\ny\"\r\n");
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
    EXPECT_EQ(pieces(), "0=1\n1=3\n2=");
    EXPECT_EQ(run("split bad.csv --key n:int --splitters border -o P --on-error=last").status, 3);
    EXPECT_EQ(pieces(), "0=1\n1=3\n2=x\n\"2\n");
}

// What was split by shares, put together again.
struct Joined {
    std::string pieces[2];
    std::vector<std::int64_t> lines;  // of rows that could not be read
    int againCount = 0;
};

TEST_F(Ranges, SharesTogetherAreTheWhole) {
    write("border", "04\n");  // what cannot be read comes behind
    const std::string rows = "2,\"x\n7,8\n\"\n1,\n\nz,3\n\"4\n5,6\"\"\n9,\"a\r\n\"\"\"\r\n3,,\n1,2";
    const std::pair<std::string, std::string> cases[] = {
        {"--key n:int", "\xef\xbb\xbfn,\"t\nu\"\n" + rows},
        {"--key 1:int --no-header --format csv", rows + "\n"},
        {"--lines --as int", "5\n\nx\n-3\r\n" + std::string(70, '1') + "\n4"},
        {"--lines --as int -z", std::string("5\0\n\0x\0-3\0\0", 10) + std::string(70, '1') + "\n4"},
    };
    for (const auto& [words, content] : cases) {
        write("in.csv", content);
        const std::string split =
            "split in.csv " + words + " --on-error=last --splitters border -o P --share ";
        const Json whole = Json::parse(run(split + "0:").output);
        const std::string first = read("P00000");
        EXPECT_EQ(first.size(), whole["pieces"][0]["bytes"]);
        for (const std::size_t shareBytes : {3U, 13U, 60U}) {
            Joined all;
            std::uint64_t end = 0;
            std::int64_t lineCount = 0;
            for (std::size_t at = 0; at < content.size(); at += shareBytes) {
                const std::string until = ":" + std::to_string(at + shareBytes);
                Json report = Json::parse(run(split + std::to_string(at) + until).output);
                if (report["begin"] != end) {
                    const std::string exact =
                        std::to_string(end) + ":" +
                        std::to_string(std::max<std::uint64_t>(end, at + shareBytes));
                    report = Json::parse(run(split + exact + " --begins-row").output);
                    all.againCount += 1;
                }
                EXPECT_EQ(report["begin"], end);
                end = report["end"];
                for (const Json& problem : report["problems"])
                    all.lines.push_back(lineCount + problem[1].get<std::int64_t>());
                lineCount += report["lines"].get<std::int64_t>();
                all.pieces[0] += read("P00000");
                all.pieces[1] += read("P00001");
            }
            EXPECT_EQ(end, content.size());
            run(split + "0:");
            EXPECT_EQ(all.pieces[0], first) << shareBytes;
            EXPECT_EQ(all.pieces[1], read("P00001")) << shareBytes;
            ASSERT_EQ(all.lines.size(), whole["skipped"]) << content;
            for (std::size_t i = 0; i < all.lines.size(); ++i)
                EXPECT_EQ(all.lines[i], whole["problems"][i][1]) << words;
            EXPECT_EQ(all.againCount > 0, shareBytes < 60 && words.starts_with("--key"))
                << shareBytes;
        }
    }
}

// What a piece begins with says nothing, and its first row may be any.
TEST_F(Ranges, PiecesAreReadAsTheyStand) {
    for (const std::string mark :
         {"\xef\xbb\xbf", "\x1f\x8b\x08", "\x28\xb5\x2f\xfd", "\xff\xfe"}) {
        const std::string rows = mark + ",2\n" + mark + ",1\n";
        write("P.csv", rows);
        write("L", mark + "b\n" + mark + "a\n");
        for (const char* const memory : {"64M", "100K"}) {
            const std::string words = std::string(" --plain --memory ") + memory;
            EXPECT_EQ(run("sort P.csv --no-header --key 2:int" + words).output,
                      mark + ",1\n" + mark + ",2\n");
            EXPECT_EQ(run("sort - --lines <L" + words).output, mark + "a\n" + mark + "b\n");
        }
        EXPECT_EQ(run("verify L -r --lines --plain").status, 0);
        write("border", "06\n");
        EXPECT_EQ(
            run("split P.csv --no-header --key 1:text:desc --plain --splitters border -o P").status,
            0);
        EXPECT_EQ(pieces(), "0=" + rows + "1=");
    }
    EXPECT_EQ(run("sort --plain --record-length 1 --key bytes:0:1 L").status, 2);
}

TEST_F(Ranges, RowsWithoutAHeaderMayBeCountedElsewhere) {
    write("later.csv", "\"x\"y,1\n1\n2,b\n1,a\n");
    write("border", "028102\n04\n");
    const std::string words = "later.csv --no-header --key 1:int --on-error=last --columns 2 ";
    const Outcome outcome = run("split " + words + "--splitters border -o P --share 0:");
    EXPECT_EQ(outcome.status, 3) << outcome.errors;
    EXPECT_EQ(pieces(), "0=1,a\n1=2,b\n2=\"x\"y,1\n1\n");
    EXPECT_EQ(Json::parse(run("sample " + words + "--samples 9").output)["column_count"], 2);
    EXPECT_EQ(run("sample later.csv --no-header --key 1:int --on-error=last --samples 9").status,
              2);
}

TEST_F(Ranges, KeysAreSampledEvenlyInAFileOfAnySize) {
    const Json small = Json::parse(run("sample a.csv --key n:int:desc --samples 100").output);
    EXPECT_EQ(small["format"], "csv");
    EXPECT_EQ(small["keys_by_number"].dump(), R"(["1:int:desc"])");
    EXPECT_EQ(small["columns"].dump(), R"(["6e","74"])");
    EXPECT_EQ(small["line_end"], "0d0a");
    EXPECT_EQ(small["bytes"], 22);
    EXPECT_EQ(small["head"], "efbbbf6e2c740d0a");
    EXPECT_EQ(small["head_bytes"], 8);
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
    const Json share = Json::parse(
        run("sample large.csv --key '\"a:b\":int' --samples 2 --share 2000000:2400000").output);
    ASSERT_EQ(share["samples"].size(), 2u);
    for (const std::string key : share["samples"])
        EXPECT_NEAR(std::stoi(key.substr(4), nullptr, 16), 55'000, 4000) << key;
    write("row", std::string(90, 'r'));
    for (const char* const part : {"", " --share 0:1", " --share 0:7"})
        for (const std::size_t count : {1U, 4U, 60U}) {
            const std::string words =
                "sample --lines row --samples " + std::to_string(count) + part;
            EXPECT_LE(Json::parse(run(words).output)["samples"].size(), count) << words;
        }
    const Json none = Json::parse(run("sample a.csv --key n:int --samples 2 --share 90:99").output);
    EXPECT_EQ(none["samples"].size(), 0u);
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
        {"sample a.csv --key n --samples 1 --share 7", "--share 7: write BEGIN:END"},
        {"split a.csv --key n --splitters borders -o P --share 7:x", "--share 7:x"},
        {"split a.csv --key n --splitters borders -o P --share 7:6", "--share 7:6"},
        {"split a.csv --key n --splitters borders -o P --begins-row", "it goes with --share"},
        {"sample a.csv --key n --samples 1 --columns 2", "it goes with --no-header"},
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

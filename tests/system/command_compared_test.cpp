// Orders beside those of programs that people come from: GNU sort, and PostgreSQL where it is
// installed, in a cluster of the test's own.

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <random>

#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

class Compared : public CommandTest {
  protected:
    // Of these words of a shell, in the folder.
    std::string shell(const std::string& words) const {
        write(".script", words);
        const std::string command =
            "cd '" + folder().string() + "' && bash -e .script >.said 2>.complained";
        const int status = std::system(command.c_str());
        EXPECT_EQ(status, 0) << words << read(".complained");
        return read(".said");
    }
};

TEST_F(Compared, WithSortOnRealWordsAndVersions) {
    struct Case {
        const char* input;
        const char* options;
        const char* type;
        std::size_t linesMin;
    };
    const Case cases[] = {
        {"cat /var/lib/dpkg/status /var/lib/apt/lists/*Packages 2>/dev/null | "
         "sed -n 's/^Version: //p' | head -n 60000 | shuf --random-source=/bin/bash",
         "-V", "version", 100},
        {"cd /usr/share/doc && find . -name '*.*' | head -n 20000 | sed 's|.*/||'", "-V", "version",
         100},
        {"awk 'BEGIN {srand(7); n = split(\". ~ 0 1 00 9 10 a Z tar gz - _ .tar.gz + : .a ~rc\", "
         "part, \" \"); "
         "for (; i < 20000; i++) {s = \"\"; for (j = int(rand() * 7); j > 0; j--) "
         "s = s part[1 + int(rand() * n)]; print s}}'",
         "-V", "version", 20000},
        {"LC_ALL=C grep -av '[^ -Z_a-z]' /usr/share/dict/american-english-huge | "
         "shuf --random-source=/bin/bash",
         "-f", "text:nocase", 100000},
        {"LC_ALL=C shuf --random-source=/bin/bash /usr/share/dict/american-english-huge", "",
         "text", 100000},
        {"seq 1 997 9999999 | shuf --random-source=/bin/bash | numfmt --to=si", "-h", "size", 9000},
        {"for i in $(seq 2000); do date -d \"1970-01-01 $((i * 7919 % 365)) days\" +%b; done", "-M",
         "month", 2000},
        {"shuf -i 1-90000 --random-source=/bin/bash | sed 's/./&./; s/^[5-9]/-&/'", "-n", "decimal",
         90000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        const std::string input = shell(std::string("( ") + c.input + " )");
        write("input", input);
        ASSERT_GE(std::count(input.begin(), input.end(), '\n'), c.linesMin);
        const std::string expected = shell("LC_ALL=C sort -s input " + std::string(c.options));
        const Outcome outcome = run("sort --lines input --as " + std::string(c.type));
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_TRUE(outcome.output == expected) << c.type;
    }
}

// Starts a cluster, runs what it reads, and takes everything away again.
constexpr char kPostgres[] = R"sh(
bin=$(ls -d /usr/lib/postgresql/*/bin | tail -n 1)
as=''
[ "$(id -u)" != 0 ] || as='runuser -u postgres --'
folder=$PWD
cd /
place=$($as mktemp -d -p /tmp)
trap '$as $bin/pg_ctl -D $place/data -m immediate stop >/dev/null 2>&1; rm -rf $place' EXIT
$as $bin/initdb -D $place/data -U tester --auth=trust -E UTF8 --locale=C.UTF-8 -N >/dev/null
$as $bin/pg_ctl -D $place/data -l $place/log -o "-k $place -h ''" -w start >/dev/null
cd "$folder"
psql -X -q -h $place -U tester -d postgres -v ON_ERROR_STOP=1 -f statements
)sh";

TEST_F(Compared, WithPostgresOnEveryTypeThatBothHave) {
    if (std::system("ls /usr/lib/postgresql/*/bin/initdb >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "PostgreSQL is not installed";
    std::mt19937 random(1);
    const auto below = [&random](int end) {
        return static_cast<int>(random() % static_cast<unsigned>(end));
    };
    const auto pick = [&](std::initializer_list<const char*> words) {
        return std::string(words.begin()[below(static_cast<int>(words.size()))]);
    };
    const auto number = [&](int digits) {
        std::string text;
        for (int i = 0; i < digits; ++i)
            text += static_cast<char>('0' + below(10));
        return text;
    };
    const auto day = [&] {
        char text[32];
        std::snprintf(text, sizeof text, "%04d-%02d-%02d", 1 + below(3000), 1 + below(12),
                      1 + below(28));
        return std::string(text);
    };
    const auto time = [&] {
        char text[32];
        std::snprintf(text, sizeof text, "%02d:%02d:%02d.%d", below(24), below(60), below(60),
                      below(1000000));
        return std::string(text);
    };
    struct Column {
        const char* name;
        const char* postgresType;
        const char* type;
        std::function<std::string()> draw;
    };
    const Column columns[] = {
        {"i", "bigint", "int",
         [&] {
             return pick({"-", ""}) + number(1 + below(18));
         }},
        {"n", "numeric", "decimal",
         [&] {
             return below(20) == 0
                        ? pick({"NaN", "Infinity", "-Infinity", "0.0", "-0"})
                        : pick({"-", ""}) + number(1 + below(40)) + "." + number(1 + below(30));
         }},
        {"f", "double precision", "double",
         [&] {
             return below(20) == 0 ? pick({"NaN", "Infinity", "-Infinity", "0", "-0"})
                                   : pick({"-", "", ""}) + "1." + number(15) + "e" +
                                         pick({"-300", "0", "1", "2"});
         }},
        {"t", "timestamptz", "timestamptz",
         [&] {
             return day() + " " + time() + pick({"Z", "+05:30", "-11", "+00:01"});
         }},
        {"p", "timestamp", "timestamp",
         [&] {
             return day() + pick({"T", " "}) + time();
         }},
        {"d", "date", "date", day},
        {"h", "time", "time", time},
        {"b", "boolean", "boolean",
         [&] {
             return pick({"t", "false", "yes", "0", "off"});
         }},
        {"u", "uuid", "uuid",
         [&] {
             return number(8) + "-" + number(4) + "-4a" + number(2) + "-8" + number(3) + "-" +
                    number(12);
         }},
        {"a", "inet", "inet",
         [&] {
             if (below(4) == 0) return "2001:db8::" + number(3) + pick({"", "/32", "/127"});
             return "10." + std::to_string(below(3)) + ".0." + std::to_string(below(256)) +
                    pick({"", "/8", "/16", "/31", "/0"});
         }},
        {"s", "text COLLATE \"C\"", "text",
         [&] {
             return pick({"a", "B", "\xc3\xa4", ""}) + "x" + pick({"a", "Z", " "});
         }},
        {"c", "text COLLATE \"en-x-icu\"", "text:en",
         [&] {
             std::string text;
             for (int i = below(5) + 1; i > 0; --i)
                 text += pick({"a", "A", "\xc3\xa4", "b", "B", "-", " ", "1", "\xf0\x9d\x94\xb8",
                               "\xc3\x9f"});
             return text;
         }},
    };
    std::string csv = "row";
    std::string table = "CREATE TABLE t (row integer";
    std::string questions;
    for (const Column& column : columns) {
        csv += std::string(",") + column.name;
        table += std::string(", ") + column.name + " " + column.postgresType;
        for (const char* order : {"ASC NULLS LAST", "DESC NULLS LAST", "ASC NULLS FIRST"}) {
            questions += std::string("COPY (SELECT row FROM t ORDER BY ") + column.name + " " +
                         order + ", row) TO STDOUT;\n";
        }
    }
    csv += "\n";
    constexpr int kRows = 3000;
    for (int i = 0; i < kRows; ++i) {
        csv += std::to_string(i);
        for (const Column& column : columns)
            csv += "," + (below(30) == 0 ? std::string() : column.draw());
        csv += "\n";
    }
    write("t.csv", csv);
    write("statements",
          table + ");\n\\copy t FROM 't.csv' WITH (FORMAT csv, HEADER)\n" + questions);
    const std::string answers = shell(kPostgres);
    std::size_t at = 0;
    for (const Column& column : columns) {
        for (const char* order : {":nulls-last", ":desc:nulls-last", ":nulls-first"}) {
            const std::string key = std::string(column.name) + ":" + column.type + order;
            // Texts that its language calls equal are told apart by their bytes there.
            const std::string bytes =
                column.type == std::string("text:en") ? std::string(" --key c") + order : "";
            ASSERT_EQ(run("sort t.csv -o out.csv --key " + key + bytes).status, 0)
                << read(".errors");
            const std::string rows = shell("sed 1d out.csv | cut -d, -f1");
            EXPECT_TRUE(answers.compare(at, rows.size(), rows) == 0) << key;
            at += rows.size();
        }
    }
    EXPECT_EQ(at, answers.size());
}

}  // namespace
}  // namespace tvsort::test

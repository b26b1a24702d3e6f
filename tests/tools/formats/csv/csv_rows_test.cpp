#include "tools/formats/csv/csv_rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "host/host_error.h"
#include "tools/files/spool_file.h"

namespace tvsort::tools {
namespace {

using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr std::size_t kAnyLength = 1 << 20;
// With small ones, lines and rows lie across several readings.
constexpr std::size_t kBuffers[] = {1, 2, 5, 64, kCsvBufferBytes};

InputFile fileOf(const std::string& text) {
    SpoolFile file(std::filesystem::temp_directory_path());
    file.write(reinterpret_cast<const Byte*>(text.data()), text.size());
    return file.takeAsInput("rows.csv");
}

// "line@offset field|field", with ~ for a null; "line@offset !" and what is wrong for a bad row.
std::vector<std::string> rowsOf(const std::string& text, std::size_t bufferBytes,
                                std::size_t rowBytesMax = kAnyLength) {
    InputFile input = fileOf(text);
    CsvRows rows(input, ',', rowBytesMax, bufferBytes);
    std::vector<std::string> said;
    for (CsvRow row; rows.next(row);) {
        EXPECT_EQ(row.bytes, text.substr(static_cast<std::size_t>(row.offset), row.bytes.size()));
        std::string fields = row.problem.empty() ? "" : "!" + row.problem;
        for (std::size_t i = 0; row.problem.empty() && i < rows.fields().size(); ++i) {
            const CsvField& field = rows.fields()[i];
            fields += (i > 0 ? "|" : "") + (field.isNull ? "~" : std::string(field.text));
        }
        said.push_back(std::to_string(row.lineNumber) + "@" + std::to_string(row.offset) + " " +
                       fields);
    }
    return said;
}

struct Case {
    std::string text;
    std::vector<std::string> rows;  // of a bad one, the begin of what is wrong
};

TEST(CsvRows, RowsAreTakenApartWhereverTheBufferEnds) {
    const Case cases[] = {
        {"", {}},
        {"\n", {"1@0 ~"}},
        {"a,b\nc,d", {"1@0 a|b", "2@4 c|d"}},
        {"a,\r\n,b\r\n", {"1@0 a|~", "2@4 ~|b"}},
        {"\"\",x\n", {"1@0 |x"}},
        {" a , b \n", {"1@0  a | b "}},
        {"\"a,b\",c\n", {"1@0 a,b|c"}},
        {"\"Bob \"\"B\"\"\",\"\"\"\"\n", {"1@0 Bob \"B\"|\""}},
        {"\"two\r\nlines\",z\nnext,1\n", {"1@0 two\r\nlines|z", "3@15 next|1"}},
        {"x\n\"last\"", {"1@0 x", "2@2 last"}},
        {"\xef\xbb\xbf"
         "a\nb\n",
         {"1@3 a", "2@5 b"}},
        {"\xef\xbb\n", {"1@0 \xef\xbb"}},
        // A bad row ends with its first line.
        {"a\"b,c\nd\n", {"1@0 !has a quote in the wrong place", "2@6 d"}},
        {"\"a\"b\nd\n", {"1@0 !has a quote in the wrong place", "2@5 d"}},
        {"a\rb\nd\n", {"1@0 !holds a carriage return", "2@4 d"}},
        {"\"a\"\rb\nd\n", {"1@0 !holds a carriage return", "2@6 d"}},
        {"\"open,1\nx,y\n", {"1@0 !opens a quote that is never closed", "2@8 x|y"}},
        {"\"open\nx,\"\"y\n\"z\n", {"1@0 !has a quote in the wrong place", "2@6 !has", "3@12 !op"}},
    };
    for (const Case& each : cases) {
        for (const std::size_t bufferBytes : kBuffers) {
            SCOPED_TRACE(each.text + " in buffers of " + std::to_string(bufferBytes));
            std::vector<std::string> said = rowsOf(each.text, bufferBytes);
            for (std::size_t i = 0; i < std::min(said.size(), each.rows.size()); ++i) {
                if (each.rows[i].find(" !") != std::string::npos)
                    said[i].resize(std::min(said[i].size(), each.rows[i].size()));
            }
            EXPECT_THAT(said, ElementsAreArray(each.rows));
        }
    }
}

TEST(CsvRows, LongRowIsBadAndALongLineIsRefused) {
    for (const std::size_t bufferBytes : kBuffers) {
        const std::vector<std::string> rows = rowsOf("ab,cd\n\"e\nf\ng\"\nh\n", bufferBytes, 6);
        ASSERT_GE(rows.size(), 3U);
        EXPECT_EQ(rows[0], "1@0 ab|cd");
        EXPECT_THAT(rows[1], HasSubstr("2@6 !has more than 6 bytes"));
        EXPECT_EQ(rows[2], "3@9 f");
        try {
            rowsOf("ab,cd\nef,ghi\n", bufferBytes, 6);
            ADD_FAILURE() << "a line of 7 bytes was read";
        } catch (const host::HostError& error) {
            EXPECT_THAT(error.what(), HasSubstr("rows.csv, line 2: the row has more than 6 bytes"));
        }
    }
}

TEST(CsvRows, WhatIsWrittenByTheRulesIsReadBack) {
    constexpr char kCharacters[] = {'a', 'b', ' ', ',', '"', '\r', '\n', '\xc3'};
    for (unsigned seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        std::string text;
        std::vector<std::string> expected;
        std::size_t lineNumber = 1;
        for (std::size_t row = 0; row < 1 + random() % 8; ++row) {
            std::string said = std::to_string(lineNumber) + "@" + std::to_string(text.size()) + " ";
            for (std::size_t field = 0; field < 3; ++field) {
                std::string value;
                for (std::size_t length = random() % 6; value.size() < length;)
                    value += kCharacters[random() % std::size(kCharacters)];
                const bool isQuoted =
                    random() % 2 == 0 || value.find_first_of(",\"\r\n") != std::string::npos;
                said += (field > 0 ? "|" : "") + (value.empty() && !isQuoted ? "~" : value);
                if (field > 0) text += ',';
                if (isQuoted) text += '"';
                for (const char character : value) {
                    text += character;
                    if (character == '"') text += '"';
                    if (character == '\n') lineNumber += 1;
                }
                if (isQuoted) text += '"';
            }
            text += random() % 2 == 0 ? "\n" : "\r\n";
            lineNumber += 1;
            expected.push_back(said);
        }
        EXPECT_THAT(rowsOf(text, kBuffers[seed % std::size(kBuffers)]), ElementsAreArray(expected));
    }
}

}  // namespace
}  // namespace tvsort::tools

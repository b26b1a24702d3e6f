// A CSV file of whatever bytes, from the file to the records.
//
//     0   u8    delimiter, and the layout of the record
//     1   u8    bytes that are read at once, from 1
//     2   ...   the file

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/host_error.h"
#include "tools/files/input_file.h"
#include "tools/formats/csv/csv_record.h"
#include "tools/formats/csv/csv_rows.h"

using namespace tvsort;
using namespace tvsort::tools;

namespace {

constexpr std::size_t kRowBytesMax = 600;
constexpr std::size_t kTextBytesMax = 20;
constexpr std::string_view kDelimiters = ",;\t ";

void require(bool holds) {
    if (!holds) std::abort();
}

InputFile fileOf(std::string_view content) {
    host::FileDescriptor file(memfd_create("csv", MFD_CLOEXEC));
    require(write(file.number(), content.data(), content.size()) ==
            static_cast<ssize_t>(content.size()));
    InputFile input(std::move(file), "file");
    input.rewind();
    return input;
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char character : text)
        result += character == '"' ? std::string("\"\"") : std::string(1, character);
    return result + "\"";
}

// Fields that are all written in quotes, and go through libcsv, come out as they went in.
void checkQuoted(const std::vector<CsvField>& fields, char delimiter) {
    std::string row;
    for (const CsvField& field : fields) {
        if (!row.empty()) row += delimiter;
        row += quoted(field.text);
    }
    CsvRowParser parser(delimiter);
    auto outcome = CsvRowParser::Outcome::kGoesOn;
    row += "\n";
    for (std::size_t begin = 0; begin < row.size();) {
        const std::size_t end = row.find('\n', begin) + 1;
        require(outcome == CsvRowParser::Outcome::kGoesOn);
        outcome = parser.take(std::string_view(row).substr(begin, end - begin));
        begin = end;
    }
    require(outcome == CsvRowParser::Outcome::kWhole);
    require(parser.fields().size() == fields.size());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        require(parser.fields()[i].text == fields[i].text && !parser.fields()[i].isNull);
    }
}

// What this program takes apart itself is what libcsv makes of it.
void checkPlain(const CsvRow& row, const std::vector<CsvField>& fields, char delimiter) {
    if (row.bytes.find('"') != std::string_view::npos) return;
    const std::string longer = "\"\"" + std::string(1, delimiter) + std::string(row.bytes);
    CsvRowParser parser(delimiter);
    require(parser.take(longer) == CsvRowParser::Outcome::kWhole);
    require(parser.fields().size() == fields.size() + 1);
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const CsvField& field = parser.fields()[i + 1];
        require(field.text == fields[i].text && field.isNull == fields[i].isNull);
    }
}

// A record for each column type alone, so that no value hides the others; rows carried and left.
std::vector<CsvRecord> recordLayouts() {
    std::vector<CsvRecord> layouts;
    for (const char* const name : {"text", "bytes", "ucs2", "padded-ucs2", "field512", "int",
                                   "int16", "float", "double", "byte", "decimal:3"}) {
        ColumnField field(host::valueFormat(name, host::ValuePlace::kColumn));
        if (field.hasLength()) field.setContentBytes(kTextBytesMax);
        for (const std::size_t carriedBytesMax : {std::size_t{0}, kRowBytesMax}) {
            layouts.emplace_back(std::vector<KeyColumn>{{0, name, field, 1}}, std::nullopt,
                                 carriedBytesMax);
        }
    }
    return layouts;
}

// In memory of just the record's size, so that the address sanitizer sees a step beyond it.
void checkRecord(const CsvRow& row, const std::vector<CsvField>& fields, CsvRecord& record) {
    std::vector<Byte> bytes(record.recordLength());
    try {
        record.encode(fields, row.bytes, 0x123456789a, bytes.data());
    } catch (const host::HostError& error) {
        require(error.kind() == host::FailureKind::kBadUse);
        return;
    }
    if (record.carriesRows()) {
        require(record.rowOf(bytes.data()) == row.bytes);
    } else {
        require(record.rowPlaceOf(bytes.data()).offset == 0x123456789a);
        require(record.rowPlaceOf(bytes.data()).byteCount == row.bytes.size());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const Byte* data, std::size_t size) {
    constexpr std::size_t kHeadBytes = 2;
    if (size < kHeadBytes) return 0;
    const char delimiter = kDelimiters[data[0] % kDelimiters.size()];
    const std::string_view content(reinterpret_cast<const char*>(data + kHeadBytes),
                                   size - kHeadBytes);
    InputFile input = fileOf(content);
    CsvRows rows(input, delimiter, kRowBytesMax, data[1] + std::size_t{1});
    static std::vector<CsvRecord> layouts = recordLayouts();
    CsvRecord& layout = layouts[data[0] / kDelimiters.size() % layouts.size()];
    std::string read;
    std::int64_t lineNumber = 1;
    try {
        for (CsvRow row = {}; rows.next(row);) {
            if (read.empty() && rows.hasMark()) read = kByteOrderMark;
            require(row.offset == static_cast<std::int64_t>(read.size()));
            require(row.lineNumber == lineNumber && !row.bytes.empty());
            lineNumber += std::count(row.bytes.begin(), row.bytes.end(), '\n');
            read += row.bytes;
            if (!row.problem.empty()) continue;
            checkQuoted(rows.fields(), delimiter);
            checkPlain(row, rows.fields(), delimiter);
            checkRecord(row, rows.fields(), layout);
        }
    } catch (const host::HostError& error) {
        // A line beyond all measure.
        require(error.kind() == host::FailureKind::kBadUse && content.size() > kRowBytesMax);
        return 0;
    }
    require(read == content || (read.empty() && content == kByteOrderMark));
    return 0;
}

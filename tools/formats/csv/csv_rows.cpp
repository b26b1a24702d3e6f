#include "tools/formats/csv/csv_rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kFieldBytesStep = 4096;  // by which libcsv's own buffer grows

constexpr char kStrayReturn[] =
    "holds a carriage return outside of quotes that ends no line; quote the field";
constexpr char kStrayQuote[] =
    "has a quote in the wrong place: it may open a field, close it before a delimiter or the "
    "row's end, and stand twice inside";
constexpr char kOpenQuote[] = "opens a quote that is never closed";

int isNoBlank(unsigned char) {
    return 0;
}

bool contains(std::string_view text, char character) {
    return !text.empty() && std::memchr(text.data(), character, text.size()) != nullptr;
}

std::size_t lineEndBytes(std::string_view line) {
    if (!line.ends_with('\n')) return 0;
    return line.ends_with("\r\n") ? 2 : 1;
}

constexpr unsigned char kParserOptions = CSV_STRICT | CSV_STRICT_FINI | CSV_EMPTY_IS_NULL;

}  // namespace

CsvRowParser::CsvRowParser(char delimiter) : delimiter_(delimiter), parser_() {
    csv_init(&parser_, kParserOptions);
    csv_set_delim(&parser_, static_cast<unsigned char>(delimiter));
    csv_set_space_func(&parser_, isNoBlank);
    csv_set_blk_size(&parser_, kFieldBytesStep);
}

CsvRowParser::~CsvRowParser() {
    csv_free(&parser_);
}

CsvRowParser::Outcome CsvRowParser::take(std::string_view line) {
    const std::string_view content = line.substr(0, line.size() - lineEndBytes(line));
    if (!goesOn_) {
        if (!contains(line, CSV_QUOTE)) return takePlain(content);
        ended_ = false;
        content_.clear();
        pieces_.clear();
    }
    if (!feed(content)) return fail(kStrayQuote);
    // Nothing but the line's end may end the row, and libcsv takes a carriage return for an end.
    if (ended_) return fail(kStrayReturn);
    if (!feed(line.substr(content.size()))) return fail(kStrayQuote);
    goesOn_ = !ended_;
    const bool isLast = content.size() == line.size();
    if (goesOn_ && !isLast) return Outcome::kGoesOn;
    if (goesOn_ && csv_fini(&parser_, onField, onEnd, this) != 0) return fail(kOpenQuote);
    goesOn_ = false;
    fields_.clear();
    for (const Piece& piece : pieces_) {
        fields_.push_back({std::string_view(content_).substr(piece.begin, piece.end - piece.begin),
                           piece.isNull});
    }
    return Outcome::kWhole;
}

bool CsvRowParser::feed(std::string_view text) {
    if (csv_parse(&parser_, text.data(), text.size(), onField, onEnd, this) == text.size())
        return true;
    if (csv_error(&parser_) != CSV_EPARSE) throw std::bad_alloc();
    return false;
}

CsvRowParser::Outcome CsvRowParser::takePlain(std::string_view content) {
    if (contains(content, CSV_CR)) return fail(kStrayReturn);
    fields_.clear();
    const char* begin = content.data();
    const char* const end = begin + content.size();
    for (;;) {
        const auto left = static_cast<std::size_t>(end - begin);
        const void* const found = left == 0 ? nullptr : std::memchr(begin, delimiter_, left);
        const char* const fieldEnd = found == nullptr ? end : static_cast<const char*>(found);
        fields_.push_back({{begin, static_cast<std::size_t>(fieldEnd - begin)}, begin == fieldEnd});
        if (found == nullptr) return Outcome::kWhole;
        begin = fieldEnd + 1;
    }
}

CsvRowParser::Outcome CsvRowParser::fail(const std::string& problem) {
    problem_ = problem;
    goesOn_ = false;
    // What the row has left in the parser must not reach the next one. In strict mode an open
    // quote would stay.
    csv_set_opts(&parser_, 0);
    csv_fini(&parser_, nullptr, nullptr, nullptr);
    csv_set_opts(&parser_, kParserOptions);
    return Outcome::kMalformed;
}

CsvRowParser::Outcome CsvRowParser::end() {
    return fail(kOpenQuote);
}

void CsvRowParser::onField(void* text, std::size_t byteCount, void* self) {
    CsvRowParser& parser = *static_cast<CsvRowParser*>(self);
    const std::size_t begin = parser.content_.size();
    if (text != nullptr) parser.content_.append(static_cast<const char*>(text), byteCount);
    parser.pieces_.push_back({begin, parser.content_.size(), text == nullptr});
}

void CsvRowParser::onEnd(int, void* self) {
    static_cast<CsvRowParser*>(self)->ended_ = true;
}

CsvRows::CsvRows(InputFile& input, char delimiter, std::size_t rowBytesMax, std::size_t bufferBytes)
    : input_(input), parser_(delimiter), rowBytesMax_(rowBytesMax), window_(input, bufferBytes) {}

bool CsvRows::next(CsvRow& row) {
    if (!started_) passMark();
    row.problem.clear();
    std::size_t byteCount = 0;
    std::size_t firstLineBytes = 0;
    for (std::int64_t lineCount = 1;; ++lineCount) {
        const std::string_view line = lineAt(byteCount);
        if (line.empty() && lineCount == 1) return false;
        byteCount += line.size();
        if (lineCount == 1) firstLineBytes = byteCount;
        const auto outcome = byteCount > rowBytesMax_ ? refuseLongRow(lineCount)
                             : line.empty()           ? parser_.end()
                                                      : parser_.take(line);
        if (outcome == CsvRowParser::Outcome::kGoesOn) continue;
        if (outcome == CsvRowParser::Outcome::kWhole) {
            finishRow(byteCount, lineCount, row);
        } else {
            row.problem = parser_.problem();
            finishRow(firstLineBytes, 1, row);
        }
        return true;
    }
}

CsvRowParser::Outcome CsvRows::refuseLongRow(std::int64_t lineCount) {
    const std::string problem = fmt::format(
        "has more than {} bytes; close its quotes, or give more --memory", rowBytesMax_);
    if (lineCount > 1) return parser_.fail(problem);
    throw host::badUse(
        fmt::format("{}, line {}: the row {}", input_.displayName(), lineNumber_, problem));
}

void CsvRows::finishRow(std::size_t byteCount, std::int64_t lineCount, CsvRow& row) {
    row.bytes = window_.bytes().substr(0, byteCount);
    row.offset = offset_;
    row.lineNumber = lineNumber_;
    window_.take(byteCount);
    offset_ += static_cast<std::int64_t>(byteCount);
    lineNumber_ += lineCount;
}

void CsvRows::passMark() {
    started_ = true;
    while (window_.bytes().size() < kByteOrderMark.size() && window_.readMore()) {
    }
    hasMark_ = !input_.isPlain() && window_.bytes().starts_with(kByteOrderMark);
    if (!hasMark_) return;
    window_.take(kByteOrderMark.size());
    offset_ = static_cast<std::int64_t>(kByteOrderMark.size());
}

std::string_view CsvRows::lineAt(std::size_t from) {
    for (std::size_t searched = from;;) {
        const std::string_view held = window_.bytes();
        const std::size_t found = held.find('\n', searched);
        if (found != std::string_view::npos) return held.substr(from, found + 1 - from);
        searched = held.size();
        if (held.size() > rowBytesMax_ || !window_.readMore()) return window_.bytes().substr(from);
    }
}

}  // namespace tvsort::tools

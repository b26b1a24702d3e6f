#include "tools/formats/csv/csv_keyed.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"
#include "host/values/number_text.h"

namespace tvsort::tools {

class CsvReader : public RowReader {
  public:
    explicit CsvReader(const CsvKeyedInput& input)
        : input_(input),
          table_(*input.table_),
          keys_(input.columns_, input.rules_),
          places_(input.places_),
          parser_(table_.delimiter) {}

    Found next(const TextPart& part, KeyedRow& row) override;
    const std::string& problem() const override { return problem_; }
    std::span<const RowField> fields() const override { return parser_.fields(); }
    std::size_t guessStart(const TextPart& part) override;
    void hold(const TextPart& part) override { places_.hold(part); }
    void keyOf(std::string_view text, host::KeyBytes& key) override;
    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override;

  private:
    // The last ones that were asked for: long keys are compared two at a time.
    struct KnownKey {
        std::uint64_t offset = ~std::uint64_t{0};
        bool hasNull = false;
        host::KeyBytes bytes;
    };
    using Parsed = CsvRowParser::Outcome;

    // The lines of the row at the start of the bytes; a malformed one has its first line alone.
    // Nothing where the row does not end there.
    std::optional<std::size_t> parse(const TextPart& part);
    Parsed refuseLong(std::uint64_t offset, bool isOneLine);
    bool isWhole() const {
        return problem_.empty() &&
               (table_.isRagged || parser_.fields().size() == table_.columnCount);
    }
    bool encode(KeyedRow& row);
    bool looksWhole(std::string_view bytes);
    const KnownKey& keyAt(const RowPlace& place);

    const CsvKeyedInput& input_;
    const CsvTable& table_;
    RowKeys keys_;
    PlaceReader places_;
    CsvRowParser parser_;
    host::KeyBytes key_;
    std::string problem_;
    KnownKey known_[2];
    std::size_t oldestKnown_ = 0;
};

CsvKeyedInput::CsvKeyedInput(std::shared_ptr<const CsvTable> table,
                             std::vector<RowKeyColumn> columns, RowKeyRules rules,
                             std::vector<InputFile>& inputs)
    : table_(std::move(table)),
      columns_(std::move(columns)),
      rules_(std::move(rules)),
      places_(inputs) {
    guessTypes(inputs);
}

std::unique_ptr<RowReader> CsvKeyedInput::reader(std::size_t) const {
    return std::make_unique<CsvReader>(*this);
}

void CsvKeyedInput::guessTypes(std::vector<InputFile>& inputs) {
    std::vector<RowKeyColumn*> wanted;
    for (RowKeyColumn& column : columns_) {
        if (column.form.type.name == host::kAutoType) wanted.push_back(&column);
    }
    if (wanted.empty()) return;
    std::vector<host::TypeGuess> guesses(wanted.size());
    for (InputFile& input : inputs) {
        CsvTableRows rows(input, *table_, nullptr);
        CsvRow row;
        while (rows.next(row)) {
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                if (wanted[i]->index >= rows.fields().size()) continue;
                const CsvField& field = rows.fields()[wanted[i]->index];
                if (!field.isNull && field.text != rules_.nullWord) guesses[i].take(field.text);
            }
        }
        input.rewind();
    }
    for (std::size_t i = 0; i < wanted.size(); ++i)
        wanted[i]->form.type = guesses[i].chosen();
}

RowReader::Found CsvReader::next(const TextPart& part, KeyedRow& row) {
    problem_.clear();
    if (part.bytes.empty()) return {part.endsInput ? Outcome::kEnd : Outcome::kNeedsMore, 0};
    const std::optional<std::size_t> found = parse(part);
    if (!found.has_value()) return {Outcome::kNeedsMore, 0};
    row.text = part.bytes.substr(0, *found);
    row.place = {part.offset, static_cast<std::uint32_t>(*found)};
    row.isHeld = true;
    row.key = &key_;
    row.isKeyWhole = true;
    row.hasNull = false;
    row.isMalformed = false;
    return {encode(row) ? Outcome::kRow : Outcome::kUnreadable, *found};
}

std::optional<std::size_t> CsvReader::parse(const TextPart& part) {
    std::size_t byteCount = 0;
    std::size_t firstLineBytes = 0;
    for (bool isFirst = true;; isFirst = false) {
        const std::size_t found = part.bytes.find('\n', byteCount);
        const bool isLineWhole = found != std::string_view::npos;
        const std::size_t end = isLineWhole ? found + 1 : part.bytes.size();
        if (!isLineWhole && !part.endsInput && end <= table_.rowBytesMax) {
            parser_.fail("");
            return std::nullopt;
        }
        const std::string_view line = part.bytes.substr(byteCount, end - byteCount);
        byteCount = end;
        if (isFirst) firstLineBytes = byteCount;
        const Parsed outcome = byteCount > table_.rowBytesMax ? refuseLong(part.offset, isFirst)
                               : line.empty()                 ? parser_.end()
                                                              : parser_.take(line);
        if (outcome == Parsed::kGoesOn) continue;
        if (outcome == Parsed::kWhole) return byteCount;
        problem_ = parser_.problem();
        return firstLineBytes;
    }
}

CsvRowParser::Outcome CsvReader::refuseLong(std::uint64_t offset, bool isOneLine) {
    const std::string problem = fmt::format(
        "has more than {} bytes; close its quotes, or give more --memory", table_.rowBytesMax);
    if (!isOneLine) return parser_.fail(problem);
    throw host::badUse(fmt::format("{}: the row {}", input_.nameOf(offset), problem));
}

bool CsvReader::encode(KeyedRow& row) {
    const bool isMalformed = !problem_.empty();
    if (!isMalformed && !isWhole()) {
        problem_ = fmt::format("has {} fields where the first row has {}", parser_.fields().size(),
                               table_.columnCount);
    }
    if (!problem_.empty()) {
        problem_ = ": the row " + problem_;
        if (!input_.rules_.keepsUnreadable) return false;
        // It has no fields that could be read.
        key_.clear();
        host::OrderedKey::appendUnreadable({}, key_);
        row.hasNull = true;
        row.isMalformed = true;
        return true;
    }
    try {
        const RowKeys::Outcome outcome = keys_.encode(parser_.fields(), key_);
        row.hasNull = outcome.hasNull;
        if (!outcome.problem.empty()) problem_ = ", " + outcome.problem;
    } catch (const host::HostError& error) {
        problem_ = fmt::format(", {}", error.what());
        return false;
    }
    return true;
}

// A line in quotes looks like a row now and then, but seldom like several.
bool CsvReader::looksWhole(std::string_view bytes) {
    constexpr int kRows = 8;
    for (int i = 0; i < kRows && !bytes.empty(); ++i) {
        problem_.clear();
        const std::optional<std::size_t> found = parse({0, bytes, false});
        if (!found.has_value()) break;
        if (!isWhole()) return false;
        bytes.remove_prefix(*found);
    }
    return true;
}

std::size_t CsvReader::guessStart(const TextPart& part) {
    std::size_t first = part.bytes.size();
    for (std::size_t at = 0;;) {
        const std::size_t found = part.bytes.find('\n', at);
        if (found == std::string_view::npos) return first;
        at = found + 1;
        first = std::min(first, at);
        if (looksWhole(part.bytes.substr(at))) return at;
    }
}

void CsvReader::keyOf(std::string_view text, host::KeyBytes& key) {
    problem_.clear();
    // A row that was found as one ends where its bytes end.
    parse({0, text, true});
    KeyedRow row;
    if (encode(row)) key.swap(key_);
}

KeyPart CsvReader::keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                           host::KeyBytes& part) {
    const KnownKey& known = keyAt(place);
    return {copyPart(known.bytes, from, bytesMax, part), known.hasNull};
}

const CsvReader::KnownKey& CsvReader::keyAt(const RowPlace& place) {
    for (const KnownKey& known : known_) {
        if (known.offset == place.offset) return known;
    }
    KnownKey& known = known_[oldestKnown_];
    oldestKnown_ = 1 - oldestKnown_;
    known.offset = ~std::uint64_t{0};
    problem_.clear();
    const std::string_view text = places_.read(place);
    const std::optional<std::size_t> found = parse({place.offset, text, true});
    KeyedRow row;
    if (found != text.size() || !encode(row))
        throw changedWhileRead(
            input_.places_.input(input_.places_.indexOf(place.offset)).displayName());
    known.bytes.swap(key_);
    known.hasNull = row.hasNull;
    known.offset = place.offset;
    return known;
}

}  // namespace tvsort::tools

#include "tools/formats/csv/csv_keyed.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"
#include "host/values/number_text.h"

namespace tvsort::tools {

CsvKeyedInput::CsvKeyedInput(std::shared_ptr<const CsvTable> table,
                             std::vector<RowKeyColumn> columns, std::optional<std::string> nullWord,
                             std::vector<InputFile>& inputs, RowErrors& errors)
    : table_(std::move(table)),
      columns_(std::move(columns)),
      nullWord_(std::move(nullWord)),
      inputs_(inputs),
      errors_(errors),
      places_(inputs),
      reader_(places_),
      parser_(table_->delimiter) {
    guessTypes();
    keys_ = std::make_unique<RowKeys>(columns_, RowKeyRules{nullWord_, errors_.keepsRows()});
    restart();
}

void CsvKeyedInput::guessTypes() {
    std::vector<RowKeyColumn*> wanted;
    for (RowKeyColumn& column : columns_) {
        if (column.form.type.name == host::kAutoType) wanted.push_back(&column);
    }
    if (wanted.empty()) return;
    std::vector<host::TypeGuess> guesses(wanted.size());
    for (InputFile& input : inputs_) {
        CsvTableRows rows(input, *table_, nullptr);
        CsvRow row;
        while (rows.next(row)) {
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                if (wanted[i]->index >= rows.fields().size()) continue;
                const CsvField& field = rows.fields()[wanted[i]->index];
                if (!field.isNull && field.text != nullWord_) guesses[i].take(field.text);
            }
        }
    }
    for (std::size_t i = 0; i < wanted.size(); ++i)
        wanted[i]->form.type = guesses[i].chosen();
}

void CsvKeyedInput::restart() {
    for (InputFile& input : inputs_)
        input.rewind();
    errors_.restart();
    inputIndex_ = 0;
    rows_ = std::make_unique<CsvTableRows>(inputs_[0], *table_, &errors_);
}

bool CsvKeyedInput::next(KeyedRow& row) {
    for (;;) {
        if (rows_->next(row_)) {
            if (encode(row_, row)) return true;
        } else if (inputIndex_ + 1 < inputs_.size()) {
            inputIndex_ += 1;
            rows_ = std::make_unique<CsvTableRows>(inputs_[inputIndex_], *table_, &errors_);
        } else {
            return false;
        }
    }
}

bool CsvKeyedInput::encode(const CsvRow& row, KeyedRow& keyed) {
    keyed.place = {places_.startOf(inputIndex_) + static_cast<std::uint64_t>(row.offset),
                   static_cast<std::uint32_t>(row.bytes.size())};
    // The place of a row that was appended since is one of the next input, or of none.
    if (keyed.place.offset + keyed.place.byteCount > places_.endOf(inputIndex_))
        throw changedWhileRead(inputs_[inputIndex_].displayName());
    keyed.isHeld = true;
    keyed.text = row.bytes;
    keyed.key = &key_;
    keyed.isKeyWhole = true;
    try {
        // A malformed row that is kept has no fields that could be read.
        const auto fields = row.problem.empty() ? std::span<const CsvField>(rows_->fields())
                                                : std::span<const CsvField>();
        const RowKeys::Outcome outcome = keys_->encode(fields, key_);
        keyed.hasNull = outcome.hasNull;
        if (!row.problem.empty()) {
            key_.clear();
            host::OrderedKey::appendUnreadable({}, key_);
        }
        if (outcome.problem.empty()) return true;
        errors_.take(fmt::format("{}, {}", rows_->nameOf(row), outcome.problem));
    } catch (const host::HostError& error) {
        errors_.take(fmt::format("{}, {}", rows_->nameOf(row), error.what()));
        return false;
    }
    return true;
}

RowLevel CsvKeyedInput::levelIn(std::size_t columnIndex, const std::string& name) const {
    // What is wrong with a malformed row has been said.
    if (!row_.problem.empty()) return {};
    const std::vector<CsvField>& fields = rows_->fields();
    try {
        if (columnIndex >= fields.size() || fields[columnIndex].isNull)
            throw host::badUse("it is empty, and a hierarchy needs a level in each row");
        return {host::parseNumber<std::int32_t>(fields[columnIndex].text, "level"), ""};
    } catch (const host::HostError& error) {
        return {std::nullopt,
                fmt::format("{}, column {}: {}", rows_->nameOf(row_), name, error.what())};
    }
}

KeyPart CsvKeyedInput::keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                               host::KeyBytes& part) {
    const KnownKey& known = keyAt(place);
    const std::size_t begin = std::min<std::uint64_t>(from, known.bytes.size());
    const std::size_t count = std::min(bytesMax, known.bytes.size() - begin);
    const auto first = known.bytes.begin() + static_cast<std::ptrdiff_t>(begin);
    part.assign(first, first + static_cast<std::ptrdiff_t>(count));
    return {begin + count == known.bytes.size(), known.hasNull};
}

const CsvKeyedInput::KnownKey& CsvKeyedInput::keyAt(const RowPlace& place) {
    for (const KnownKey& known : known_) {
        if (known.offset == place.offset) return known;
    }
    KnownKey& known = known_[oldestKnown_];
    oldestKnown_ = 1 - oldestKnown_;
    known.offset = ~std::uint64_t{0};
    auto outcome = CsvRowParser::Outcome::kGoesOn;
    for (std::string_view rest = reader_.read(place); !rest.empty();) {
        const std::size_t lineBytes = std::min(rest.find('\n'), rest.size() - 1) + 1;
        outcome = parser_.take(rest.substr(0, lineBytes));
        rest.remove_prefix(lineBytes);
        if (outcome != CsvRowParser::Outcome::kGoesOn && !rest.empty())
            outcome = CsvRowParser::Outcome::kMalformed;
        if (outcome == CsvRowParser::Outcome::kMalformed) break;
    }
    if (outcome == CsvRowParser::Outcome::kGoesOn) parser_.end();
    const bool isGood = outcome == CsvRowParser::Outcome::kWhole &&
                        (table_->isRagged || parser_.fields().size() == table_->columnCount);
    if (isGood) {
        known.hasNull = keys_->encode(parser_.fields(), known.bytes).hasNull;
    } else if (errors_.keepsRows()) {
        known.bytes.clear();
        host::OrderedKey::appendUnreadable({}, known.bytes);
    } else {
        throw changedWhileRead(inputs_[places_.indexOf(place.offset)].displayName());
    }
    known.offset = place.offset;
    return known;
}

}  // namespace tvsort::tools

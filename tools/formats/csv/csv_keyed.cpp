#include "tools/formats/csv/csv_keyed.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

RowKeys::RowKeys(const std::vector<KeyText>& keys, const CsvTable& table) {
    for (const KeyText& key : keys) {
        const std::size_t index =
            columnIndexOf(key.column, table.names, table.columnCount, "--key");
        columns_.push_back({index, key.column, host::OrderedKey(key.ordered.value())});
        columnsNeeded_ = std::max(columnsNeeded_, index + 1);
    }
}

bool RowKeys::encode(const std::vector<CsvField>& fields, host::KeyBytes& key) {
    key.clear();
    bool hasNull = false;
    for (Column& column : columns_) {
        const CsvField& field = fields[column.index];
        if (field.isNull) {
            hasNull = true;
            column.key.appendNull(key);
            continue;
        }
        try {
            column.key.append(field.text, key);
        } catch (const host::HostError& error) {
            throw host::badUse(fmt::format("column {}: {}", column.name, error.what()));
        }
    }
    return hasNull;
}

CsvKeyedInput::CsvKeyedInput(std::shared_ptr<const CsvTable> table, std::vector<KeyText> keys,
                             std::vector<InputFile>& inputs, RowErrors& errors)
    : table_(std::move(table)),
      keyTexts_(std::move(keys)),
      inputs_(inputs),
      errors_(errors),
      places_(inputs),
      reader_(places_),
      parser_(table_->delimiter) {
    guessTypes();
    keys_ = std::make_unique<RowKeys>(keyTexts_, *table_);
    restart();
}

void CsvKeyedInput::guessTypes() {
    std::vector<std::pair<host::KeyForm*, std::size_t>> wanted;
    for (KeyText& key : keyTexts_) {
        if (key.ordered->type.name != host::kAutoType) continue;
        wanted.emplace_back(&*key.ordered,
                            columnIndexOf(key.column, table_->names, table_->columnCount, "--key"));
    }
    if (wanted.empty()) return;
    std::vector<host::TypeGuess> guesses(wanted.size());
    for (InputFile& input : inputs_) {
        CsvTableRows rows(input, *table_, nullptr);
        CsvRow row;
        while (rows.next(row)) {
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                const CsvField& field = rows.fields()[wanted[i].second];
                if (!field.isNull) guesses[i].take(field.text);
            }
        }
    }
    for (std::size_t i = 0; i < wanted.size(); ++i)
        wanted[i].first->type = guesses[i].chosen();
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
        keyed.hasNull = keys_->encode(rows_->fields(), key_);
        return true;
    } catch (const host::HostError& error) {
        errors_.take(fmt::format("{}, {}", rows_->nameOf(row), error.what()));
        return false;
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
    if (outcome != CsvRowParser::Outcome::kWhole ||
        parser_.fields().size() < keys_->columnsNeeded()) {
        throw changedWhileRead(inputs_[places_.indexOf(place.offset)].displayName());
    }
    known.hasNull = keys_->encode(parser_.fields(), known.bytes);
    known.offset = place.offset;
    return known;
}

std::string CsvKeyedInput::keysInWords() const {
    std::string words;
    for (const KeyText& key : keyTexts_) {
        if (!words.empty()) words += ", ";
        words += fmt::format("{} {}{}", key.column, key.ordered->type.text(),
                             key.ordered->isDescending ? " desc" : "");
    }
    return words;
}

}  // namespace tvsort::tools

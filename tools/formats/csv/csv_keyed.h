// Rows of CSV files with the ordered keys of their columns.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/keys/ordered_key.h"
#include "tools/formats/csv/csv_scan.h"
#include "tools/formats/keyed_input.h"
#include "tools/options/key_text.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

// The keys of a row, one behind the other.
class RowKeys {
  public:
    // Keys of the type auto must have been given another one.
    RowKeys(const std::vector<KeyText>& keys, const CsvTable& table);

    // Replaces `key`; answers whether a key is null. A value that its type cannot read is bad use
    // that names the column.
    bool encode(const std::vector<CsvField>& fields, host::KeyBytes& key);
    std::size_t columnsNeeded() const { return columnsNeeded_; }

  private:
    struct Column {
        std::size_t index;
        std::string name;
        host::OrderedKey key;
    };
    std::vector<Column> columns_;
    std::size_t columnsNeeded_ = 0;
};

class CsvKeyedInput : public KeyedInput {
  public:
    // Inputs and errors are needed as long as it reads. Reads all inputs once more where a key's
    // type is auto, and leaves them at their starts.
    CsvKeyedInput(std::shared_ptr<const CsvTable> table, std::vector<KeyText> keys,
                  std::vector<InputFile>& inputs, RowErrors& errors);

    bool next(KeyedRow& row) override;
    void restart() override;
    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override;
    const InputPlaces& places() const override { return places_; }
    std::string keysInWords() const override;

  private:
    struct KnownKey {
        std::uint64_t offset = ~std::uint64_t{0};
        bool hasNull = false;
        host::KeyBytes bytes;
    };
    void guessTypes();
    bool encode(const CsvRow& row, KeyedRow& keyed);
    const KnownKey& keyAt(const RowPlace& place);

    std::shared_ptr<const CsvTable> table_;
    std::vector<KeyText> keyTexts_;
    std::vector<InputFile>& inputs_;
    RowErrors& errors_;
    InputPlaces places_;
    std::unique_ptr<RowKeys> keys_;
    std::size_t inputIndex_ = 0;
    std::unique_ptr<CsvTableRows> rows_;  // of that input
    CsvRow row_ = {};
    host::KeyBytes key_;
    PlaceReader reader_;
    CsvRowParser parser_;
    // The last ones that were asked for: long keys are compared two at a time.
    KnownKey known_[2];
    std::size_t oldestKnown_ = 0;
};

}  // namespace tvsort::tools

// Rows of CSV files with the ordered keys of their columns.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/formats/csv/csv_scan.h"
#include "tools/formats/keyed_input.h"
#include "tools/formats/ordered_flow.h"
#include "tools/formats/row_keys.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

class CsvKeyedInput : public KeyedInput {
  public:
    // Inputs and errors are needed as long as it reads. Reads all inputs once more where a key's
    // type is auto, and leaves them at their starts.
    CsvKeyedInput(std::shared_ptr<const CsvTable> table, std::vector<RowKeyColumn> columns,
                  std::optional<std::string> nullWord, std::vector<InputFile>& inputs,
                  RowErrors& errors);

    bool next(KeyedRow& row) override;
    void restart() override;
    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override;
    const InputPlaces& places() const override { return places_; }
    std::string keysInWords() const override { return inWords(columns_); }

    // Of the row that came last: the text of a column as a level, whose name is for messages.
    RowLevel levelIn(std::size_t columnIndex, const std::string& name) const;

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
    std::vector<RowKeyColumn> columns_;
    std::optional<std::string> nullWord_;
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

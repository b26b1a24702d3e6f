// Rows of CSV files with the ordered keys of their columns.

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/formats/csv/csv_scan.h"
#include "tools/formats/keyed_input.h"
#include "tools/formats/row_keys.h"

namespace tvsort::tools {

class CsvKeyedInput : public KeyedInput {
  public:
    // Inputs are needed as long as it is. Reads all of them once where a key's type is auto, and
    // leaves them at their starts.
    CsvKeyedInput(std::shared_ptr<const CsvTable> table, std::vector<RowKeyColumn> columns,
                  RowKeyRules rules, std::vector<InputFile>& inputs);

    std::unique_ptr<RowReader> reader(std::size_t keyBytes) const override;
    const InputPlaces& places() const override { return places_; }
    std::uint64_t firstRowOf(std::size_t inputIndex) const override {
        return places_.startOf(inputIndex) + table_->firstRows[inputIndex];
    }
    bool isKeyOfStart() const override { return false; }
    std::size_t rowBytesMax() const override { return table_->rowBytesMax; }
    LineName lineName(std::size_t inputIndex) const override {
        return {places_.input(inputIndex).displayName() + ", line ", ""};
    }
    std::string keysInWords() const override { return inWords(columns_); }

  private:
    friend class CsvReader;
    void guessTypes(std::vector<InputFile>& inputs);

    std::shared_ptr<const CsvTable> table_;
    std::vector<RowKeyColumn> columns_;
    RowKeyRules rules_;
    InputPlaces places_;
};

}  // namespace tvsort::tools

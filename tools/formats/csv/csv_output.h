// Rows of records that the process compares key by key, on their way out.

#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include "tools/formats/csv/csv_record.h"
#include "tools/formats/record_output.h"
#include "tools/formats/row_writer.h"
#include "tools/formats/text_balance.h"

namespace tvsort::tools {

class CsvOutput : public RecordOutput {
  public:
    // `balance`: of the rows that went to the process.
    CsvOutput(CsvRecord record, std::shared_ptr<TextBalance> balance, RowWriter writer)
        : record_(std::move(record)), balance_(std::move(balance)), writer_(std::move(writer)) {}

    void writeText(std::string_view text) override { writer_.writeText(text); }
    void finish() override { writer_.finish(); }

  private:
    void writeRecords(const Byte* records, std::size_t recordCount) override {
        for (std::size_t i = 0; i < recordCount; ++i)
            writeRow(records + i * record_.recordLength());
    }
    void writeRow(const Byte* record) {
        if (record_.carriesRows()) {
            const std::string_view row = record_.rowOf(record);
            balance_->comesBack(row.size());
            writer_.write(row);
        } else {
            const RowPlace place = record_.rowPlaceOf(record);
            writer_.places().check(place);
            balance_->comesBack(place.byteCount);
            writer_.write(place);
        }
    }

    CsvRecord record_;
    std::shared_ptr<TextBalance> balance_;
    RowWriter writer_;
};

}  // namespace tvsort::tools

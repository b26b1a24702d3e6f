// Rows on their way out: each as it stood in its input, whatever else is written between them.
//
// Where records carry their rows, the rows are written as they come. Where they do not, reading one
// row at a time would cost a call, and on a disk a movement, for each. So places are collected
// until their rows fill the memory that there is; then the rows are read in the order of the
// inputs, neighbours and what lies between them at once, and written in the order of the result:
//
//     result      place 70  "2,"  place 10  place 40        text may stand between rows
//     held        [row.....][2,][row.....][row....]         a range of the buffer for each
//     read        10, 40, 70
//     written     the buffer
//
// Places come back from a process, so each is checked before it is used.
//
// A row without a line end, the last of an input that has none there, gets one.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/bytes.h"
#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/formats/csv/csv_record.h"
#include "tools/formats/record_output.h"
#include "tools/formats/text_balance.h"

namespace tvsort::tools {

class CsvOutput : public RecordOutput {
  public:
    struct Form {
        CsvRecord record;
        std::string head;  // written before the first row
        std::string lineEnd;
        std::shared_ptr<TextBalance> balance;  // of the rows that went to the process
    };

    // Holds about `memoryBytes` at most. Inputs, which are regular files, and output are needed as
    // long as it writes.
    CsvOutput(Form form, const std::vector<InputFile>& inputs, std::size_t memoryBytes,
              OutputFile& output);

    void writeText(std::string_view text) override;
    void finish() override;

  private:
    // A row that is to stand in the buffer from `position` on.
    struct HeldRow {
        std::uint64_t offset;  // in the inputs
        std::uint32_t byteCount;
        std::uint32_t position;
    };

    void writeRecords(const Byte* records, std::size_t recordCount) override;
    void writeCarried(std::string_view row);
    // One that does not lie inside one input is kProtocolBroken.
    void checkPlace(const RowPlace& place) const;
    void hold(const RowPlace& place);
    void copyLarge(RowPlace place);
    void writeHeld();
    // Rows from `first` on that are read at once; answers how many.
    std::size_t fetchSpan(std::size_t first);
    std::size_t inputIndexOf(std::uint64_t offset) const;
    void readAt(std::uint64_t offset, Byte* target, std::size_t byteCount) const;
    bool lacksLineEnd(const RowPlace& place) const;

    void writeHead();

    Form form_;
    const std::vector<InputFile>& inputs_;
    std::size_t memoryBytes_;
    bool headWritten_ = false;
    OutputFile& output_;
    std::vector<std::uint64_t> inputStarts_;
    std::uint64_t inputEnd_ = 0;           // of the last one
    std::vector<std::uint64_t> openEnds_;  // of inputs whose last row lacks a line end
    std::vector<HeldRow> rows_;
    std::vector<Byte> buffer_;
    std::vector<Byte> span_;
};

}  // namespace tvsort::tools

// Where a sort's result goes, in the user's records.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <utility>

#include "host/data_set.h"
#include "protocol/bytes.h"
#include "tools/files/output_file.h"

namespace tvsort::tools {

class RecordOutput {
  public:
    virtual ~RecordOutput() = default;
    // Writes `recordCount` user records that lie one behind the other.
    void write(const Byte* records, std::size_t recordCount) {
        recordCount = std::min(recordCount, static_cast<std::size_t>(limit_ - recordCount_));
        recordCount_ += static_cast<std::int64_t>(recordCount);
        writeRecords(records, recordCount);
    }
    // Writes text behind what was written before.
    virtual void writeText(std::string_view text) = 0;
    // Writes what has been held back.
    virtual void finish() {}

    // Records behind so many are passed over.
    void setLimit(std::int64_t limit) { limit_ = limit; }
    // Written so far.
    std::int64_t recordCount() const { return recordCount_; }

  private:
    virtual void writeRecords(const Byte* records, std::size_t recordCount) = 0;

    std::int64_t recordCount_ = 0;
    std::int64_t limit_ = std::numeric_limits<std::int64_t>::max();
};

// Records that are written as they come.
class PlainOutput : public RecordOutput {
  public:
    // `writeRecords` writes user records to `output`.
    PlainOutput(host::RecordSink writeRecords, OutputFile& output)
        : writeRecords_(std::move(writeRecords)), output_(output) {}

    void writeText(std::string_view text) override {
        output_.write(reinterpret_cast<const Byte*>(text.data()), text.size());
    }

  private:
    void writeRecords(const Byte* records, std::size_t recordCount) override {
        writeRecords_(records, recordCount);
    }

    host::RecordSink writeRecords_;
    OutputFile& output_;
};

}  // namespace tvsort::tools

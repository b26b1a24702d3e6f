// One input of a sort, as the records that its content makes.
//
// Each kind of input derives from this: fixed-length records, lines, values in lines, CSV rows.
// Records are counted here, where they are read, and numbered from 1 in the order of reading.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "protocol/bytes.h"

namespace tvsort::tools {

class Operand {
  public:
    // For messages, the input's name and what it calls a record: "record" or "line".
    Operand(std::string name, const char* unit) : name_(std::move(name)), unit_(unit) {}
    virtual ~Operand() = default;

    // Puts up to `recordsMax` records, one behind the other, to `target`; answers how many, 0 at
    // the end.
    std::size_t read(Byte* target, std::size_t recordsMax) {
        const std::size_t records = readRecords(target, recordsMax);
        recordCount_ += static_cast<std::int64_t>(records);
        return records;
    }

    // Read so far.
    std::int64_t recordCount() const { return recordCount_; }
    // "line 3 of b.txt". The operand cannot be read on afterwards.
    std::string placeOf(std::int64_t recordNumber) {
        return unit_ + (" " + std::to_string(unitNumberOf(recordNumber))) + " of " + name_;
    }

  private:
    virtual std::size_t readRecords(Byte* target, std::size_t recordsMax) = 0;
    // Where a record may have several units, or units no record: of its first one, from 1.
    virtual std::int64_t unitNumberOf(std::int64_t recordNumber) { return recordNumber; }

    std::string name_;
    const char* unit_;
    std::int64_t recordCount_ = 0;
};

}  // namespace tvsort::tools

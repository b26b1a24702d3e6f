// The inputs of a sort, read one behind the other.
//
// Records are numbered through all inputs, from 1, in the order of reading; `placeOf` turns such a
// number back into words: "line 3 of b.txt".

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/data_set.h"
#include "protocol/bytes.h"

namespace tvsort::tools {

struct Operand {
    host::RecordSource source;
    std::string name;  // for messages
    // The line at which the operand's record of this number, from 1, stands; empty where it is the
    // number itself. The operand cannot be read on afterwards.
    std::function<std::int64_t(std::int64_t recordNumber)> lineOf = {};
};

// An operand of the records that `reader` reads, and keeps for it.
template <typename Reader>
Operand operandOf(std::shared_ptr<Reader> reader, std::string name) {
    return {
        [reader](Byte* target, std::size_t recordsMax) { return reader->read(target, recordsMax); },
        std::move(name)};
}

class OperandInput {
  public:
    // `unit` is what the inputs call a record: "record" or "line".
    OperandInput(std::vector<Operand> operands, std::string unit);

    // Puts up to `recordsMax` records of one operand to `target`; answers how many, 0 at the end of
    // the last operand.
    std::size_t read(Byte* target, std::size_t recordsMax);

    // Of the records that `read` gave last, from 0.
    std::size_t operandIndex() const { return operandIndex_; }
    // Read so far, from all operands and from one.
    std::int64_t recordCount() const;
    std::int64_t recordCount(std::size_t operandIndex) const { return counts_[operandIndex]; }
    // Needs a number of a record that has been read.
    std::string placeOf(std::int64_t recordNumber) const;

  private:
    std::vector<Operand> operands_;
    std::string unit_;
    std::vector<std::int64_t> counts_;
    std::size_t operandIndex_ = 0;
};

}  // namespace tvsort::tools

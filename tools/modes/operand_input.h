// The operands of a sort, read one behind the other.
//
// Their records are numbered through, from 1, in the order of reading; `placeOf` turns such a
// number back into words.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/formats/operand.h"

namespace tvsort::tools {

class OperandInput {
  public:
    explicit OperandInput(std::vector<std::shared_ptr<Operand>> operands)
        : operands_(std::move(operands)) {}

    // Puts up to `recordsMax` records of one operand to `target`; answers how many, 0 at the end of
    // the last operand.
    std::size_t read(Byte* target, std::size_t recordsMax);

    // Of the records that `read` gave last, from 0.
    std::size_t operandIndex() const { return operandIndex_; }
    // Read so far, from all operands.
    std::int64_t recordCount() const;
    // Needs a number of a record that has been read. Nothing can be read on afterwards.
    std::string placeOf(std::int64_t recordNumber) const;

  private:
    std::vector<std::shared_ptr<Operand>> operands_;
    std::size_t operandIndex_ = 0;
};

}  // namespace tvsort::tools

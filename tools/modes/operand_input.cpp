#include "tools/modes/operand_input.h"

namespace tvsort::tools {

std::size_t OperandInput::read(Byte* target, std::size_t recordsMax) {
    for (;;) {
        const std::size_t records = operands_[operandIndex_]->read(target, recordsMax);
        if (records > 0 || operandIndex_ + 1 == operands_.size()) return records;
        operandIndex_ += 1;
    }
}

std::int64_t OperandInput::recordCount() const {
    std::int64_t count = 0;
    for (const auto& operand : operands_)
        count += operand->recordCount();
    return count;
}

std::string OperandInput::placeOf(std::int64_t recordNumber) const {
    std::size_t index = 0;
    while (index + 1 < operands_.size() && recordNumber > operands_[index]->recordCount()) {
        recordNumber -= operands_[index]->recordCount();
        index += 1;
    }
    return operands_[index]->placeOf(recordNumber);
}

}  // namespace tvsort::tools

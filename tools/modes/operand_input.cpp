#include "tools/modes/operand_input.h"

#include <fmt/format.h>

#include <numeric>

namespace tvsort::tools {

OperandInput::OperandInput(std::vector<Operand> operands, std::string unit)
    : operands_(std::move(operands)), unit_(std::move(unit)), counts_(operands_.size(), 0) {}

std::size_t OperandInput::read(Byte* target, std::size_t recordsMax) {
    for (;;) {
        const std::size_t records = operands_[operandIndex_].source(target, recordsMax);
        counts_[operandIndex_] += static_cast<std::int64_t>(records);
        if (records > 0 || operandIndex_ + 1 == operands_.size()) return records;
        operandIndex_ += 1;
    }
}

std::int64_t OperandInput::recordCount() const {
    return std::accumulate(counts_.begin(), counts_.end(), std::int64_t{0});
}

std::string OperandInput::placeOf(std::int64_t recordNumber) const {
    std::size_t index = 0;
    while (index + 1 < operands_.size() && recordNumber > counts_[index]) {
        recordNumber -= counts_[index];
        index += 1;
    }
    const Operand& operand = operands_[index];
    if (operand.lineOf)
        return fmt::format("line {} of {}", operand.lineOf(recordNumber), operand.name);
    return fmt::format("{} {} of {}", unit_, recordNumber, operand.name);
}

}  // namespace tvsort::tools

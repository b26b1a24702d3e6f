#include "tools/ordered/levelled_input.h"

#include <fmt/format.h>

#include "host/host_error.h"

namespace tvsort::tools {

bool LevelledInput::next(KeyedRow& row) {
    for (std::int64_t toldBefore = errors_.skippedCount(); input_->next(row);
         toldBefore = errors_.skippedCount()) {
        const RowLevel read = readLevel_(row);
        level_ = read.level;
        // A row that is kept although its key cannot be read counts once.
        const bool isTold = errors_.keepsRows() && errors_.skippedCount() > toldBefore;
        if (!read.problem.empty() && !isTold) errors_.take(read.problem);
        if (!level_.has_value()) {
            if (errors_.keepsRows()) return true;
            continue;
        }
        const std::size_t inputIndex = places().indexOf(row.place.offset);
        if (inputIndex != inputIndex_) check_.restart();
        inputIndex_ = inputIndex;
        const std::string problem = check_.problemWith(*level_);
        if (problem.empty()) return true;
        throw host::badUse(fmt::format("{} {}", places().nameOf(row.place.offset), problem));
    }
    return false;
}

void LevelledInput::restart() {
    input_->restart();
    check_.restart();
    inputIndex_ = 0;
}

}  // namespace tvsort::tools

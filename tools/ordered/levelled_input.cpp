#include "tools/ordered/levelled_input.h"

namespace tvsort::tools {

RowReader::Found LevelledReader::next(const TextPart& part, KeyedRow& row) {
    level_ = {};
    const Found found = reader_->next(part, row);
    if (found.outcome != Outcome::kRow) return found;
    // Of a row that has no fields that could be read this has been said.
    if (row.isMalformed) return found;
    level_ = readLevel_(*reader_, row);
    const bool isLeftOut = !level_.level.has_value() && !keepsUnreadable_;
    return {isLeftOut ? Outcome::kUnreadable : Outcome::kRow, found.byteCount};
}

}  // namespace tvsort::tools

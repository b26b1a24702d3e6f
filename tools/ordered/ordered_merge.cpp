#include "tools/ordered/ordered_merge.h"

#include <utility>

#include "host/host_error.h"
#include "tools/files/interrupt.h"

namespace tvsort::tools {

OrderedMerge::OrderedMerge(std::vector<std::unique_ptr<KeyedInput>> inputs, RowWriter& writer,
                           RowErrors& errors, bool isChecked)
    : writer_(writer), isChecked_(isChecked) {
    for (std::unique_ptr<KeyedInput>& input : inputs) {
        Source& source = sources_.emplace_back();
        source.input = std::move(input);
        source.rows = std::make_unique<RowStream>(*source.input, errors);
        source.check = std::make_unique<OrderCheck>(*source.rows);
    }
}

void OrderedMerge::run(RowShaper& shaper) {
    for (Source& source : sources_)
        advance(source);
    // The row that was written last.
    RowStream* before = nullptr;
    KeyedRow beforeRow = {};
    host::KeyBytes beforeKey;
    while (Source* const next = least()) {
        throwIfInterrupted();
        if (shaper.isFull()) break;
        beforeRow.key = &beforeKey;
        const bool isEqual =
            before != nullptr && compareKeys({*before, beforeRow}, {*next->rows, next->row}) == 0;
        const std::uint64_t start =
            writer_.places().startOf(static_cast<std::size_t>(next - sources_.data()));
        SettledRow row;
        row.place = {start + next->row.place.offset, next->row.place.byteCount};
        row.isEqual = isEqual;
        row.hasNull = next->row.hasNull;
        row.isHeld = next->row.isHeld;
        if (row.isHeld) row.text = next->row.text;
        shaper.take(row);
        before = next->rows.get();
        beforeRow = next->row;
        beforeKey = *next->row.key;
        advance(*next);
    }
    shaper.finish();
    writer_.finish();
}

void OrderedMerge::advance(Source& source) {
    source.hasRow = source.rows->next(source.row);
    if (source.hasRow && isChecked_ && !source.check->mayFollow(source.row)) {
        throw host::badUse("--merge takes inputs in order, and " + source.check->fault() +
                           " by the keys; leave --merge out, or take the order for granted with "
                           "--check=off");
    }
}

OrderedMerge::Source* OrderedMerge::least() {
    Source* least = nullptr;
    for (Source& source : sources_) {
        if (!source.hasRow) continue;
        if (least == nullptr ||
            compareKeys({*source.rows, source.row}, {*least->rows, least->row}) < 0) {
            least = &source;
        }
    }
    return least;
}

}  // namespace tvsort::tools

#include "tools/ordered/run_merge.h"

#include <cstring>

#include "tools/files/interrupt.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{32} * 1024;

int order(const host::KeyBytes& left, const host::KeyBytes& right) {
    return left < right ? -1 : left == right ? 0 : 1;
}

// The bytes from `from` on; whether they are the key's last.
bool readPart(RowReader& reader, const WholeKey& key, std::uint64_t from, host::KeyBytes& part) {
    if (key.held != nullptr) return copyPart(*key.held, from, kPieceBytes, part);
    return reader.keyPart(key.place, from, kPieceBytes, part).endsKey;
}

}  // namespace

int compareWholeKeys(RowReader& reader, const WholeKey& left, const WholeKey& right) {
    if (left.held != nullptr && right.held != nullptr) return order(*left.held, *right.held);
    host::KeyBytes leftPart;
    host::KeyBytes rightPart;
    for (std::uint64_t from = 0;; from += kPieceBytes) {
        throwIfInterrupted();
        const bool leftEnds = readPart(reader, left, from, leftPart);
        const bool rightEnds = readPart(reader, right, from, rightPart);
        const int part = order(leftPart, rightPart);
        if (part != 0 || leftEnds || rightEnds) return part;
    }
}

RunMerge::RunMerge(const RunForm& form, std::span<const SortedRun> runs, RowReader& reader,
                   std::size_t bufferBytes)
    : form_(form), reader_(reader), tree_(runs.size()) {
    for (const SortedRun& run : runs)
        sources_.push_back({std::make_unique<RunCursor>(form, run, reader, bufferBytes), 0, false});
    start({});
}

void RunMerge::start(const RunCursor::Range& range) {
    for (const Source& source : sources_)
        source.cursor->start(range);
    isStarted_ = false;
}

const RunRow* RunMerge::next() {
    if (sources_.empty()) return nullptr;
    const auto order = [this](std::size_t left, std::size_t right) {
        return precedes(left, right);
    };
    if (isStarted_) {
        advance(sources_[tree_.winner()]);
        tree_.replay(order);
    } else {
        for (Source& source : sources_)
            advance(source);
        tree_.start(order);
        isStarted_ = true;
    }
    const Source& source = sources_[tree_.winner()];
    return source.hasRow ? &source.cursor->row() : nullptr;
}

void RunMerge::advance(Source& source) {
    source.hasRow = source.cursor->next();
    source.keyHead = source.cursor->keyHead();
}

bool RunMerge::precedes(std::size_t left, std::size_t right) {
    const Source& one = sources_[left];
    const Source& other = sources_[right];
    if (!one.hasRow || !other.hasRow) return one.hasRow;
    if (one.keyHead != other.keyHead) return one.keyHead < other.keyHead;
    const RunRow& row = one.cursor->row();
    int found = std::memcmp(row.key, other.cursor->row().key, form_.record.form().keyBytes);
    if (found == 0 && row.keyGoesOn) {
        const auto wholeKey = [](RunCursor& cursor) {
            return WholeKey{cursor.row().isHeld ? &cursor.wholeKey() : nullptr, cursor.row().place};
        };
        found = compareWholeKeys(reader_, wholeKey(*one.cursor), wholeKey(*other.cursor));
    }
    return found != 0 ? found < 0 : left < right;
}

}  // namespace tvsort::tools

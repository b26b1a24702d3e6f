#include "tools/ordered/open_rows.h"

#include <algorithm>

#include "host/host_error.h"
#include "tools/files/interrupt.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kFirstPieceBytes = 256;
constexpr std::size_t kPieceBytesMax = std::size_t{32} * 1024;

}  // namespace

OpenRows::OpenRows(OpenRuns& runs, KeyedInput& input, std::size_t batchBytes)
    : input_(input),
      batchBytes_(batchBytes),
      rows_(runs.rows),
      starts_(std::in_place, runs.starts),
      runCount_(runs.runCount) {}

void OpenRows::rewind() {
    rows_.rewind();
    starts_->rewind();
    nextRun_ = 0;
    batch_.clear();
    batchNext_ = 0;
}

bool OpenRows::next(Row& row) {
    OpenRuns::Row stored = {};
    if (!rows_.read(stored)) return false;
    if (stored.startsRun != 0) {
        starts_->read(start_);
        nextRun_ += 1;
    }
    row = {{stored.offset, stored.byteCount}, nextRun_ - 1, start_};
    return true;
}

void OpenRows::passCommonOver(const std::filesystem::path& directory) {
    SpoolFile starts(directory);
    Row first = {};
    Row row = {};
    std::uint64_t common = 0;
    bool any = false;
    while (next(row)) {
        throwIfInterrupted();
        if (any && row.run == first.run) {
            common = std::min(common, commonBytes(first, row, common));
            continue;
        }
        if (any) writeValue(starts, first.start + common);
        first = row;
        any = true;
        common = ~std::uint64_t{0} - row.start;
    }
    if (any) writeValue(starts, first.start + common);
    starts_.emplace(starts);
    rewind();
}

std::uint64_t OpenRows::commonBytes(const Row& left, const Row& right, std::uint64_t limit) {
    host::KeyBytes leftPart;
    host::KeyBytes rightPart;
    std::uint64_t common = 0;
    for (std::size_t piece = kFirstPieceBytes; common < limit; piece = kPieceBytesMax) {
        const bool leftEnds =
            input_.keyPart(left.place, left.start + common, piece, leftPart).endsKey;
        const bool rightEnds =
            input_.keyPart(right.place, right.start + common, piece, rightPart).endsKey;
        const auto differ =
            std::mismatch(leftPart.begin(), leftPart.end(), rightPart.begin(), rightPart.end());
        common += static_cast<std::uint64_t>(differ.first - leftPart.begin());
        if (differ.first != leftPart.end() || leftEnds || rightEnds) break;
    }
    return common;
}

host::RecordSource OpenRows::source(const KeyRecord& record) {
    rewind();
    return [this, &record, part = host::KeyBytes()](Byte* target, std::size_t recordsMax) mutable {
        std::size_t records = 0;
        for (; records < recordsMax; ++records) {
            if (batchNext_ == batch_.size()) fillBatch();
            if (batch_.empty()) break;
            const Row& row = batch_[batchNext_++];
            const KeyPart read = input_.keyPart(row.place, row.start, record.form().keyBytes, part);
            RecordRow made;
            made.runNumber = row.run;
            made.place = row.place;
            made.keyGoesOn = !read.endsKey;
            made.hasNull = read.hasNull;
            record.encode(made, {reinterpret_cast<const char*>(part.data()), part.size()},
                          target + records * record.recordLength());
        }
        return records;
    };
}

void OpenRows::fillBatch() {
    const std::size_t rowsMax = std::max<std::size_t>(batchBytes_ / sizeof(Row), 1);
    batch_.clear();
    batchNext_ = 0;
    Row row = {};
    while (batch_.size() < rowsMax && next(row))
        batch_.push_back(row);
    std::sort(batch_.begin(), batch_.end(), [](const Row& left, const Row& right) {
        return left.place.offset < right.place.offset;
    });
}

std::uint64_t OpenRows::startOf(std::uint64_t run) {
    if (run >= runCount_ || run + 1 < nextRun_) {
        throw host::brokenResult("gave back a record of run " + std::to_string(run) +
                                 " where it cannot be");
    }
    while (nextRun_ <= run) {
        starts_->read(start_);
        nextRun_ += 1;
    }
    return start_;
}

}  // namespace tvsort::tools

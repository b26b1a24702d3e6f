#include "tools/ordered/run_splitter.h"

#include <algorithm>
#include <utility>

namespace tvsort::tools {

RunSplitter::RunSplitter(const KeyRecord& record,
                         std::function<std::uint64_t(std::uint64_t run)> startOf, TakeSettled take,
                         std::filesystem::path directory)
    : record_(record),
      startOf_(std::move(startOf)),
      take_(std::move(take)),
      directory_(std::move(directory)),
      last_(record.recordLength()) {
    if (!take_) entries_ = std::make_unique<SpoolFile>(directory_);
}

void RunSplitter::take(const Byte* record) {
    const RecordRow row = record_.decode(record);
    start_ = startOf_(row.runNumber);
    const bool isAlike =
        any_ && record_.comparedBytes(record) == record_.comparedBytes(last_.data());
    if (!isAlike || !row.keyGoesOn) endRun();
    if (!row.keyGoesOn) {
        settle(row, isAlike);
    } else if (runRows_ > 0) {
        if (runRows_ == 1) addToRun(record_.decode(last_.data()), true);
        addToRun(row, false);
        runRows_ += 1;
    } else {
        runRows_ = 1;
    }
    std::copy_n(record, last_.size(), last_.begin());
    any_ = true;
}

void RunSplitter::finish() {
    endRun();
}

void RunSplitter::endRun() {
    if (runRows_ == 1) settle(record_.decode(last_.data()), false);
    if (runRows_ > 1) writeValue(*entries_, SettledEntry{runRows_, 0, SettledEntry::kRun, 0, 0, 0});
    runRows_ = 0;
}

void RunSplitter::settle(const RecordRow& row, bool isEqual) {
    if (entries_ == nullptr) return take_({row.place, isEqual, row.hasNull, row.isHeld, row.text});
    writeValue(*entries_, SettledEntry{row.place.offset, row.place.byteCount, SettledEntry::kRow,
                                       isEqual, row.hasNull, row.isHeld});
    if (row.isHeld)
        entries_->write(reinterpret_cast<const Byte*>(row.text.data()), row.text.size());
}

void RunSplitter::addToRun(const RecordRow& row, bool startsRun) {
    if (entries_ == nullptr) entries_ = std::make_unique<SpoolFile>(directory_);
    if (runs_ == nullptr) runs_ = std::make_unique<OpenRuns>(directory_);
    if (startsRun) {
        writeValue(runs_->starts, start_ + record_.form().keyBytes);
        runs_->runCount += 1;
    }
    writeValue(runs_->rows, OpenRuns::Row{row.place.offset, row.place.byteCount, startsRun});
    runs_->rowCount += 1;
}

}  // namespace tvsort::tools

#include "tools/ordered/ordered_sort.h"

#include <algorithm>
#include <utility>

#include "tools/ordered/key_plan.h"

namespace tvsort::tools {

namespace {

constexpr std::uint64_t kBatchShare = 16;
constexpr std::uint64_t kBatchBytesMax = std::uint64_t{16} << 20;
constexpr std::uint64_t kBatchBytesMin = std::uint64_t{16} * 1024;
// What a key takes that a filter keeps, with all that goes with it.
constexpr std::uint64_t kFilterKeyBytes = 192;
// A round's record is no longer than this part of a block.
constexpr std::size_t kRecordsPerBlockMin = 4;
constexpr std::size_t kRoundRecordBytesMax = std::size_t{16} * 1024;

std::uint64_t batchBytes(std::uint64_t memoryBytes) {
    return std::clamp(memoryBytes / kBatchShare, kBatchBytesMin, kBatchBytesMax);
}

}  // namespace

SettledOrder::Setting orderOf(const OrderedSort::Setting& setting, const KeyRecord::Form& form) {
    // Blocks are at least this large, whatever the memory is.
    const std::size_t blockBytes = static_cast<std::size_t>(kPageBytes) *
                                   static_cast<std::size_t>(setting.blockPages.value_or(1));
    return {.form = form,
            .tempDirectory = setting.shape.tempDirectory,
            .batchBytes = batchBytes(setting.memoryBytes),
            .recordBytesMax = std::min(blockBytes / kRecordsPerBlockMin, kRoundRecordBytesMax),
            .processCount = setting.processCount,
            .filter = nullptr,
            .isKept = false};
}

OrderedSort::OrderedSort(std::unique_ptr<KeyedInput> input, const Setting& setting,
                         std::unique_ptr<RowWriter> writer)
    : input_(std::move(input)),
      setting_(setting),
      writer_(std::move(writer)),
      form_(planKeys(*input_, setting.memoryBytes)) {}

std::vector<RecordField> OrderedSort::fields() const {
    return KeyRecord(form_).fields(input_->keysInWords());
}

std::uint64_t OrderedSort::memoryShare() const {
    return form_.carriedBytes > 0 ? 0 : kFetchShare;
}

SortStats OrderedSort::run(const SortOnce& sortOnce) {
    SortStats stats = shape(sortOnce);
    StageClock clock;
    writer_->finish();
    stats.write += clock.lap();
    return stats;
}

SortStats OrderedSort::shape(const SortOnce& sortOnce) {
    const ModeOptions& mode = setting_.shape.mode;
    const Operation operation = operationOf(mode);
    std::optional<TopFilter> top = filter();
    SettledOrder::Setting setting = orderOf(setting_, form_);
    setting.filter = top.has_value() ? &*top : nullptr;
    // Nothing is to be written before all rows are known to be unique.
    setting.isKept = operation == Operation::kUnique;
    SettledOrder order(*input_, setting);
    RowShaper shaper(setting_.shape, *writer_);
    const auto shape = [&](const SettledRow& row) { shaper.take(row); };
    SortStats stats;
    if (operation == Operation::kUnique) {
        UniqueCheck check(input_->places(), mode.unique == kNullsDistinct);
        stats = order.sort(sortOnce, [&](const SettledRow& row) { check.take(row); });
        order.repeat(shape);
    } else {
        stats = order.sort(sortOnce, shape);
    }
    shaper.finish();
    stats.readCount = order.readCount();
    stats.writtenCount = shaper.writtenCount();
    if (operation == Operation::kGroups) stats.groupCount = shaper.groupCount();
    if (operation == Operation::kDistinct && !mode.limitCount.has_value())
        stats.duplicateCount = stats.readCount - stats.writtenCount;
    return stats;
}

std::optional<TopFilter> OrderedSort::filter() const {
    const ModeOptions& mode = setting_.shape.mode;
    if (!mode.limitCount.has_value()) return std::nullopt;
    const auto rowCount = static_cast<std::uint64_t>(*mode.limitCount);
    if (rowCount > setting_.memoryBytes / kFetchShare / kFilterKeyBytes) return std::nullopt;
    using Counts = TopFilter::Counts;
    switch (operationOf(mode)) {
        case Operation::kOrder:
            return TopFilter(rowCount, mode.withTies ? Counts::kRowsAndTies : Counts::kRows);
        case Operation::kDistinct:
            return TopFilter(rowCount, Counts::kKeys);
        case Operation::kGroups:
            return TopFilter(rowCount, Counts::kKeysWithTheirRows);
        default:
            return std::nullopt;
    }
}

}  // namespace tvsort::tools

#include "tools/modes/shaped_sort.h"

#include <fmt/format.h>

#include <utility>

#include "host/host_error.h"
#include "tools/modes/equal_records.h"
#include "tools/modes/group_output.h"
#include "tools/modes/set_combination.h"

namespace tvsort::tools {

namespace {

FrameKind frameKindOf(Operation operation) {
    return operation == Operation::kHierarchy ? FrameKind::kLevelled : FrameKind::kNumbered;
}

}  // namespace

ShapedSort::ShapedSort(Setting setting, RecordFlow flow)
    : setting_(std::move(setting)),
      operation_(operationOf(setting_.mode)),
      flow_(std::move(flow)),
      input_(flow_.operands) {
    if (hasNulls()) checkModeWithNulls(setting_.mode);
    if (setting_.mode.limitCount.has_value() && !setting_.mode.withTies)
        flow_.output->setLimit(*setting_.mode.limitCount);
    // Equal lines and rows stay in the order of reading, for which they are numbered.
    if (operation_ == Operation::kOrder && flow_.kind == InputKind::kRecords) return;
    frame_.emplace(frameKindOf(operation_), flow_.request, flow_.recordLength, nameOf(operation_));
}

std::uint16_t ShapedSort::recordLength() const {
    return frame_.has_value() ? frame_->recordLength() : flow_.recordLength;
}

std::vector<RecordField> ShapedSort::fields() const {
    return frame_.has_value() ? frame_->fields(flow_.fields) : flow_.fields;
}

SortStats ShapedSort::run(const SortOnce& sortOnce) {
    SortStats stats = shape(sortOnce);
    StageClock clock;
    flow_.output->finish();
    stats.write += clock.lap();
    stats.readCount = input_.recordCount();
    stats.writtenCount = flow_.output->recordCount();
    if (operation_ != Operation::kGroups) stats.groupCount = 0;
    if (operation_ == Operation::kDistinct && !setting_.mode.limitCount.has_value())
        stats.duplicateCount = stats.readCount - stats.writtenCount;
    return stats;
}

SortStats ShapedSort::shape(const SortOnce& sortOnce) {
    switch (operation_) {
        case Operation::kOrder:
            return sortPlain(sortOnce);
        case Operation::kDistinct:
            return sortDistinct(sortOnce);
        case Operation::kGroups:
            return sortGroups(sortOnce);
        case Operation::kIntersect:
        case Operation::kExcept:
            return combineSets(sortOnce);
        case Operation::kUnique:
            return sortUnique(sortOnce);
        case Operation::kHierarchy:
            return sortHierarchy(sortOnce);
    }
    return {};
}

SortStats ShapedSort::sortPlain(const SortOnce& sortOnce) {
    if (frame_.has_value()) return sortOnce(framedRequest(), numberedRecords(), unframed());
    flow_.request.setLimit(setting_.mode.limitCount.value_or(0));
    const auto source = [this](Byte* target, std::size_t recordsMax) {
        return input_.read(target, recordsMax);
    };
    const auto sink = [this](const Byte* records, std::size_t recordCount) {
        flow_.output->write(records, recordCount);
    };
    return sortOnce({flow_.request, flow_.recordLength, {}}, source, sink);
}

SortStats ShapedSort::sortDistinct(const SortOnce& sortOnce) {
    return sortOnce(framedRequest(), numberedRecords(), unframed());
}

SortStats ShapedSort::sortGroups(const SortOnce& sortOnce) {
    GroupOutput groups(setting_.mode.groups == kCountGroups ? GroupForm::kCount : GroupForm::kMark,
                       flow_);
    const auto sink = [&](const Byte* records, std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount; ++i) {
            const Byte* const framed = records + i * frame_->recordLength();
            groups.take(frame_->recordOf(framed), frame_->endsGroup(framed));
        }
    };
    const SortStats stats = sortOnce(framedRequest(), numberedRecords(), sink);
    groups.finish();
    if (groups.groupCount() != stats.groupCount) {
        throw host::brokenResult(
            fmt::format("the sort process answered with {} groups and marked the ends of {}; check "
                        "that the program is tvsort, and sort again",
                        stats.groupCount, groups.groupCount()));
    }
    return stats;
}

SortStats ShapedSort::combineSets(const SortOnce& sortOnce) {
    const SetCombination combination = {*frame_, sortModeOf(setting_.mode, hasNulls()),
                                        flow_.operands, setting_.tempDirectory};
    return combine(combination, sortOnce,
                   [&](const Byte* framed) { flow_.output->write(frame_->recordOf(framed), 1); });
}

SortStats ShapedSort::sortUnique(const SortOnce& sortOnce) {
    try {
        return sortOnce(framedRequest(), numberedRecords(), unframed());
    } catch (const host::HostError& error) {
        if (error.errorCode() == ErrorCode::kNotUnique) throwIfEqualRecordsAreFound(sortOnce);
        throw;
    }
}

SortStats ShapedSort::sortHierarchy(const SortOnce& sortOnce) {
    return sortOnce(framedRequest(), levelledSource(input_, *frame_, flow_.readLevel), unframed());
}

SortRequest ShapedSort::framedRequest() const {
    host::RequestBuilder request = frame_->request();
    request.setMode(sortModeOf(setting_.mode, hasNulls()));
    // Distinct records are counted on their way out.
    if (operation_ != Operation::kDistinct) request.setLimit(setting_.mode.limitCount.value_or(0));
    return {request, frame_->recordLength(), {}};
}

host::RecordSource ShapedSort::numberedRecords() {
    return numberedSource(input_, *frame_, kFirstOperand, nextNumber_);
}

host::RecordSink ShapedSort::unframed() const {
    return [this](const Byte* records, std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount; ++i) {
            flow_.output->write(frame_->recordOf(records + i * frame_->recordLength()), 1);
        }
    };
}

// The process's code does not say which records are equal, so they are grouped to find out.
void ShapedSort::throwIfEqualRecordsAreFound(const SortOnce& sortOnce) {
    flow_ = setting_.restartFlow();
    input_ = OperandInput(flow_.operands);
    const bool distinct = sortModeOf(setting_.mode, hasNulls()) == SortMode::kUniqueUnlessNull;
    const auto equal =
        findEqualRecords(*frame_, distinct ? Nulls::kDistinct : Nulls::kEqual, input_, sortOnce);
    if (!equal.has_value()) return;
    throw host::HostError(
        host::FailureKind::kAnsweredWithError,
        fmt::format("not unique: {} and {} have equal keys; remove one of them, or sort without "
                    "--unique",
                    input_.placeOf(equal->firstNumber), input_.placeOf(equal->secondNumber)),
        ErrorCode::kNotUnique);
}

}  // namespace tvsort::tools

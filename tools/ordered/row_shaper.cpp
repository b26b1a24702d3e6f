#include "tools/ordered/row_shaper.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPlacesHeld = std::size_t{64} * 1024;

}  // namespace

void PlaceQueue::add(const RowPlace& place) {
    count_ += 1;
    if (first_.size() < kPlacesHeld) {
        first_.push_back(place);
        return;
    }
    if (rest_ == nullptr) rest_ = std::make_unique<SpoolFile>(directory_);
    writeValue(*rest_, place.offset);
    writeValue(*rest_, place.byteCount);
}

void PlaceQueue::drain(std::uint64_t wanted, const std::function<void(const RowPlace&)>& take) {
    const std::uint64_t held = std::min<std::uint64_t>(wanted, first_.size());
    for (std::uint64_t i = 0; i < held; ++i)
        take(first_[i]);
    if (wanted > held && rest_ != nullptr) {
        SpoolReader reader(*rest_);
        RowPlace place = {};
        for (std::uint64_t i = held;
             i < wanted && reader.read(place.offset) && reader.read(place.byteCount); ++i) {
            take(place);
        }
    }
    first_.clear();
    rest_.reset();
    count_ = 0;
}

RowShaper::RowShaper(Form form, RowWriter& writer)
    : form_(std::move(form)),
      operation_(operationOf(form_.mode)),
      writer_(writer),
      inputRows_(writer.places().inputCount(), 0),
      firstInputs_(form_.tempDirectory) {}

void RowShaper::take(const SettledRow& row) {
    if (isFull_) return;
    switch (operation_) {
        case Operation::kDistinct:
            if (!row.isEqual && isWithinLimit(false)) write(row);
            return;
        case Operation::kGroups:
            if (form_.mode.groups == kCountGroups) return countGroup(row);
            if (isWithinLimit(row.isEqual)) markGroup(row);
            return;
        case Operation::kIntersect:
        case Operation::kExcept:
            return combine(row);
        case Operation::kOrder:
        case Operation::kUnique:
        case Operation::kHierarchy:
            break;
    }
    if (isWithinLimit(row.isEqual)) write(row);
}

void RowShaper::finish() {
    if (operation_ == Operation::kGroups && form_.mode.groups == kCountGroups) endCountedGroup();
    if (operation_ == Operation::kIntersect || operation_ == Operation::kExcept) endCombination();
}

bool RowShaper::isWithinLimit(bool isEqual) {
    if (!form_.mode.limitCount.has_value() || writtenCount_ < *form_.mode.limitCount) return true;
    // Ties follow the last row without a gap.
    isFull_ = !(form_.mode.withTies && isEqual && operation_ != Operation::kDistinct);
    return !isFull_;
}

void RowShaper::write(const SettledRow& row) {
    writtenCount_ += 1;
    if (row.isHeld) {
        writer_.write(row.text);
    } else {
        writer_.write(row.place);
    }
}

void RowShaper::markGroup(const SettledRow& row) {
    if (!row.isEqual) groupCount_ += 1;
    if (form_.kind == InputKind::kRows) {
        writer_.writeText(fmt::format("{}{}", groupCount_, form_.delimiter));
    } else if (!row.isEqual && groupCount_ > 1) {
        writer_.writeText(form_.lineEnd);
    }
    write(row);
}

void RowShaper::countGroup(const SettledRow& row) {
    if (!row.isEqual) {
        endCountedGroup();
        if (!isWithinLimit(false)) return;
        groupCount_ += 1;
        first_ = row;
        firstText_.assign(row.text);
        first_.text = firstText_;
    }
    groupRows_ += 1;
}

void RowShaper::endCountedGroup() {
    if (groupRows_ == 0) return;
    const char behind = form_.kind == InputKind::kRows ? form_.delimiter : '\t';
    writer_.writeText(fmt::format("{}{}", groupRows_, behind));
    write(first_);
    groupRows_ = 0;
}

void RowShaper::combine(const SettledRow& row) {
    if (!row.isEqual) endCombination();
    const std::size_t input = writer_.places().indexOf(row.place.offset);
    inputRows_[input] += 1;
    if (input == 0) firstInputs_.add(row.place);
}

// As chained operations of SQL have it.
void RowShaper::endCombination() {
    const auto others = std::span(inputRows_).subspan(1);
    std::uint64_t wanted = firstInputs_.count();
    for (const std::uint64_t rows : others) {
        if (operation_ == Operation::kIntersect) {
            wanted = std::min(wanted, rows);
        } else {
            wanted -= std::min(wanted, form_.mode.all || rows == 0 ? rows : wanted);
        }
    }
    if (!form_.mode.all) wanted = std::min<std::uint64_t>(wanted, 1);
    firstInputs_.drain(wanted, [this](const RowPlace& place) {
        writtenCount_ += 1;
        writer_.write(place);
    });
    std::fill(inputRows_.begin(), inputRows_.end(), 0);
}

void UniqueCheck::take(const SettledRow& row) {
    if (row.isEqual && !(nullsAreDistinct_ && row.hasNull)) {
        throw host::HostError(
            host::FailureKind::kAnsweredWithError,
            fmt::format(
                "not unique: {} and {} have equal keys; remove one of them, or sort without "
                "--unique",
                places_.nameOf(before_.offset), places_.nameOf(row.place.offset)),
            ErrorCode::kNotUnique);
    }
    before_ = row.place;
}

}  // namespace tvsort::tools

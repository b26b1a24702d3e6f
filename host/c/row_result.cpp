#include "host/c/row_result.h"

#include <algorithm>

namespace tvsort::capi {

namespace {

constexpr std::size_t kLookInterval = 4096;

}  // namespace

// Big-endian, so that numbers compare as bytes do.
void storeRowNumber(Byte* target, std::int64_t number) {
    storeAs<std::uint32_t>(target, __builtin_bswap32(static_cast<std::uint32_t>(number)));
}

std::int64_t loadRowNumber(const Byte* source) {
    return __builtin_bswap32(loadOnce<std::uint32_t>(source));
}

// Whether `unread_` holds a record; at the end of the result it does not.
bool RowResult::nextRecords() {
    while (unread_.empty()) {
        if (partIndex_ == parts_.size()) return false;
        unread_ = parts_[partIndex_].next();
        if (unread_.empty()) partIndex_ += 1;
    }
    return true;
}

void RowResult::emit(const Byte* record, Target& target) {
    const std::int64_t number = loadRowNumber(record + shape_.keyBytes);
    if (number >= rules_.rowCount) {
        throw host::HostError(host::FailureKind::kProtocolBroken,
                              "the sort process gave back a record that was not put; check that "
                              "the program is tvsort, and start it again");
    }
    if (target.numbers != nullptr) *target.numbers++ = number;
    if (target.payload != nullptr) {
        std::memcpy(target.payload, record + shape_.payloadOffset, shape_.payloadBytes);
        target.payload += target.payloadStride;
    }
    target.left -= 1;
    given_ += 1;
}

void RowResult::emitAll(Target& target, Heed& heed) {
    while (target.left > 0 && nextRecords()) {
        heed.look();
        const std::size_t count = std::min(unread_.size() / shape_.recordBytes, target.left);
        for (std::size_t i = 0; i < count; ++i)
            emit(unread_.data() + i * shape_.recordBytes, target);
        pass(count);
        heed.done = given_;
    }
}

bool RowResult::followsHeld(const Byte* record) const {
    return !held_.empty() && std::memcmp(held_.data(), record, shape_.keyBytes) == 0;
}

void RowResult::emitHeld(Target& target) {
    emit(held_.data(), target);
    mayCount_ = false;
}

void RowResult::emitChosen(Target& target, Heed& heed) {
    const bool isExcept = rules_.result == TVSORT_EXCEPT;
    for (std::size_t looks = 0; target.left > 0 && nextRecords(); ++looks) {
        if (looks % kLookInterval == 0) heed.look();
        const Byte* const record = unread_.data();
        const bool isFirstOperand =
            rules_.operandRows < 0 || loadRowNumber(record + shape_.keyBytes) < rules_.operandRows;
        if (!followsHeld(record)) {
            // The held one was without an equal one in operand 2; this record waits for its turn.
            if (mayCount_ && isExcept) {
                emitHeld(target);
                continue;
            }
            held_.assign(record, record + shape_.recordBytes);
            mayCount_ = isFirstOperand;
            if (mayCount_ && rules_.result == TVSORT_DISTINCT) emitHeld(target);
        } else if (!isFirstOperand) {
            if (mayCount_ && !isExcept) emitHeld(target);
            mayCount_ = false;
        }
        pass(1);
        heed.done = given_;
    }
    if (target.left > 0 && mayCount_ && isExcept) emitHeld(target);
}

std::size_t RowResult::get(std::size_t rowsMax, Byte* payload, std::ptrdiff_t payloadStride,
                           std::int64_t* numbers, Heed& heed) {
    if (payload != nullptr && shape_.payloadBytes == 0) {
        throw host::badUse("there is no payload to get; state payload_bytes");
    }
    if (rules_.limit > 0) {
        rowsMax = std::min(rowsMax, static_cast<std::size_t>(rules_.limit - given_));
    }
    Target target = {payload, payloadStride, numbers, rowsMax};
    if (rules_.result == TVSORT_ALL) {
        emitAll(target, heed);
    } else {
        emitChosen(target, heed);
    }
    return rowsMax - target.left;
}

}  // namespace tvsort::capi

#include "host/c/slot_work.h"

#include <algorithm>

namespace tvsort::capi {

void SlotWork::ensureStarted() {
    if (isStarted_ && !slot_.process().hasEnded()) return;
    const std::lock_guard<std::mutex> alone(door_);
    slot_.start();
    isStarted_ = true;
}

SortReply SlotWork::ask(const host::RequestBuilder& request, const host::Geometry& geometry,
                        const host::Extent& extent) {
    try {
        const SortReply reply = slot_.ask(request, geometry, extent);
        host::checkAnswer(reply);
        return reply;
    } catch (const host::HostError& error) {
        if (error.kind() != host::FailureKind::kAnsweredWithError) stop();
        throw;
    } catch (...) {
        stop();
        throw;
    }
}

void SlotWork::stop() noexcept {
    isStarted_ = false;
    try {
        slot_.stop();
    } catch (...) {
        // It is started anew all the same, and that says what is wrong.
    }
}

std::span<const Byte> ResultReader::next() {
    const auto records = std::min<std::int64_t>(left_, geometry_.recordsPerBlock);
    if (records == 0) return {};
    const std::size_t bytes = static_cast<std::size_t>(records) * geometry_.recordLength;
    const std::int32_t blockIndex = blockIndex_++;
    left_ -= records;
    const host::SlotMemory& memory = slot_->memory();
    if (blockIndex < memory.frameCount(geometry_.blockPages)) {
        return memory.frame(slot_->number(), blockIndex, geometry_.blockPages).first(bytes);
    }
    spilled_.resize(geometry_.blockBytes());
    slot_->workFile().readBlock(blockIndex + 1, spilled_);
    return std::span(spilled_).first(bytes);
}

}  // namespace tvsort::capi

#include "tools/ordered/input_chunks.h"

#include <algorithm>

#include "tools/files/interrupt.h"

namespace tvsort::tools {

InputChunks::InputChunks(const KeyedInput& input, std::uint64_t chunkBytes)
    : input_(input), chunkBytes_(std::max<std::uint64_t>(chunkBytes, 1)) {
    if (input.places().inputCount() > 0) begin_ = input.firstRowOf(0);
}

std::optional<InputChunk> InputChunks::next() {
    const std::lock_guard lock(mutex_);
    if (isOff_) throw WorkIsOff();
    const InputPlaces& places = input_.places();
    while (inputIndex_ < places.inputCount() && begin_ >= places.endOf(inputIndex_)) {
        inputIndex_ += 1;
        if (inputIndex_ < places.inputCount()) begin_ = input_.firstRowOf(inputIndex_);
    }
    if (inputIndex_ >= places.inputCount()) return std::nullopt;
    const std::uint64_t inputEnd = places.endOf(inputIndex_);
    const bool isLast = inputEnd - begin_ <= chunkBytes_ + chunkBytes_ / 4;
    const InputChunk chunk = {number_, inputIndex_, begin_,
                              isLast ? inputEnd : begin_ + chunkBytes_,
                              begin_ == input_.firstRowOf(inputIndex_)};
    number_ += 1;
    begin_ = chunk.end;
    return chunk;
}

std::uint64_t InputChunks::firstRowOf(const InputChunk& chunk) {
    if (chunk.startsInput) return chunk.begin;
    std::unique_lock lock(mutex_);
    known_.wait(lock, [&] { return isOff_ || firstRows_.contains(chunk.number); });
    if (isOff_) throw WorkIsOff();
    return firstRows_.at(chunk.number);
}

void InputChunks::awaitRead(const InputChunk& chunk) {
    std::unique_lock lock(mutex_);
    known_.wait(lock, [&] { return isOff_ || readCount_ >= chunk.number; });
    if (isOff_) throw WorkIsOff();
}

void InputChunks::end(const InputChunk& chunk, std::uint64_t nextRow) {
    {
        const std::lock_guard lock(mutex_);
        firstRows_[chunk.number + 1] = nextRow;
        for (; firstRows_.contains(readCount_ + 1); ++readCount_)
            firstRows_.erase(readCount_);
    }
    known_.notify_all();
}

void InputChunks::callOff() {
    {
        const std::lock_guard lock(mutex_);
        isOff_ = true;
    }
    known_.notify_all();
}

}  // namespace tvsort::tools

#include "tools/formats/input_places.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/host_error.h"
#include "tools/files/interrupt.h"

namespace tvsort::tools {

InputPlaces::InputPlaces(const std::vector<InputFile>& inputs, char lineEnd)
    : inputs_(inputs), lineEnd_(lineEnd), starts_(1, 0) {
    for (const InputFile& input : inputs_) {
        const auto byteCount = static_cast<std::uint64_t>(input.fileBytes().value_or(0));
        starts_.push_back(starts_.back() + byteCount);
        if (byteCount == 0) continue;
        Byte last = 0;
        input.readAt(static_cast<std::int64_t>(byteCount) - 1, &last, 1);
        if (last != '\n') openEnds_.push_back(starts_.back());
    }
}

std::size_t InputPlaces::indexOf(std::uint64_t offset) const {
    const auto next = std::upper_bound(starts_.begin(), starts_.end() - 1, offset);
    return static_cast<std::size_t>(next - starts_.begin()) - 1;
}

void InputPlaces::check(const RowPlace& place) const {
    // An empty line may stand at the very end.
    if (place.offset <= end()) {
        const std::uint64_t inputEnd = endOf(indexOf(place.offset));
        if (place.byteCount <= inputEnd - place.offset) return;
    }
    throw host::brokenResult(fmt::format(
        "gave back a record with a row of {} bytes at byte {} of the inputs, where none can be",
        place.byteCount, place.offset));
}

void InputPlaces::readAt(std::uint64_t offset, Byte* target, std::size_t byteCount) const {
    readOf(indexOf(offset), offset, target, byteCount);
}

void InputPlaces::readOf(std::size_t index, std::uint64_t offset, Byte* target,
                         std::size_t byteCount) const {
    inputs_[index].readAt(static_cast<std::int64_t>(offset - starts_[index]), target, byteCount);
}

void InputPlaces::checkSize(std::size_t index) const {
    const std::uint64_t byteCount = starts_[index + 1] - starts_[index];
    if (static_cast<std::uint64_t>(inputs_[index].fileBytes().value_or(0)) != byteCount)
        throw changedWhileRead(inputs_[index].displayName());
}

bool InputPlaces::lacksLineEnd(const RowPlace& place) const {
    return std::find(openEnds_.begin(), openEnds_.end(), place.offset + place.byteCount) !=
           openEnds_.end();
}

std::string InputPlaces::nameOf(std::uint64_t offset) const {
    return fmt::format("line {} of {}", lineNumberOf(offset),
                       inputs_[indexOf(offset)].displayName());
}

std::int64_t InputPlaces::lineNumberOf(std::uint64_t offset) const {
    constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
    std::vector<Byte> piece(kPieceBytes);
    std::int64_t lineNumber = 1;
    for (std::uint64_t at = starts_[indexOf(offset)]; at < offset;) {
        throwIfInterrupted();
        const std::size_t count = std::min<std::uint64_t>(offset - at, kPieceBytes);
        readAt(at, piece.data(), count);
        lineNumber += std::count(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count),
                                 static_cast<Byte>(lineEnd_));
        at += count;
    }
    return lineNumber;
}

}  // namespace tvsort::tools

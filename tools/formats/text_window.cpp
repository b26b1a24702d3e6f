#include "tools/formats/text_window.h"

#include <algorithm>
#include <cstring>

#include "tools/files/interrupt.h"

namespace tvsort::tools {

void TextWindow::start(std::size_t inputIndex, std::uint64_t offset) {
    inputIndex_ = inputIndex;
    inputEnd_ = places_.endOf(inputIndex);
    offset_ = offset;
    filled_ = 0;
    taken_ = 0;
}

bool TextWindow::readMore(std::size_t byteCount) {
    throwIfInterrupted();
    const std::uint64_t left = inputEnd_ - (offset_ + filled_);
    const std::size_t count = std::min<std::uint64_t>({byteCount, memory_.size() - filled_, left});
    if (left == 0) places_.checkSize(inputIndex_);
    if (count == 0) return false;
    places_.readOf(inputIndex_, offset_ + filled_,
                   reinterpret_cast<Byte*>(memory_.data()) + filled_, count);
    filled_ += count;
    if (count == left) places_.checkSize(inputIndex_);
    return true;
}

void TextWindow::readOn() {
    constexpr std::size_t kReadBytes = std::size_t{256} * 1024;
    const std::size_t restBytes = filled_ - taken_;
    if (isFull()) makeRoom();
    readMore(std::max(restBytes, kReadBytes));
}

TextPart TextWindow::rest() const {
    return {offset_ + taken_, {memory_.data() + taken_, filled_ - taken_}, endsInput()};
}

bool TextWindow::makeRoom() {
    if (taken_ == 0) return false;
    std::memmove(memory_.data(), memory_.data() + taken_, filled_ - taken_);
    offset_ += taken_;
    filled_ -= taken_;
    taken_ = 0;
    return true;
}

}  // namespace tvsort::tools

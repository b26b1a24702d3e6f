#include "tools/files/input_window.h"

#include <algorithm>

namespace tvsort::tools {

InputWindow::InputWindow(InputFile& input, std::size_t bufferBytes)
    : input_(input), buffer_(bufferBytes) {}

bool InputWindow::readMore() {
    if (inputEnded_) return false;
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
              buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
    end_ -= begin_;
    begin_ = 0;
    if (end_ == buffer_.size()) buffer_.resize(2 * buffer_.size());
    const std::size_t asked = buffer_.size() - end_;
    const std::size_t read = input_.read(reinterpret_cast<Byte*>(buffer_.data() + end_), asked);
    end_ += read;
    inputEnded_ = read < asked;
    return read > 0;
}

}  // namespace tvsort::tools

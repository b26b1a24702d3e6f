#include "tools/line_input.h"

#include <algorithm>
#include <cstring>

namespace tvsort::tools {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

}  // namespace

LineInput::LineInput(InputFile& input) : input_(input), buffer_(kBufferBytes) {}

bool LineInput::next(std::string_view& line) {
    std::size_t searched = 0;
    for (;;) {
        Byte* const from = buffer_.data() + begin_;
        const void* const found = std::memchr(from + searched, '\n', end_ - begin_ - searched);
        const std::size_t length =
            found != nullptr ? static_cast<std::size_t>(static_cast<const Byte*>(found) - from)
                             : end_ - begin_;
        if (found == nullptr) {
            searched = length;
            if (readMore()) continue;
            if (length == 0) return false;
        }
        line = {reinterpret_cast<const char*>(buffer_.data() + begin_), length};
        begin_ += length + (found != nullptr ? 1 : 0);
        lineNumber_ += 1;
        return true;
    }
}

// Moves the begun line to the front and reads behind it, into a larger buffer where it fills this
// one. False at the end of the input.
bool LineInput::readMore() {
    if (inputEnded_) return false;
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
              buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
    end_ -= begin_;
    begin_ = 0;
    if (end_ == buffer_.size()) buffer_.resize(2 * buffer_.size());
    const std::size_t asked = buffer_.size() - end_;
    const std::size_t read = input_.read(buffer_.data() + end_, asked);
    end_ += read;
    inputEnded_ = read < asked;
    return read > 0;
}

}  // namespace tvsort::tools

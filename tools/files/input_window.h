// The part of an input that is in memory: what has been read and not been given yet. It moves on
// behind whoever takes bytes off its front, and grows where one line or row is longer than it.

#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "tools/files/input_file.h"

namespace tvsort::tools {

class InputWindow {
  public:
    // `bufferBytes` are read at once. Needs the input as long as it reads.
    InputWindow(InputFile& input, std::size_t bufferBytes);

    // What is in memory. Good until the next call of `readMore`.
    std::string_view bytes() const { return {buffer_.data() + begin_, end_ - begin_}; }
    // Gives the first `byteCount` of these bytes away; they stay readable until `readMore`.
    void take(std::size_t byteCount) { begin_ += byteCount; }
    // Reads behind the bytes. False at the end of the input.
    bool readMore();

  private:
    InputFile& input_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool inputEnded_ = false;
};

}  // namespace tvsort::tools

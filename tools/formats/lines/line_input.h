// Text lines out of an input, whatever their length.

#pragma once

#include <cstdint>
#include <string_view>

#include "tools/files/input_window.h"

namespace tvsort::tools {

class LineInput {
  public:
    // Needs the input as long as it reads.
    explicit LineInput(InputFile& input);

    // The next line without its newline, which the last one may lack, or false at the end. The
    // view is good until the next call.
    bool next(std::string_view& line);
    // Number of the line that `next` gave last, from 1.
    std::int64_t lineNumber() const { return lineNumber_; }

  private:
    InputWindow window_;
    std::int64_t lineNumber_ = 0;
};

}  // namespace tvsort::tools

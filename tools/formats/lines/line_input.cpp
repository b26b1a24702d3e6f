#include "tools/formats/lines/line_input.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

}  // namespace

LineInput::LineInput(InputFile& input) : window_(input, kBufferBytes) {}

bool LineInput::next(std::string_view& line) {
    for (std::size_t searched = 0;;) {
        const std::string_view held = window_.bytes();
        const std::size_t found = held.find('\n', searched);
        if (found == std::string_view::npos) {
            searched = held.size();
            if (window_.readMore()) continue;
            if (held.empty()) return false;
        }
        // What was held has moved if more was asked for.
        line = window_.bytes().substr(0, found);
        window_.take(found == std::string_view::npos ? line.size() : found + 1);
        lineNumber_ += 1;
        return true;
    }
}

}  // namespace tvsort::tools

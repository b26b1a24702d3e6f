#include "tools/files/spoken.h"

#include <algorithm>
#include <cstdio>

namespace tvsort::tools {

std::string harmless(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char byte) {
            return (static_cast<unsigned char>(byte) < ' ' && byte != '\n') || byte == '\x7f';
        },
        '?');
    return text;
}

void speak(const std::string& text) {
    std::fputs(harmless(text).c_str(), stderr);
}

}  // namespace tvsort::tools

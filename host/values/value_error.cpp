#include "host/values/value_error.h"

#include <algorithm>

namespace tvsort::host {

namespace {

constexpr std::size_t kShownBytesMax = 60;

}  // namespace

HostError badValue(std::string_view text, const std::string& wanted, const std::string& reason) {
    std::string shown(text.substr(0, kShownBytesMax));
    // What a terminal would obey instead of showing it.
    std::replace_if(
        shown.begin(), shown.end(),
        [](char character) { return static_cast<unsigned char>(character) < ' '; }, '?');
    if (shown.size() < text.size()) shown += "...";
    return badUse("\"" + shown + "\" is no " + wanted + ": " + reason);
}

}  // namespace tvsort::host

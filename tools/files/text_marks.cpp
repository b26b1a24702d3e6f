#include "tools/files/text_marks.h"

#include <fmt/format.h>

#include <algorithm>

namespace tvsort::tools {

std::string firstBytes(const InputFile& input) {
    if (input.isPlain()) return "";
    constexpr std::int64_t kMarkBytes = 4;
    std::string bytes(static_cast<std::size_t>(std::min(input.fileBytes().value_or(0), kMarkBytes)),
                      '\0');
    input.readAt(0, reinterpret_cast<Byte*>(bytes.data()), bytes.size());
    return bytes;
}

void refuseWideText(const InputFile& input) {
    const std::string begin = firstBytes(input);
    if (!begin.starts_with("\xff\xfe") && !begin.starts_with("\xfe\xff")) return;
    throw host::badUse(
        fmt::format("{} is text in UTF-16, as its first two bytes say; convert it with "
                    "iconv -f UTF-16 -t UTF-8, and sort the result",
                    input.displayName()));
}

}  // namespace tvsort::tools

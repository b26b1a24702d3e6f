#include "tools/formats/records/record_layout.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/values/value_format.h"

namespace tvsort::tools {

namespace {

struct LayoutLine {
    std::size_t offset;
    std::size_t byteCount;
    std::string content;
    std::string type;
    std::string key;
    std::string nullByte;
};

std::string directionOf(const KeyDescriptor& key) {
    const bool ascending =
        (key.kindFlags & kKeyKindMask) == static_cast<std::uint8_t>(KeyKind::kAscending);
    std::string words = ascending ? "asc" : "desc";
    if ((key.kindFlags & kNullsFirstBit) != 0) words += " nulls-first";
    if ((key.kindFlags & kNullsLastBit) != 0) words += " nulls-last";
    return words;
}

LayoutLine keyLine(const host::RequestBuilder& request, std::size_t keyIndex,
                   const std::vector<RecordField>& fields) {
    const KeyDescriptor& key = request.keys()[keyIndex];
    const host::ValueFormat* const format = host::valueFormatOf(key);
    const std::size_t fieldBytes = format == nullptr ? 0 : format->fieldBytes(key.fieldLength);
    LayoutLine line = {key.fieldOffset, fieldBytes, "", typeWord(key), "", ""};
    line.key = fmt::format("{} {}", keyIndex + 1, directionOf(key));
    const auto nulls = request.nullIndicatorsOffset();
    if (nulls.has_value()) line.nullByte = std::to_string(*nulls + keyIndex);
    const auto field = std::find_if(fields.begin(), fields.end(), [&](const RecordField& known) {
        return known.offset == key.fieldOffset;
    });
    if (field != fields.end()) {
        line.content = field->content;
        if (key.fieldLength > 0) line.byteCount = field->byteCount;
    }
    return line;
}

}  // namespace

std::string typeWord(const KeyDescriptor& key) {
    const host::ValueFormat* const format = host::valueFormatOf(key);
    return std::string(format == nullptr ? "none" : format->family);
}

std::string describeLayout(const host::RequestBuilder& request,
                           const std::vector<RecordField>& fields) {
    std::vector<LayoutLine> lines;
    for (std::size_t i = 0; i < request.keys().size(); ++i)
        lines.push_back(keyLine(request, i, fields));
    for (const RecordField& field : fields) {
        const bool isKey = std::any_of(lines.begin(), lines.end(), [&](const LayoutLine& line) {
            return line.offset == field.offset;
        });
        if (!isKey) lines.push_back({field.offset, field.byteCount, field.content, "", "", ""});
    }
    std::stable_sort(
        lines.begin(), lines.end(),
        [](const LayoutLine& left, const LayoutLine& right) { return left.offset < right.offset; });
    lines.insert(lines.begin(), {0, 0, "content", "type", "key", "null byte"});
    std::size_t contentWidth = 0;
    std::size_t typeWidth = 0;
    std::size_t keyWidth = 0;
    for (const LayoutLine& line : lines) {
        contentWidth = std::max(contentWidth, line.content.size());
        typeWidth = std::max(typeWidth, line.type.size());
        keyWidth = std::max(keyWidth, line.key.size());
    }
    std::string text;
    for (const LayoutLine& line : lines) {
        const std::string place = text.empty()
                                      ? fmt::format("  {:>6}  {:>5}", "offset", "bytes")
                                      : fmt::format("  {:>6}  {:>5}", line.offset, line.byteCount);
        std::string row =
            fmt::format("{}  {:<{}}  {:<{}}  {:<{}}  {}", place, line.content, contentWidth,
                        line.type, typeWidth, line.key, keyWidth, line.nullByte);
        row.resize(row.find_last_not_of(' ') + 1);
        text += row + "\n";
    }
    return text;
}

}  // namespace tvsort::tools

#include "tools/formats/lines/value_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "host/host_error.h"
#include "tools/formats/lines/line_input.h"
#include "tools/formats/stored_length.h"
#include "tools/options/key_option.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPrefix = sizeof(std::uint16_t);
constexpr std::size_t kRecordBytesMax = 65535;

bool isNull(const host::ValueFormat& format, std::string_view line) {
    return line.empty() && !format.takesEmptyText();
}

// Says where the line stands that `use` finds no value in.
template <typename Use>
void atLine(const InputFile& input, const LineInput& lines, Use use) {
    try {
        use();
    } catch (const host::HostError& error) {
        if (error.kind() != host::FailureKind::kBadUse) throw;
        throw host::badUse(fmt::format("line {} of {}: {}", lines.lineNumber(), input.displayName(),
                                       error.what()));
    }
}

}  // namespace

ValueLineType parseValueLineType(const std::string& text) {
    // The scale, a number, belongs to the type's name; the other parts are words as in --key.
    std::size_t end = text.find(':');
    if (end < text.size() && end + 1 < text.size() && text[end + 1] >= '0' &&
        text[end + 1] <= '9') {
        end = text.find(':', end + 1);
    }
    ValueLineType type = {host::valueFormat(text.substr(0, end)), 0};
    KeyDescriptor key = type.format.key(0, 0);
    while (end < text.size()) {
        const std::size_t next = text.find(':', end + 1);
        const std::string word = text.substr(end + 1, next - end - 1);
        if (!applyKeyWord(word, key)) {
            throw host::badUse(
                fmt::format("--as {}: \"{}\" is not known; write "
                            "TYPE[:SCALE][:desc][:nulls-first|:nulls-last]",
                            text, word));
        }
        end = next;
    }
    type.kindFlags = key.kindFlags;
    return type;
}

ValueLineRecord::ValueLineRecord(const ValueLineType& type, const ValueLineExtent& extent)
    : type_(type), extent_(extent) {
    const std::size_t valuePrefix = type.format.isPrefixed() ? kPrefix : 0;
    const std::size_t nullOffset = valuePrefix + extent.valueBytesMax;
    const std::size_t recordLength = nullOffset + 1 + kPrefix + extent.lineBytesMax;
    if (recordLength > kRecordBytesMax) {
        throw host::badUse(fmt::format(
            "the longest line, of {} bytes, and the longest value, of {}, do not fit into a record "
            "of {} bytes; shorten them or leave them out",
            extent.lineBytesMax, extent.valueBytesMax, kRecordBytesMax));
    }
    nullOffset_ = static_cast<std::uint16_t>(nullOffset);
    recordLength_ = static_cast<std::uint16_t>(recordLength);
}

host::RequestBuilder ValueLineRecord::request() const {
    KeyDescriptor key = type_.format.key(0, static_cast<std::uint16_t>(extent_.valueBytesMax));
    key.kindFlags = type_.kindFlags;
    host::RequestBuilder request;
    request.addKey(key).setNullIndicators(nullOffset_);
    return request;
}

std::vector<RecordField> ValueLineRecord::fields() const {
    return {{0, nullOffset_, "value"},
            {nullOffset_, 1, "null indicator"},
            {nullOffset_ + std::size_t{1}, kPrefix + extent_.lineBytesMax, "line"}};
}

void ValueLineRecord::encode(host::ValueEncoder& encoder, std::string_view line,
                             Byte* target) const {
    // What is not filled is cleared: equal lines make equal records.
    std::fill_n(target, recordLength_, Byte{0});
    if (isNull(type_.format, line)) {
        target[nullOffset_] = 1;
    } else {
        const std::vector<Byte>& value = encoder.encode(line);
        if (value.size() > extent_.valueBytesMax || line.size() > extent_.lineBytesMax) {
            throw host::badUse(fmt::format(
                "it has {} bytes and a value of {}, and the records are made for lines of {} and "
                "values of {}; if it was changed while it was being read, try again",
                line.size(), value.size(), extent_.lineBytesMax, extent_.valueBytesMax));
        }
        const std::size_t valuePrefix = type_.format.isPrefixed() ? kPrefix : 0;
        if (valuePrefix > 0) storeAs(target, static_cast<std::uint16_t>(value.size()));
        std::copy(value.begin(), value.end(), target + valuePrefix);
    }
    Byte* const carried = target + nullOffset_ + 1;
    storeAs(carried, static_cast<std::uint16_t>(line.size()));
    std::copy(line.begin(), line.end(), carried + kPrefix);
}

std::string_view ValueLineRecord::lineOf(const Byte* record) const {
    const Byte* const carried = record + nullOffset_ + 1;
    return {reinterpret_cast<const char*>(carried + kPrefix),
            storedLength(carried, extent_.lineBytesMax)};
}

ValueLineSource::ValueLineSource(const ValueLineType& type, const ValueLineRecord& layout,
                                 InputFile& input)
    : Operand(input.displayName(), "line"),
      encoder_(type.format),
      layout_(layout),
      input_(input),
      lines_(input) {}

std::size_t ValueLineSource::readRecords(Byte* target, std::size_t recordsMax) {
    std::size_t records = 0;
    for (std::string_view line; records < recordsMax && lines_.next(line); ++records) {
        atLine(input_, lines_,
               [&] { layout_.encode(encoder_, line, target + records * layout_.recordLength()); });
    }
    return records;
}

ValueLineExtent measureValueLines(const ValueLineType& type, InputFile& input) {
    host::ValueEncoder encoder(type.format);
    ValueLineExtent extent;
    LineInput lines(input);
    for (std::string_view line; lines.next(line);) {
        extent.lineBytesMax = std::max(extent.lineBytesMax, line.size());
        if (isNull(type.format, line)) continue;
        atLine(input, lines, [&] {
            extent.valueBytesMax = std::max(extent.valueBytesMax, encoder.encode(line).size());
        });
    }
    input.rewind();
    return extent;
}

RecordFlow valueLineRecords(const std::string& as, const ModeOptions& mode,
                            std::vector<InputFile>& inputs, OutputFile& output) {
    if (mode.hierarchy) {
        throw host::badUse("--hierarchy orders lines by their text; leave --as out");
    }
    const ValueLineType type = parseValueLineType(as);
    ValueLineExtent extent;
    extent.valueBytesMax = type.format.valueBytes;
    for (InputFile& input : inputs) {
        const ValueLineExtent measured = measureValueLines(type, input);
        extent.valueBytesMax = std::max(extent.valueBytesMax, measured.valueBytesMax);
        extent.lineBytesMax = std::max(extent.lineBytesMax, measured.lineBytesMax);
    }
    const ValueLineRecord layout(type, extent);
    RecordFlow flow;
    flow.kind = InputKind::kLines;
    flow.recordLength = layout.recordLength();
    flow.fields = layout.fields();
    flow.request = layout.request();
    for (InputFile& input : inputs) {
        flow.operands.push_back(std::make_shared<ValueLineSource>(type, layout, input));
    }
    const auto writeLines = [layout, &output](const Byte* first, std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount; ++i) {
            const std::string_view line = layout.lineOf(first + i * layout.recordLength());
            output.write(reinterpret_cast<const Byte*>(line.data()), line.size());
            constexpr Byte kNewline = '\n';
            output.write(&kNewline, 1);
        }
    };
    flow.output = std::make_shared<PlainOutput>(writeLines, output);
    return flow;
}

}  // namespace tvsort::tools

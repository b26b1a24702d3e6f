#include "tools/formats/lines/value_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "host/host_error.h"
#include "tools/formats/lines/line_input.h"
#include "tools/formats/stored_length.h"

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

ValueLineRecord::ValueLineRecord(const KeyText& type, const ValueLineExtent& extent)
    : type_(type), extent_(extent) {
    const std::size_t nullOffset = type.format.fieldBytes(extent.valueBytesMax);
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
    host::RequestBuilder request;
    request.addKey(type_.descriptor(static_cast<std::uint16_t>(extent_.valueBytesMax)))
        .setNullIndicators(nullOffset_);
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
        Byte* content = target;
        if (type_.format.form == host::FieldForm::kPrefixed) {
            storeAs(content, static_cast<std::uint16_t>(value.size()));
            content += kPrefix;
        }
        std::copy(value.begin(), value.end(), content);
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

ValueLineSource::ValueLineSource(const KeyText& type, const ValueLineRecord& layout,
                                 InputFile& input, std::shared_ptr<TextBalance> balance)
    : Operand(input.displayName(), "line"),
      encoder_(type.format),
      layout_(layout),
      input_(input),
      lines_(input),
      balance_(std::move(balance)) {}

std::size_t ValueLineSource::readRecords(Byte* target, std::size_t recordsMax) {
    std::size_t records = 0;
    for (std::string_view line; records < recordsMax && lines_.next(line); ++records) {
        atLine(input_, lines_,
               [&] { layout_.encode(encoder_, line, target + records * layout_.recordLength()); });
        balance_->goes(line.size());
    }
    return records;
}

ValueLineExtent measureValueLines(const KeyText& type, InputFile& input) {
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

RecordFlow valueLineRecords(const RecordOptions& options, const ModeOptions& mode,
                            std::vector<InputFile>& inputs, OutputFile& output) {
    if (mode.hierarchy) {
        throw host::badUse(
            "--hierarchy orders lines by the types that stand first in sort --help; name one with "
            "--as, or leave it out");
    }
    const KeyText type = lineKey(options);
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
    const auto balance = std::make_shared<TextBalance>();
    for (InputFile& input : inputs) {
        flow.operands.push_back(std::make_shared<ValueLineSource>(type, layout, input, balance));
    }
    const auto writeLines = [layout, balance, &output](const Byte* first, std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount; ++i) {
            const std::string_view line = layout.lineOf(first + i * layout.recordLength());
            balance->comesBack(line.size());
            output.write(reinterpret_cast<const Byte*>(line.data()), line.size());
            constexpr Byte kNewline = '\n';
            output.write(&kNewline, 1);
        }
    };
    flow.output = std::make_shared<PlainOutput>(writeLines, output);
    return flow;
}

}  // namespace tvsort::tools

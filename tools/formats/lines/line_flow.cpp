#include "tools/formats/record_flow.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "host/host_error.h"
#include "tools/files/spool.h"
#include "tools/formats/lines/line_input.h"
#include "tools/formats/lines/line_record.h"
#include "tools/formats/records/fixed_records.h"

namespace tvsort::tools {

namespace {

// Lays lines into records, in the second reading of the input.
class LineSource {
  public:
    LineSource(InputFile& input, const LineRecord& layout, std::size_t lineBytesMax)
        : displayName_(input.displayName()),
          lines_(input),
          layout_(layout),
          lineBytesMax_(lineBytesMax) {}

    std::size_t read(Byte* target, std::size_t recordsMax) {
        std::size_t records = 0;
        for (std::string_view line; records < recordsMax && lines_.next(line); ++records) {
            if (line.size() > lineBytesMax_) {
                throw changedWhileRead(displayName_);
            }
            layout_.encode(line, target + records * layout_.recordLength());
        }
        return records;
    }

  private:
    std::string displayName_;
    LineInput lines_;
    LineRecord layout_;
    std::size_t lineBytesMax_;
};

std::size_t longestLineBytes(std::vector<InputFile>& inputs) {
    std::size_t bytes = 0;
    for (InputFile& input : inputs) {
        const LongestLine longest = findLongestLine(input);
        if (longest.bytes > kLineBytesMax) {
            throw host::badUse(fmt::format(
                "line {} of {} has {} bytes, and a line can have {} at most; shorten it or leave "
                "it out",
                longest.lineNumber, input.displayName(), longest.bytes, kLineBytesMax));
        }
        bytes = std::max(bytes, longest.bytes);
    }
    return bytes;
}

LevelReader levelFieldReader(const std::string& level, std::uint16_t recordLength) {
    std::uint16_t levelOffset = 0;
    const char* const end = level.data() + level.size();
    const auto parsed = std::from_chars(level.data(), end, levelOffset);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        throw host::badUse(fmt::format("--level {}: write an offset from 0 to 65535", level));
    }
    constexpr std::size_t kLevelBytes = sizeof(std::int32_t);
    if (levelOffset + kLevelBytes > recordLength) {
        throw host::badUse(
            fmt::format("--level {} reaches byte {} of a record of {} bytes; check "
                        "the offset and --record-length",
                        levelOffset, levelOffset + kLevelBytes, recordLength));
    }
    return [levelOffset](const Byte* record) -> LevelReading {
        return {loadI32(record + levelOffset), ""};
    };
}

// A line whose indentation fills the first part of its record is too deep anyway.
LevelReader indentationReader(const std::string& indent) {
    return [indentation = Indentation(indent)](const Byte* record) {
        return indentation.levelOf(LineRecord::firstPart(record));
    };
}

}  // namespace

RecordFlow fixedRecords(const RecordOptions& options, const ModeOptions& mode,
                        std::vector<InputFile>& inputs, OutputFile& output) {
    RecordFlow flow;
    const std::uint16_t recordLength = options.recordLength.value();
    flow.recordLength = recordLength;
    flow.request = requestFor(options);
    for (InputFile& input : inputs) {
        const auto records = std::make_shared<RecordInput>(input, recordLength);
        flow.operands.push_back(operandOf(records, input.displayName()));
    }
    flow.output = std::make_shared<PlainOutput>(
        [recordLength, &output](const Byte* first, std::size_t recordCount) {
            output.write(first, recordCount * recordLength);
        },
        output);
    if (mode.hierarchy) flow.readLevel = levelFieldReader(mode.level, recordLength);
    return flow;
}

RecordFlow lineRecords(const ModeOptions& mode, std::vector<InputFile>& inputs,
                       OutputFile& output) {
    const std::size_t lineBytesMax = longestLineBytes(inputs);
    const LineRecord layout(lineBytesMax);
    RecordFlow flow;
    flow.kind = InputKind::kLines;
    flow.recordLength = layout.recordLength();
    flow.fields = layout.fields();
    flow.request = layout.request();
    for (InputFile& input : inputs) {
        const auto lines = std::make_shared<LineSource>(input, layout, lineBytesMax);
        flow.operands.push_back(operandOf(lines, input.displayName()));
    }
    // Room for the newline too.
    const auto line = std::make_shared<std::vector<Byte>>(lineBytesMax + 1);
    const auto writeLines = [layout, line, &output](const Byte* first, std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount; ++i) {
            const std::size_t length =
                layout.decode(first + i * layout.recordLength(), line->data());
            (*line)[length] = '\n';
            output.write(line->data(), length + 1);
        }
    };
    flow.output = std::make_shared<PlainOutput>(writeLines, output);
    if (mode.hierarchy) flow.readLevel = indentationReader(mode.indent);
    return flow;
}

}  // namespace tvsort::tools

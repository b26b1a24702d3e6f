#include "tools/formats/lines/line_flow.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "host/host_error.h"
#include "tools/formats/lines/line_input.h"
#include "tools/formats/lines/line_keyed.h"
#include "tools/formats/lines/line_record.h"
#include "tools/formats/text_balance.h"
#include "tools/options/key_text.h"

namespace tvsort::tools {

namespace {

// Lays lines into records, in the second reading of the input.
class LineSource : public Operand {
  public:
    LineSource(InputFile& input, const LineRecord& layout, std::size_t lineBytesMax,
               std::shared_ptr<TextBalance> balance)
        : Operand(input.displayName(), "line"),
          input_(input),
          lines_(input),
          layout_(layout),
          lineBytesMax_(lineBytesMax),
          balance_(std::move(balance)) {}

  private:
    std::size_t readRecords(Byte* target, std::size_t recordsMax) override {
        std::size_t records = 0;
        for (std::string_view line; records < recordsMax && lines_.next(line); ++records) {
            if (line.size() > lineBytesMax_) throw changedWhileRead(input_.displayName());
            layout_.encode(line, target + records * layout_.recordLength());
            balance_->goes(line.size());
        }
        return records;
    }

    InputFile& input_;
    LineInput lines_;
    LineRecord layout_;
    std::size_t lineBytesMax_;
    std::shared_ptr<TextBalance> balance_;
};

// Of the longest line. Reads the inputs to their ends and back to their starts.
std::size_t longestLineBytes(std::vector<InputFile>& inputs) {
    std::size_t longestBytes = 0;
    for (InputFile& input : inputs) {
        LineInput lines(input);
        std::size_t bytes = 0;
        std::int64_t lineNumber = 0;  // of the longest, the first of several
        for (std::string_view line; lines.next(line);) {
            if (line.size() <= bytes) continue;
            bytes = line.size();
            lineNumber = lines.lineNumber();
        }
        input.rewind();
        if (bytes > kLineBytesMax) {
            throw host::badUse(fmt::format(
                "line {} of {} has {} bytes, and a line can have {} at most; shorten it or leave "
                "it out",
                lineNumber, input.displayName(), bytes, kLineBytesMax));
        }
        longestBytes = std::max(longestBytes, bytes);
    }
    return longestBytes;
}

// A line whose indentation fills the first part of its record is too deep anyway.
LevelReader indentationReader(const std::string& indent) {
    return [indentation = Indentation(indent)](const Byte* record) {
        return indentation.levelOf(LineRecord::firstPart(record));
    };
}

// Of the memory, for a value that is read in one piece, and for lines on their way out.
constexpr std::uint64_t kTextShare = 4;

}  // namespace

OrderedFlow lineOrderedFlow(const RecordOptions& options, std::vector<InputFile>& inputs,
                            std::uint64_t memoryBytes, OutputFile& output) {
    LineKeyedInput::Form form;
    form.lineEnd = options.zeroTerminated ? '\0' : '\n';
    form.nullWord = options.nullWord;
    form.valueBytesMax = memoryBytes / kTextShare;
    form.keepsUnreadable = options.onError == kLastOnError;
    for (const std::string& text : options.keys) {
        const KeyText key = parseKey(text, host::ValuePlace::kColumn, options.isReversed);
        form.columns.push_back({0, key.column, key.ordered.value()});
    }
    if (options.keys.empty()) form.columns.push_back({0, "", *lineKey(options).ordered});
    OrderedFlow flow;
    const std::string lineEnd(1, form.lineEnd);
    flow.input = std::make_unique<LineKeyedInput>(std::move(form), inputs);
    flow.writer = std::make_unique<RowWriter>(RowWriter::Form{"", lineEnd, true}, inputs,
                                              memoryBytes / kTextShare, output);
    flow.lineEnd = lineEnd;
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
    const auto balance = std::make_shared<TextBalance>();
    for (InputFile& input : inputs) {
        flow.operands.push_back(std::make_shared<LineSource>(input, layout, lineBytesMax, balance));
    }
    // Room for the newline too.
    const auto line = std::make_shared<std::vector<Byte>>(lineBytesMax + 1);
    const auto writeLines = [layout, line, balance, &output](const Byte* first,
                                                             std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount; ++i) {
            const std::size_t length =
                layout.decode(first + i * layout.recordLength(), line->data());
            balance->comesBack(length);
            (*line)[length] = '\n';
            output.write(line->data(), length + 1);
        }
    };
    flow.output = std::make_shared<PlainOutput>(writeLines, output);
    if (mode.hierarchy) flow.readLevel = indentationReader(mode.indent);
    return flow;
}

}  // namespace tvsort::tools

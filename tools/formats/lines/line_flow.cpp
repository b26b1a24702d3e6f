#include "tools/formats/lines/line_flow.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "tools/formats/lines/line_keyed.h"
#include "tools/formats/outline_level.h"
#include "tools/options/key_text.h"

namespace tvsort::tools {

namespace {

// Of a long line the first bytes are at hand; its indentation may be longer.
RowLevelReader indentationReader(const std::string& indent, const KeyedInput& input) {
    return [indentation = Indentation(indent), &input](const RowReader&,
                                                       const KeyedRow& row) -> RowLevel {
        constexpr std::size_t kIndentationBytesMax = std::size_t{64} * 1024;
        std::vector<Byte> begin;
        std::string_view line = row.text;
        if (!row.isHeld) {
            begin.resize(std::min<std::size_t>(row.place.byteCount, kIndentationBytesMax));
            input.places().readAt(row.place.offset, begin.data(), begin.size());
            line = {reinterpret_cast<const char*>(begin.data()), begin.size()};
        }
        const LevelReading reading = indentation.levelOf(line);
        if (reading.problem.empty()) return {reading.level, ""};
        return {std::nullopt, " " + reading.problem};
    };
}

// Of the memory, for a value that is read in one piece, and for lines on their way out.
constexpr std::uint64_t kTextShare = 4;

}  // namespace

OrderedFlow lineOrderedFlow(const RecordOptions& options, const ModeOptions& mode,
                            std::vector<InputFile>& inputs, std::uint64_t memoryBytes,
                            OutputFile& output) {
    LineKeyedInput::Form form;
    form.lineEnd = options.zeroTerminated ? '\0' : '\n';
    form.nullWord = options.nullWord;
    form.valueBytesMax = memoryBytes / kTextShare;
    form.keepsUnreadable = options.onError == kLastOnError;
    if (mode.hierarchy) form.indentation = Indentation(mode.indent).character();
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
    if (mode.hierarchy) flow.readLevel = indentationReader(mode.indent, *flow.input);
    return flow;
}

}  // namespace tvsort::tools

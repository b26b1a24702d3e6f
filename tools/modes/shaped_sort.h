// A sort with everything that the mode options ask for.
//
//     operands -> header -> the process orders and shapes -> header off -> output
//
// A plain sort sends the user's records as they are; every other operation sends them behind a
// header (framed_record.h).

#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "host/data_set.h"
#include "host/request_builder.h"
#include "tools/formats/record_flow.h"
#include "tools/modes/framed_record.h"
#include "tools/modes/operand_input.h"
#include "tools/options/mode_options.h"
#include "tools/run/sort_once.h"
#include "tools/run/sort_stats.h"

namespace tvsort::tools {

class ShapedSort {
  public:
    ShapedSort(const ShapedSort&) = delete;
    ShapedSort& operator=(const ShapedSort&) = delete;

    struct Setting {
        ModeOptions mode;
        // The flow once more, from the start of its inputs; called for --unique only.
        std::function<RecordFlow()> restartFlow;
        std::filesystem::path tempDirectory;
    };

    ShapedSort(Setting setting, RecordFlow flow);

    // Bytes of the records that the process gets.
    std::uint16_t recordLength() const;
    std::vector<RecordField> fields() const;
    // Of the sort's memory, one of so many parts is not the process's; 0: all is.
    std::uint64_t memoryShare() const { return flow_.memoryShare; }
    // Reads all inputs and writes the output, with as many requests as that takes.
    SortStats run(const SortOnce& sortOnce);
    // The same without the end of the output.
    SortStats shape(const SortOnce& sortOnce);

  private:
    SortStats sortPlain(const SortOnce& sortOnce);
    SortStats sortDistinct(const SortOnce& sortOnce);
    SortStats sortGroups(const SortOnce& sortOnce);
    SortStats combineSets(const SortOnce& sortOnce);
    SortStats sortUnique(const SortOnce& sortOnce);
    SortStats sortHierarchy(const SortOnce& sortOnce);

    bool hasNulls() const { return flow_.request.nullIndicatorsOffset().has_value(); }
    // With mode and limit.
    host::RequestBuilder framedRequest() const;
    host::RecordSource numberedRecords();
    // Takes the headers off and passes the user's records on.
    host::RecordSink unframed() const;
    void throwIfEqualRecordsAreFound(const SortOnce& sortOnce);

    Setting setting_;
    Operation operation_;
    RecordFlow flow_;
    OperandInput input_;
    std::optional<FramedRecord> frame_;  // none for a plain sort
    std::int64_t nextNumber_ = 1;
};

}  // namespace tvsort::tools

// A sort with everything that the mode options ask for.
//
//     operands -> header -> the process orders and shapes -> header off -> output
//
// A plain sort sends a user's records as they are; every other operation, and a plain sort of lines
// and rows, sends them behind a header (framed_record.h).

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
#include "tools/run/sorting.h"

namespace tvsort::tools {

class ShapedSort : public Sorting {
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

    std::uint16_t recordLength() const override;
    std::vector<RecordField> fields() const override;
    std::uint64_t memoryShare() const override { return flow_.memoryShare; }
    SortStats run(const SortOnce& sortOnce) override;
    SortStats shape(const SortOnce& sortOnce) override;

  private:
    SortStats sortPlain(const SortOnce& sortOnce);
    SortStats sortDistinct(const SortOnce& sortOnce);
    SortStats sortGroups(const SortOnce& sortOnce);
    SortStats combineSets(const SortOnce& sortOnce);
    SortStats sortUnique(const SortOnce& sortOnce);
    SortStats sortHierarchy(const SortOnce& sortOnce);

    bool hasNulls() const { return flow_.request.nullIndicatorsOffset().has_value(); }
    // With mode and limit.
    SortRequest framedRequest() const;
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

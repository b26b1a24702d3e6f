// A sort by ordered keys, from its inputs to its output.
//
//     inputs -> pieces -> rows -> records of fixed, small size -> the process -> sorted runs
//     sorted runs -> merged -> what is wanted of the rows -> output
//
// Several workers, each with a process, make runs side by side. On its way from the file to the
// slot a row is asked for from the top and comes from the bottom:
//
//     SlotSort              room in a block of the slot                    run/slot_sort.h
//       RunMaker            laid into a record, with KeyRecord             run_maker.cpp
//         RowReader         with its key: CsvReader, LineReader            formats/keyed_input.h
//
// Where all rows come out as they are, several workers merge and write them too (tiled_output.h).
//
// Stable: equal rows come in the order of reading, with any memory and any number of processes.

#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "tools/files/progress.h"
#include "tools/formats/keyed_input.h"
#include "tools/formats/row_writer.h"
#include "tools/options/mode_options.h"
#include "tools/ordered/row_shaper.h"
#include "tools/ordered/run_plan.h"
#include "tools/ordered/sorted_run.h"
#include "tools/ordered/top_filter.h"
#include "tools/run/sorting.h"

namespace tvsort::tools {

class OrderedSort : public Sorting {
  public:
    // Rows that cannot be read are counted in `errors`, which is needed as long.
    OrderedSort(std::unique_ptr<KeyedInput> input, const RowShaper::Form& shape,
                const PlanSetting& setting, std::unique_ptr<RowWriter> writer, RowErrors& errors,
                Progress& progress);

    KeyedInput& input() { return *input_; }
    const RunFacts& facts() const { return facts_; }
    const RunPlan& plan() const { return plan_; }
    host::RequestBuilder request() const { return form_.record.request(); }

    std::uint16_t recordLength() const override { return form_.record.recordLength(); }
    std::vector<RecordField> fields() const override;
    std::uint64_t memoryShare() const override { return 0; }
    std::optional<SlotPlan> slotPlan() const override;
    SortStats run(const SortOnce& sortOnce) override;
    SortStats shape(const SortOnce& sortOnce) override;

  protected:
    // Puts all rows in order; they go to `take`, one by one.
    SortStats orderAll(const SortOnce& sortOnce,
                       const std::function<void(const SettledRow&)>& take);
    const RowShaper::Form& form() const { return shape_; }
    RowWriter& writer() { return *writer_; }
    // For errors that nobody counts.
    RowErrors policy() const;

  private:
    SortStats makeRuns(const SortOnce& sortOnce);
    // Merges runs in files with one another until they can be merged at once.
    void mergeLevels();
    // Every row in order.
    void passOver(const std::function<void(const SettledRow&)>& take, const RowShaper* shaper);
    bool comesOutWhole() const;
    std::optional<TopFilter> filter() const;

    std::unique_ptr<KeyedInput> input_;
    RowShaper::Form shape_;
    std::uint64_t memoryBytes_;
    std::unique_ptr<RowWriter> writer_;
    RowErrors& errors_;
    Progress& progress_;
    RunFacts facts_;
    RunPlan plan_;
    RunForm form_;
    std::vector<std::unique_ptr<SpoolFile>> files_;
    std::vector<SortedRun> runs_;  // in the order of reading
};

}  // namespace tvsort::tools

// A sort by ordered keys, from its inputs to its output.
//
//     rows -> records of fixed, small size -> the process, in rounds -> rows in order -> what is
//     wanted of them -> output
//
// On its way from the file to the slot a row is asked for from the top and comes from the bottom:
//
//     SlotSort              room in a block of the slot or the work file     run/slot_sort.h
//       SettledOrder        laid into a record, with KeyRecord               settled_order.cpp
//         KeyedInput        with its key: CsvKeyedInput, LineKeyedInput      formats/keyed_input.h
//
// Stable: equal rows come in the order of reading, with any memory and any number of processes.

#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "tools/formats/keyed_input.h"
#include "tools/formats/row_writer.h"
#include "tools/options/mode_options.h"
#include "tools/ordered/key_record.h"
#include "tools/ordered/row_shaper.h"
#include "tools/ordered/settled_order.h"
#include "tools/run/sorting.h"

namespace tvsort::tools {

class OrderedSort : public Sorting {
  public:
    struct Setting {
        RowShaper::Form shape;
        std::uint64_t memoryBytes;  // of the whole sort
        std::size_t processCount;
        std::optional<std::int32_t> blockPages;
    };

    OrderedSort(std::unique_ptr<KeyedInput> input, const Setting& setting,
                std::unique_ptr<RowWriter> writer);

    KeyedInput& input() { return *input_; }

    std::uint16_t recordLength() const override { return KeyRecord(form_).recordLength(); }
    std::vector<RecordField> fields() const override;
    std::uint64_t memoryShare() const override;
    SortStats run(const SortOnce& sortOnce) override;
    SortStats shape(const SortOnce& sortOnce) override;

  private:
    std::optional<TopFilter> filter() const;

    std::unique_ptr<KeyedInput> input_;
    Setting setting_;
    std::unique_ptr<RowWriter> writer_;
    KeyRecord::Form form_;
};

// How its rows are put in order.
SettledOrder::Setting orderOf(const OrderedSort::Setting& setting, const KeyRecord::Form& form);

// Of the memory, for rows on their way out that were left in their inputs.
inline constexpr std::uint64_t kFetchShare = 4;

}  // namespace tvsort::tools

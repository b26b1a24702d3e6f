// The order of rows by their whole keys, in as many requests as that takes.
//
//     round 1    the first bytes of every key      -> rows settled, runs of rows that are alike
//     round 2    run by run, the bytes that follow -> the same
//     ...                                             until no run is left
//
// Each round reads the bytes that it needs from the inputs again, by the rows' places. Its width is
// chosen by how many rows are left, so long keys that only a few rows have are compared in long
// pieces. From the third round on what all rows of a run have in common is looked for first and
// passed over: two lines of a gigabyte that differ in their last bytes are read once more, not
// compared in a million rounds.
//
//     files      round 1   row row [run of 3] row       entries, in order (run_splitter.h)
//                round 2   row [run of 2]
//                round 3   row row
//     result     row row row row row row                each run is what the next round has of it
//
// So memory is bounded, however long keys are and however many rows are alike.

#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "tools/formats/keyed_input.h"
#include "tools/ordered/key_record.h"
#include "tools/ordered/run_splitter.h"
#include "tools/ordered/top_filter.h"
#include "tools/run/sort_once.h"

namespace tvsort::tools {

class SettledOrder {
  public:
    struct Setting {
        KeyRecord::Form form;  // of the first round
        std::filesystem::path tempDirectory;
        std::size_t batchBytes;      // for keys of further rounds
        std::size_t recordBytesMax;  // of their records
        std::size_t processCount;
        TopFilter* filter;  // null: every row is wanted
        // Every row is kept until all have their places, so that they can be looked at twice.
        bool isKept;
    };

    SettledOrder(KeyedInput& input, const Setting& setting);

    const KeyRecord& record() const { return record_; }
    std::int64_t readCount() const { return readCount_; }

    // All rounds. Rows go to `take` in order, those of the last ones when no run is left.
    SortStats sort(const SortOnce& sortOnce, const TakeSettled& take);
    // The kept rows once more.
    void repeat(const TakeSettled& take);

  private:
    struct Level {
        SpoolReader entries;
        std::uint64_t rowsLeft;  // of the run that is read
    };

    SortStats firstRound(const SortOnce& sortOnce, const TakeSettled& take);
    SortStats nextRound(const SortOnce& sortOnce, bool passesCommonOver);
    host::RecordSource firstSource();
    std::function<std::size_t(const Byte*)> firstParts();
    // Reads a row of the deepest level that has one; false when nothing is left.
    bool nextSettled(SettledRow& row);

    KeyedInput& input_;
    Setting setting_;
    KeyRecord record_;
    std::int64_t readCount_ = 0;
    std::uint64_t longestKey_ = 0;  // bytes, as far as they were seen
    std::unique_ptr<OpenRuns> runs_;
    std::vector<Level> levels_;
    std::size_t depth_ = 0;
    std::vector<Byte> text_;
};

}  // namespace tvsort::tools

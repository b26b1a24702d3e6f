// Sorted runs as one: the rows of all of them in the order of their whole keys, equal ones in the
// order of their runs.
//
// First bytes of keys decide nearly always; where they are alike and the keys go on, whole keys are
// made of the rows.

#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tools/formats/keyed_input.h"
#include "tools/ordered/sorted_run.h"
#include "tools/run/loser_tree.h"

namespace tvsort::tools {

class RunMerge {
  public:
    // `bufferBytes`: for each run in a file. All that is passed is needed as long as it merges.
    RunMerge(const RunForm& form, std::span<const SortedRun> runs, RowReader& reader,
             std::size_t bufferBytes);

    // Before the first row of the range, whose words are needed until another one.
    void start(const RunCursor::Range& range);

    // The next row; null behind the last one. Good until the next call.
    const RunRow* next();

  private:
    struct Source {
        std::unique_ptr<RunCursor> cursor;
        std::uint64_t keyHead;
        bool hasRow;
    };
    void advance(Source& source);
    bool precedes(std::size_t left, std::size_t right);
    int compareWhole(RunCursor& left, RunCursor& right);

    const RunForm& form_;
    RowReader& reader_;
    std::vector<Source> sources_;
    LoserTree tree_;
    bool isStarted_ = false;
};

// By whole keys: below zero where the left one stands before, zero where they are equal. Both were
// found by the reader's input, and their first bytes are alike.
int compareByPlaces(RowReader& reader, const RowPlace& left, const RowPlace& right);

}  // namespace tvsort::tools

// Sorted runs as one: the rows of all of them in the order of their whole keys, equal ones in the
// order of their runs.
//
// A tree of losers (Knuth, The Art of Computer Programming 3, 5.4.1) finds the next row with one
// comparison a level. First bytes of keys decide nearly always; where they are alike and the keys
// go on, whole keys are made of the rows.

#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tools/formats/keyed_input.h"
#include "tools/ordered/sorted_run.h"

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
    std::size_t play(std::size_t node);

    const RunForm& form_;
    RowReader& reader_;
    std::vector<Source> sources_;
    // Of the matches, from 1 on; match n is played by the winners of 2 n and 2 n + 1, of which
    // those from sources_.size() on are the sources.
    std::vector<std::size_t> losers_;
    std::size_t winner_ = 0;
    bool isStarted_ = false;
};

// The whole key of a row that was found by the reader's input: at hand, as that of a row that is
// held has to be, whose place a file may not tell; or to be read where the row lies.
struct WholeKey {
    const host::KeyBytes* held;  // null: it is read
    RowPlace place;
};

// Below zero where the left one stands before, zero where they are equal.
int compareWholeKeys(RowReader& reader, const WholeKey& left, const WholeKey& right);

}  // namespace tvsort::tools

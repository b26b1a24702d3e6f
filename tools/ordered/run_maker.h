// Makes sorted runs of pieces of the inputs: one worker, with a slot of its own.
//
//     window   [ rows as they lie in the input ......... ]
//     slot     [ key, place ] [ key, place ] ...           sorted by the process
//
// Rows whose keys are alike in their first bytes and go on are groups. They are settled in further
// rounds, through the process again: by the number of their group, and the bytes of the key that
// follow. From the third round on what all rows of a group have in common is looked for first and
// passed over: two lines of a gigabyte that differ in their last bytes are read once more, not
// compared in a million rounds.

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/formats/keyed_input.h"
#include "tools/ordered/input_chunks.h"
#include "tools/ordered/run_plan.h"
#include "tools/ordered/sorted_run.h"
#include "tools/ordered/top_filter.h"
#include "tools/run/sort_once.h"

namespace tvsort::tools {

// Where a run belongs in the order of reading.
struct RunNumber {
    std::size_t chunk;
    std::size_t part;
    auto operator<=>(const RunNumber&) const = default;
};

// What has been read of a chunk.
struct ReadRows {
    struct Problem {
        std::uint64_t offset;  // of the row
        std::string words;
    };
    std::int64_t count = 0;
    std::int64_t problemCount = 0;
    // As many as anybody names. To name a row its input is read from the start, so that is for
    // later, when it is known which are the first of all.
    std::vector<Problem> problems;
};

class RunMaker {
  public:
    struct Setting {
        const KeyedInput& input;
        const RunForm& form;
        const RunPlan& plan;
        std::size_t slotIndex;
        const SortOnce& sortOnce;
        // Takes a run, whose text the window still holds where it is not kept.
        std::function<void(RunNumber, SortedRun)> keep;
        // Whether a run of so many bytes stays in memory; else it is written to `file`.
        std::function<bool(std::uint64_t)> mayStay;
        SpoolFile& file;
        Progress& progress;
    };

    RunMaker(const Setting& setting, const RowErrors& errors, std::optional<TopFilter> filter);

    // Until no chunk is left.
    void work(InputChunks& chunks);

    SortStats& stats() { return stats_; }
    // By chunk.
    const std::map<std::size_t, ReadRows>& readRows() const { return readRows_; }

  private:
    struct Group {
        std::uint64_t first;  // of its rows in the run
        std::uint64_t count;
        std::uint64_t depth;  // bytes of the keys that are known to be alike
    };
    // Finds groups among rows that come in order.
    struct GroupFinder {
        std::vector<Group> groups;
        bool isInGroup = false;
        // `isAlike`: the row is to the one before it, and their keys go on.
        void take(std::uint64_t index, bool isAlike, std::uint64_t depth);
    };
    struct Misguessed {
        std::uint64_t firstRow;
    };

    void readChunk(const InputChunk& chunk);
    std::uint64_t guessFirstRow();
    void makeRun();
    // The next row of the run; false where it ends.
    bool nextRow(KeyedRow& row);
    // Lays it into a record. False for one that is not wanted.
    bool encode(const KeyedRow& row, Byte* target);
    // What was guessed is certain, or thrown.
    void confirm();
    // Of the row that was found there.
    void takeProblem(std::uint64_t offset);
    // For records: what the run before has left, if it is enough.
    PageMemory roomFor(std::size_t byteCount);
    void checkPlace(const RowPlace& place) const;
    std::vector<Group> groupsOf(const SortedRun& run) const;
    void settle(SortedRun& run, std::vector<Group> groups);
    std::vector<Group> settleOnce(SortedRun& run, const std::vector<Group>& groups);
    RecordRow rowAt(const SortedRun& run, std::uint64_t index) const;
    std::uint64_t commonBytes(const SortedRun& run, const Group& group);
    void store(SortedRun run);
    void writeToFile(SortedRun& run);

    Setting setting_;
    std::unique_ptr<RowReader> reader_;
    RowErrors policy_;
    std::optional<TopFilter> filter_;
    TextWindow window_;
    PageMemory records_;  // that nobody needs
    SortStats stats_;
    std::map<std::size_t, ReadRows> readRows_;
    // Of the chunk that is read.
    InputChunks* chunks_ = nullptr;
    InputChunk chunk_ = {};
    ReadRows* read_ = nullptr;
    std::uint64_t firstRow_ = 0;
    bool isCertain_ = false;
    bool hasEnded_ = false;
    std::size_t partNumber_ = 0;
    // Of the run.
    std::uint64_t rowCount_ = 0;
    bool isFull_ = false;
    std::uint64_t nextOffset_ = 0;  // of the row behind it
};

}  // namespace tvsort::tools

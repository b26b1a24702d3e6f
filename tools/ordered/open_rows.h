// The rows of open runs on their way into the next round.

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/data_set.h"
#include "tools/files/spool_reader.h"
#include "tools/formats/keyed_input.h"
#include "tools/ordered/key_record.h"
#include "tools/ordered/run_splitter.h"

namespace tvsort::tools {

class OpenRows {
  public:
    // `batchBytes`: for records that are made at a time, in the order of their places.
    OpenRows(OpenRuns& runs, KeyedInput& input, std::size_t batchBytes);

    // Puts the start of each run behind what all of its rows have in common.
    void passCommonOver(const std::filesystem::path& directory);

    // Records of all rows, in any order.
    host::RecordSource source(const KeyRecord& record);
    // Back to the first run, for `startOf`.
    void rewind();
    // The start of a run; runs must be asked for in order. A number that no run has is
    // kProtocolBroken.
    std::uint64_t startOf(std::uint64_t run);

  private:
    struct Row {
        RowPlace place;
        std::uint64_t run;
        std::uint64_t start;
    };

    // Its run has a number from 0 on.
    bool next(Row& row);
    // Bytes from `start` on that both keys have, `limit` at most.
    std::uint64_t commonBytes(const Row& left, const Row& right, std::uint64_t limit);
    void fillBatch();

    KeyedInput& input_;
    std::size_t batchBytes_;
    SpoolReader rows_;
    std::optional<SpoolReader> starts_;
    std::uint64_t runCount_;
    std::uint64_t nextRun_ = 0;
    std::uint64_t start_ = 0;
    std::vector<Row> batch_;
    std::size_t batchNext_ = 0;
};

}  // namespace tvsort::tools

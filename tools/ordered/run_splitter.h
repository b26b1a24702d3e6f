// A round's records, in order, into rows that have their places and runs that have not.
//
//     key bytes   goes on
//     aab         no         settled
//     aab         no         settled, equal to the one before
//     abc         yes        alone with these bytes: settled
//     abd         yes   |    a run: the next round orders its rows by the bytes that follow
//     abd         yes   |
//
// As long as there is no run, settled rows go on at once. From the first run on they are kept in
// files, small entries in order, until the runs between them are settled.

#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/spool_reader.h"
#include "tools/formats/row_place.h"
#include "tools/ordered/key_record.h"

namespace tvsort::tools {

// A row in its final place.
struct SettledRow {
    RowPlace place = {};
    bool isEqual = false;  // to the row before it, in all keys
    bool hasNull = false;
    bool isHeld = false;
    std::string_view text;  // where it is held
};

using TakeSettled = std::function<void(const SettledRow&)>;

// Rows in need of another round, run by run.
struct OpenRuns {
    struct Row {
        std::uint64_t offset;
        std::uint32_t byteCount;
        std::uint32_t startsRun;
    };

    explicit OpenRuns(const std::filesystem::path& directory)
        : rows(directory), starts(directory) {}

    SpoolFile rows;  // of Row
    SpoolFile
        starts;  // of u64: the byte of the key from which the rows of a run are to be compared
    std::uint64_t rowCount = 0;
    std::uint64_t runCount = 0;
};

// What a round has settled, as entries in order.
struct SettledEntry {
    std::uint64_t offset;     // of a row; rows of a run
    std::uint32_t byteCount;  // of a row
    std::uint8_t kind;
    std::uint8_t isEqual;
    std::uint8_t hasNull;
    std::uint8_t isHeld;  // the row itself follows

    static constexpr std::uint8_t kRow = 0;
    static constexpr std::uint8_t kRun = 1;
};

class RunSplitter {
  public:
    // `startOf`: where in its rows' keys the bytes of a run's records start. Rows go to `take`
    // until the first run comes; without it, none do.
    RunSplitter(const KeyRecord& record, std::function<std::uint64_t(std::uint64_t run)> startOf,
                TakeSettled take, std::filesystem::path directory);

    void take(const Byte* record);
    // No record follows.
    void finish();

    // Null where every row went to `take`.
    std::unique_ptr<SpoolFile> takeEntries() { return std::move(entries_); }
    // Null where there are none.
    std::unique_ptr<OpenRuns> takeRuns() { return std::move(runs_); }

  private:
    void settle(const RecordRow& row, bool isEqual);
    void endRun();
    void addToRun(const RecordRow& row, bool startsRun);

    const KeyRecord& record_;
    std::function<std::uint64_t(std::uint64_t run)> startOf_;
    TakeSettled take_;
    std::filesystem::path directory_;
    std::vector<Byte> last_;     // the record before
    bool any_ = false;           // there is one
    std::uint64_t start_ = 0;    // of its bytes in the key
    std::uint64_t runRows_ = 0;  // with its bytes, where its key goes on
    std::unique_ptr<SpoolFile> entries_;
    std::unique_ptr<OpenRuns> runs_;
};

}  // namespace tvsort::tools

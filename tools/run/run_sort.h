// A plain sort of typed records by several processes: each sorts runs that fit its slot, and the
// runs are merged.
//
//     records -> slot 1 -> sorted -> (file) --+
//             -> slot 2 -> sorted -> (file) --+-> merged -> result
//             -> slot 1 ...
//
// While a process sorts its run another slot is loaded. A run leaves its slot for a file when the
// slot is wanted for another one; the last ones are merged from where they are. A byte of records
// is written to a file and read from it once at most, and once more where there are hundreds of
// runs, whose buffers would take more memory.
//
// Stable: runs are as large as the ways that keep the order of arrival allow (host/sort_method.h),
// and of equal records those of an earlier run come first. Records are compared by their keys as
// host/record_order.h has them, which leaves out what it cannot judge (`splitHindrance`).

#pragma once

#include <filesystem>
#include <memory>
#include <span>
#include <thread>
#include <vector>

#include "host/data_set.h"
#include "host/record_order.h"
#include "host/sort_server.h"
#include "tools/files/progress.h"
#include "tools/files/spool_file.h"
#include "tools/run/sort_once.h"
#include "tools/run/sort_stats.h"

namespace tvsort::tools {

class RunSort {
  public:
    // Uses all slots of the server. Runs in files lie in `directory`.
    RunSort(host::SortServer& server, std::filesystem::path directory, Progress& progress);

    // Whether a slot holds a run that keeps the order of arrival: two times as many records as the
    // process wants for that. Large records in little memory do not.
    bool holdsRuns(const SortRequest& request) const;
    // As SlotSort has it, for requests of the plain mode without a limit whose runs a slot holds.
    SortStats sort(const SortRequest& request, const host::RecordSource& source,
                   const host::RecordSink& sink);

  private:
    // What a slot holds.
    struct Load {
        std::size_t runNumber = 0;
        host::LoadedData data;
        bool isFull = false;
        std::exception_ptr failure;
        SortReply reply = {};
        host::ProcessUsage before;
        host::ProcessUsage after;
        std::jthread sorting;  // last, for it writes the others until it is joined
    };
    struct Run {
        std::size_t slotIndex = 0;  // where it is in a slot
        bool isInFile = false;
        std::uint64_t begin = 0;  // in the file
        std::uint64_t recordCount = 0;
    };
    class Cursor;

    std::int32_t runRecordsMax(const SortRequest& request) const;
    // False when no record was left.
    bool load(std::size_t slotIndex, const host::RecordSource& source);
    // Until `left` is none, or nothing comes.
    void fill(host::RecordLoader& loader, const host::RecordSource& source, std::size_t& left);
    void readAhead(const host::RecordSource& source, std::size_t recordsMax);
    std::size_t takeAhead(Byte* target, std::size_t recordsMax);
    void startSorting(std::size_t slotIndex, const host::RequestBuilder& request);
    // Waits for the slot's process, and throws what went wrong.
    void finishSorting(std::size_t slotIndex);
    void writeToFile(std::size_t slotIndex);
    // Merges runs to files until the rest can be merged at once.
    void mergeLevels(const host::RequestBuilder& request);
    void merge(const host::RequestBuilder& request, std::span<const Run> runs,
               const host::RecordSink& sink);
    void addLoad(const Load& load);
    host::SortSlot& slotOf(std::size_t slotIndex);

    host::SortServer& server_;
    std::filesystem::path directory_;
    Progress& progress_;
    // Of the request.
    host::Geometry geometry_;
    std::int32_t recordsMax_ = 0;  // of a run
    std::vector<Load> loads_;
    std::vector<Run> runs_;
    std::vector<Byte> ahead_;  // records that are read, and not loaded
    std::unique_ptr<SpoolFile> file_;
    SortStats stats_;
};

}  // namespace tvsort::tools

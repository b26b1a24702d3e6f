// What a sort did and what its stages cost, for people and for machines.

#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tvsort::tools {

// Of a stage of a command.
struct StageCost {
    double elapsedSeconds = 0;
    double cpuSeconds = 0;  // of this command and of the sort processes

    StageCost& operator+=(const StageCost& other) {
        elapsedSeconds += other.elapsedSeconds;
        cpuSeconds += other.cpuSeconds;
        return *this;
    }
};

struct SortStats {
    std::int64_t readCount = 0;       // records that came out of the inputs
    std::int64_t recordCount = 0;     // records that were sorted
    std::int64_t resultCount = 0;     // records that the process left in the result
    std::int64_t writtenCount = 0;    // records in the output
    std::int64_t skippedCount = 0;    // rows that could not be read, where they are left out
    std::int64_t duplicateCount = 0;  // records removed for their equal keys, where that was asked
    std::int64_t groupCount = 0;      // of groups, where they were counted
    std::int64_t runCount = 0;        // sorted by themselves and merged, where there are runs
    std::int64_t roundCount = 1;      // in which keys were compared, piece by piece
    std::int64_t recordLength = 0;    // bytes
    std::int64_t recordsPerBlock = 0;
    std::int64_t blockBytes = 0;
    std::int64_t blockCount = 0;
    std::int64_t frameCount = 0;    // blocks that the memory holds
    bool fitted = true;             // the data set lived in the frames; no work file was used
    std::int64_t spilledBytes = 0;  // of the data set, laid into the work file for want of frames
    // Blocks that the process moved between work file and frames.
    std::int64_t blocksRead = 0;
    std::int64_t blocksWritten = 0;
    // Every process had restricted its own system calls.
    bool systemCallsFiltered = true;
    bool hugePages = false;  // hold the slots
    StageCost read;          // measuring the inputs, and copying what cannot be read twice
    StageCost load;          // laying records into memory and work file
    StageCost sort;          // waiting for the process, and what it computes
    StageCost write;         // the result
    std::int64_t processPeakBytes = 0;
    std::int64_t ownPeakBytes = 0;  // of the command; slots in shared memory count in both

    // Counts a later request of the same sort in: what was moved and how long it took adds up, the
    // data set and its result are the later one's.
    void addRequest(const SortStats& later);
};

class StageClock {
  public:
    StageClock();
    // The cost since the last call, or since the making. Processor time is this command's alone.
    StageCost lap();

  private:
    std::chrono::steady_clock::time_point begin_;
    double beginCpuSeconds_;
};

// The largest resident size of this command so far, the shared slots that it touched included.
std::int64_t ownPeakBytes();

std::string statsAsText(const SortStats& stats);
// One object, one line; the names are the fields' in snake case.
std::string statsAsJson(const SortStats& stats);

}  // namespace tvsort::tools

// What a sort did, for people and for machines.

#pragma once

#include <cstdint>
#include <string>

namespace tvsort::tools {

struct SortStats {
    std::int64_t recordCount = 0;
    std::int64_t resultCount = 0;   // records that the process left in the result
    std::int64_t groupCount = 0;    // of groups, where they were counted
    std::int64_t recordLength = 0;  // bytes
    std::int64_t recordsPerBlock = 0;
    std::int64_t blockBytes = 0;
    std::int64_t blockCount = 0;
    std::int64_t frameCount = 0;    // blocks that the memory holds
    bool fitted = true;             // the data set lived in the frames; no work file was used
    std::int64_t spilledBytes = 0;  // of the data set, laid into the work file for want of frames
    // Blocks that the process moved between work file and frames.
    std::int64_t blocksRead = 0;
    std::int64_t blocksWritten = 0;
    double loadSeconds = 0;
    double sortSeconds = 0;
    double writeSeconds = 0;
    std::int64_t processPeakBytes = 0;

    // Counts a later request of the same sort in: what was moved and how long it took adds up, the
    // data set and its result are the later one's.
    void addRequest(const SortStats& later);
};

std::string statsAsText(const SortStats& stats);
// One object, one line; the names are the fields' in snake case.
std::string statsAsJson(const SortStats& stats);

}  // namespace tvsort::tools

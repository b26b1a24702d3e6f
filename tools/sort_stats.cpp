#include "tools/sort_stats.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tvsort::tools {

void SortStats::addRequest(const SortStats& later) {
    const SortStats earlier = *this;
    *this = later;
    fitted = earlier.fitted && later.fitted;
    spilledBytes += earlier.spilledBytes;
    blocksRead += earlier.blocksRead;
    blocksWritten += earlier.blocksWritten;
    loadSeconds += earlier.loadSeconds;
    sortSeconds += earlier.sortSeconds;
    writeSeconds += earlier.writeSeconds;
    processPeakBytes = std::max(earlier.processPeakBytes, later.processPeakBytes);
}

std::string statsAsText(const SortStats& stats) {
    return fmt::format(
        "records          {} of {} bytes\n"
        "result           {} records\n"
        "blocks           {} of {} bytes, {} records each\n"
        "frames           {}\n"
        "fitted           {}\n"
        "spilled          {} bytes\n"
        "blocks read      {}\n"
        "blocks written   {}\n"
        "load             {:.3f} s\n"
        "sort             {:.3f} s\n"
        "write            {:.3f} s\n"
        "process memory   {} bytes at its peak\n",
        stats.recordCount, stats.recordLength, stats.resultCount, stats.blockCount,
        stats.blockBytes, stats.recordsPerBlock, stats.frameCount, stats.fitted ? "yes" : "no",
        stats.spilledBytes, stats.blocksRead, stats.blocksWritten, stats.loadSeconds,
        stats.sortSeconds, stats.writeSeconds, stats.processPeakBytes);
}

std::string statsAsJson(const SortStats& stats) {
    const nlohmann::ordered_json json = {
        {"record_count", stats.recordCount},
        {"record_length", stats.recordLength},
        {"result_count", stats.resultCount},
        {"group_count", stats.groupCount},
        {"records_per_block", stats.recordsPerBlock},
        {"block_bytes", stats.blockBytes},
        {"block_count", stats.blockCount},
        {"frame_count", stats.frameCount},
        {"fitted", stats.fitted},
        {"spilled_bytes", stats.spilledBytes},
        {"blocks_read", stats.blocksRead},
        {"blocks_written", stats.blocksWritten},
        {"load_seconds", stats.loadSeconds},
        {"sort_seconds", stats.sortSeconds},
        {"write_seconds", stats.writeSeconds},
        {"process_peak_bytes", stats.processPeakBytes},
    };
    return json.dump() + "\n";
}

}  // namespace tvsort::tools

#include "tools/run/sort_stats.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "tools/files/byte_units.h"

namespace tvsort::tools {

namespace {

std::array<std::pair<std::string_view, StageCost>, 4> stagesOf(const SortStats& stats) {
    return {
        {{"read", stats.read}, {"load", stats.load}, {"sort", stats.sort}, {"write", stats.write}}};
}

rusage ownUsage() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage;
}

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

double ownCpuSeconds() {
    const rusage usage = ownUsage();
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

}  // namespace

StageClock::StageClock()
    : begin_(std::chrono::steady_clock::now()), beginCpuSeconds_(ownCpuSeconds()) {}

StageCost StageClock::lap() {
    const StageClock now;
    const std::chrono::duration<double> passed = now.begin_ - begin_;
    const StageCost cost = {passed.count(), now.beginCpuSeconds_ - beginCpuSeconds_};
    *this = now;
    return cost;
}

std::int64_t ownPeakBytes() {
    return std::int64_t{ownUsage().ru_maxrss} * 1024;
}

void SortStats::addRequest(const SortStats& later) {
    const SortStats earlier = *this;
    *this = later;
    fitted = earlier.fitted && later.fitted;
    spilledBytes += earlier.spilledBytes;
    systemCallsFiltered = earlier.systemCallsFiltered && later.systemCallsFiltered;
    blocksRead += earlier.blocksRead;
    blocksWritten += earlier.blocksWritten;
    read += earlier.read;
    load += earlier.load;
    sort += earlier.sort;
    write += earlier.write;
    processPeakBytes = std::max(earlier.processPeakBytes, later.processPeakBytes);
}

std::string statsAsText(const SortStats& stats) {
    std::string text = fmt::format(
        "records read     {}\n"
        "records sorted   {} of {} bytes\n"
        "records written  {}\n",
        stats.readCount, stats.recordCount, stats.recordLength, stats.writtenCount);
    if (stats.skippedCount > 0) text += fmt::format("rows skipped     {}\n", stats.skippedCount);
    if (stats.duplicateCount > 0) {
        text += fmt::format("duplicates       {} removed\n", stats.duplicateCount);
    }
    if (stats.groupCount > 0) text += fmt::format("groups           {}\n", stats.groupCount);
    if (stats.runCount > 0) text += fmt::format("runs             {}\n", stats.runCount);
    if (stats.roundCount > 1) text += fmt::format("rounds           {}\n", stats.roundCount);
    text += fmt::format(
        "blocks           {} of {} bytes, {} records each\n"
        "frames           {}\n"
        "fitted           {}\n"
        "spilled          {}\n"
        "blocks read      {}\n"
        "blocks written   {}\n"
        "filter           {}\n"
        "huge pages       {}\n",
        stats.blockCount, stats.blockBytes, stats.recordsPerBlock, stats.frameCount,
        stats.fitted ? "yes" : "no", inUnits(stats.spilledBytes), stats.blocksRead,
        stats.blocksWritten, stats.systemCallsFiltered ? "on" : "off",
        stats.hugePages ? "yes" : "no");
    for (const auto& [name, cost] : stagesOf(stats)) {
        text += fmt::format("{:<16} {:.3f} s, CPU {:.3f} s\n", name, cost.elapsedSeconds,
                            cost.cpuSeconds);
    }
    return text + fmt::format(
                      "process memory   {} at its peak\n"
                      "command memory   {} at its peak\n",
                      inUnits(stats.processPeakBytes), inUnits(stats.ownPeakBytes));
}

std::string statsAsJson(const SortStats& stats) {
    nlohmann::ordered_json json = {
        {"read_count", stats.readCount},
        {"record_count", stats.recordCount},
        {"record_length", stats.recordLength},
        {"result_count", stats.resultCount},
        {"written_count", stats.writtenCount},
        {"skipped_count", stats.skippedCount},
        {"duplicate_count", stats.duplicateCount},
        {"group_count", stats.groupCount},
        {"run_count", stats.runCount},
        {"round_count", stats.roundCount},
        {"records_per_block", stats.recordsPerBlock},
        {"block_bytes", stats.blockBytes},
        {"block_count", stats.blockCount},
        {"frame_count", stats.frameCount},
        {"fitted", stats.fitted},
        {"spilled_bytes", stats.spilledBytes},
        {"blocks_read", stats.blocksRead},
        {"blocks_written", stats.blocksWritten},
        {"system_calls_filtered", stats.systemCallsFiltered},
        {"huge_pages", stats.hugePages},
    };
    for (const auto& [name, cost] : stagesOf(stats)) {
        json[fmt::format("{}_seconds", name)] = cost.elapsedSeconds;
        json[fmt::format("{}_cpu_seconds", name)] = cost.cpuSeconds;
    }
    json["process_peak_bytes"] = stats.processPeakBytes;
    json["command_peak_bytes"] = stats.ownPeakBytes;
    return json.dump() + "\n";
}

}  // namespace tvsort::tools

// A contest: the process and its peers sort the same records in turn, several rounds long, so that
// whatever else the machine does meets all of them.
//
// A ratio is a contender's time by the process's time of the same round: above 1 the process is
// faster.

#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "bench/measured_process.h"
#include "bench/situation.h"
#include "bench/statistics.h"
#include "bench/workload.h"

namespace tvsort::bench {

// Wall is what a user waits for; processor time is what is left of it on a machine that others use
// as well.
enum class Clock : std::uint8_t { kWall, kCpu };

// "time" or "processor time".
const char* nameOf(Clock clock);

struct Options {
    std::filesystem::path process;
    std::filesystem::path resultDirectory;
    std::filesystem::path workDirectory;
    std::size_t recordCount = 1'000'000;
    int rounds = 5;
    std::int32_t blockPages = 8;
    Clock clock = Clock::kWall;  // of the printed times and multiples
    bool small = false;
};

struct Series {
    std::string name;
    bool sorts = true;
    std::vector<Cost> costs;  // by round
};

// One request in each round, after one that is not counted. The first series is the process's;
// `peers` follow. Every result is verified.
std::vector<Series> runContest(const Options& options, const Workload& workload,
                               const Situation& situation, std::span<const Byte> records,
                               std::span<const Peer> peers);

// The process alone, on `recordCount` records of the workload.
Series runAlone(const Options& options, const Workload& workload, const Situation& situation,
                std::size_t recordCount);

double medianSeconds(const Series& series, Clock clock);
// By rounds.
Spread ratioOf(const Series& contender, const Series& process, Clock clock);
// Nanoseconds per record.
double perRecord(double seconds, std::size_t recordCount);
// The same by the binary logarithm of the count: what a comparison sort spends per level.
double perRecordAndLevel(double seconds, std::size_t recordCount);

}  // namespace tvsort::bench

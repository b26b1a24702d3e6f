// A contest: the process, other builds of it and their peers sort the same records in turn, several
// rounds long, so that whatever else the machine does meets all of them.
//
// A ratio is a contender's time by the process's time of the same round: above 1 the process is
// faster.

#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
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

struct Build {
    std::string name;
    std::filesystem::path program;
};

struct Options {
    std::vector<Build> builds;  // the measured one, and those beside it
    std::filesystem::path resultDirectory;
    std::filesystem::path workDirectory;
    std::size_t recordCount = 1'000'000;
    int rounds = 3;
    std::int32_t blockPages = 8;
    Clock clock = Clock::kWall;  // of the printed times and multiples
    bool small = false;
    std::filesystem::path nodeModules;    // with other engines, for those who have them
    std::optional<PeerSet> peers;         // instead of those that a table has
    std::vector<std::string> workloads;   // names or parts of names; none for all
    std::vector<std::string> situations;  // likewise
};

// Those of `all` that are wanted: by their name, or else by a part of it.
template <typename Named>
std::vector<Named> chosen(const std::vector<Named>& all, const std::vector<std::string>& wanted) {
    const auto isNamed = [&](const std::string& text) {
        return std::any_of(all.begin(), all.end(),
                           [&](const Named& one) { return one.name == text; });
    };
    std::vector<Named> taken;
    for (const Named& one : all) {
        if (wanted.empty() ||
            std::any_of(wanted.begin(), wanted.end(), [&](const std::string& text) {
                return one.name == text ||
                       (one.name.find(text) != std::string::npos && !isNamed(text));
            })) {
            taken.push_back(one);
        }
    }
    return taken;
}

enum class Role : std::uint8_t { kBuild, kSort, kLimit };

struct Series {
    std::string name;
    Role role;
    // By round, the latter of a build's first request in a new slot, or of a peer in memory that
    // nobody has touched.
    std::vector<Cost> costs;
    std::vector<Cost> firstCosts;
};

// The builds' series, that of the measured one in front, then the peers'.
using Contest = std::vector<Series>;

// In each round every build serves two requests in a new slot of each situation, and then each peer
// sorts for all situations. A contest for each situation; every result is verified.
std::vector<Contest> runContests(const Options& options, const Workload& workload,
                                 const std::vector<Situation>& situations,
                                 std::span<const Byte> records, std::span<const Peer> peers);

// The contest of the first requests.
Contest firstRequests(Contest contest);

// The measured build alone, on `recordCount` records of the workload.
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

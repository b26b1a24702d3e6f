#include "bench/contest.h"

#include <time.h>

#include <chrono>
#include <cmath>

#include "bench/verification.h"

namespace tvsort::bench {

namespace {

double ownCpuSeconds() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

Cost runPeer(const Peer& peer, PeerArrays& arrays, std::span<const Byte> records,
             const Verification& verification) {
    std::copy(records.begin(), records.end(), arrays.records.begin());
    Cost cost;
    const double cpuStart = ownCpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    const Byte* const result = peer.run(arrays);
    const auto end = std::chrono::steady_clock::now();
    cost.cpuSeconds = ownCpuSeconds() - cpuStart;
    cost.wallSeconds = std::chrono::duration<double>(end - start).count();
    if (peer.kind == PeerKind::kLimit) {
        verification.checkPermutation({result, records.size()}, peer.name);
    } else {
        verification.checkSorted({result, records.size()}, peer.name);
    }
    return cost;
}

Contest emptyContest(const Options& options, std::span<const Peer> peers) {
    Contest contest;
    for (const Build& build : options.builds)
        contest.push_back({build.name, Role::kBuild, {}, {}});
    for (const Peer& peer : peers) {
        const Role role = peer.kind == PeerKind::kLimit ? Role::kLimit : Role::kSort;
        contest.push_back({peer.name, role, {}, {}});
    }
    return contest;
}

double secondsOf(const Cost& cost, Clock clock) {
    return clock == Clock::kWall ? cost.wallSeconds : cost.cpuSeconds;
}

}  // namespace

const char* nameOf(Clock clock) {
    return clock == Clock::kWall ? "time" : "processor time";
}

std::vector<Contest> runContests(const Options& options, const Workload& workload,
                                 const std::vector<Situation>& situations,
                                 std::span<const Byte> records, std::span<const Peer> peers) {
    const std::size_t recordCount = records.size() / workload.recordLength;
    const host::Geometry geometry = host::chooseGeometry(workload.recordLength, options.blockPages);
    const Verification verification(workload, records);
    PeerArrays arrays(peers.empty() ? 0 : recordCount, workload.recordLength);
    std::vector<Byte> result(records.size());
    std::vector<Contest> contests(situations.size(), emptyContest(options, peers));
    for (int round = 0; round < options.rounds; ++round) {
        for (std::size_t s = 0; s < situations.size(); ++s) {
            for (std::size_t b = 0; b < options.builds.size(); ++b) {
                const Build& build = options.builds[b];
                const std::string who =
                    build.name + ", " + workload.name + ", " + situations[s].name;
                MeasuredProcess process(build.program, geometry,
                                        memoryPagesFor(situations[s], geometry, recordCount),
                                        options.workDirectory);
                Series& series = contests[s][b];
                series.firstCosts.push_back(process.sort(workload.request, records, result));
                verification.checkSorted(result, who);
                if (round == 0) verification.checkByRequest(result, who);
                series.costs.push_back(process.sort(workload.request, records, result));
                verification.checkSorted(result, who);
            }
        }
        for (std::size_t p = 0; p < peers.size(); ++p) {
            arrays.renewScratch();
            const Cost first = runPeer(peers[p], arrays, records, verification);
            const Cost later = peers[p].kind == PeerKind::kInPlace
                                   ? first
                                   : runPeer(peers[p], arrays, records, verification);
            for (Contest& contest : contests) {
                contest[options.builds.size() + p].firstCosts.push_back(first);
                contest[options.builds.size() + p].costs.push_back(later);
            }
        }
    }
    return contests;
}

Contest firstRequests(Contest contest) {
    for (Series& series : contest)
        series.costs = series.firstCosts;
    return contest;
}

Series runAlone(const Options& options, const Workload& workload, const Situation& situation,
                std::size_t recordCount) {
    Options alone = options;
    alone.builds.resize(1);
    const std::vector<Byte> records = makeRecords(workload, recordCount);
    return runContests(alone, workload, {situation}, records, {})[0][0];
}

double medianSeconds(const Series& series, Clock clock) {
    std::vector<double> seconds;
    for (const Cost& cost : series.costs)
        seconds.push_back(secondsOf(cost, clock));
    return spreadOf(seconds).median;
}

Spread ratioOf(const Series& contender, const Series& process, Clock clock) {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < process.costs.size(); ++round) {
        ratios.push_back(secondsOf(contender.costs[round], clock) /
                         secondsOf(process.costs[round], clock));
    }
    return spreadOf(ratios);
}

double perRecord(double seconds, std::size_t recordCount) {
    return seconds * 1e9 / static_cast<double>(recordCount);
}

double perRecordAndLevel(double seconds, std::size_t recordCount) {
    return perRecord(seconds, recordCount) / std::log2(static_cast<double>(recordCount));
}

}  // namespace tvsort::bench

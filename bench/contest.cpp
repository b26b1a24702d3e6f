#include "bench/contest.h"

#include <time.h>

#include <chrono>
#include <cmath>
#include <memory>

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
    if (peer.sorts) {
        verification.checkSorted({result, records.size()}, peer.name);
    } else {
        verification.checkPermutation({result, records.size()}, peer.name);
    }
    return cost;
}

double secondsOf(const Cost& cost, Clock clock) {
    return clock == Clock::kWall ? cost.wallSeconds : cost.cpuSeconds;
}

}  // namespace

const char* nameOf(Clock clock) {
    return clock == Clock::kWall ? "time" : "processor time";
}

std::vector<Series> runContest(const Options& options, const Workload& workload,
                               const Situation& situation, std::span<const Byte> records,
                               std::span<const Peer> peers) {
    const std::size_t recordCount = records.size() / workload.recordLength;
    const host::Geometry geometry = host::chooseGeometry(workload.recordLength, options.blockPages);
    const std::int32_t memoryPages = memoryPagesFor(situation, geometry, recordCount);
    const Verification verification(workload, records);
    std::vector<Byte> result(records.size());
    std::vector<std::unique_ptr<MeasuredProcess>> processes(options.builds.size());
    PeerArrays arrays(peers.empty() ? 0 : recordCount, workload.recordLength);

    std::vector<Series> series;
    for (const Build& build : options.builds)
        series.push_back({build.name, Role::kBuild, {}});
    for (const Peer& peer : peers)
        series.push_back({peer.name, peer.sorts ? Role::kSort : Role::kLimit, {}});
    for (int round = 0; round < options.rounds; ++round) {
        auto next = series.begin();
        for (std::size_t i = 0; i < processes.size(); ++i, ++next) {
            const std::string who = next->name + ", " + workload.name + ", " + situation.name;
            if (round == 0 || situation.fresh) {
                processes[i].reset();
                processes[i] = std::make_unique<MeasuredProcess>(
                    options.builds[i].program, geometry, memoryPages, options.workDirectory);
            }
            if (round == 0 && !situation.fresh) {
                processes[i]->sort(workload.request, records, result);
                verification.checkByRequest(result, who);
            }
            next->costs.push_back(processes[i]->sort(workload.request, records, result));
            verification.checkSorted(result, who);
        }
        for (const Peer& peer : peers) {
            if (situation.fresh) arrays.renewScratch();
            (next++)->costs.push_back(runPeer(peer, arrays, records, verification));
        }
    }
    return series;
}

Series runAlone(const Options& options, const Workload& workload, const Situation& situation,
                std::size_t recordCount) {
    Options alone = options;
    alone.builds.resize(1);
    const std::vector<Byte> records = makeRecords(workload, recordCount);
    return runContest(alone, workload, situation, records, {}).front();
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

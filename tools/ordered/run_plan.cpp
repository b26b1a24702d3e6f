#include "tools/ordered/run_plan.h"

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "host/host_error.h"
#include "tools/run/memory_plan.h"
#include "tools/run/workers_for.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kSampleRows = 16384;
constexpr std::uint64_t kSampleBytes = std::uint64_t{8} << 20;
constexpr std::size_t kKeyBytesMin = 16;
constexpr std::size_t kKeyBytesMax = 64;
// One of so many neighbours may stay alike.
constexpr std::size_t kRareShare = 64;
// A worker has this much at least, whatever is granted.
constexpr std::uint64_t kWorkerBytesMin = std::uint64_t{64} << 10;
// Of an entry and of its second place, for each record (host/sort_method.h).
constexpr std::uint64_t kEntryBytes = 24;
constexpr std::uint64_t kCopiedBytesMax = 32;
constexpr std::uint64_t kRunRowsMin = std::uint64_t{1} << 16;
// Of all slots together. With larger ones fewer runs would have to be merged, but every page of a
// slot is touched twice for the first time, by the command and by the process, which costs more
// than the merge saves: 4 million rows with slots of 32, 64, 128 and 256 MiB took 1.43, 1.40, 1.28
// and 1.25 s of computing and 15, 18, 30 and 57 thousand page faults.
constexpr std::uint64_t kSlotBytesMax = std::uint64_t{128} << 20;
constexpr std::uint64_t kWindowReserve = std::uint64_t{64} * 1024;

struct Sample {
    std::vector<std::string> keys;
    std::uint64_t byteCount = 0;
    bool isAll = false;  // there are no other rows
};

Sample readSample(const KeyedInput& input) {
    Sample sample;
    // They are met again.
    RowErrors errors(kSkipOnError);
    RowStream rows(input, errors);
    KeyedRow row;
    try {
        while (sample.keys.size() < kSampleRows && sample.byteCount < kSampleBytes) {
            sample.isAll = !rows.next(row);
            if (sample.isAll) break;
            const std::size_t count = std::min(row.key->size(), kKeyBytesMax);
            sample.keys.emplace_back(row.key->begin(),
                                     row.key->begin() + static_cast<std::ptrdiff_t>(count));
            sample.byteCount += row.place.byteCount + 1;
        }
    } catch (const host::HostError&) {
        // Met again too, behind what ends the command before.
    }
    return sample;
}

// The value that all but a few do not exceed.
std::size_t nearlyMost(std::vector<std::size_t>& values) {
    if (values.empty()) return 0;
    const auto place = values.end() - 1 - static_cast<std::ptrdiff_t>(values.size() / kRareShare);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

std::size_t keyBytesFor(Sample& sample, std::uint64_t inputBytes) {
    std::sort(sample.keys.begin(), sample.keys.end());
    std::size_t longest = 1;
    std::vector<std::size_t> needed;
    for (std::size_t i = 0; i < sample.keys.size(); ++i) {
        const std::string& key = sample.keys[i];
        longest = std::max(longest, key.size());
        if (i == 0) continue;
        const std::string& before = sample.keys[i - 1];
        const auto differ = std::mismatch(key.begin(), key.end(), before.begin(), before.end());
        needed.push_back(
            std::min(static_cast<std::size_t>(differ.first - key.begin()) + 1, key.size()));
    }
    // Among more rows neighbours are closer: twice as many share about three bits more of text.
    constexpr std::size_t kDoublingsPerByte = 3;
    const std::uint64_t growth = inputBytes / std::max<std::uint64_t>(sample.byteCount, 1);
    const std::size_t closer =
        (static_cast<std::size_t>(std::bit_width(growth)) + kDoublingsPerByte - 1) /
        kDoublingsPerByte;
    return std::min(std::clamp(nearlyMost(needed) + closer, kKeyBytesMin, kKeyBytesMax), longest);
}

// With a reserve for rows that are shorter than those seen.
std::uint64_t withReserve(std::uint64_t count) {
    constexpr std::uint64_t kReserveShare = 16;
    return count + count / kReserveShare + 1;
}

}  // namespace

std::size_t RunPlan::roundKeyBytes(std::uint64_t recordCount) const {
    constexpr std::uint64_t kMin = 8;
    constexpr std::uint64_t kMax = 64;
    constexpr std::uint64_t kRecordsPerBlockMin = 4;
    const std::uint64_t overhead = KeyRecord({true, 0}).recordLength() + kEntryBytes;
    const auto block = static_cast<std::uint64_t>(blockPages * kPageBytes);
    const std::uint64_t share = rowsMax * (KeyRecord(form).recordLength() + kEntryBytes) /
                                std::max<std::uint64_t>(recordCount, 1);
    return std::clamp(share > overhead ? share - overhead : 0, kMin,
                      std::min(kMax, block / kRecordsPerBlockMin));
}

RunFacts readFacts(const KeyedInput& input) {
    Sample sample = readSample(input);
    RunFacts facts = {};
    facts.inputBytes = input.places().end();
    facts.keyBytes = keyBytesFor(sample, facts.inputBytes);
    facts.rowBytes =
        std::max<std::uint64_t>(sample.byteCount / std::max<std::size_t>(sample.keys.size(), 1), 1);
    facts.isExact = sample.isAll;
    facts.rowCount = sample.isAll ? sample.keys.size() : facts.inputBytes / facts.rowBytes + 1;
    facts.rowBytesMax = input.rowBytesMax();
    return facts;
}

RunPlan planRuns(const RunFacts& facts, const PlanSetting& setting) {
    RunPlan plan = {};
    plan.form.keyBytes = facts.keyBytes;
    plan.workerCount = setting.workerCount.value_or(workersFor(facts.inputBytes));
    const std::uint64_t workers = plan.workerCount;
    const std::uint64_t memory = std::max(setting.memoryBytes, workers * kWorkerBytesMin);
    const std::uint64_t recordBytes = KeyRecord(plan.form).recordLength();
    const std::uint64_t slotRowBytes =
        recordBytes +
        (recordBytes <= kCopiedBytesMax ? std::max(recordBytes, kEntryBytes) : kEntryBytes);
    const std::uint64_t keptBytes = facts.inputBytes + withReserve(facts.rowCount) * recordBytes;
    const std::uint64_t shareRows = withReserve(facts.rowCount / workers);
    const std::uint64_t slotBytesMin = std::min(shareRows, kRunRowsMin) * slotRowBytes * workers;
    plan.stays = keptBytes + slotBytesMin <= setting.memoryBytes;
    const std::uint64_t runRows =
        plan.stays ? (memory - keptBytes) / workers / slotRowBytes
                   : memory / workers / (facts.rowBytes + recordBytes + withReserve(slotRowBytes));
    const std::uint64_t rows = std::clamp<std::uint64_t>(
        std::min(runRows, kSlotBytesMax / workers / slotRowBytes), 1, shareRows);
    const std::uint64_t rounds = (facts.rowCount + rows * workers - 1) / (rows * workers);
    plan.chunkBytes = std::min(facts.inputBytes / std::max<std::uint64_t>(rounds * workers, 1) + 1,
                               std::max(memory / workers / 2, kWorkerBytesMin / 2));
    plan.chunkCount = facts.inputBytes / plan.chunkBytes + 1;
    plan.rowsMax = withReserve(rows);
    if (!facts.isExact) {
        // Where the rows that were seen are long and those that follow short, a run has as many as
        // half the memory holds, while the text takes the other half; what is not needed is not
        // touched.
        const std::uint64_t shortRows =
            std::min({memory / workers / 2 / (recordBytes + slotRowBytes),
                      kSlotBytesMax / workers / slotRowBytes, facts.inputBytes / workers + 1});
        plan.rowsMax = std::max(plan.rowsMax, shortRows);
    }
    plan.windowBytes = plan.chunkBytes + plan.chunkBytes / 2 + facts.rowBytesMax + kWindowReserve;
    plan.keptBytesMax = plan.stays ? memory : 0;

    const auto slotBytes = static_cast<std::int64_t>(plan.rowsMax * slotRowBytes);
    const auto pages = static_cast<std::int32_t>(slotBytes / kPageBytes);
    plan.blockPages = setting.blockPages.value_or(
        defaultBlockPages(static_cast<std::uint16_t>(recordBytes), pages));
    // Blocks end with a record, and a copy wants some more of them.
    constexpr std::int32_t kBlocksBeyond = 8;
    plan.slotPages = pages + pages / 32 + kBlocksBeyond * plan.blockPages;

    constexpr std::uint64_t kWriteShare = 8;
    constexpr std::uint64_t kWriteBytesMin = std::uint64_t{64} << 10;
    constexpr std::uint64_t kWriteBytesMax = std::uint64_t{4} << 20;
    constexpr std::uint64_t kRunReadBytesMin = std::uint64_t{16} << 10;
    constexpr std::uint64_t kRunReadBytesMinMax = std::uint64_t{128} << 10;
    plan.readBytes = memory / workers / 2;
    plan.runReadBytesMin = std::clamp(2 * facts.rowBytes, kRunReadBytesMin, kRunReadBytesMinMax);
    plan.writeBytes = std::clamp(memory / workers / kWriteShare, kWriteBytesMin, kWriteBytesMax);
    return plan;
}

}  // namespace tvsort::tools

// Inner parts of the sort, called in this program: addressing, and one partition of a data set that
// is in the frames. The counter `record` is the time per record.
//
// A partition changes the records, so each is timed on a fresh copy of them; the copying is outside
// the clock.

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <vector>

#include "bench/workload.h"
#include "host/data_set.h"
#include "process/job/sort_job.h"
#include "process/keys/key_meaning.h"
#include "process/sort/partition.h"
#include "process/storage/page_pool.h"
#include "process/storage/record_address.h"

namespace {

using namespace tvsort;
using tvsort::bench::Workload;

constexpr std::int32_t kRecordCount = 50'000;
constexpr std::int32_t kBlockPages = 8;

// The workload's records in the frames of a job, as they stand when sorting begins.
class PartBed {
  public:
    explicit PartBed(const Workload& workload) : job_(std::make_unique<SortJob>()) {
        const host::Geometry geometry = host::chooseGeometry(workload.recordLength, kBlockPages);
        SortJob& job = *job_;
        job.recordCount = kRecordCount;
        job.recordLength = geometry.recordLength;
        job.recordsPerBlock = geometry.recordsPerBlock;
        job.blockPages = job.pagesPerBlock = kBlockPages;
        job.framesPerBlock = 1;
        job.fileBlocks = blockOfRecord(job, kRecordCount);
        job.frameCount = job.memoryBlocks = job.hashBlocks = job.fileBlocks;
        layRecords(workload);
        for (const KeyDescriptor& key : workload.request.keys()) {
            job.keys[job.keyCount] = key;
            job.keyOrder[job.keyCount] = &job.keys[job.keyCount];
            job.keyCount += 1;
        }
        resolveKeyRules(job);
    }

    SortJob& job() { return *job_; }

    // The records as they were, and a pool that knows where they are.
    void restore() {
        SortJob& job = *job_;
        std::copy(original_.begin(), original_.end(), frames_.begin());
        clearHashTable(job, job.fileBlocks);
        job.framesInUse = job.frameCount;
        job.mruFrame = job.frameCount - 1;
        job.currentFrame = 0;
        initPool(job, job.frameCount, DirtyFlags::kKeep);
    }

  private:
    void layRecords(const Workload& workload) {
        SortJob& job = *job_;
        const std::vector<Byte> records = bench::makeRecords(workload, kRecordCount);
        original_.resize(static_cast<std::size_t>(job.frameCount + 1) * frameBytes(job));
        for (std::int32_t n = 1; n <= kRecordCount; ++n) {
            const auto start = static_cast<std::size_t>(n - 1) * job.recordLength;
            std::copy_n(&records[start], job.recordLength, &original_[placeInFrames(job, n)]);
        }
        frames_.resize(original_.size());
        descriptors_.resize(static_cast<std::size_t>(job.frameCount));
        hashTable_.resize(static_cast<std::size_t>(job.frameCount));
        job.frameArea = frames_.data();
        job.pageDescriptors = descriptors_.data();
        job.hashTable = hashTable_.data();
        job.memoryBytes = static_cast<std::int32_t>(frameOffset(job, job.frameCount));
    }

    std::unique_ptr<SortJob> job_;
    std::vector<Byte> original_;
    std::vector<Byte> frames_;
    std::vector<PageDescriptor> descriptors_;
    std::vector<std::int32_t> hashTable_;
};

// Runs `work` in each round, timed by itself, after `prepare`.
template <typename Prepare, typename Work>
void timePerRecord(benchmark::State& state, Prepare prepare, Work work) {
    for (auto _ : state) {
        prepare();
        const auto start = std::chrono::steady_clock::now();
        work();
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(spent.count());
    }
    // Seconds per record: the rate of records, inverted.
    using benchmark::Counter;
    state.counters["record"] =
        Counter(kRecordCount, Counter::kIsIterationInvariantRate | Counter::kInvert);
}

void partitionOnce(SortJob& job) {
    static NormalizedKey key;
    describeKey(job, key);
    HeldRange held = {};
    held.low = locateRecord(job, 1);
    pinFrame(job, held.low.frameIndex);
    held.high = locateRecord(job, job.recordCount);
    pinFrame(job, held.high.frameIndex);
    partitionRange(job, key, held);
    benchmark::DoNotOptimize(held);
}

void addPartitionRow(const Workload& workload) {
    const auto run = [workload](benchmark::State& state) {
        PartBed bed(workload);
        timePerRecord(
            state, [&] { bed.restore(); }, [&] { partitionOnce(bed.job()); });
        if (bed.job().errorCode != ErrorCode::kSuccess) state.SkipWithError("a code was raised");
    };
    benchmark::RegisterBenchmark(("partition/" + workload.name).c_str(), run)->UseManualTime();
}

// Every record once, `stride` records from one to the next: 1 stays in a block, more than a block
// asks the pool each time.
void addAddressRow(const std::string& name, std::int32_t stride) {
    const auto run = [stride](benchmark::State& state) {
        PartBed bed(bench::textLines());
        SortJob& job = bed.job();
        bed.restore();
        const auto addressAll = [&] {
            for (std::int32_t first = 1; first <= stride; ++first) {
                for (std::int32_t n = first; n <= kRecordCount; n += stride)
                    benchmark::DoNotOptimize(addressRecord(job, n));
            }
        };
        timePerRecord(
            state, [] {}, addressAll);
    };
    benchmark::RegisterBenchmark(("address/" + name).c_str(), run)->UseManualTime();
}

}  // namespace

int main(int argumentCount, char** arguments) {
    benchmark::Initialize(&argumentCount, arguments);
    if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) return 1;
    addAddressRow("within a block", 1);
    addAddressRow("another block each time", 500);
    for (const Workload& workload : bench::workloads()) {
        // The bed has no place for null indicators.
        if (!workload.request.nullIndicatorsOffset()) addPartitionRow(workload);
    }
    benchmark::RunSpecifiedBenchmarks();
}

#include "process/sort/distribution_sort.h"

#include <algorithm>

#include "process/keys/record_precedes.h"
#include "process/sort/arrival_order.h"
#include "process/sort/bucket_sort.h"
#include "process/sort/counting_pass.h"
#include "process/storage/record_address.h"

namespace tvsort {

namespace {

// In sort modes 8 and 9: neighbours that differ in nothing but the last key.
void checkUniqueness(SortJob& job) {
    if (job.keyCount == 0 ||
        job.keyRules[job.keyCount - 1].comparison != Comparison::kUniqueInteger) {
        return;
    }
    for (std::int32_t n = 1; n < job.recordCount && !failed(job); ++n) {
        recordPrecedes(job, placeInFrames(job, n), placeInFrames(job, n + 1));
    }
}

// Entries of a bucket, twice, are as many bytes as the counters: both stay in the processor's
// cache.
constexpr std::uint32_t kBucketEntriesMax = kCounterTableBytes / (2 * sizeof(Entry));

// Records of the scratch area, equal in the key before `place`, that are too many for one bucket.
struct WaitingRange {
    std::uint32_t begin;
    std::uint32_t end;
    KeyPlace place;
};

// Ranges that wait do not overlap, and each has more records than a bucket. Data area and scratch
// area share 4 GiB, so there are at most 2^31 records, of one byte.
constexpr std::uint32_t kWaitingMax = (std::uint32_t{1} << 31) / kBucketEntriesMax;

// What says where records go stands in the process's own memory: in the slot another writer could
// change it between two looks.
std::uint32_t counters[kCounterCount];
Entry entries[kBucketEntriesMax];
Entry otherEntries[kBucketEntriesMax];
WaitingRange waiting[kWaitingMax];

// The regions, and what there is to do.
struct Distribution {
    RecordArray data;
    Byte* scratchArea;
    std::uint32_t waitingCount;

    Byte* scratchRecord(std::uint32_t index) const {
        return scratchArea + std::size_t{index} * data.recordLength;
    }
    RecordArray scratchRecords(std::uint32_t begin, std::uint32_t end) const {
        return packedRecords(scratchRecord(begin), end - begin, data.recordLength);
    }
};

NormalizedKey normalizedKey;
Digit keyDigit;
Buckets recordBuckets;

RecordArray dataRecords(const SortJob& job) {
    return {job.frameArea, static_cast<std::uint32_t>(job.recordCount), job.recordLength,
            job.recordsPerBlock, frameBytes(job)};
}

Distribution layOut(const SortJob& job) {
    const std::size_t dataBytes = static_cast<std::size_t>(job.fileBlocks) * frameBytes(job);
    return {dataRecords(job), job.frameArea + dataBytes, 0};
}

void letWait(Distribution& work, std::uint32_t begin, std::uint32_t end, const KeyPlace& place) {
    waiting[work.waitingCount++] = {begin, end, place};
}

// Copies records of the scratch area, which are in order, to the data area.
void returnRecords(const Distribution& work, std::uint32_t begin, std::uint32_t end) {
    const Byte* source = work.scratchRecord(begin);
    visitRecords(work.data, begin, end, [&](Byte* target) {
        copyRecord(target, source, work.data.recordLength);
        source += work.data.recordLength;
    });
}

// Orders a bucket of the scratch area into the data area.
void finishBucket(const Distribution& work, std::uint32_t begin, std::uint32_t end,
                  const KeyPlace& place) {
    const std::uint32_t recordLength = work.data.recordLength;
    const Byte* const records = work.scratchRecord(begin);
    orderBucket(normalizedKey, place, records, end - begin, recordLength, {entries, otherEntries});
    const Entry* entry = entries;
    visitRecords(work.data, begin, end, [&](Byte* target) {
        copyRecord(target, records + std::size_t{entry->index} * recordLength, recordLength);
        ++entry;
    });
}

// What a pass has brought together, from record `base` of the scratch area on.
void finishBuckets(Distribution& work, std::uint32_t base) {
    std::uint32_t begin = base;
    for (std::uint32_t i = 0; i < recordBuckets.count; ++i) {
        const Bucket& bucket = recordBuckets.buckets[i];
        const std::uint32_t end = base + bucket.end;
        const KeyPlace& place = bucket.equal ? keyDigit.window.next : keyDigit.window.start;
        if ((bucket.equal && keyDigit.window.endsKey) || end - begin == 1) {
            returnRecords(work, begin, end);
        } else if (end - begin <= kBucketEntriesMax) {
            finishBucket(work, begin, end, place);
        } else {
            letWait(work, begin, end, place);
        }
        begin = end;
    }
}

// Distributes the data area to the scratch area.
void distributeAll(Distribution& work) {
    if (!countDigits(normalizedKey, kKeyStart, work.data, counters, keyDigit)) return;
    makeBuckets(work.data.count, keyDigit, counters, recordBuckets);
    moveToBuckets(work.data, keyDigit, counters, recordBuckets, work.scratchArea);
    finishBuckets(work, 0);
}

// Distributes a range of the scratch area, by way of its part of the data area.
void distributeRange(Distribution& work, const WaitingRange& range) {
    const RecordArray source = work.scratchRecords(range.begin, range.end);
    if (!countDigits(normalizedKey, range.place, source, counters, keyDigit)) {
        returnRecords(work, range.begin, range.end);
        return;
    }
    Byte* const target = work.data.at(range.begin);
    makeBuckets(source.count, keyDigit, counters, recordBuckets);
    moveToBuckets(source, keyDigit, counters, recordBuckets, target);
    std::memcpy(source.first, target, std::size_t{source.count} * source.recordLength);
    finishBuckets(work, range.begin);
}

}  // namespace

void distributionSort(SortJob& job) {
    describeKey(job, normalizedKey);
    if (!decimalsHavePlaces(job, normalizedKey)) {
        raise(job, ErrorCode::kDecimalInvalid);
        return;
    }
    Distribution work = layOut(job);
    if (!arriveInOrder(normalizedKey, work.data) && !reverseDescending(normalizedKey, work.data)) {
        distributeAll(work);
        while (work.waitingCount > 0)
            distributeRange(work, waiting[--work.waitingCount]);
    }
    checkUniqueness(job);
}

}  // namespace tvsort

#include "process/sort/counting_pass.h"

#include <algorithm>
#include <bit>

namespace tvsort {

namespace {

constexpr std::uint32_t kSampleRecords = 1024;
// One record of so many may be unlike the sample. More, and the window says too little.
constexpr std::uint32_t kMisfitShare = 16;
constexpr std::uint32_t kReadAheadBytes = 1024;
// No bucket is meant to be smaller: it would cost more than it spares.
constexpr std::uint32_t kBucketRecordsMin = 256;

std::uint32_t nextPlaces[kBucketsMax];

// A digit finer than there are records would only make the table larger.
WindowFit fitOf(std::uint32_t recordCount) {
    const auto countBits = static_cast<std::uint32_t>(std::bit_width(recordCount));
    const std::uint32_t digitBits = std::min(kDigitBitsMax, countBits);
    return {digitBits, digitBits, true};
}

void fitToSample(const NormalizedKey& key, const KeyPlace& place, const RecordArray& source,
                 KeyWindow& window) {
    const std::uint32_t step = std::max(source.count / kSampleRecords, 1U);
    const auto visitSample = [&](auto visit) {
        for (std::uint32_t i = 0; i < source.count; i += step) {
            if (!visit(source.at(i))) return;
        }
    };
    fitWindow(key, place, fitOf(source.count), visitSample, window);
}

void fitToAll(const NormalizedKey& key, const KeyPlace& place, const RecordArray& source,
              KeyWindow& window) {
    const auto visitAll = [&](auto visit) {
        if (!visit(source.first)) return;
        visitRecords(source, 1, source.count, visit);
    };
    fitWindow(key, place, fitOf(source.count), visitAll, window);
}

// Counts the digits of all records. Answers how many of them the window does not fit.
std::uint32_t countThrough(const KeyWindow& window, const RecordArray& source,
                           std::uint32_t* counters) {
    std::fill_n(counters, std::size_t{1} << window.width, 0U);
    std::uint32_t misfits = 0;
    withReader(window, [&](const auto& reader) {
        std::uint32_t found = 0;
        visitRecords(source, 0, source.count,
                     [&](const Byte* record) { counters[reader.read(record, found)] += 1; });
        misfits = found;
    });
    return misfits;
}

}  // namespace

bool countDigits(const NormalizedKey& key, const KeyPlace& place, const RecordArray& source,
                 std::uint32_t* counters, Digit& digit) {
    KeyWindow& window = digit.window;
    KeyPlace from = place;
    for (;;) {
        fitToSample(key, from, source, window);
        std::uint32_t misfits = countThrough(window, source, counters);
        if (misfits > (window.width > 0 ? source.count / kMisfitShare : 0)) {
            fitToAll(key, from, source, window);
            misfits = countThrough(window, source, counters);
        }
        digit.fitsAll = misfits == 0;
        if (window.width > 0) return true;
        if (window.endsKey) return false;
        from = window.next;
    }
}

void makeBuckets(std::uint32_t recordCount, const Digit& digit, std::uint32_t* counters,
                 Buckets& buckets) {
    const std::uint32_t wanted =
        std::max((recordCount + kBucketsWanted - 1) / kBucketsWanted, kBucketRecordsMin);
    const std::uint32_t digits = std::uint32_t{1} << digit.window.width;
    Bucket bucket = {0, digit.fitsAll};
    std::uint32_t inBucket = 0;
    buckets.count = 0;
    for (std::uint32_t i = 0; i < digits; ++i) {
        const std::uint32_t records = counters[i];
        if (records == 0) continue;
        if (inBucket > 0 && inBucket + records > wanted) {
            buckets.buckets[buckets.count++] = bucket;
            bucket.equal = digit.fitsAll;
            inBucket = 0;
        } else if (inBucket > 0) {
            bucket.equal = false;
        }
        inBucket += records;
        bucket.end += records;
        counters[i] = buckets.count;
    }
    buckets.buckets[buckets.count++] = bucket;
}

void moveToBuckets(const RecordArray& source, const Digit& digit, const std::uint32_t* counters,
                   const Buckets& buckets, Byte* target) {
    nextPlaces[0] = 0;
    for (std::uint32_t i = 1; i < buckets.count; ++i)
        nextPlaces[i] = buckets.buckets[i - 1].end;
    const std::uint32_t recordLength = source.recordLength;
    withReader(digit.window, [&](const auto& reader) {
        std::uint32_t misfits = 0;
        visitRecords(source, 0, source.count, [&](const Byte* record) {
            const std::uint32_t bucket = counters[reader.read(record, misfits)];
            const std::size_t place = nextPlaces[bucket]++;
            // Full only where records have changed since they were counted.
            if (place >= source.count) return;
            Byte* const to = target + place * recordLength;
            __builtin_prefetch(record + kReadAheadBytes);
            __builtin_prefetch(to + recordLength, 1);
            __builtin_prefetch(to + 2 * recordLength - 1, 1);
            copyRecord(to, record, recordLength);
        });
    });
}

}  // namespace tvsort

#include "sort/counting_pass.h"

#include <algorithm>
#include <bit>

namespace tvsort {

namespace {

constexpr std::uint32_t kSampleRecords = 1024;
// No bucket is meant to be smaller: it would cost more than it spares.
constexpr std::uint32_t kBucketRecordsMin = 256;

std::uint32_t nextPlaces[kBucketsMax];

// Opens the window and cuts it to what differs in a sample.
void windowOfSample(const NormalizedKey& key, const KeyPlace& place, const RecordArray& source,
                    KeyWindow& window) {
    openWindow(key, place, source.first, window);
    Differences differences = {};
    const std::uint32_t step = std::max(source.count / kSampleRecords, 1U);
    for (std::uint32_t i = 0; i < source.count; i += step)
        addDifferences(window, source.at(i), differences);
    cutWindow(key, differences, window);
}

// A digit finer than there are records would only make the table larger.
WindowDigit digitOf(const KeyWindow& window, std::uint32_t recordCount) {
    const auto countBits = static_cast<std::uint32_t>(std::bit_width(recordCount));
    return {std::max(1U, std::min({kDigitBitsMax, window.width, countBits}))};
}

Differences countThrough(const KeyWindow& window, const WindowDigit& digit,
                         const RecordArray& source, std::uint32_t* counters) {
    std::fill_n(counters, std::size_t{1} << digit.bits, 0U);
    Differences differences = {};
    visitRecords(source, 0, source.count, [&](const Byte* record) {
        counters[digit.of(readWindow(window, record, differences))] += 1;
    });
    return differences;
}

}  // namespace

bool countDigits(const NormalizedKey& key, const KeyPlace& place, const RecordArray& source,
                 std::uint32_t* counters, KeyWindow& window, WindowDigit& digit) {
    KeyPlace from = place;
    for (;;) {
        windowOfSample(key, from, source, window);
        digit = digitOf(window, source.count);
        const Differences differences = countThrough(window, digit, source, counters);
        if (windowMisses(window, differences)) {
            cutWindow(key, differences, window);
            digit = digitOf(window, source.count);
            countThrough(window, digit, source, counters);
        }
        if (window.width > 0) return true;
        if (window.endsKey) return false;
        from = window.next;
    }
}

void makeBuckets(std::uint32_t recordCount, const WindowDigit& digit, std::uint32_t* counters,
                 Buckets& buckets) {
    const std::uint32_t wanted =
        std::max((recordCount + kBucketsWanted - 1) / kBucketsWanted, kBucketRecordsMin);
    const std::uint32_t digits = std::uint32_t{1} << digit.bits;
    Bucket bucket = {0, true};
    std::uint32_t inBucket = 0;
    buckets.count = 0;
    for (std::uint32_t i = 0; i < digits; ++i) {
        const std::uint32_t records = counters[i];
        if (records == 0) continue;
        if (inBucket > 0 && inBucket + records > wanted) {
            buckets.buckets[buckets.count++] = bucket;
            bucket.oneDigit = true;
            inBucket = 0;
        } else if (inBucket > 0) {
            bucket.oneDigit = false;
        }
        inBucket += records;
        bucket.end += records;
        counters[i] = buckets.count;
    }
    buckets.buckets[buckets.count++] = bucket;
}

void moveToBuckets(const RecordArray& source, const KeyWindow& window, const WindowDigit& digit,
                   const std::uint32_t* counters, const Buckets& buckets, Byte* target) {
    nextPlaces[0] = 0;
    for (std::uint32_t i = 1; i < buckets.count; ++i)
        nextPlaces[i] = buckets.buckets[i - 1].end;
    const std::uint32_t recordLength = source.recordLength;
    visitRecords(source, 0, source.count, [&](const Byte* record) {
        const std::uint32_t bucket = counters[digit.of(readWindow(window, record))];
        const std::size_t place = nextPlaces[bucket]++;
        Byte* const to = target + place * recordLength;
        __builtin_prefetch(to + recordLength, 1);
        __builtin_prefetch(to + 2 * recordLength - 1, 1);
        copyRecord(to, record, recordLength);
    });
}

}  // namespace tvsort

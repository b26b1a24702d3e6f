#include "sort/counting_pass.h"

#include <algorithm>
#include <cstring>

namespace tvsort {

namespace {

template <DigitKind kind>
std::uint32_t digitAt(const Byte* field) {
    switch (kind) {
        case DigitKind::kByte:
            return *field;
        case DigitKind::kLittleWord:
            return loadU16(field);
        case DigitKind::kBigWord:
            return std::uint32_t{field[0]} << 8 | field[1];
        case DigitKind::kSignedTopWord:
            return loadU16(field) ^ 0x8000U;
    }
    return 0;
}

// Replaces each count by the number of records in the buckets before it. False when one bucket
// holds all of them.
bool placeBuckets(std::uint32_t* counters, std::uint32_t bucketCount, std::uint32_t recordCount,
                  BucketOrder order) {
    std::uint32_t before = 0;
    for (std::uint32_t i = 0; i < bucketCount; ++i) {
        const std::uint32_t bucket = order == BucketOrder::kAscending ? i : bucketCount - 1 - i;
        const std::uint32_t inBucket = counters[bucket];
        if (inBucket == recordCount) return false;
        counters[bucket] = before;
        before += inBucket;
    }
    return true;
}

template <DigitKind kind>
bool passOver(std::uint32_t* counters, const Byte* source, Byte* target, std::uint32_t count,
              std::uint32_t stride, std::uint32_t digitOffset, BucketOrder order) {
    constexpr std::uint32_t kBuckets = kind == DigitKind::kByte ? 256 : kCounterCount;
    std::fill_n(counters, kBuckets, 0);
    const Byte* field = source + digitOffset;
    for (std::uint32_t i = 0; i < count; ++i, field += stride)
        counters[digitAt<kind>(field)] += 1;
    if (!placeBuckets(counters, kBuckets, count, order)) return false;

    const Byte* record = source;
    for (std::uint32_t i = 0; i < count; ++i, record += stride) {
        const std::size_t place = counters[digitAt<kind>(record + digitOffset)]++;
        std::memcpy(target + place * stride, record, stride);
    }
    return true;
}

}  // namespace

bool countingPass(std::uint32_t* counters, const Byte* source, Byte* target, std::uint32_t count,
                  std::uint32_t stride, std::uint32_t digitOffset, DigitKind kind,
                  BucketOrder order) {
    if (count < 2) return false;
    switch (kind) {
        case DigitKind::kByte:
            return passOver<DigitKind::kByte>(counters, source, target, count, stride, digitOffset,
                                              order);
        case DigitKind::kLittleWord:
            return passOver<DigitKind::kLittleWord>(counters, source, target, count, stride,
                                                    digitOffset, order);
        case DigitKind::kBigWord:
            return passOver<DigitKind::kBigWord>(counters, source, target, count, stride,
                                                 digitOffset, order);
        case DigitKind::kSignedTopWord:
            return passOver<DigitKind::kSignedTopWord>(counters, source, target, count, stride,
                                                       digitOffset, order);
    }
    return false;
}

}  // namespace tvsort

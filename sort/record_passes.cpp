#include "sort/record_passes.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "keys/decimal_value.h"
#include "keys/null_indicator.h"
#include "sort/counting_pass.h"
#include "sort/normalized_key.h"
#include "storage/record_address.h"

namespace tvsort {

namespace {

// The array of records and its double. The first `count` records of `source` are at work; the nulls
// of the key at hand, if any, follow them.
struct RecordArrays {
    Byte* source;
    Byte* target;
    std::uint32_t* counters;
    std::uint32_t count;
    std::uint32_t recordLength;

    void exchange() { std::swap(source, target); }
    std::size_t bytes(std::uint32_t records) const { return std::size_t{records} * recordLength; }
    void pass(std::uint32_t digitOffset, DigitKind kind, BucketOrder order) {
        if (countingPass(counters, source, target, count, recordLength, digitOffset, kind, order)) {
            exchange();
        }
    }
};

BucketOrder bucketOrderOf(bool ascending) {
    return ascending ? BucketOrder::kAscending : BucketOrder::kDescending;
}

std::int32_t filledBlocks(const SortJob& job) {
    return blockOfRecord(job, job.recordCount);
}

std::size_t filledBytesOfBlock(const SortJob& job) {
    return std::size_t{job.recordsPerBlock} * job.recordLength;
}
// Packing and putting back.

// Blocks end in bytes that hold no record: closes the gaps.
void packRecords(const SortJob& job) {
    const std::size_t blockBytes = filledBytesOfBlock(job);
    if (blockBytes == frameBytes(job)) return;
    for (std::int32_t block = 1; block < filledBlocks(job); ++block) {
        std::memmove(job.frameArea + static_cast<std::size_t>(block) * blockBytes,
                     recordAt(job, frameOffset(job, block)), blockBytes);
    }
}

// Puts the packed records of `array` into their blocks. From the data area itself this goes from
// the last block to the first, each moving up over places that are done.
void spreadRecords(const SortJob& job, const Byte* array) {
    const std::size_t blockBytes = filledBytesOfBlock(job);
    if (array == job.frameArea && blockBytes == frameBytes(job)) return;
    const std::int32_t blocks = filledBlocks(job);
    const std::size_t allBytes =
        std::size_t{job.recordLength} * static_cast<std::size_t>(job.recordCount);
    for (std::int32_t block = blocks - 1; block >= 0; --block) {
        const std::size_t start = static_cast<std::size_t>(block) * blockBytes;
        std::memmove(recordAt(job, frameOffset(job, block)), array + start,
                     std::min(blockBytes, allBytes - start));
    }
}

// Keys.

void sortByInteger(RecordArrays& arrays, const KeyRule& rule, std::uint32_t integerBytes) {
    const BucketOrder order = bucketOrderOf(rule.ascending);
    const std::uint32_t topWord = integerBytes - 2;
    for (std::uint32_t byte = 0; byte < topWord; byte += 2) {
        arrays.pass(rule.fieldOffset + byte, DigitKind::kLittleWord, order);
    }
    arrays.pass(rule.fieldOffset + topWord, DigitKind::kSignedTopWord, order);
}

// The bytes `first` to `length` - 1 of a field, the last one least significant. An odd byte is
// taken alone where that lets the words start at even offsets of the record.
void sortByBytes(RecordArrays& arrays, const KeyRule& rule, std::uint32_t first) {
    const BucketOrder order = bucketOrderOf(rule.ascending);
    const std::uint32_t start = std::uint32_t{rule.fieldOffset} + first;
    std::uint32_t end = std::uint32_t{rule.fieldOffset} + rule.fieldLength;
    if (end > start && end % 2 == 1 && (end - start) % 2 == 1) {
        arrays.pass(--end, DigitKind::kByte, order);
    }
    for (; end >= start + 2; end -= 2)
        arrays.pass(end - 2, DigitKind::kBigWord, order);
    if (end > start) arrays.pass(start, DigitKind::kByte, order);
}

// The length is the least significant part: it tells apart values that differ in trailing zeros.
void sortByString(RecordArrays& arrays, const KeyRule& rule) {
    arrays.pass(rule.fieldOffset, DigitKind::kLittleWord, bucketOrderOf(rule.ascending));
    sortByBytes(arrays, rule, kLengthPrefixBytes);
}

constexpr int kDecimalClasses = 5;
constexpr DecimalClass kAscendingClasses[kDecimalClasses] = {
    DecimalClass::kLowest, DecimalClass::kNegative, DecimalClass::kZero, DecimalClass::kPositive,
    DecimalClass::kHighest};

// Where the records of each class begin, by DecimalClass.
struct ClassPlaces {
    std::uint32_t start[kDecimalClasses];
    std::uint32_t count[kDecimalClasses];
};

// False when a value has no class.
bool countClasses(const RecordArrays& arrays, const KeyRule& rule, ClassPlaces& places) {
    places = {};
    const Byte* field = arrays.source + rule.fieldOffset;
    for (std::uint32_t i = 0; i < arrays.count; ++i, field += arrays.recordLength) {
        const DecimalClass valueClass = distributedClass(field, rule.ascending);
        if (valueClass == DecimalClass::kInvalid) return false;
        places.count[static_cast<int>(valueClass)] += 1;
    }
    std::uint32_t before = 0;
    for (int i = 0; i < kDecimalClasses; ++i) {
        const int inOrder = rule.ascending ? i : kDecimalClasses - 1 - i;
        const int valueClass = static_cast<int>(kAscendingClasses[inOrder]);
        places.start[valueClass] = before;
        before += places.count[valueClass];
    }
    return true;
}

void distributeByClass(RecordArrays& arrays, const KeyRule& rule, const ClassPlaces& places) {
    ClassPlaces next = places;
    const Byte* record = arrays.source;
    for (std::uint32_t i = 0; i < arrays.count; ++i, record += arrays.recordLength) {
        const auto valueClass =
            static_cast<int>(distributedClass(record + rule.fieldOffset, rule.ascending));
        std::memcpy(arrays.target + arrays.bytes(next.start[valueClass]++), record,
                    arrays.recordLength);
    }
    arrays.exchange();
}

// Orders one class by magnitude, in its own place; the result is in `arrays.source`.
void sortByMagnitude(const RecordArrays& arrays, const KeyRule& rule, const ClassPlaces& places,
                     DecimalClass valueClass, BucketOrder order) {
    const std::size_t start = arrays.bytes(places.start[static_cast<int>(valueClass)]);
    RecordArrays group = arrays;
    group.source += start;
    group.target += start;
    group.count = places.count[static_cast<int>(valueClass)];
    Byte* const place = group.source;
    // Byte 1 is the least significant; words start at even offsets of the record.
    std::uint32_t digit = std::uint32_t{rule.fieldOffset} + kDecimalDigitsOffset;
    const std::uint32_t end = digit + kDecimalDigitCount;
    if (digit % 2 == 1) group.pass(digit++, DigitKind::kByte, order);
    for (; digit + 2 <= end; digit += 2)
        group.pass(digit, DigitKind::kLittleWord, order);
    if (digit < end) group.pass(digit, DigitKind::kByte, order);
    if (group.source != place) std::memcpy(place, group.source, group.bytes(group.count));
}

void sortByDecimal(SortJob& job, RecordArrays& arrays, const KeyRule& rule) {
    ClassPlaces places;
    if (!countClasses(arrays, rule, places)) {
        raise(job, ErrorCode::kDecimalInvalid);
        return;
    }
    if (*std::max_element(places.count, places.count + kDecimalClasses) < arrays.count) {
        distributeByClass(arrays, rule, places);
    }
    sortByMagnitude(arrays, rule, places, DecimalClass::kPositive, bucketOrderOf(rule.ascending));
    sortByMagnitude(arrays, rule, places, DecimalClass::kNegative, bucketOrderOf(!rule.ascending));
}

void sortByValue(SortJob& job, RecordArrays& arrays, const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kInteger2:
            return sortByInteger(arrays, rule, 2);
        case Comparison::kInteger4:
        case Comparison::kUniqueInteger:
            return sortByInteger(arrays, rule, 4);
        case Comparison::kInteger8:
            return sortByInteger(arrays, rule, 8);
        case Comparison::kDecimal:
            return sortByDecimal(job, arrays, rule);
        case Comparison::kString:
            return sortByString(arrays, rule);
        default:
            return sortByBytes(arrays, rule, 0);
    }
}

std::uint32_t countNulls(const RecordArrays& arrays, const KeyRule& rule) {
    std::uint32_t nulls = 0;
    const Byte* record = arrays.source;
    for (std::uint32_t i = 0; i < arrays.count; ++i, record += arrays.recordLength) {
        nulls += isNull(record, rule) ? 1 : 0;
    }
    return nulls;
}

// Moves the nulls behind the values, both in their order.
void splitNulls(RecordArrays& arrays, const KeyRule& rule, std::uint32_t nulls) {
    const Byte* record = arrays.source;
    Byte* value = arrays.target;
    Byte* null = arrays.target + arrays.bytes(arrays.count - nulls);
    for (std::uint32_t i = 0; i < arrays.count; ++i, record += arrays.recordLength) {
        Byte*& place = isNull(record, rule) ? null : value;
        std::memcpy(place, record, arrays.recordLength);
        place += arrays.recordLength;
    }
    arrays.exchange();
}

// Puts the nulls, which lie behind the values in the area `nullArea`, where they belong.
void placeNulls(RecordArrays& arrays, const KeyRule& rule, std::uint32_t nulls,
                const Byte* nullArea) {
    const std::size_t valueBytes = arrays.bytes(arrays.count);
    const std::size_t nullBytes = arrays.bytes(nulls);
    const Byte* const nullRecords = nullArea + valueBytes;
    if (rule.nullsFirst) {
        std::memmove(arrays.target, nullRecords, nullBytes);
        std::memcpy(arrays.target + nullBytes, arrays.source, valueBytes);
        arrays.exchange();
    } else if (arrays.source != nullArea) {
        std::memcpy(arrays.source + valueBytes, nullRecords, nullBytes);
    }
}

void sortByKey(SortJob& job, RecordArrays& arrays, const KeyRule& rule) {
    const std::uint32_t all = arrays.count;
    const std::uint32_t nulls = job.hasKind4Key != 0 ? countNulls(arrays, rule) : 0;
    if (nulls == all) return;
    if (nulls > 0) splitNulls(arrays, rule, nulls);
    const Byte* const nullArea = arrays.source;
    arrays.count = all - nulls;
    sortByValue(job, arrays, rule);
    if (failed(job)) return;
    if (nulls > 0) placeNulls(arrays, rule, nulls, nullArea);
    arrays.count = all;
}

}  // namespace

void sortByRecordPasses(SortJob& job, Byte* scratchArea, Byte* counters) {
    packRecords(job);
    RecordArrays arrays = {job.frameArea, scratchArea, reinterpret_cast<std::uint32_t*>(counters),
                           static_cast<std::uint32_t>(job.recordCount), job.recordLength};
    if (job.modeFlag != 0) {
        const bool ascending = job.keyCount == 0 || job.keyRules[job.keyCount - 1].ascending;
        arrays.pass(kRecordFlagOffset, DigitKind::kByte, bucketOrderOf(ascending));
    }
    for (int k = job.keyCount - 1; k >= 0; --k) {
        sortByKey(job, arrays, job.keyRules[k]);
        if (failed(job)) return;
    }
    spreadRecords(job, arrays.source);
}

}  // namespace tvsort

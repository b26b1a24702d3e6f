#include "sort/distribution_sort.h"

#include <algorithm>

#include "keys/null_indicator.h"
#include "keys/record_precedes.h"
#include "sort/counting_pass.h"
#include "sort/entry_sort.h"
#include "sort/record_passes.h"
#include "storage/record_address.h"

namespace tvsort {

namespace {

bool fitsWithItsDouble(const SortJob& job) {
    const std::int64_t workingBytes =
        std::int64_t{job.recordLength} * job.recordCount + std::int64_t{kCounterTableBytes} + 4;
    const std::int64_t workingFrames = workingBytes / frameBytes(job);
    return workingFrames + job.fileBlocks + 1 <= job.frameCount;
}

bool isDistributable(const KeyDescriptor& key) {
    switch (static_cast<DataType>(key.dataType)) {
        case DataType::kInteger:
        case DataType::kDecimal:
        case DataType::kAlsoDecimal:
        case DataType::kBytes:
            return true;
        case DataType::kString:
            return key.geometryType == kGeometryTypeNone;
        default:
            return false;
    }
}

// Whether the field of a string orders as its value: its length lies inside the field and zeros
// follow the content.
bool isZeroFilled(const Byte* field, std::uint16_t fieldLength) {
    const std::int32_t length = loadI16(field);
    const std::int32_t contentBytes = fieldLength - static_cast<std::int32_t>(kLengthPrefixBytes);
    if (length < 0 || length > contentBytes) return false;
    const Byte* const content = field + kLengthPrefixBytes;
    return std::all_of(content + length, content + contentBytes,
                       [](Byte byte) { return byte == 0; });
}

bool stringsAreZeroFilled(const SortJob& job, const KeyRule& rule) {
    for (std::int32_t n = 1; n <= job.recordCount; ++n) {
        const Byte* const record = recordAt(job, placeInFrames(job, n));
        if (job.hasKind4Key != 0 && isNull(record, rule)) continue;
        if (!isZeroFilled(record + rule.fieldOffset, rule.fieldLength)) return false;
    }
    return true;
}

bool keysAreDistributable(const SortJob& job) {
    for (int k = 0; k < job.keyCount; ++k) {
        if (!isDistributable(*job.keyOrder[k])) return false;
    }
    for (int k = 0; k < job.keyCount; ++k) {
        const KeyRule& rule = job.keyRules[k];
        if (rule.comparison == Comparison::kString && !stringsAreZeroFilled(job, rule))
            return false;
    }
    return true;
}
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
}  // namespace

bool distributionSortApplies(const SortJob& job) {
    return job.recordCount >= kDistributionRecordsMin && fitsWithItsDouble(job) &&
           keysAreDistributable(job);
}

void distributionSort(SortJob& job) {
    const std::size_t dataBytes = static_cast<std::size_t>(job.fileBlocks) * frameBytes(job);
    const std::size_t recordBytes =
        static_cast<std::size_t>(job.recordCount) * std::size_t{job.recordLength};
    Byte* const scratchArea = job.frameArea + dataBytes;
    Byte* const counters = scratchArea + ((recordBytes + 3) & ~std::size_t{3});
    if (entriesFit(job)) {
        sortByEntries(job, scratchArea);
    } else {
        sortByRecordPasses(job, scratchArea, counters);
    }
    if (!failed(job)) checkUniqueness(job);
}

}  // namespace tvsort

#include "process/sort/distribution_choice.h"

#include "process/keys/null_indicator.h"
#include "process/sort/counting_pass.h"
#include "process/storage/record_address.h"
#include "protocol/data_type.h"
#include "protocol/stored_string.h"

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
            return key.geometryType == kGeometryTypeNone && key.fieldLength >= kLengthPrefixBytes;
        default:
            return false;
    }
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

}  // namespace

bool distributionSortApplies(const SortJob& job) {
    return job.recordCount >= kDistributionRecordsMin && fitsWithItsDouble(job) &&
           keysAreDistributable(job);
}

}  // namespace tvsort

#include "process/service/request_check.h"

#include "process/result/hierarchy_sort.h"
#include "protocol/data_type.h"

namespace tvsort {

namespace {

// A record's byte offset inside its block is kept in 16 bits.
constexpr std::int64_t kRecordOffsetEnd = 65536;

bool countsAreUsable(const SortJob& job) {
    return job.blockPages >= 1 && job.blockPages <= job.pagesPerBlock && job.fileBlocks >= 0 &&
           job.recordCount >= 0 && job.limitCount >= 0;
}

bool recordsFitBlocks(const SortJob& job) {
    const std::int64_t perBlock = job.recordsPerBlock;
    const std::int64_t length = job.recordLength;
    return perBlock > 0 && length > 0 &&
           perBlock * length <= std::int64_t{job.blockPages} * kPageBytes &&
           (perBlock - 1) * length < kRecordOffsetEnd &&
           job.recordCount <= job.fileBlocks * perBlock;
}

bool keysFitRecord(const SortJob& job) {
    for (int k = 0; k < job.keyCount; ++k) {
        const KeyDescriptor& key = job.keys[k];
        // A key that reads nothing, of a skipped type or without length, may stand anywhere.
        const std::uint32_t fieldBytes = keyFieldBytes(key.dataType, key.fieldLength);
        if (fieldBytes > 0 && key.fieldOffset + fieldBytes > job.recordLength) return false;
        // Of the null indicators the comparators read those of the sort keys and, in sort mode 9,
        // those of request keys before them.
        if (job.hasKind4Key != 0 && job.kind4Key.fieldOffset + key.position > job.recordLength) {
            return false;
        }
    }
    return true;
}

// The level stands before the first key and must not lie in the fields that the sort overwrites.
bool hierarchyFieldsFitRecord(const SortJob& job) {
    const std::uint32_t levelEnd = job.keys[0].fieldOffset;
    const bool levelApart =
        levelEnd <= kSubtreeSizeOffset || levelEnd >= kHierarchyFieldsEnd + kHierarchyLevelBytes;
    return job.recordLength >= kHierarchyFieldsEnd && levelEnd >= kHierarchyLevelBytes &&
           levelEnd <= job.recordLength && levelApart;
}

bool modeFieldsFitRecord(const SortJob& job) {
    switch (job.sortMode) {
        case SortMode::kOrder:
        case SortMode::kUnique:
        case SortMode::kUniqueUnlessNull:
            return true;
        case SortMode::kHierarchy:
            return hierarchyFieldsFitRecord(job);
        default:
            return job.recordLength > kRecordFlagOffset;
    }
}

}  // namespace

void checkRequest(SortJob& job) {
    const bool good = countsAreUsable(job) &&
                      (job.recordCount < 2 ||
                       (recordsFitBlocks(job) && keysFitRecord(job) && modeFieldsFitRecord(job)));
    if (!good) raise(job, ErrorCode::kRequestContradictory);
}

}  // namespace tvsort

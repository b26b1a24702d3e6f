#include "process/result/set_operation.h"

#include <algorithm>

#include "process/keys/records_differ.h"
#include "process/storage/record_address.h"

namespace tvsort {

namespace {

constexpr Byte kFirstOperand = 1;
constexpr Byte kSurvives = 1;
constexpr Byte kDropped = 0;

struct TagCount {
    Byte tag;
    std::int32_t count;
};

// The tags of one group; entry 0 is the first operand's.
struct TagCountTable {
    TagCount entries[kOperandTagsMax];
    int entryCount;

    void begin() {
        entries[0] = {kFirstOperand, 1};
        entryCount = 1;
    }

    // False when the table is full.
    bool add(Byte tag) {
        TagCount* const end = entries + entryCount;
        TagCount* const entry =
            std::find_if(entries, end, [tag](const TagCount& e) { return e.tag == tag; });
        if (entry != end) {
            entry->count += 1;
            return true;
        }
        if (entryCount == kOperandTagsMax) return false;
        *entry = {tag, 1};
        entryCount += 1;
        return true;
    }

    std::int32_t smallestCount() const {
        return std::min_element(entries, entries + entryCount, smallerCount)->count;
    }

    // 0 when there is no other tag.
    std::int32_t largestOtherCount() const {
        if (entryCount == 1) return 0;
        return std::max_element(entries + 1, entries + entryCount, smallerCount)->count;
    }

    static bool smallerCount(const TagCount& left, const TagCount& right) {
        return left.count < right.count;
    }
};

// The surviving records of tag 1 in a group, by their index: `begin` to `end` - 1.
struct IndexRange {
    std::int32_t begin;
    std::int32_t end;
};

IndexRange survivorsOf(SortMode mode, const TagCountTable& table) {
    const bool shared = table.entryCount > 1;
    switch (mode) {
        case SortMode::kIntersect:
            return {0, shared ? 1 : 0};
        case SortMode::kIntersectAll:
            return {0, table.entryCount == 2 ? table.smallestCount() : shared ? 1 : 0};
        case SortMode::kExcept:
            return {0, shared ? 0 : 1};
        default:
            return {table.largestOtherCount(), table.entries[0].count};
    }
}

Byte& flagOf(SortJob& job, const HeldRecord& record) {
    return recordAt(job, record.offset)[kRecordFlagOffset];
}

// Drops those records of tag 1 of the group from `first` to `last` that do not survive.
void evaluateGroup(SortJob& job, std::int32_t first, std::int32_t last,
                   const TagCountTable& table) {
    const IndexRange survivors = survivorsOf(job.sortMode, table);
    const std::int32_t firstOperands = table.entries[0].count;
    if (survivors.begin == 0 && survivors.end == firstOperands) return;
    std::int32_t index = 0;
    for (std::int32_t n = 0; n <= last - first && index < firstOperands; ++n) {
        const HeldRecord record = locateRecord(job, first + n);
        if (failed(job)) return;
        Byte& flag = flagOf(job, record);
        if (flag != kFirstOperand) continue;
        if (index < survivors.begin || index >= survivors.end) {
            flag = kDropped;
            markDirty(job, record.frameIndex);
        }
        index += 1;
    }
}

// Whether record `n` is equal to the group's first one; if so its tag is counted. Stops at errors.
bool joinsGroup(SortJob& job, std::int32_t first, std::int32_t n, TagCountTable& table) {
    const HeldRecord reference = locateRecord(job, first);
    if (failed(job)) return false;
    pinFrame(job, reference.frameIndex);
    const HeldRecord record = locateRecord(job, n);
    unpinFrame(job, reference.frameIndex);
    if (failed(job)) return false;
    const Difference difference = recordsDiffer(job, reference.offset, record.offset);
    if (failed(job) || difference != Difference::kSame) return false;
    if (!table.add(flagOf(job, record))) {
        raise(job, ErrorCode::kTooManyOperands);
        return false;
    }
    return true;
}

// The group that begins at record `first`, which has tag 1. Answers its last record.
std::int32_t filterGroup(SortJob& job, std::int32_t first) {
    TagCountTable table;
    table.begin();
    std::int32_t last = first;
    while (last < job.recordCount && joinsGroup(job, first, last + 1, table))
        last += 1;
    if (!failed(job)) evaluateGroup(job, first, last, table);
    return last;
}

// Whatever carries another tag still belongs to no group's survivors.
void dropOtherOperands(SortJob& job) {
    for (std::int32_t n = 0; n < job.recordCount; ++n) {
        const HeldRecord record = locateRecord(job, n + 1);
        if (failed(job)) return;
        Byte& flag = flagOf(job, record);
        if (flag == kSurvives) continue;
        flag = kDropped;
        markDirty(job, record.frameIndex);
    }
}

}  // namespace

void applySetOperation(SortJob& job) {
    // Counts the records done: the one behind the last may have no number.
    std::int32_t done = 0;
    while (done < job.recordCount) {
        const HeldRecord record = locateRecord(job, done + 1);
        if (failed(job)) return;
        done = flagOf(job, record) == kFirstOperand ? filterGroup(job, done + 1) : done + 1;
        if (failed(job)) return;
    }
    dropOtherOperands(job);
}

}  // namespace tvsort

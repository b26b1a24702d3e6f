#include "result/hierarchy_sort.h"

#include <cstring>
#include <utility>

#include "result/record_field.h"
#include "result/sibling_ranking.h"

namespace tvsort {

namespace {

constexpr std::int32_t kRootLevel = 1;

// Records that the permutation holds outside the frames.
Byte heldRecord[kRecordBufferBytes];
Byte displacedRecord[kRecordBufferBytes];

std::int32_t readLevel(SortJob& job, std::int32_t recordNumber) {
    return readField(job, recordNumber, job.keys[0].fieldOffset - kHierarchyLevelBytes);
}

// The subtree of the newest sibling of `level` ends before record `nextRecord`. It is compared with
// the first sibling of its run at once, though it is ranked only when the run is complete: a value
// that cannot be compared is reported when its record has come, whatever the records behind it
// hold.
void completeSubtree(SortJob& job, std::int32_t level, std::int32_t nextRecord) {
    const SiblingRun& run = job.groupTable[level];
    writeField(job, run.last, kSubtreeSizeOffset, nextRecord - run.last);
    if (!failed(job) && run.last != run.first) siblingPrecedes(job, run.last, run.first);
}

// Completes the subtrees that end before record `nextRecord`, from the deepest level up to `level`,
// and ranks the runs that are complete with them: those below `lastOpenLevel`.
void closeLevels(SortJob& job, std::int32_t level, std::int32_t lastOpenLevel,
                 std::int32_t nextRecord) {
    for (std::int32_t open = job.groupTableTop; open >= level; --open) {
        completeSubtree(job, open, nextRecord);
        if (failed(job)) return;
        if (open > lastOpenLevel) rankSiblings(job, job.groupTable[open]);
        if (failed(job)) return;
    }
}

// The first walk.
void measureAndRank(SortJob& job) {
    job.groupTableTop = 0;
    for (std::int32_t n = 1; n <= job.recordCount; ++n) {
        const std::int32_t level = readLevel(job, n);
        if (failed(job)) return;
        // The level of the record before is the deepest one open.
        if (level < kRootLevel || level > kHierarchyLevelMax || level > job.groupTableTop + 1) {
            raise(job, ErrorCode::kHierarchyInvalid);
            return;
        }
        closeLevels(job, level, level, n);
        if (failed(job)) return;
        if (level > job.groupTableTop) job.groupTable[level].first = n;
        job.groupTable[level].last = n;
        job.groupTableTop = level;
    }
    closeLevels(job, kRootLevel, kRootLevel - 1, job.recordCount + 1);
}

// The second walk: a record's place is its parent's, one for the parent itself, and the records of
// the siblings' subtrees before its own. `groupTable[level].first` holds, for the record last seen
// at each level, the place where its children begin.
void propagatePositions(SortJob& job) {
    job.groupTable[kRootLevel - 1].first = 0;
    for (std::int32_t n = 1; n <= job.recordCount; ++n) {
        const std::int32_t level = readLevel(job, n);
        const std::int32_t amongSiblings = readField(job, n, kOutputPositionOffset);
        if (failed(job)) return;
        const std::int32_t position = job.groupTable[level - 1].first + amongSiblings;
        writeField(job, n, kOutputPositionOffset, position);
        job.groupTable[level].first = position + 1;
    }
}

// Moves along the cycle that begins at position `start`: each record goes where its
// `outputPosition` says, and the one that it displaces goes on.
void followCycle(SortJob& job, std::int32_t start, std::int32_t target) {
    Byte* held = heldRecord;
    Byte* displaced = displacedRecord;
    std::memcpy(held, recordAt(job, addressRecord(job, start)), job.recordLength);
    for (;;) {
        const HeldRecord place = locateRecord(job, target);
        if (failed(job)) return;
        Byte* const record = recordAt(job, place.offset);
        std::memcpy(displaced, record, job.recordLength);
        std::memcpy(record, held, job.recordLength);
        markDirty(job, place.frameIndex);
        if (target == start) return;
        std::swap(held, displaced);
        target = loadI32(held + kOutputPositionOffset) + 1;
    }
}

// A record that has come to its place is found in place when its position's turn comes.
void applyPermutation(SortJob& job) {
    for (std::int32_t n = 1; n <= job.recordCount; ++n) {
        const std::int32_t target = readField(job, n, kOutputPositionOffset) + 1;
        if (failed(job)) return;
        if (target != n) followCycle(job, n, target);
        if (failed(job)) return;
    }
}

}  // namespace

void sortHierarchy(SortJob& job) {
    job.currentFrame = 0;
    measureAndRank(job);
    if (failed(job)) return;
    propagatePositions(job);
    if (failed(job)) return;
    applyPermutation(job);
}

}  // namespace tvsort

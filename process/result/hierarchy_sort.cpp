#include "process/result/hierarchy_sort.h"

#include <cstring>
#include <limits>
#include <utility>

#include "process/result/record_field.h"
#include "process/result/sibling_ranking.h"

namespace tvsort {

namespace {

constexpr std::int32_t kRootLevel = 1;

// Records that the permutation holds outside the frames.
Byte heldRecord[kRecordBufferBytes];
Byte displacedRecord[kRecordBufferBytes];

std::uint32_t levelOffset(const SortJob& job) {
    return job.keys[0].fieldOffset - kHierarchyLevelBytes;
}

void completeSubtree(SortJob& job, std::int32_t level, std::int32_t nextRecord) {
    const std::int32_t newest = job.groupTable[level].last;
    writeField(job, newest, kSubtreeSizeOffset, nextRecord - newest);
}

// Completes the subtrees that end before record `nextRecord`, from the deepest level up to `level`,
// and ranks the runs that are complete with them: those below `lastOpenLevel`. After an error
// `groupTableTop` is the level at which it was met.
void closeLevels(SortJob& job, std::int32_t level, std::int32_t lastOpenLevel,
                 std::int32_t nextRecord) {
    for (; job.groupTableTop >= level; --job.groupTableTop) {
        completeSubtree(job, job.groupTableTop, nextRecord);
        if (failed(job)) return;
        if (job.groupTableTop > lastOpenLevel) {
            rankSiblings(job, job.groupTable[job.groupTableTop]);
            if (failed(job)) return;
        }
    }
}

bool isForestLevel(const SortJob& job, std::int32_t level) {
    // The level of the record before is the deepest one open.
    return level >= kRootLevel && level <= kHierarchyLevelMax && level <= job.groupTableTop + 1;
}

// The first walk.
void measureAndRank(SortJob& job) {
    job.groupTableTop = 0;
    for (std::int32_t n = 1; n <= job.recordCount; ++n) {
        const std::int32_t level = readField(job, n, levelOffset(job));
        if (failed(job)) return;
        if (!isForestLevel(job, level)) {
            raise(job, ErrorCode::kHierarchyInvalid);
            return;
        }
        const bool opensRun = level > job.groupTableTop;
        closeLevels(job, level, level, n);
        if (failed(job)) return;
        if (opensRun) job.groupTable[level].first = n;
        job.groupTable[level].last = n;
        job.groupTableTop = level;
    }
    closeLevels(job, kRootLevel, kRootLevel - 1, job.recordCount + 1);
}

// The siblings of the open run at `level` whose subtrees are complete; none where `last` is 0.
SiblingRun completeSiblings(SortJob& job, std::int32_t level, bool newestIsComplete) {
    SiblingRun run = job.groupTable[level];
    if (newestIsComplete) return run;
    const std::int32_t newest = run.last;
    run.last = 0;
    for (std::int32_t n = run.first; n < newest && !failed(job);) {
        run.last = n;
        n += readFieldWithin(job, n, kSubtreeSizeOffset, 1, newest - n);
    }
    return run;
}

bool isPoolError(ErrorCode code) {
    return code == ErrorCode::kWorkFileRead || code == ErrorCode::kWorkFileWrite ||
           code == ErrorCode::kNoFreeFrame;
}

// What comparing each sibling at its end would have met: in the open runs, from the roots down,
// then the error at hand. That the work file fails on the way does not count.
ErrorCode earliestComplaint(SortJob& job, ErrorCode atHand) {
    const bool levelRefused = atHand == ErrorCode::kHierarchyInvalid;
    for (std::int32_t level = kRootLevel; level <= job.groupTableTop; ++level) {
        job.errorCode = ErrorCode::kSuccess;
        const bool newestIsComplete = level == job.groupTableTop && !levelRefused;
        const SiblingRun run = completeSiblings(job, level, newestIsComplete);
        if (run.last == 0) continue;
        const ErrorCode complaint = firstComplaint(job, run);
        if (complaint != ErrorCode::kSuccess && !isPoolError(complaint)) return complaint;
    }
    return atHand;
}

// Runs are ranked when they are complete, which is later than a sibling's own end: where something
// fails in between, a value that cannot be compared has its turn first. The reply's system error
// number, which belongs to the pool's codes alone, stays as it is.
void settleError(SortJob& job) {
    if (isPoolError(job.errorCode)) return;
    const std::int32_t osErrorBefore = job.reply.osError;
    job.errorCode = earliestComplaint(job, job.errorCode);
    job.reply.osError = osErrorBefore;
}

// The second walk: a record's place is its parent's, one for the parent itself, and the records of
// the siblings' subtrees before its own. `groupTable[level].first` holds, for the record last seen
// at each level, the place where its children begin.
void propagatePositions(SortJob& job) {
    job.groupTable[kRootLevel - 1].first = 0;
    for (std::int32_t n = 1; n <= job.recordCount; ++n) {
        const std::int32_t level =
            readFieldWithin(job, n, levelOffset(job), kRootLevel, kHierarchyLevelMax);
        const std::int32_t childrenBegin = job.groupTable[level - 1].first;
        const std::int32_t amongSiblings =
            readFieldWithin(job, n, kOutputPositionOffset, 0, job.recordCount - 1 - childrenBegin);
        if (failed(job)) return;
        const std::int32_t position = childrenBegin + amongSiblings;
        writeField(job, n, kOutputPositionOffset, position);
        job.groupTable[level].first = position + 1;
    }
}

// Positions count from 0; one that cannot be gives 0.
std::int32_t positionToNumber(std::int32_t position) {
    return position < 0 || position == std::numeric_limits<std::int32_t>::max() ? 0 : position + 1;
}

// Moves along the cycle that begins at position `start`: each record goes where its
// `outputPosition` says, and the one that it displaces goes on. `movesLeft` counts down to 0 over
// all cycles of a permutation, and no further: what goes beyond it is none.
void followCycle(SortJob& job, std::int32_t start, std::int32_t target, std::int32_t& movesLeft) {
    Byte* held = heldRecord;
    Byte* displaced = displacedRecord;
    std::memcpy(held, recordAt(job, addressRecord(job, start)), job.recordLength);
    for (;; --movesLeft) {
        if (target < 1 || target > job.recordCount || movesLeft == 0) {
            raise(job, ErrorCode::kHierarchyInvalid);
            return;
        }
        const HeldRecord place = locateRecord(job, target);
        if (failed(job)) return;
        Byte* const record = recordAt(job, place.offset);
        std::memcpy(displaced, record, job.recordLength);
        std::memcpy(record, held, job.recordLength);
        markDirty(job, place.frameIndex);
        if (target == start) return;
        std::swap(held, displaced);
        target = positionToNumber(loadI32(held + kOutputPositionOffset));
    }
}

// A record that has come to its place is found in place when its position's turn comes.
void applyPermutation(SortJob& job) {
    std::int32_t movesLeft = job.recordCount;
    for (std::int32_t n = 1; n <= job.recordCount; ++n) {
        const std::int32_t target = positionToNumber(readField(job, n, kOutputPositionOffset));
        if (failed(job)) return;
        if (target != n) followCycle(job, n, target, movesLeft);
        if (failed(job)) return;
    }
}

}  // namespace

void sortHierarchy(SortJob& job) {
    job.currentFrame = 0;
    measureAndRank(job);
    if (failed(job)) {
        settleError(job);
        return;
    }
    propagatePositions(job);
    if (failed(job)) return;
    applyPermutation(job);
}

}  // namespace tvsort

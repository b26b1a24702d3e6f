#include "service/request_loop.h"

#include <algorithm>

#include "result/compaction.h"
#include "result/hierarchy_sort.h"
#include "result/row_limit.h"
#include "service/channel.h"
#include "service/key_list.h"
#include "service/request_check.h"
#include "sort/sort_driver.h"
#include "storage/page_pool.h"
#include "storage/work_file.h"

namespace tvsort {

namespace {

// Handed to the in-memory sort, which holds one record in it.
Byte scratch[kRecordBufferBytes];

void takeGeometry(SortJob& job, const SortRequest& request) {
    job.fileBlocks = request.fileBlocks;
    job.blockPages = request.blockPages;
    // A geometry that gives no frame is refused, but only after the key list was looked at.
    job.framesPerBlock = request.blockPages < 1 ? 0 : job.pagesPerBlock / request.blockPages;
    job.frameCount = job.framesPerBlock * job.memoryBlocks;
    job.recordCount = request.recordCount;
    job.recordsPerBlock = request.recordsPerBlock;
    job.recordLength = request.recordLength;
    job.keyCount = request.keyCount;
    job.sortMode = static_cast<SortMode>(request.sortMode & 0xff);
    job.limitCount = request.limitCount;
    job.groupCount = 0;
    const bool setOperation =
        job.sortMode >= SortMode::kIntersect && job.sortMode <= SortMode::kExceptAll;
    job.modeFlag = setOperation ? 1 : 0;
}

void prepareKeys(SortJob& job) {
    takeKeyList(job);
    if (failed(job)) return;
    checkRequest(job);
    if (failed(job)) return;
    takeItems(job);
    resolveKeyRules(job);
}

// When the data set is larger than the pool, every frame is dirty: the server's blocks must reach
// the file before their frames are reused.
void preparePool(SortJob& job) {
    clearHashTable(job, job.fileBlocks);
    job.framesInUse = std::min(job.fileBlocks, job.frameCount);
    job.mruFrame = job.framesInUse - 1;
    job.currentFrame = 0;  // an earlier request's frame may not even exist in this one's geometry
    initPool(job, job.framesInUse,
             job.frameCount < job.fileBlocks ? DirtyFlags::kSet : DirtyFlags::kKeep);
}

void shapeResult(SortJob& job) {
    switch (job.sortMode) {
        case SortMode::kOrder:
        case SortMode::kHierarchy:
        case SortMode::kUnique:
        case SortMode::kUniqueUnlessNull:
            if (job.limitCount == 0) return;
            extendLimitToTies(job);
            job.recordCount = std::min(job.limitCount, job.recordCount);
            return;
        default:
            compactSortedFile(job);
    }
}

void orderAndShape(SortJob& job) {
    preparePool(job);
    if (job.recordCount <= 1) {
        job.groupCount = job.recordCount;
        return;
    }
    if (job.sortMode == SortMode::kHierarchy) {
        sortHierarchy(job);
    } else {
        sortRecords(job, scratch);
    }
    if (failed(job)) return;
    if (!flushPool(job)) return;
    shapeResult(job);
}

// Fills the frames with the first blocks of a data set of `fileBlocks` blocks, if it is larger than
// the pool. A failure is raised only where no earlier one is to be reported.
void reloadFrames(SortJob& job, std::int32_t fileBlocks) {
    if (job.errorCode == ErrorCode::kRequestContradictory) return;
    if (job.frameCount < 1 || job.frameCount >= fileBlocks) return;
    const ErrorCode errorBefore = job.errorCode;
    Byte* const osError = job.message + offsetof(SortReply, osError);
    const auto osErrorBefore = loadI32(osError);
    readBlocks(job, job.frameArea, 1, job.frameCount);
    if (errorBefore != ErrorCode::kSuccess) {
        job.errorCode = errorBefore;
        storeAs<std::int32_t>(osError, osErrorBefore);
    }
    clearHashTable(job, fileBlocks);
    initPool(job, job.frameCount, DirtyFlags::kKeep);
}

// The message buffer turns from request to reply: the words of a failed one stay the request's.
void writeResultWords(const SortJob& job) {
    storeAs(job.message + offsetof(SortReply, fileBlocks), job.fileBlocks);
    storeAs(job.message + offsetof(SortReply, blockPages), job.blockPages);
    storeAs(job.message + offsetof(SortReply, recordCount), job.recordCount);
    storeAs(job.message + offsetof(SortReply, groupCount), job.groupCount);
    storeAs(job.message + offsetof(SortReply, recordLength), job.recordLength);
}

}  // namespace

void serveRequest(SortJob& job) {
    job.errorCode = ErrorCode::kSuccess;
    // Without a work file no request has been taken yet: there is nothing to reload.
    std::int32_t requestFileBlocks = 0;
    if (!receiveMessage(job)) {
        // 1401 is to be reported.
    } else if (messageBytes(job) < sizeof(SortRequest)) {
        raise(job, ErrorCode::kRequestContradictory);
    } else {
        const auto request = loadAs<SortRequest>(job.message);
        requestFileBlocks = request.fileBlocks;
        takeGeometry(job, request);
        prepareKeys(job);
        if (!failed(job)) orderAndShape(job);
    }
    reloadFrames(job, requestFileBlocks);
    if (!failed(job)) writeResultWords(job);
    sendReply(job);
}

void serveRequests(SortJob& job) {
    if (failed(job)) sendReply(job);
    for (;;)
        serveRequest(job);
}

}  // namespace tvsort

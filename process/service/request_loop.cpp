#include "process/service/request_loop.h"

#include <algorithm>

#include "process/keys/key_meaning.h"
#include "process/result/compaction.h"
#include "process/result/hierarchy_sort.h"
#include "process/result/row_limit.h"
#include "process/service/channel.h"
#include "process/service/key_list.h"
#include "process/service/request_check.h"
#include "process/sort/sort_driver.h"
#include "process/storage/page_pool.h"
#include "process/storage/work_file.h"

namespace tvsort {

namespace {

// Handed to the in-memory sort, which holds one record in it.
Byte scratch[kRecordBufferBytes];

// The data set as the request states it; shaping the result changes what the job says of it.
struct DataSet {
    std::int32_t fileBlocks;
    std::int32_t recordCount;
};

// What `framesInUse` is before a request has set up the pool.
constexpr std::int32_t kPoolNotSet = -1;

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
    takeItems(job);
    if (failed(job)) return;
    checkRequest(job);
    if (failed(job)) return;
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
             job.frameCount < job.fileBlocks ? DirtyFlags::kSet : DirtyFlags::kFromSlot);
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

// Fills the frames with the first blocks of the request's data set, if it is larger than the pool.
// A failure is raised only where no earlier one is to be reported.
void reloadFrames(SortJob& job, const DataSet& requested) {
    const std::int32_t fileBlocks = requested.fileBlocks;
    if (job.errorCode == ErrorCode::kRequestContradictory) return;
    if (job.frameCount < 1 || job.frameCount >= fileBlocks) return;
    const ErrorCode errorBefore = job.errorCode;
    const std::int32_t osErrorBefore = job.reply.osError;
    // A single record is neither sorted nor flushed: it stands in frame 0 and nowhere else.
    const std::int32_t keptFrames = requested.recordCount == 1 ? 1 : 0;
    readBlocks(job, recordAt(job, frameOffset(job, keptFrames)), 1 + keptFrames,
               job.frameCount - keptFrames);
    if (errorBefore != ErrorCode::kSuccess) {
        job.errorCode = errorBefore;
        job.reply.osError = osErrorBefore;
    }
    clearHashTable(job, fileBlocks);
    // A request refused before its pool was set up has not looked at the slot's flags yet.
    const bool poolIsSet = job.framesInUse != kPoolNotSet;
    job.framesInUse = job.frameCount;
    initPool(job, job.frameCount, poolIsSet ? DirtyFlags::kKeep : DirtyFlags::kFromSlot);
}

// The words of a failed request stay the request's.
void writeResultWords(SortJob& job) {
    job.reply.fileBlocks = job.fileBlocks;
    job.reply.blockPages = job.blockPages;
    job.reply.recordCount = job.recordCount;
    job.reply.groupCount = job.groupCount;
    job.reply.recordLength = job.recordLength;
}

}  // namespace

void serveRequest(SortJob& job) {
    job.errorCode = ErrorCode::kSuccess;
    job.framesInUse = kPoolNotSet;
    // Without a work file no request has been taken yet: there is nothing to reload.
    DataSet requested = {};
    if (!receiveMessage(job)) {
        // 1401 is to be reported.
    } else if (messageBytes() < sizeof(SortRequest)) {
        raise(job, ErrorCode::kRequestContradictory);
    } else {
        SortRequest request;
        copyFromMessage(0, &request, sizeof request);
        requested = {request.fileBlocks, request.recordCount};
        takeGeometry(job, request);
        prepareKeys(job);
        if (!failed(job)) orderAndShape(job);
    }
    reloadFrames(job, requested);
    if (job.framesInUse != kPoolNotSet) showPool(job, requested.fileBlocks);
    if (!failed(job)) writeResultWords(job);
    sendReply(job);
}

void serveRequests(SortJob& job) {
    if (failed(job)) sendReply(job);
    for (;;)
        serveRequest(job);
}

}  // namespace tvsort

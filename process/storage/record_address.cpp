#include "process/storage/record_address.h"

#include "process/storage/page_pool.h"

namespace tvsort {

namespace {

std::uint32_t currentPlace(const SortJob& job) {
    return frameOffset(job, job.currentFrame) + job.recordOffset;
}

}  // namespace

std::uint32_t addressRecord(SortJob& job, std::int32_t recordNumber) {
    job.wantedBlock = blockOfRecord(job, recordNumber);
    const std::int32_t indexInBlock =
        recordNumber - 1 - (job.wantedBlock - 1) * std::int32_t{job.recordsPerBlock};
    job.recordOffset = static_cast<std::uint16_t>(indexInBlock * std::int32_t{job.recordLength});
    if (job.pageDescriptors[job.currentFrame].block == job.wantedBlock) return currentPlace(job);

    const std::int32_t bucket = hashBucket(job, job.wantedBlock);
    const std::int32_t frame = findFrame(job, bucket, job.wantedBlock);
    if (frame == kNoFrame) {
        bringInBlock(job, bucket);
    } else {
        if (frame != job.mruFrame) moveToHand(job, frame);
        job.currentFrame = frame;
    }
    return currentPlace(job);
}

HeldRecord locateRecord(SortJob& job, std::int32_t recordNumber) {
    const std::uint32_t offset = addressRecord(job, recordNumber);
    return {recordNumber, job.currentFrame, offset};
}

}  // namespace tvsort

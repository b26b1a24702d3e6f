#include "process/result/row_limit.h"

#include "process/keys/records_differ.h"
#include "process/storage/record_address.h"

namespace tvsort {

void extendLimitToTies(SortJob& job) {
    const std::int32_t referenceNumber = job.limitCount;
    while (job.limitCount < job.recordCount) {
        const HeldRecord reference = locateRecord(job, referenceNumber);
        if (failed(job)) return;
        pinFrame(job, reference.frameIndex);
        const std::uint32_t next = addressRecord(job, job.limitCount + 1);
        unpinFrame(job, reference.frameIndex);
        if (failed(job)) return;
        const Difference difference = recordsDiffer(job, reference.offset, next);
        if (failed(job) || difference != Difference::kSame) return;
        job.limitCount += 1;
    }
}

}  // namespace tvsort

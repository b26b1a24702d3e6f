#include "process/result/duplicate_marking.h"

#include "process/keys/records_differ.h"
#include "process/storage/record_address.h"

namespace tvsort {

void markDuplicates(SortJob& job, std::int32_t reference, std::int32_t start, std::int32_t last) {
    std::uint32_t referencePlace = placeInFrames(job, reference);
    for (std::int32_t n = start; n <= last; ++n) {
        const std::uint32_t place = placeInFrames(job, n);
        const Difference difference = recordsDiffer(job, referencePlace, place);
        if (failed(job)) return;
        if (difference == Difference::kSame) {
            recordAt(job, place)[kRecordFlagOffset] = 0;
            continue;
        }
        referencePlace = place;
        if (job.sortMode == SortMode::kGroups && difference == Difference::kNewGroup) {
            job.groupCount += 1;
            recordAt(job, placeInFrames(job, n - 1))[kRecordFlagOffset] |= kGroupEndBit;
        }
    }
}

}  // namespace tvsort

#include "process/sort/range_insertion.h"

#include <cstring>

#include "process/keys/record_precedes.h"

namespace tvsort {

namespace {

// The first place from `first` on whose record `inserted` precedes; `previous`, the last place
// before `inserted`, is known to be one.
std::uint32_t placeFor(SortJob& job, std::uint32_t inserted, std::uint32_t first,
                       std::uint32_t previous) {
    std::uint32_t place = first;
    while (place < previous && !recordPrecedes(job, inserted, place))
        place += job.recordLength;
    return place;
}

}  // namespace

void insertRange(SortJob& job, const HeldRecord& low, const HeldRecord& high, Byte* scratch) {
    const std::uint32_t recordLength = job.recordLength;
    bool moved = false;
    std::uint32_t record = low.offset;
    for (std::int32_t n = low.recordNumber; n < high.recordNumber; ++n) {
        const std::uint32_t previous = record;
        record += recordLength;
        if (!recordPrecedes(job, record, previous)) continue;
        const std::uint32_t place = placeFor(job, record, low.offset, previous);
        std::memcpy(scratch, recordAt(job, record), recordLength);
        std::memmove(recordAt(job, place + recordLength), recordAt(job, place), record - place);
        std::memcpy(recordAt(job, place), scratch, recordLength);
        moved = true;
    }
    if (moved) markDirty(job, low.frameIndex);
}

}  // namespace tvsort

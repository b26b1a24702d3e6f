// The hierarchy sort's own fields in records, read and written by record number through the pool.
// After an error nothing is read or written: the error stays the one that is reported.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"
#include "process/storage/record_address.h"
#include "protocol/bytes.h"

namespace tvsort {

// The i32 at `fieldOffset` of a record; 0 after an error.
inline std::int32_t readField(SortJob& job, std::int32_t recordNumber, std::uint32_t fieldOffset) {
    if (failed(job)) return 0;
    const std::uint32_t place = addressRecord(job, recordNumber);
    return failed(job) ? 0 : loadOnce<std::int32_t>(recordAt(job, place) + fieldOffset);
}

// The same for a field on which places and the end of loops depend: a value outside `least` to
// `most` raises 1412, and the answer is `least`. The fields are the process's own, but where the
// work file ends too early a frame keeps the bytes of another block, or where somebody writes to
// the slot out of turn, they may be anything.
inline std::int32_t readFieldWithin(SortJob& job, std::int32_t recordNumber,
                                    std::uint32_t fieldOffset, std::int32_t least,
                                    std::int32_t most) {
    const std::int32_t value = readField(job, recordNumber, fieldOffset);
    if (!failed(job) && (value < least || value > most)) raise(job, ErrorCode::kHierarchyInvalid);
    return failed(job) ? least : value;
}

inline void writeField(SortJob& job, std::int32_t recordNumber, std::uint32_t fieldOffset,
                       std::int32_t value) {
    if (failed(job)) return;
    const HeldRecord record = locateRecord(job, recordNumber);
    if (failed(job)) return;
    storeAs(recordAt(job, record.offset) + fieldOffset, value);
    markDirty(job, record.frameIndex);
}

}  // namespace tvsort

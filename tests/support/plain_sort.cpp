#include "tests/support/plain_sort.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "process/job/sort_job.h"
#include "process/keys/record_precedes.h"
#include "process/storage/record_address.h"

namespace tvsort::test {

namespace {

bool inForce = false;

struct Held {
    HeldRecord low, high, i, j;
};

bool hold(SortJob& job, std::int32_t recordNumber, HeldRecord& held) {
    held = locateRecord(job, recordNumber);
    if (failed(job)) return false;
    pinFrame(job, held.frameIndex);
    return true;
}

void unpinUnless(SortJob& job, const HeldRecord& released, const HeldRecord& first,
                 const HeldRecord& second) {
    const std::int32_t frame = released.frameIndex;
    if (frame != first.frameIndex && frame != second.frameIndex) unpinFrame(job, frame);
}

// One record on or back; another block is asked for before the old one's frame is let go.
bool step(SortJob& job, const Held& held, HeldRecord& cursor, const HeldRecord& other, int by) {
    const std::int32_t next = cursor.recordNumber + by;
    if (blockOfRecord(job, next) == blockOfRecord(job, cursor.recordNumber)) {
        cursor.offset += static_cast<std::uint32_t>(by * job.recordLength);
        cursor.recordNumber = next;
        return true;
    }
    cursor.recordNumber = next;
    const std::uint32_t offset = addressRecord(job, next);
    if (failed(job)) return false;
    const std::int32_t frame = cursor.frameIndex;
    if (frame != held.low.frameIndex && frame != held.high.frameIndex &&
        frame != other.frameIndex) {
        unpinFrame(job, frame);
    }
    cursor.frameIndex = job.currentFrame;
    cursor.offset = offset;
    pinFrame(job, cursor.frameIndex);
    return true;
}

void partition(SortJob& job, Held& held) {
    const std::int32_t distance = held.high.recordNumber - held.low.recordNumber;
    const std::int32_t middle = distance > 100 ? rand() % distance : distance / 2;
    const std::uint32_t source = addressRecord(job, held.low.recordNumber + middle);
    if (failed(job)) return;
    const auto pivot = static_cast<std::uint32_t>(job.memoryBytes);
    std::memcpy(recordAt(job, pivot), recordAt(job, source), job.recordLength);
    HeldRecord& i = held.i = held.low;
    HeldRecord& j = held.j = held.high;
    do {
        while (recordPrecedes(job, i.offset, pivot) && i.recordNumber != held.high.recordNumber)
            if (!step(job, held, i, j, 1)) return;
        while (recordPrecedes(job, pivot, j.offset) && j.recordNumber != held.low.recordNumber)
            if (!step(job, held, j, i, -1)) return;
        if (i.recordNumber < j.recordNumber) {
            Byte* const left = recordAt(job, i.offset);
            std::swap_ranges(left, left + job.recordLength, recordAt(job, j.offset));
            markDirty(job, i.frameIndex);
            markDirty(job, j.frameIndex);
        }
        if (i.recordNumber <= j.recordNumber) {
            if (i.recordNumber != job.recordCount && !step(job, held, i, j, 1)) return;
            if (j.recordNumber != 1 && !step(job, held, j, i, -1)) return;
        }
        if (failed(job)) return;
    } while (i.recordNumber <= j.recordNumber);
}

void insertRecords(SortJob& job, const Held& held, Byte* scratch) {
    const std::uint32_t length = job.recordLength;
    for (std::uint32_t at = held.low.offset + length; at <= held.high.offset; at += length) {
        if (!recordPrecedes(job, at, at - length)) continue;
        std::uint32_t place = held.low.offset;
        while (place < at - length && !recordPrecedes(job, at, place))
            place += length;
        std::memcpy(scratch, recordAt(job, at), length);
        std::memmove(recordAt(job, place + length), recordAt(job, place), at - place);
        std::memcpy(recordAt(job, place), scratch, length);
        markDirty(job, held.low.frameIndex);
    }
}

void push(SortJob& job, const HeldRecord& low, const HeldRecord& high) {
    if (low.recordNumber >= high.recordNumber) return;
    job.partitionStack[job.partitionDepth++] = {low.recordNumber, high.recordNumber};
}

// The smaller part is worked on at once, the larger one waits.
void keepSmallerPart(SortJob& job, Held& held) {
    const Held parts = held;
    if (parts.j.recordNumber - parts.low.recordNumber >=
        parts.high.recordNumber - parts.i.recordNumber) {
        push(job, parts.low, parts.j);
        unpinUnless(job, parts.j, parts.i, parts.high);
        unpinUnless(job, parts.low, parts.i, parts.high);
        held.low = parts.i;
    } else {
        push(job, parts.i, parts.high);
        unpinUnless(job, parts.high, parts.j, parts.low);
        unpinUnless(job, parts.i, parts.j, parts.low);
        held.high = parts.j;
    }
}

void sortRange(SortJob& job, const RecordRange& range, Byte* scratch) {
    Held held = {};
    if (!hold(job, range.low, held.low) || !hold(job, range.high, held.high)) return;
    while (held.low.recordNumber < held.high.recordNumber) {
        if (held.low.frameIndex == held.high.frameIndex &&
            held.high.recordNumber - held.low.recordNumber < 20) {
            insertRecords(job, held, scratch);
            break;
        }
        job.compareState = 0;
        partition(job, held);
        if (failed(job)) return;
        if (job.compareState == 0) {
            unpinFrame(job, held.i.frameIndex);
            unpinFrame(job, held.j.frameIndex);
            break;
        }
        keepSmallerPart(job, held);
    }
    unpinFrame(job, held.low.frameIndex);
    unpinFrame(job, held.high.frameIndex);
}

void sortPlainly(SortJob& job, Byte* scratch) {
    job.memoryBytes =
        static_cast<std::int32_t>(job.memoryBlocks * job.pagesPerBlock * int{kPageBytes});
    job.currentFrame = 0;
    job.partitionStack[0] = {1, job.recordCount};
    job.partitionDepth = 1;
    while (job.partitionDepth > 0 && !failed(job))
        sortRange(job, job.partitionStack[--job.partitionDepth], scratch);
}

}  // namespace

PlainSort::PlainSort() {
    inForce = true;
}

PlainSort::~PlainSort() {
    inForce = false;
}

}  // namespace tvsort::test

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" void __real__ZN6tvsort11sortRecordsERNS_7SortJobEPh(tvsort::SortJob& job,
                                                               tvsort::Byte* scratch);
extern "C" void __wrap__ZN6tvsort11sortRecordsERNS_7SortJobEPh(tvsort::SortJob& job,
                                                               tvsort::Byte* scratch) {
    if (tvsort::test::inForce) return tvsort::test::sortPlainly(job, scratch);
    __real__ZN6tvsort11sortRecordsERNS_7SortJobEPh(job, scratch);
}
// NOLINTEND(bugprone-reserved-identifier)

#include "result/sibling_ranking.h"

#include "keys/record_precedes.h"
#include "result/hierarchy_sort.h"
#include "result/record_field.h"

namespace tvsort {

namespace {

// Ends a list. Record numbers count from 1.
constexpr std::int32_t kNoRecord = 0;
// One pending list for each bit of a count of siblings.
constexpr int kPendingListsMax = 31;

std::int32_t nextSibling(SortJob& job, std::int32_t sibling) {
    return readFieldWithin(job, sibling, kOutputPositionOffset, kNoRecord, job.recordCount);
}

void setNextSibling(SortJob& job, std::int32_t sibling, std::int32_t next) {
    writeField(job, sibling, kOutputPositionOffset, next);
}

// Whether record `leftNumber` must stand before record `rightNumber`. False after an error.
bool siblingPrecedes(SortJob& job, std::int32_t leftNumber, std::int32_t rightNumber) {
    if (failed(job)) return false;
    const HeldRecord left = locateRecord(job, leftNumber);
    if (failed(job)) return false;
    pinFrame(job, left.frameIndex);
    const std::uint32_t right = addressRecord(job, rightNumber);
    unpinFrame(job, left.frameIndex);
    return !failed(job) && recordPrecedes(job, left.offset, right);
}

// The same sibling after an error.
std::int32_t siblingBehind(SortJob& job, std::int32_t sibling) {
    const std::int32_t recordsLeft = job.recordCount - sibling + 1;
    const std::int32_t size = readFieldWithin(job, sibling, kSubtreeSizeOffset, 1, recordsLeft);
    return failed(job) ? sibling : sibling + size;
}

// A list that grows at its end.
struct GrowingList {
    std::int32_t head = kNoRecord;
    std::int32_t tail = kNoRecord;

    void append(SortJob& job, std::int32_t sibling) {
        if (head == kNoRecord) {
            head = sibling;
        } else {
            setNextSibling(job, tail, sibling);
        }
        tail = sibling;
    }
};

// Merges two ordered lists; siblings of the earlier one come first among equals.
std::int32_t mergeLists(SortJob& job, std::int32_t earlier, std::int32_t later) {
    GrowingList merged;
    for (std::int32_t taken = 0; earlier != kNoRecord && later != kNoRecord; ++taken) {
        if (taken == job.recordCount) raise(job, ErrorCode::kHierarchyInvalid);  // a ring of links
        if (failed(job)) break;
        std::int32_t& list = siblingPrecedes(job, later, earlier) ? later : earlier;
        const std::int32_t sibling = list;
        list = nextSibling(job, sibling);
        merged.append(job, sibling);
    }
    merged.append(job, earlier != kNoRecord ? earlier : later);
    return merged.head;
}

// Sorts the run and answers the head of its list.
std::int32_t sortSiblings(SortJob& job, const SiblingRun& run) {
    std::int32_t pending[kPendingListsMax] = {};
    std::int32_t sibling = run.first;
    while (sibling <= run.last && !failed(job)) {
        const std::int32_t following = siblingBehind(job, sibling);
        setNextSibling(job, sibling, kNoRecord);
        std::int32_t list = sibling;
        int bit = 0;
        for (; pending[bit] != kNoRecord; ++bit) {
            list = mergeLists(job, pending[bit], list);
            pending[bit] = kNoRecord;
        }
        pending[bit] = list;
        sibling = following;
    }
    std::int32_t sorted = kNoRecord;
    for (const std::int32_t list : pending) {
        if (list == kNoRecord) continue;
        sorted = sorted == kNoRecord ? list : mergeLists(job, list, sorted);
    }
    return sorted;
}

// Sibling number `number` of the run, from 1. After an error some sibling or other.
std::int32_t siblingOfNumber(SortJob& job, const SiblingRun& run, std::int32_t number) {
    std::int32_t sibling = run.first;
    for (std::int32_t n = 1; n < number && !failed(job); ++n)
        sibling = siblingBehind(job, sibling);
    return sibling;
}

std::int32_t countSiblings(SortJob& job, const SiblingRun& run) {
    std::int32_t count = 1;
    for (std::int32_t sibling = run.first; sibling < run.last && !failed(job); ++count) {
        sibling = siblingBehind(job, sibling);
    }
    return count;
}

// Whether the first `count` siblings of the run can all be compared with one another.
bool areComparable(SortJob& job, const SiblingRun& run, std::int32_t count) {
    job.errorCode = ErrorCode::kSuccess;
    sortSiblings(job, {run.first, siblingOfNumber(job, run, count)});
    return !failed(job);
}

}  // namespace

void rankSiblings(SortJob& job, const SiblingRun& run) {
    std::int32_t sibling = sortSiblings(job, run);
    std::int32_t recordsBefore = 0;
    while (sibling != kNoRecord && !failed(job)) {
        const std::int32_t following = nextSibling(job, sibling);
        const std::int32_t subtreeSize =
            readFieldWithin(job, sibling, kSubtreeSizeOffset, 1, job.recordCount - recordsBefore);
        writeField(job, sibling, kOutputPositionOffset, recordsBefore);
        recordsBefore += subtreeSize;
        sibling = following;
    }
}

ErrorCode firstComplaint(SortJob& job, const SiblingRun& run) {
    job.errorCode = ErrorCode::kSuccess;
    std::int32_t count = countSiblings(job, run);
    if (areComparable(job, run, count)) return ErrorCode::kSuccess;
    // More siblings have no fewer complaints: find the fewest that have one.
    std::int32_t comparable = 1;
    while (count - comparable > 1) {
        const std::int32_t middle = comparable + (count - comparable) / 2;
        if (areComparable(job, run, middle)) {
            comparable = middle;
        } else {
            count = middle;
        }
    }
    job.errorCode = ErrorCode::kSuccess;
    const std::int32_t culprit = siblingOfNumber(job, run, count);
    ErrorCode complaint = ErrorCode::kSuccess;
    std::int32_t sibling = run.first;
    for (std::int32_t n = 1; n < count; ++n) {
        siblingPrecedes(job, culprit, sibling);
        if (failed(job)) complaint = job.errorCode;
        job.errorCode = ErrorCode::kSuccess;
        sibling = siblingBehind(job, sibling);
    }
    return complaint;
}

}  // namespace tvsort

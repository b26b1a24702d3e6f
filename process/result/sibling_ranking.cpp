#include "process/result/sibling_ranking.h"

#include "process/keys/record_precedes.h"
#include "process/result/hierarchy_sort.h"
#include "process/result/record_field.h"
#include "process/storage/server_watch.h"

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
    watchServer(job, 2 * std::size_t{job.recordLength});
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

// Sorts the run by merging and answers the head of its list.
std::int32_t mergeSiblings(SortJob& job, const SiblingRun& run) {
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

// Whether values of the key may be equal to two others that differ: floats within their tolerance
// and a NaN, geometries within theirs, and decimals that are none under a descending key.
bool tiesLoosely(const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kSingle:
        case Comparison::kDouble:
        case Comparison::kGeometry:
            return true;
        case Comparison::kDecimal:
            return !rule.ascending;
        default:
            return false;
    }
}

// Whether the key may have values that cannot be compared.
bool mayComplain(const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kString:
        case Comparison::kWeightedString:
        case Comparison::kUnitString:
        case Comparison::kCollatedUnitString:
        case Comparison::kGeometry:
            return true;
        case Comparison::kDecimal:
            return rule.ascending;
        default:
            return false;
    }
}

// Whether siblings that do not end up next to one another may tie in one key and complain in a
// later one.
bool mergeMayMissComplaints(const SortJob& job) {
    bool tiedLoosely = false;
    for (int k = 0; k < job.keyCount; ++k) {
        if (tiedLoosely && mayComplain(job.keyRules[k])) return true;
        tiedLoosely = tiedLoosely || tiesLoosely(job.keyRules[k]);
    }
    return false;
}

// Whether some key of the sibling has a value that cannot be compared: a record ties with itself in
// all others. False after an error of the pool, which stands in the job.
bool complainsOfItself(SortJob& job, std::int32_t sibling) {
    const std::uint32_t place = addressRecord(job, sibling);
    if (failed(job)) return false;
    recordPrecedes(job, place, place);
    const bool complained = failed(job);
    job.errorCode = ErrorCode::kSuccess;
    return complained;
}

// Compares what cannot be compared with every other sibling, until it shows.
void compareAllPairs(SortJob& job, const SiblingRun& run) {
    for (std::int32_t sibling = run.first; sibling <= run.last && !failed(job);
         sibling = siblingBehind(job, sibling)) {
        if (!complainsOfItself(job, sibling)) continue;
        for (std::int32_t other = run.first; other <= run.last && !failed(job);
             other = siblingBehind(job, other)) {
            if (other != sibling) siblingPrecedes(job, sibling, other);
        }
    }
}

// Sorts the run and answers the head of its list. Raises a code if any two of the siblings, next to
// one another or not, cannot be compared.
std::int32_t sortSiblings(SortJob& job, const SiblingRun& run) {
    const std::int32_t sorted = mergeSiblings(job, run);
    if (!failed(job) && mergeMayMissComplaints(job)) compareAllPairs(job, run);
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

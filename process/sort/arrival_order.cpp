#include "process/sort/arrival_order.h"

namespace tvsort {

namespace {

// Walks through the records in either direction.
class RecordCursor {
  public:
    RecordCursor(const RecordArray& records, std::uint32_t index)
        : records_(records),
          block_(records.first + index / records.recordsPerBlock * records.blockBytes),
          inBlock_(index % records.recordsPerBlock),
          record_(block_ + std::size_t{inBlock_} * records.recordLength) {}

    Byte* record() const { return record_; }
    void stepUp() {
        record_ += records_.recordLength;
        if (++inBlock_ < records_.recordsPerBlock) return;
        block_ += records_.blockBytes;
        record_ = block_;
        inBlock_ = 0;
    }
    void stepDown() {
        record_ -= records_.recordLength;
        if (inBlock_-- > 0) return;
        block_ -= records_.blockBytes;
        inBlock_ = records_.recordsPerBlock - 1;
        record_ = block_ + std::size_t{inBlock_} * records_.recordLength;
    }

  private:
    const RecordArray& records_;
    Byte* block_;
    std::uint32_t inBlock_;
    Byte* record_;
};

// The indexes between which equal neighbours stand after the exchanges; none while it is empty.
struct EqualRange {
    std::uint32_t begin;
    std::uint32_t end;

    void include(std::uint32_t first) {
        begin = std::min(begin, first);
        end = std::max(end, first + 2);
    }
};

// Exchanges pairs from both ends, up to `pairs` of them, as long as their neighbours descend.
// Answers how many pairs it exchanged.
std::uint32_t exchangeDescending(const NormalizedKey& key, const RecordArray& records,
                                 std::uint32_t pairs, EqualRange& equal) {
    RecordCursor low(records, 0);
    RecordCursor high(records, records.count - 1);
    for (std::uint32_t i = 0; i < pairs; ++i) {
        Byte* const left = low.record();
        Byte* const right = high.record();
        low.stepUp();
        high.stepDown();
        const int lowOrder = compareKeys(key, kKeyStart, left, low.record());
        const int highOrder = compareKeys(key, kKeyStart, high.record(), right);
        if (lowOrder < 0 || highOrder < 0) return i;
        if (lowOrder == 0) equal.include(records.count - 2 - i);
        if (highOrder == 0) equal.include(i);
        exchangeRecords(left, right, records.recordLength);
    }
    return pairs;
}

// Exchanges the first `pairs` pairs from both ends of a range.
void exchangePairs(const RecordArray& records, std::uint32_t begin, std::uint32_t end,
                   std::uint32_t pairs) {
    RecordCursor low(records, begin);
    RecordCursor high(records, end - 1);
    for (; pairs > 0; --pairs, low.stepUp(), high.stepDown())
        exchangeRecords(low.record(), high.record(), records.recordLength);
}

// Turns each run of equal records back to the order of their arrival.
void restoreRuns(const NormalizedKey& key, const RecordArray& records, const EqualRange& range) {
    std::uint32_t begin = range.begin;
    for (std::uint32_t i = range.begin + 1; i <= range.end; ++i) {
        if (i < range.end && compareKeys(key, kKeyStart, records.at(i - 1), records.at(i)) == 0)
            continue;
        if (i - begin > 1) exchangePairs(records, begin, i, (i - begin) / 2);
        begin = i;
    }
}

}  // namespace

bool arriveInOrder(const NormalizedKey& key, const RecordArray& records) {
    RecordCursor cursor(records, 0);
    for (std::uint32_t i = 1; i < records.count; ++i) {
        const Byte* const before = cursor.record();
        cursor.stepUp();
        if (compareKeys(key, kKeyStart, before, cursor.record()) > 0) return false;
    }
    return true;
}

bool reverseDescending(const NormalizedKey& key, const RecordArray& records) {
    const std::uint32_t pairs = records.count / 2;
    EqualRange equal = {records.count, 0};
    const std::uint32_t exchanged = exchangeDescending(key, records, pairs, equal);
    if (exchanged < pairs) {
        exchangePairs(records, 0, records.count, exchanged);
        return false;
    }
    if (equal.begin < equal.end) restoreRuns(key, records, equal);
    return true;
}

}  // namespace tvsort

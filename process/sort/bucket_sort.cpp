#include "process/sort/bucket_sort.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace tvsort {

namespace {

// Up to here insertion beats counting.
constexpr std::uint32_t kInsertionEntriesMax = 24;
// Up to here the rest of the keys is compared.
constexpr std::uint32_t kComparedEntriesMax = 8;
constexpr std::uint32_t kUpperBitsMax = 12;

std::uint32_t counters[std::size_t{1} << kUpperBitsMax];
KeyWindow window;

struct BucketRecords {
    const NormalizedKey& key;
    const Byte* records;
    std::uint32_t count;
    std::uint32_t recordLength;

    const Byte* recordOf(const Entry& entry) const {
        return records + std::size_t{entry.index} * recordLength;
    }
};

// Moves `count` entries from `source` to `target`, which may be the same, each behind all that it
// does not precede.
template <typename Precedes>
void insertEntries(const Entry* source, Entry* target, std::uint32_t count, Precedes precedes) {
    for (std::uint32_t i = 0; i < count; ++i) {
        const Entry entry = source[i];
        Entry* place = target + i;
        for (; place > target && precedes(entry, place[-1]); --place)
            *place = place[-1];
        *place = entry;
    }
}

void insertByDigits(const Entry* source, Entry* target, std::uint32_t count) {
    insertEntries(source, target, count,
                  [](const Entry& left, const Entry& right) { return left.digits < right.digits; });
}

// Replaces the first `digits` counters by the sums of those before them. Answers the largest count.
std::uint32_t placeDigits(std::uint32_t digits) {
    std::uint32_t before = 0;
    std::uint32_t largest = 0;
    for (std::uint32_t i = 0; i < digits; ++i) {
        const std::uint32_t inDigit = counters[i];
        counters[i] = before;
        before += inDigit;
        largest = std::max(largest, inDigit);
    }
    return largest;
}

// One stable pass by the bits of `mask` from bit `shift` on. Answers the largest count.
std::uint32_t passByBits(const Entry* source, Entry* target, std::uint32_t count,
                         std::uint32_t shift, std::uint64_t mask) {
    std::fill_n(counters, mask + 1, 0U);
    for (std::uint32_t i = 0; i < count; ++i)
        counters[source[i].digits >> shift & mask] += 1;
    const std::uint32_t largest = placeDigits(static_cast<std::uint32_t>(mask) + 1);
    for (std::uint32_t i = 0; i < count; ++i)
        target[counters[source[i].digits >> shift & mask]++] = source[i];
    return largest;
}

void passByEachByte(Entry* entries, Entry* others, std::uint32_t count, std::uint64_t varying) {
    Entry* source = entries;
    Entry* target = others;
    for (std::uint32_t shift = 0; shift < 64; shift += 8) {
        if ((varying >> shift & 0xff) == 0) continue;
        passByBits(source, target, count, shift, 0xff);
        std::swap(source, target);
    }
    if (source != entries) std::copy_n(source, count, entries);
}

// Orders entries by their digits.
void orderByDigits(Entry* entries, Entry* others, std::uint32_t count) {
    if (count <= kInsertionEntriesMax) return insertByDigits(entries, entries, count);
    std::uint64_t varying = 0;
    for (std::uint32_t i = 1; i < count; ++i)
        varying |= entries[i].digits ^ entries[0].digits;
    if (varying == 0) return;

    const auto width = static_cast<std::uint32_t>(std::bit_width(varying));
    const std::uint32_t upperBits =
        std::min({kUpperBitsMax, static_cast<std::uint32_t>(std::bit_width(count)) + 1, width});
    const std::uint64_t mask = (std::uint64_t{1} << upperBits) - 1;
    if (passByBits(entries, others, count, width - upperBits, mask) <= kInsertionEntriesMax) {
        insertByDigits(others, entries, count);
    } else {
        passByEachByte(entries, others, count, varying);
    }
}

// Ends a run of entries with equal digits, or opens it for the next round. Answers whether it is
// open.
bool settleRun(const BucketRecords& bucket, Entry* first, std::uint32_t count) {
    if (count > kComparedEntriesMax) {
        first->openCount = count;
        return true;
    }
    insertEntries(first, first, count, [&](const Entry& left, const Entry& right) {
        return compareKeys(bucket.key, window.next, bucket.recordOf(left), bucket.recordOf(right)) <
               0;
    });
    return false;
}

// Orders an open run. Answers whether runs in it are still open.
bool orderRun(const BucketRecords& bucket, Entry* first, Entry* others, std::uint32_t count) {
    first->openCount = 0;
    orderByDigits(first, others, count);
    if (window.endsKey) return false;
    bool open = false;
    for (std::uint32_t end = 1; end < count; ++end) {
        if (first[end].digits != first[end - 1].digits) continue;
        const std::uint32_t begin = end - 1;
        while (end < count && first[end].digits == first[begin].digits)
            ++end;
        if (settleRun(bucket, first + begin, end - begin)) open = true;
    }
    return open;
}

// Calls `visit` with the first entry and the length of each open run.
template <typename Visit>
void visitOpenRuns(Entry* entries, std::uint32_t count, Visit visit) {
    for (std::uint32_t begin = 0; begin < count;) {
        const std::uint32_t openCount = entries[begin].openCount;
        if (openCount > 0) visit(entries + begin, openCount);
        begin += std::max(openCount, 1U);
    }
}

// The window that a bucket or what is open of it is ordered by: wide enough to tell most records
// apart.
WindowFit fitOf(std::uint32_t count) {
    constexpr std::uint32_t kBitsBeyondCount = 12;
    return {kWindowBits, static_cast<std::uint32_t>(std::bit_width(count)) + kBitsBeyondCount,
            false};
}

// Gives the entries of open runs the digits of the window that follows.
void readOn(const BucketRecords& bucket, Entry* entries) {
    const KeyPlace place = window.next;
    const auto visitOpen = [&](auto visit) {
        bool more = true;
        visitOpenRuns(entries, bucket.count, [&](const Entry* first, std::uint32_t count) {
            for (std::uint32_t i = 0; i < count && more; ++i)
                more = visit(bucket.recordOf(first[i]));
        });
    };
    fitWindow(bucket.key, place, fitOf(bucket.count), visitOpen, window);
    const WindowReader reader = {window};
    visitOpenRuns(entries, bucket.count, [&](Entry* first, std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i)
            first[i].digits = reader.readFitted(bucket.recordOf(first[i]));
    });
}

// The first round: all entries, by the window at `place`.
void readAll(const BucketRecords& bucket, const KeyPlace& place, Entry* entries) {
    const std::uint32_t recordLength = bucket.recordLength;
    const auto visitAll = [&](auto visit) {
        const Byte* record = bucket.records;
        for (std::uint32_t i = 0; i < bucket.count; ++i, record += recordLength) {
            if (!visit(record)) return;
        }
    };
    fitWindow(bucket.key, place, fitOf(bucket.count), visitAll, window);
    withReader(window, [&](const auto& reader) {
        const Byte* record = bucket.records;
        for (std::uint32_t i = 0; i < bucket.count; ++i, record += recordLength)
            entries[i] = {reader.readFitted(record), i, 0};
    });
}

}  // namespace

void orderBucket(const NormalizedKey& key, const KeyPlace& place, const Byte* records,
                 std::uint32_t count, std::uint32_t recordLength, const EntryArrays& arrays) {
    const BucketRecords bucket = {key, records, count, recordLength};
    readAll(bucket, place, arrays.entries);
    bool open = orderRun(bucket, arrays.entries, arrays.others, count);
    while (open) {
        readOn(bucket, arrays.entries);
        open = false;
        visitOpenRuns(arrays.entries, count, [&](Entry* first, std::uint32_t runCount) {
            if (orderRun(bucket, first, arrays.others, runCount)) open = true;
        });
    }
}

}  // namespace tvsort

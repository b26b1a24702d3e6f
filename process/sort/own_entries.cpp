#include "process/sort/own_entries.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace tvsort {

Entry ownEntries[kOwnEntriesMax];

namespace {

// Up to here insertion beats passes; and in passes, a second one does not pay.
constexpr std::uint32_t kInsertionEntriesMax = 24;
constexpr std::uint32_t kOnePassEntriesMax = 400;
// Entries that insertion moves on average, at most: where more would have to move, passes order the
// rest.
constexpr std::uint32_t kInsertionMovesMax = 8;
// Up to here the rest of the keys is compared.
constexpr std::uint32_t kComparedEntriesMax = 8;
constexpr std::uint32_t kPassBits = 8;
constexpr std::uint32_t kPassValues = 1U << kPassBits;
// How many entries ahead a record is asked for.
constexpr std::uint32_t kReadAhead = 16;

Entry ownOthers[kOwnEntriesMax];
std::uint32_t openCounts[kOwnEntriesMax];  // by the first entry of an open run: its entries
std::uint32_t passEnds[kPassValues];
KeyWindow window;

struct OwnWork {
    const NormalizedKey& key;
    const RecordArray& records;
    std::uint32_t count;

    const Byte* recordOf(const Entry& entry) const { return records.at(entry.index); }
    [[gnu::always_inline]] void prefetch(const Entry& entry) const {
        prefetchRecord(recordOf(entry), records.recordLength);
    }
};

// Puts each of the entries behind all before it that it does not precede. False when that would
// move more than `movesMax` entries; they are in some order then.
template <typename Precedes>
bool insertEntries(Entry* entries, std::uint32_t count, std::uint32_t movesMax, Precedes precedes) {
    for (std::uint32_t i = 1; i < count; ++i) {
        const Entry entry = entries[i];
        std::uint32_t place = i;
        for (; place > 0 && precedes(entry, entries[place - 1]); --place)
            entries[place] = entries[place - 1];
        entries[place] = entry;
        if (i - place > movesMax) return false;
        movesMax -= i - place;
    }
    return true;
}

bool insertByDigits(Entry* entries, std::uint32_t count, std::uint32_t movesMax) {
    return insertEntries(entries, count, movesMax, [](const Entry& left, const Entry& right) {
        return left.digits() < right.digits();
    });
}

// Orders entries by the bits of `varying` from `shift` on.
void orderByPasses(Entry* entries, Entry* others, std::uint32_t count, std::uint64_t varying,
                   std::uint32_t shift) {
    Entry* source = entries;
    Entry* target = others;
    for (; shift < kWindowBits && varying >> shift != 0; shift += kPassBits) {
        if ((varying >> shift) % kPassValues == 0) continue;
        distributeEntries<kPassBits>(source, target, count, shift, passEnds);
        std::swap(source, target);
    }
    if (source != entries) std::copy_n(source, count, entries);
}

// Orders entries by their digits: by the upper bits in passes, as many as it takes to tell most of
// them apart, and by the rest in insertion.
void orderByDigits(Entry* entries, Entry* others, std::uint32_t count) {
    constexpr std::uint32_t kAnyMoves = kInsertionEntriesMax * kInsertionEntriesMax;
    if (count <= kInsertionEntriesMax) {
        insertByDigits(entries, count, kAnyMoves);
        return;
    }
    const std::uint64_t varying = varyingBits(entries, count);
    if (varying == 0) return;
    const auto width = static_cast<std::uint32_t>(std::bit_width(varying));
    const std::uint32_t upperBits = (count <= kOnePassEntriesMax ? 1 : 2) * kPassBits;
    const std::uint32_t shift = width - std::min(width, upperBits);
    orderByPasses(entries, others, count, varying, shift);
    if (shift > 0 && !insertByDigits(entries, count, kInsertionMovesMax * count))
        orderByPasses(entries, others, count, varying, 0);
}

// Ends a run of entries with equal digits, or leaves it open for the next round. Answers whether it
// is open.
bool settleRun(const OwnWork& work, const KeyPlace& place, std::uint32_t begin,
               std::uint32_t count) {
    if (count > kComparedEntriesMax) {
        openCounts[begin] = count;
        return true;
    }
    constexpr std::uint32_t kAnyMoves = kComparedEntriesMax * kComparedEntriesMax;
    insertEntries(ownEntries + begin, count, kAnyMoves, [&](const Entry& left, const Entry& right) {
        return compareKeys(work.key, place, work.recordOf(left), work.recordOf(right)).order < 0;
    });
    return false;
}

// Orders the open run of `count` entries from `begin` on. Answers whether runs in it are still
// open.
bool orderRun(const OwnWork& work, const Continuation& after, std::uint32_t begin,
              std::uint32_t count) {
    openCounts[begin] = 0;
    orderByDigits(ownEntries + begin, ownOthers, count);
    if (after.endsKey) return false;
    const std::uint32_t end = begin + count;
    bool open = false;
    const auto isAlike = [&](std::uint32_t at) {
        return ownEntries[at].digits() == ownEntries[at - 1].digits();
    };
    for (std::uint32_t at = begin + 1; at < end; ++at) {
        if (at + kReadAhead < end && isAlike(at + kReadAhead)) {
            work.prefetch(ownEntries[at + kReadAhead - 1]);
            work.prefetch(ownEntries[at + kReadAhead]);
        }
        if (!isAlike(at)) continue;
        const std::uint32_t first = at - 1;
        while (at < end && isAlike(at))
            ++at;
        if (settleRun(work, after.place, first, at - first)) open = true;
    }
    return open;
}

// Calls `visit` with the first entry and the length of each open run.
template <typename Visit>
void visitOpenRuns(std::uint32_t count, Visit visit) {
    for (std::uint32_t begin = 0; begin < count;) {
        const std::uint32_t openCount = openCounts[begin];
        if (openCount > 0) visit(begin, openCount);
        begin += std::max(openCount, 1U);
    }
}

// Gives the entries of open runs the digits of the window that goes on.
void readOn(const OwnWork& work, const KeyPlace& place) {
    const std::uint32_t count = work.count;
    const auto visitOpen = [&](auto look) {
        visitOpenRuns(count, [&](std::uint32_t begin, std::uint32_t runCount) {
            for (std::uint32_t i = begin; i < begin + runCount; ++i) {
                work.prefetch(ownEntries[std::min(i + kReadAhead, count - 1)]);
                look(work.recordOf(ownEntries[i]), i == begin);
            }
        });
    };
    fitWindow(work.key, place, fitFor(count, false), visitOpen, window);
    const WindowReader reader = {window};
    visitOpenRuns(count, [&](std::uint32_t begin, std::uint32_t runCount) {
        for (std::uint32_t i = begin; i < begin + runCount; ++i)
            ownEntries[i].setDigits(reader.readFitted(work.recordOf(ownEntries[i])));
    });
}

}  // namespace

bool orderOwnEntries(const NormalizedKey& key, const RecordArray& records, std::uint32_t count,
                     Continuation after) {
    const OwnWork work = {key, records, count};
    std::fill_n(openCounts, count, 0U);
    bool open = orderRun(work, after, 0, count);
    const bool sameDigits = !open;
    while (open) {
        readOn(work, after.place);
        after = continuationOf(window, true);
        open = false;
        visitOpenRuns(count, [&](std::uint32_t begin, std::uint32_t runCount) {
            if (orderRun(work, after, begin, runCount)) open = true;
        });
    }
    return sameDigits;
}

void orderOwnRecords(const NormalizedKey& key, const RecordArray& records, KeyWindow& fitted) {
    const auto visit = [&](auto look) {
        visitRecords(records, 0, records.count,
                     [&](const Byte* record) { look(record, record == records.first); });
    };
    fitWindow(key, kKeyStart, fitFor(records.count, true), visit, fitted);
    std::uint32_t index = 0;
    visitRecords(records, 0, records.count, [&](const Byte* record) {
        ownEntries[index] = makeEntry(WindowReader{fitted}.readFitted(record), index);
        index += 1;
    });
    orderOwnEntries(key, records, records.count, continuationOf(fitted, true));
}

}  // namespace tvsort

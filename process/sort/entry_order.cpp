#include "process/sort/entry_order.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "process/sort/own_entries.h"

namespace tvsort {

namespace {

// A range is distributed to parts of about 2^12 entries, but to no more parts than there are places
// in memory that can be kept at hand.
constexpr std::uint32_t kPartBits = 12;
constexpr std::uint32_t kPartsBitsMin = 8;
constexpr std::uint32_t kPartsBitsMax = 11;

// How many entries ahead a record is asked for.
constexpr std::uint32_t kReadAhead = 16;

// Entries with the same key before the window that their digits come from.
struct Range {
    std::uint32_t begin;
    std::uint32_t end;
    Continuation after;
};

// Ranges that wait do not overlap, and each is too large for the process's own memory. A data set
// has at most 2^31 records.
constexpr std::uint32_t kWaitingMax = (std::uint32_t{1} << 31) / kOwnEntriesMax;

// What says where entries go stands in the process's own memory: in the slot another writer could
// change it between two looks.
std::uint32_t partEnds[1U << kPartsBitsMax];
Range waiting[kWaitingMax];
KeyWindow window;

// The data set at work.
struct Ordering {
    const NormalizedKey& key;
    const RecordArray& records;
    const EntryArea& area;
    std::uint32_t waitingCount;
    bool sameDigits;

    const Byte* recordOf(const Entry& entry) const {
        return records.at(boundedIndex(entry, area.count));
    }
};

// Takes the digits of a range's records.
struct DigitSink {
    Entry* const begin;
    Entry* entry;

    void start(const KeyWindow&) { entry = begin; }
    void take(const Byte*, std::uint64_t digits) {
        entry->setDigits(digits);
        ++entry;
    }
};

// Gives the entries of a range the digits of the window that goes on.
void readOn(Ordering& work, Range& range) {
    const Entry* const entries = work.area.entries;
    const auto visit = [&](std::uint32_t step, auto look) {
        for (std::uint32_t i = range.begin; i < range.end; i += step) {
            const std::uint32_t ahead = std::min(i + kReadAhead * step, range.end - 1);
            prefetchRecord(work.recordOf(entries[ahead]), work.records.recordLength);
            look(work.recordOf(entries[i]));
        }
    };
    DigitSink sink = {work.area.entries + range.begin, nullptr};
    range.after = readThrough(work.key, range.after, range.end - range.begin, visit, sink, window);
    work.sameDigits = false;
}

// Finishes a range or lets it wait.
void takeOn(Ordering& work, const Range& range) {
    const std::uint32_t count = range.end - range.begin;
    if (count > kOwnEntriesMax) {
        waiting[work.waitingCount++] = range;
        return;
    }
    Entry* const entries = work.area.entries + range.begin;
    for (std::uint32_t i = 0; i < count; ++i) {
        ownEntries[i] = entries[i];
        ownEntries[i].index = std::min(ownEntries[i].index, work.area.count - 1);
    }
    if (!orderOwnEntries(work.key, work.records, count, range.after)) work.sameDigits = false;
    std::copy_n(ownEntries, count, entries);
}

// Distributes a range by the upper bits of its digits, which are equal from bit `width` on, and
// takes on the parts. The entries are at `source`.
void distributeRange(Ordering& work, const Range& range, std::uint32_t width, const Entry* source) {
    const std::uint32_t count = range.end - range.begin;
    Entry* const entries = work.area.entries + range.begin;
    Entry* const target = source == entries ? work.area.others + range.begin : entries;
    const auto partsBits = std::clamp(static_cast<std::uint32_t>(std::bit_width(count)),
                                      kPartBits + kPartsBitsMin, kPartBits + kPartsBitsMax) -
                           kPartBits;
    distributeEntries<kPartsBitsMax>(source, target, count, width - std::min(width, partsBits),
                                     partEnds);
    if (target != entries) std::copy_n(target, count, entries);
    std::uint32_t begin = 0;
    for (const std::uint32_t partEnd : partEnds) {
        const std::uint32_t end = std::min(partEnd, count);
        if (end > begin + 1) takeOn(work, {range.begin + begin, range.begin + end, range.after});
        begin = std::max(begin, end);
    }
}

// Distributes a range that has waited, or reads on.
void workOn(Ordering& work, Range range) {
    Entry* const entries = work.area.entries + range.begin;
    const std::uint32_t count = range.end - range.begin;
    std::uint64_t varying = varyingBits(entries, count);
    while (varying == 0 && !range.after.endsKey) {
        readOn(work, range);
        varying = varyingBits(entries, count);
    }
    if (varying == 0) return;
    distributeRange(work, range, static_cast<std::uint32_t>(std::bit_width(varying)), entries);
}

}  // namespace

bool orderEntries(const NormalizedKey& key, const RecordArray& records, const EntryArea& area,
                  std::uint32_t digitWidth, const Continuation& after) {
    Ordering work = {key, records, area, 0, true};
    const Range all = {0, area.count, after};
    if (area.count <= kOwnEntriesMax || digitWidth == 0) {
        std::copy_n(area.others, area.count, area.entries);
        takeOn(work, all);
    } else {
        distributeRange(work, all, digitWidth, area.others);
    }
    while (work.waitingCount > 0)
        workOn(work, waiting[--work.waitingCount]);
    return work.sameDigits;
}

}  // namespace tvsort

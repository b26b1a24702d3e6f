#include "process/sort/splitters.h"

#include <algorithm>
#include <bit>

#include "process/sort/own_entries.h"

namespace tvsort {

namespace {

const Byte* recordOf(const Splitters& splitters, std::uint32_t splitter) {
    return splitters.records + std::size_t{splitter} * splitters.recordLength;
}

void openRange(Splitters& splitters, std::uint32_t rank) {
    splitters.before[splitters.rangeCount] = rank;
    splitters.isEqual[splitters.rangeCount] = false;
    splitters.rangeCount += 1;
}

// Adds the record of place `rank` in the sample, whose copy stands behind those of the others.
void addSplitter(Splitters& splitters, std::uint32_t rank) {
    const std::uint32_t s = splitters.count++;
    splitters.digits[s] = WindowReader{splitters.window}.readFitted(recordOf(splitters, s));
    splitters.below[s] = static_cast<std::uint16_t>(splitters.rangeCount - 1);
    splitters.equals[s] = static_cast<std::uint16_t>(splitters.rangeCount);
    openRange(splitters, rank);
}

// The last splitter's key is met again: it gets a range of its own.
void meetAgain(Splitters& splitters, std::uint32_t rank) {
    bool& isEqual = splitters.isEqual[splitters.equals[splitters.count - 1]];
    if (!isEqual) {
        isEqual = true;
        openRange(splitters, rank);
    }
    splitters.before[splitters.rangeCount - 1] = rank;
}

void closeSplitters(Splitters& splitters) {
    const std::uint32_t count = splitters.count;
    splitters.below[count] = static_cast<std::uint16_t>(splitters.rangeCount - 1);
    std::fill(splitters.digits + count, splitters.digits + kSplitRangesMax, ~std::uint64_t{0});
}

// The range of a record that has the digits of splitter `s` and perhaps of those behind it.
std::uint16_t rangeAmong(const NormalizedKey& key, const Splitters& splitters, std::uint32_t s,
                         const Byte* record) {
    const std::uint64_t* const first = splitters.digits + s;
    const std::uint64_t* const behind = splitters.digits + splitters.count;
    std::uint32_t end =
        s + static_cast<std::uint32_t>(std::upper_bound(first, behind, *first) - first);
    while (s < end) {
        const std::uint32_t middle = s + (end - s) / 2;
        const int order = compareKeys(key, kKeyStart, record, recordOf(splitters, middle)).order;
        if (order == 0) return splitters.equals[middle];
        (order < 0 ? end : s) = order < 0 ? middle : middle + 1;
    }
    return splitters.below[s];
}

}  // namespace

void chooseSplitters(const NormalizedKey& key, const RecordArray& sample,
                     std::uint32_t rangesWanted, Byte* copies, Splitters& splitters) {
    splitters.count = 0;
    splitters.rangeCount = 0;
    splitters.records = copies;
    splitters.recordLength = sample.recordLength;
    orderOwnRecords(key, sample, splitters.window);
    openRange(splitters, 0);
    for (std::uint32_t range = 1; range < rangesWanted; ++range) {
        const auto rank =
            static_cast<std::uint32_t>(std::uint64_t{range} * sample.count / rangesWanted);
        Byte* const copy = copies + std::size_t{splitters.count} * sample.recordLength;
        copyRecord(copy, sample.at(ownEntries[rank].index), sample.recordLength);
        if (splitters.count > 0 &&
            compareKeys(key, kKeyStart, copy, copy - sample.recordLength).order == 0) {
            meetAgain(splitters, rank);
        } else {
            addSplitter(splitters, rank);
        }
    }
    closeSplitters(splitters);
}

void findRanges(const NormalizedKey& key, const Splitters& splitters, const Byte* first,
                std::uint32_t count, std::uint16_t* ranges) {
    std::uint64_t digits[kSplitBatch];
    bool fits[kSplitBatch];
    std::uint32_t places[kSplitBatch] = {};
    const std::uint32_t length = splitters.recordLength;
    withReader(splitters.window, [&](const auto& reader) {
        for (std::uint32_t n = 0; n < count; ++n) {
            std::uint32_t misfits = 0;
            digits[n] = reader.read(first + std::size_t{n} * length, misfits);
            fits[n] = misfits == 0;
        }
    });
    // Step by step for all: the looks of one record wait for each other, those of several do not.
    for (auto step = std::bit_floor(splitters.count); step > 0; step /= 2) {
        for (std::uint32_t n = 0; n < count; ++n)
            places[n] += splitters.digits[places[n] + step - 1] < digits[n] ? step : 0;
    }
    for (std::uint32_t n = 0; n < count; ++n) {
        const std::uint32_t s = places[n];
        if (splitters.digits[s] != digits[n]) {
            ranges[n] = splitters.below[s];
        } else if (fits[n] && splitters.window.endsKey) {
            ranges[n] = splitters.equals[s];
        } else {
            ranges[n] = rangeAmong(key, splitters, s, first + std::size_t{n} * length);
        }
    }
}

}  // namespace tvsort

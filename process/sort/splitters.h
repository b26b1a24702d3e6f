// Keys that cut the records into ranges of about the same size, and which range a record is of.
//
// They are taken from a sample in order: of s records for each range, so that a range of more than
// twice its share has a probability below exp(-0.3 s) (a tail bound for the distance of order
// statistics; D. J. DeWitt, J. F. Naughton, D. A. Schneider, Parallel sorting on a shared-nothing
// architecture using probabilistic splitting, 1991). A key that takes up the share of a range and
// more gets a range of its own, whose records are equal:
//
//     splitters        a         b (often)        c
//     ranges      x < a   a <= x < b   x = b   b < x < c   c <= x
//                   0         1          2         3         4
//
// A record is looked for by the digits of one window, without branches. Where its digits are those
// of a splitter the keys are compared: a window that fits the sample never turns the order of
// two records, but may show them as equal.

#pragma once

#include <cstdint>

#include "process/keys/key_window.h"
#include "process/sort/reading.h"
#include "process/storage/record_array.h"

namespace tvsort {

inline constexpr std::uint32_t kSplitRangesMax = 512;
// Records that are looked at in one call.
inline constexpr std::uint32_t kSplitBatch = 128;

struct Splitters {
    std::uint32_t count;
    std::uint32_t rangeCount;
    std::uint64_t digits[kSplitRangesMax];  // by splitter; behind them the highest there are
    std::uint16_t below[kSplitRangesMax];   // by splitter: the range of smaller keys
    std::uint16_t equals[kSplitRangesMax];  // the range of equal ones
    bool isEqual[kSplitRangesMax];          // by range: its records are equal
    std::uint32_t before[kSplitRangesMax];  // by range: records of the sample before it
    const Byte* records;                    // the splitters themselves
    std::uint32_t recordLength;
    KeyWindow window;
};

// Chooses splitters for up to `rangesWanted` ranges (2 to kSplitRangesMax) from `sample`, of at
// most kOwnEntriesMax records, and copies them to `copies`, which has room for rangesWanted - 1
// records and outlasts the splitters.
void chooseSplitters(const NormalizedKey& key, const RecordArray& sample,
                     std::uint32_t rangesWanted, Byte* copies, Splitters& splitters);

// Sets `ranges` to those of `count` records, at most kSplitBatch, that lie one behind the other.
void findRanges(const NormalizedKey& key, const Splitters& splitters, const Byte* first,
                std::uint32_t count, std::uint16_t* ranges);

}  // namespace tvsort

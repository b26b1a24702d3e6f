// Which of its methods the sort process will use, before it is asked.
//
//     entry sort   orders entries of the keys' first bits and moves each record once, in place. It
//                  needs 200 records or more and frames for
//
//                      the data set       fileBlocks
//                    + its entries        24 x recordCount bytes
//
//     copy sort    moves the records to a copy and back. It is used for keys of integers, decimals,
//                  bytes and strings, where the records have 32 bytes or fewer, or there are no
//                  frames for entries. It needs 10000 records or more and frames for
//
//                      the data set       fileBlocks
//                    + a copy             recordLength x recordCount + 262148 bytes
//                    + 1
//
//     blocks       distributes the blocks of a data set that is larger than the frames. It needs
//                  10000 records and 64 frames, and moves every byte four to five times between
//                  memory and work file, however large the data set is
//
//     quicksort    compares; works with any keys and with five frames
//
// By entries, by a copy and by blocks equal records keep the order of their arrival; the quicksort
// does not. It also takes over where only comparing orders the values: geometries, floats that are
// unlike and count as equal, and values that an error is about.
//
// A hierarchy is sorted run by run in a way of its own.
//
// The process decides from the request and the records in the frames; this is the server's view of
// the same rule, and a test asks the process whether it holds.

#pragma once

#include <cstdint>

#include "host/request_builder.h"
#include "protocol/bytes.h"

namespace tvsort::host {

enum class MethodReason : std::uint8_t {
    kEntries,       // nothing stands against entries
    kCopies,        // nor against a copy, which is better
    kBlocks,        // the data set does not fit into the frames
    kHierarchy,     // the mode has a method of its own
    kFewRecords,    // fewer than kEntryCountMin
    kKeyType,       // a key must be compared
    kTooFewFrames,  // more memory would change it
};

inline constexpr std::int32_t kEntryCountMin = 200;

struct MethodForecast {
    MethodReason reason;
    std::size_t keyIndex;       // of the key that the reason is about, from 0
    std::int64_t framesWanted;  // for entries or a copy; 0: with none
    bool unlessFloatsTie;       // the quicksort takes over if unlike floats count as equal
};

// Whether equal records keep the order of their arrival, where `unlessFloatsTie` does not apply.
bool keepsArrival(MethodReason reason);

// About how many bytes the process will read from and write to the work file, where the data set
// does not fit into the frames: a mean over data in no order.
std::int64_t forecastMovedBytes(MethodReason reason, const Geometry& geometry, const Extent& extent,
                                std::int32_t frameCount);

// For a data set of valid values.
MethodForecast forecastMethod(const RequestBuilder& request, const Geometry& geometry,
                              const Extent& extent, std::int32_t frameCount);

}  // namespace tvsort::host

// Which of its two methods the sort process will use, before it is asked.
//
//     distribution sort  moves records by the digits of their keys, without comparing; equal
//                        records keep their order. It needs 10000 records or more, keys of types
//                        whose bytes say it all (integers, decimals, bytes, and strings whose
//                        fields hold nothing but zeros behind their value), and frames for
//
//                            the data set            fileBlocks
//                          + a copy of its records   recordLength x recordCount bytes
//                          + its counters            262144 bytes and 4 to round up
//                          + 1
//
//     quicksort          compares; works with any keys and with five frames
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
    kDistributes,   // nothing stands against the distribution sort
    kHierarchy,     // the mode has a method of its own
    kFewRecords,    // fewer than kDistributionCountMin
    kKeyType,       // a key must be compared
    kStringRest,    // a string's field holds something behind the value
    kTooFewFrames,  // more memory would change it
};

inline constexpr std::int32_t kDistributionCountMin = 10000;

struct MethodForecast {
    MethodReason reason;
    std::size_t keyIndex;       // of the key that the reason is about, from 0
    std::int64_t framesWanted;  // with which the distribution sort would be used; 0: with none
};

class MethodForecaster {
  public:
    explicit MethodForecaster(const RequestBuilder& request);

    // Takes each record of the data set in turn.
    void look(const Byte* record);
    // Needs all records looked at.
    MethodForecast forecast(const Geometry& geometry, const Extent& extent,
                            std::int32_t frameCount) const;

  private:
    bool isNull(const Byte* record, std::size_t keyIndex) const;

    RequestBuilder request_;
    // The first key whose field holds something behind a string's value; none: the key count.
    std::size_t fullStringIndex_;
};

}  // namespace tvsort::host

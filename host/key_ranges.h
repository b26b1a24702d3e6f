// Key ranges that split a data set into parts of about one size, one for each of several processes.
//
//     sample, in order      a c d f | g i k m | n p r z        splitters: g, n
//     part                     0         1         2
//
// A record belongs to the part of the last splitter that it does not precede, so records with equal
// keys always come into one part, and parts one behind the other are in order. The order is that of
// host/record_order.h.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/record_order.h"
#include "host/request_builder.h"
#include "protocol/bytes.h"

namespace tvsort::host {

// Why records cannot be split by the keys of the request, to follow "the keys"; empty when they
// can. Geometries, floating-point values, of which the process takes near ones for equal, and
// collated text, which the order here does not know.
std::string splitHindrance(const RequestBuilder& request, bool isCollated);

class KeyRanges {
  public:
    // `sample`: records one behind the other, of `recordLength` bytes each. Needs keys without a
    // hindrance.
    KeyRanges(const RequestBuilder& request, std::uint16_t recordLength,
              const std::vector<Byte>& sample, std::size_t partCount);

    std::size_t partCount() const { return partCount_; }
    // From 0.
    std::size_t partOf(const Byte* record) const;

  private:
    RecordOrder order_;
    std::size_t partCount_;
    std::vector<std::vector<Byte>> splitters_;  // partCount - 1 or, of few records, fewer
};

}  // namespace tvsort::host

// Every result is checked: it is in order, and it is the records that were to be sorted.

#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "bench/workload.h"
#include "protocol/bytes.h"

namespace tvsort::bench {

// A sum of hashes: the same for every order of the same records.
std::uint64_t checksumOf(std::span<const Byte> records, std::size_t recordLength);

class Verification {
  public:
    // Keeps the checksum of `records`.
    Verification(const Workload& workload, std::span<const Byte> records);

    // Throws std::runtime_error, naming `who`, when `result` is not a permutation of the records.
    void checkPermutation(std::span<const Byte> result, const std::string& who) const;
    // The same, and when two neighbours stand the wrong way round by the workload's own order.
    void checkSorted(std::span<const Byte> result, const std::string& who) const;
    // The same by the order that the request's keys have for the host library: a second opinion,
    // and a slow one.
    void checkByRequest(std::span<const Byte> result, const std::string& who) const;

  private:
    const Workload& workload_;
    std::uint64_t checksum_;
};

}  // namespace tvsort::bench

// The workloads by name: records, keys, order, and the peers that sort them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/peers.h"
#include "bench/random.h"
#include "host/request_builder.h"
#include "protocol/bytes.h"

namespace tvsort::bench {

enum class Arrangement : std::uint8_t { kRandom, kSorted, kNearlySorted, kReversed, kAllEqual };

struct Workload {
    std::string name;
    Arrangement arrangement;
    std::uint16_t recordLength;
    host::RequestBuilder request;
    void (*fill)(Byte* record, std::uint64_t number, Random& random);
    bool (*precedes)(const Byte* left, const Byte* right);
    std::vector<Peer> peers;
};

// All of them, by different names.
std::vector<Workload> workloads();

// Lines of text, which other programs sort too.
Workload textLines();

// How many of its records to take where others have `recordCount`: fewer if they are long.
std::size_t recordCountOf(const Workload& workload, std::size_t recordCount);

// The same records in every run.
std::vector<Byte> makeRecords(const Workload& workload, std::size_t recordCount);

}  // namespace tvsort::bench

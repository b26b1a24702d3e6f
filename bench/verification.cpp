#include "bench/verification.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <stdexcept>

#include "host/record_order.h"

namespace tvsort::bench {

namespace {

template <typename MayFollow>
void checkNeighbours(std::span<const Byte> result, std::size_t recordLength, const std::string& who,
                     MayFollow mayFollow) {
    for (std::size_t at = recordLength; at < result.size(); at += recordLength) {
        if (!mayFollow(result.data() + at - recordLength, result.data() + at)) {
            throw std::runtime_error(who + ": record " + std::to_string(at / recordLength + 1) +
                                     " of the result should stand before the record before it");
        }
    }
}

}  // namespace

std::uint64_t checksumOf(std::span<const Byte> records, std::size_t recordLength) {
    std::uint64_t sum = 0;
    for (std::size_t at = 0; at < records.size(); at += recordLength)
        sum += XXH3_64bits(records.data() + at, recordLength);
    return sum;
}

Verification::Verification(const Workload& workload, std::span<const Byte> records)
    : workload_(workload), checksum_(checksumOf(records, workload.recordLength)) {}

void Verification::checkPermutation(std::span<const Byte> result, const std::string& who) const {
    if (checksumOf(result, workload_.recordLength) != checksum_) {
        throw std::runtime_error(who + ": the result does not hold the records that were sorted");
    }
}

void Verification::checkSorted(std::span<const Byte> result, const std::string& who) const {
    checkPermutation(result, who);
    checkNeighbours(result, workload_.recordLength, who, [&](const Byte* left, const Byte* right) {
        return !workload_.precedes(right, left);
    });
}

void Verification::checkByRequest(std::span<const Byte> result, const std::string& who) const {
    const host::RecordOrder order(workload_.request);
    checkNeighbours(result, workload_.recordLength, who, [&](const Byte* left, const Byte* right) {
        return order.mayFollow(left, right);
    });
}

}  // namespace tvsort::bench

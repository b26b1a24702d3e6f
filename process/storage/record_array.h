// Records as they lie in memory: one behind the other, in blocks of `recordsPerBlock` that start
// `blockBytes` apart. Packed records are one large block. And how their bytes move.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "protocol/bytes.h"

namespace tvsort {

struct RecordArray {
    Byte* first;
    std::uint32_t count;
    std::uint32_t recordLength;
    std::uint32_t recordsPerBlock;
    std::size_t blockBytes;
    std::uint64_t reciprocal;  // of recordsPerBlock, in units of 2^-64

    // The block of a record: index / recordsPerBlock, exact for every index because the product
    // falls short by less than index x recordsPerBlock / 2^64, below one part in recordsPerBlock. A
    // division would take as long as the rest of a step of the permutation.
    std::uint32_t blockOf(std::uint32_t index) const {
        __extension__ using Wide = unsigned __int128;
        return static_cast<std::uint32_t>((Wide{index} + 1) * reciprocal >> 64);
    }
    Byte* at(std::uint32_t index) const {
        const std::uint32_t block = blockOf(index);
        return first + block * blockBytes +
               std::size_t{index - block * recordsPerBlock} * recordLength;
    }
};

inline RecordArray recordsInBlocks(Byte* first, std::uint32_t count, std::uint32_t recordLength,
                                   std::uint32_t recordsPerBlock, std::size_t blockBytes) {
    return {first,           count,      recordLength,
            recordsPerBlock, blockBytes, ~std::uint64_t{0} / recordsPerBlock};
}

inline RecordArray packedRecords(Byte* first, std::uint32_t count, std::uint32_t recordLength) {
    return recordsInBlocks(first, count, recordLength, std::max(count, 1U), 0);
}

// Calls `visit` with each record from index `begin` up to, not including, `end`, in order.
template <typename Visit>
void visitRecords(const RecordArray& array, std::uint32_t begin, std::uint32_t end, Visit visit) {
    while (begin < end) {
        const std::uint32_t inBlock = array.recordsPerBlock - begin % array.recordsPerBlock;
        const std::uint32_t here = std::min(inBlock, end - begin);
        Byte* record = array.at(begin);
        for (std::uint32_t i = 0; i < here; ++i, record += array.recordLength)
            visit(record);
        begin += here;
    }
}

// Calls `visit` with every step-th record, from the first on.
template <typename Visit>
void visitEvery(const RecordArray& array, std::uint32_t step, Visit visit) {
    if (step == 1) return visitRecords(array, 0, array.count, visit);
    for (std::uint32_t i = 0; i < array.count; i += step)
        visit(array.at(i));
}

// Asks for a record that is looked at or moved soon; of long ones the processor asks for the rest
// by itself. In line by force: to the compiler a function that only prefetches has no effect, and
// goes.
[[gnu::always_inline]] inline void prefetchRecord(const Byte* record, std::uint32_t length) {
    constexpr std::uint32_t kPrefetchedBytesMax = 256;
    constexpr std::uint32_t kLineBytes = 64;
    const std::uint32_t bytes = std::min(length, kPrefetchedBytesMax);
    for (std::uint32_t at = 0; at < bytes; at += kLineBytes)
        __builtin_prefetch(record + at, 1);
    __builtin_prefetch(record + bytes - 1, 1);
}

// Copies `length` bytes. A call of memcpy costs as much as the few loads and stores of a record, so
// these stand in line: the last sixteen bytes may overlap those before them.
inline void copyRecord(Byte* target, const Byte* source, std::uint32_t length) {
    struct Chunk {
        std::uint64_t halves[2];
    };
    constexpr std::uint32_t kInLineMax = 256;
    if (length < sizeof(Chunk) || length > kInLineMax) {
        std::memcpy(target, source, length);
        return;
    }
    for (std::uint32_t i = 0; i + sizeof(Chunk) <= length; i += sizeof(Chunk))
        storeAs(target + i, loadAs<Chunk>(source + i));
    const auto last = static_cast<std::uint32_t>(length - sizeof(Chunk));
    storeAs(target + last, loadAs<Chunk>(source + last));
}

template <std::size_t bytes>
inline void exchangeBytes(Byte*& left, Byte*& right) {
    Byte leftBytes[bytes];
    Byte rightBytes[bytes];
    std::memcpy(leftBytes, left, bytes);
    std::memcpy(rightBytes, right, bytes);
    std::memcpy(left, rightBytes, bytes);
    std::memcpy(right, leftBytes, bytes);
    left += bytes;
    right += bytes;
}

// Exchanges `length` bytes that do not overlap. In steps of fixed sizes, which are registers to the
// compiler: three calls of memcpy by way of a buffer take twice as long for records of some hundred
// bytes.
inline void exchangeRecords(Byte* left, Byte* right, std::size_t length) {
    for (std::size_t steps = length / 32; steps > 0; --steps)
        exchangeBytes<32>(left, right);
    if ((length & 16) != 0) exchangeBytes<16>(left, right);
    if ((length & 8) != 0) exchangeBytes<8>(left, right);
    if ((length & 4) != 0) exchangeBytes<4>(left, right);
    if ((length & 2) != 0) exchangeBytes<2>(left, right);
    if ((length & 1) != 0) exchangeBytes<1>(left, right);
}

}  // namespace tvsort

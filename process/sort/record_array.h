// Records as they lie in memory: one behind the other, in blocks of `recordsPerBlock` that start
// `blockBytes` apart. Packed records are one large block.

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

    Byte* at(std::uint32_t index) const {
        return first + index / recordsPerBlock * blockBytes +
               std::size_t{index % recordsPerBlock} * recordLength;
    }
};

inline RecordArray packedRecords(Byte* first, std::uint32_t count, std::uint32_t recordLength) {
    return {first, count, recordLength, std::max(count, 1U), 0};
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

}  // namespace tvsort

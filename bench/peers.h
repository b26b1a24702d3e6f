// What the process is measured against: the sorts that somebody would write who has the records in
// memory and knows their type.
//
//     std::sort, std::stable_sort, pdqsort   on the records themselves
//     pairs compared                         (prefix, number) pairs by comparison, then one gather
//     pairs radix                            the same by passes over the prefix's bytes
//     memcpy, gather                         no sorts but limits: the data moved once, in order and
//                                            in random order
//
// The pairs leave the result in a second array, which spares them the way back that the process
// goes.

#pragma once

#include <algorithm>
#include <boost/sort/pdqsort/pdqsort.hpp>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "bench/pair_sort.h"
#include "protocol/bytes.h"

namespace tvsort::bench {

// The memory of the peers.
struct PeerArrays {
    std::vector<Byte> records;
    std::vector<Byte> gathered;
    std::vector<Pair> pairs;
    std::vector<Pair> otherPairs;
    std::vector<Pair> randomOrder;  // each record's index once

    // All of it has been written to.
    PeerArrays(std::size_t recordCount, std::size_t recordLength);

    // Leaves what peers work with, the records aside, as memory that nobody has touched.
    void renewScratch();
};

// From the fewest peers to all of them; each set holds those before it.
enum class PeerSet : std::uint8_t { kNone, kStd, kUsual, kAll };

// Those that work in the records' own memory, or in memory that they themselves get; those that
// work in the other arrays as well; and limits, which do so too but give a permutation only.
enum class PeerKind : std::uint8_t { kInPlace, kWithScratch, kLimit };

struct Peer {
    std::string name;
    PeerSet set;  // the smallest one that it is in
    PeerKind kind;
    // Works on the records; answers where the result is.
    const Byte* (*run)(PeerArrays&);
};

// How far ahead a gather asks for records that lie in random order.
inline constexpr std::size_t kPrefetchDistance = 16;

template <typename Rules>
struct RecordOf {
    Byte bytes[Rules::kRecordLength];
};

template <typename Rules>
bool recordPrecedes(const RecordOf<Rules>& left, const RecordOf<Rules>& right) {
    return Rules::precedes(left.bytes, right.bytes);
}

template <typename Rules>
std::span<RecordOf<Rules>> recordsOf(std::vector<Byte>& bytes) {
    return {reinterpret_cast<RecordOf<Rules>*>(bytes.data()), bytes.size() / Rules::kRecordLength};
}

template <typename Rules>
const Byte* runStdSort(PeerArrays& arrays) {
    const auto records = recordsOf<Rules>(arrays.records);
    std::sort(records.begin(), records.end(), [](const auto& left, const auto& right) {
        return recordPrecedes<Rules>(left, right);
    });
    return arrays.records.data();
}

template <typename Rules>
const Byte* runStableSort(PeerArrays& arrays) {
    const auto records = recordsOf<Rules>(arrays.records);
    std::stable_sort(records.begin(), records.end(), [](const auto& left, const auto& right) {
        return recordPrecedes<Rules>(left, right);
    });
    return arrays.records.data();
}

template <typename Rules>
const Byte* runPdqsort(PeerArrays& arrays) {
    const auto records = recordsOf<Rules>(arrays.records);
    boost::sort::pdqsort(records.begin(), records.end(), [](const auto& left, const auto& right) {
        return recordPrecedes<Rules>(left, right);
    });
    return arrays.records.data();
}

template <typename Rules>
const Byte* gather(PeerArrays& arrays, std::span<const Pair> order) {
    const auto source = recordsOf<Rules>(arrays.records);
    const auto target = recordsOf<Rules>(arrays.gathered);
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (i + kPrefetchDistance < order.size()) {
            const Byte* const ahead = source[order[i + kPrefetchDistance].number].bytes;
            __builtin_prefetch(ahead);
            __builtin_prefetch(ahead + Rules::kRecordLength - 1);
        }
        target[i] = source[order[i].number];
    }
    return arrays.gathered.data();
}

template <typename Rules>
void makePairs(PeerArrays& arrays) {
    const auto records = recordsOf<Rules>(arrays.records);
    for (std::size_t i = 0; i < records.size(); ++i)
        arrays.pairs[i] = {Rules::prefix(records[i].bytes), static_cast<std::uint32_t>(i), 0};
}

// Orders the pairs whose prefixes are equal by the whole records.
template <typename Rules>
void settleTies(PeerArrays& arrays, std::span<Pair> pairs) {
    const auto records = recordsOf<Rules>(arrays.records);
    for (auto begin = pairs.begin(); begin != pairs.end();) {
        auto end = begin + 1;
        while (end != pairs.end() && end->prefix == begin->prefix)
            ++end;
        if (end - begin > 1) {
            std::sort(begin, end, [&](const Pair& left, const Pair& right) {
                const auto& leftRecord = records[left.number];
                const auto& rightRecord = records[right.number];
                if (recordPrecedes<Rules>(leftRecord, rightRecord)) return true;
                if (recordPrecedes<Rules>(rightRecord, leftRecord)) return false;
                return left.number < right.number;
            });
        }
        begin = end;
    }
}

template <typename Rules>
const Byte* runPairsCompared(PeerArrays& arrays) {
    makePairs<Rules>(arrays);
    sortPairsByComparison(arrays.pairs);
    settleTies<Rules>(arrays, arrays.pairs);
    return gather<Rules>(arrays, arrays.pairs);
}

template <typename Rules>
const Byte* runPairsRadix(PeerArrays& arrays) {
    makePairs<Rules>(arrays);
    const std::span<Pair> ordered = sortPairsByRadix(arrays.pairs, arrays.otherPairs);
    settleTies<Rules>(arrays, ordered);
    return gather<Rules>(arrays, ordered);
}

template <typename Rules>
const Byte* runRandomGather(PeerArrays& arrays) {
    return gather<Rules>(arrays, arrays.randomOrder);
}

// The data moved once.
const Byte* runMemcpy(PeerArrays& arrays);

template <typename Rules>
std::vector<Peer> peersOf() {
    return {{"std::sort", PeerSet::kStd, PeerKind::kInPlace, runStdSort<Rules>},
            {"std::stable_sort", PeerSet::kAll, PeerKind::kInPlace, runStableSort<Rules>},
            {"pdqsort", PeerSet::kUsual, PeerKind::kInPlace, runPdqsort<Rules>},
            {"pairs compared", PeerSet::kUsual, PeerKind::kWithScratch, runPairsCompared<Rules>},
            {"pairs radix", PeerSet::kUsual, PeerKind::kWithScratch, runPairsRadix<Rules>},
            {"memcpy", PeerSet::kAll, PeerKind::kLimit, runMemcpy},
            {"gather", PeerSet::kUsual, PeerKind::kLimit, runRandomGather<Rules>}};
}

}  // namespace tvsort::bench

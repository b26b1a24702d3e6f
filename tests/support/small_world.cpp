#include "tests/support/small_world.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace tvsort::test {

namespace {

bool hasIndicators(const std::vector<KeyDescriptor>& keys) {
    return std::any_of(keys.begin(), keys.end(),
                       [](const KeyDescriptor& key) { return (key.kindFlags & 0x1f) == 4; });
}

bool isSortKey(const KeyDescriptor& key) {
    return (key.kindFlags & 0x1f) <= 2;
}

// In the direction of the key; nulls by their placement.
int compareKey(const Bytes& left, const Bytes& right, const KeyDescriptor& key, bool indicators) {
    const std::size_t indicator = kNullsOffset + (key.fieldOffset == kKeyAOffset ? 0U : 1U);
    const bool ascending = (key.kindFlags & 0x1f) == 1;
    const bool leftNull = indicators && left[indicator] == 1;
    const bool rightNull = indicators && right[indicator] == 1;
    if (leftNull && rightNull) return 0;
    if (leftNull || rightNull) {
        const bool first =
            (key.kindFlags & 0x40) != 0 || ((key.kindFlags & 0x20) == 0 && !ascending);
        return leftNull == first ? -1 : 1;
    }
    const int difference =
        loadI16(left.data() + key.fieldOffset) - loadI16(right.data() + key.fieldOffset);
    return ascending ? difference : -difference;
}

// 0 equal, 1 different, 2 different in a group key.
int differenceByModel(const Bytes& left, const Bytes& right, const std::vector<KeyDescriptor>& keys,
                      bool limited) {
    const bool indicators = hasIndicators(keys);
    for (const KeyDescriptor& key : keys) {
        if (!isSortKey(key)) continue;
        if (!limited && key.groupKey == 0) return 0;
        if (compareKey(left, right, key, indicators) != 0) return key.groupKey == 2 ? 2 : 1;
    }
    return 0;
}

Byte& flag(Bytes& record) {
    return record[kRecordFlagOffset];
}

Records distinct(const Records& sorted, const std::vector<KeyDescriptor>& keys) {
    Records kept;
    for (const Bytes& record : sorted) {
        if (kept.empty() || differenceByModel(kept.back(), record, keys, false) != 0) {
            kept.push_back(record);
        }
    }
    return kept;
}

Records grouped(Records sorted, const std::vector<KeyDescriptor>& keys, std::int32_t& groupCount) {
    Records result = sorted;
    std::size_t reference = 0;
    groupCount = 1;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        const int difference = differenceByModel(sorted[reference], sorted[i], keys, false);
        if (difference == 0) {
            flag(result[i]) = 0;
            continue;
        }
        reference = i;
        if (difference != 2) continue;
        groupCount += 1;
        flag(result[i - 1]) |= 2;
    }
    return result;
}

// How many of the first operand's records a group keeps: a row for each count of them, 1 to 3, and
// a figure for each pair of the other two's counts, 0 to 3, first the second operand's.
struct KeptRecords {
    SortMode mode;
    bool keepsFirst;  // or the last ones
    const char* rows[kTagRecordsMax];
};

constexpr KeptRecords kKept[] = {
    {SortMode::kIntersect,
     true,
     {"0111 1111 1111 1111",  //
      "0111 1111 1111 1111",  //
      "0111 1111 1111 1111"}},
    {SortMode::kIntersectAll,
     true,
     {"0111 1111 1111 1111",  //
      "0122 1111 2111 2111",  //
      "0123 1111 2111 3111"}},
    {SortMode::kExcept,
     true,
     {"1000 0000 0000 0000",  //
      "1000 0000 0000 0000",  //
      "1000 0000 0000 0000"}},
    {SortMode::kExceptAll,
     false,
     {"1000 0000 0000 0000",  //
      "2100 1100 0000 0000",  //
      "3210 2210 1110 0000"}},
};

// The group's records that survive; `counts` are those of its operands, the first one's not 0.
Records survivors(SortMode mode, const Records& first, const std::array<std::size_t, 3>& counts) {
    const KeptRecords& kept =
        *std::find_if(std::begin(kKept), std::end(kKept),
                      [mode](const KeptRecords& other) { return other.mode == mode; });
    const char figure = std::string_view(kept.rows[counts[0] - 1]).at(5 * counts[1] + counts[2]);
    const auto count = static_cast<std::ptrdiff_t>(figure - '0');
    return kept.keepsFirst ? Records(first.begin(), first.begin() + count)
                           : Records(first.end() - count, first.end());
}

Records combined(const Records& sorted, const std::vector<KeyDescriptor>& keys, SortMode mode) {
    Records result;
    for (std::size_t i = 0; i < sorted.size();) {
        if (sorted[i][kRecordFlagOffset] != 1) {
            ++i;
            continue;
        }
        std::size_t end = i;
        std::array<std::size_t, 3> counts = {};
        Records first;
        for (; end < sorted.size() && differenceByModel(sorted[i], sorted[end], keys, false) == 0;
             ++end) {
            counts.at(sorted[end][kRecordFlagOffset] - 1U) += 1;
            if (sorted[end][kRecordFlagOffset] == 1) first.push_back(sorted[end]);
        }
        for (Bytes& record : survivors(mode, first, counts))
            result.push_back(std::move(record));
        i = end;
    }
    return result;
}

struct Node {
    Bytes record;
    std::vector<Node> children;
};

std::int32_t levelOf(const Bytes& record) {
    return loadI32(record.data() + kLevelOffset);
}

// The siblings of `level` from record `next` on.
std::vector<Node> readSiblings(const Records& records, std::size_t& next, int level) {
    std::vector<Node> siblings;
    while (next < records.size() && levelOf(records[next]) == level) {
        Node node = {records[next++], {}};
        node.children = readSiblings(records, next, level + 1);
        siblings.push_back(std::move(node));
    }
    return siblings;
}

int flatten(std::vector<Node>& siblings, const std::vector<KeyDescriptor>& keys, Records& result) {
    std::stable_sort(siblings.begin(), siblings.end(), [&](const Node& left, const Node& right) {
        return compareByModel(left.record, right.record, keys) < 0;
    });
    int total = 0;
    for (Node& node : siblings) {
        const std::size_t place = result.size();
        result.push_back(node.record);
        const int size = 1 + flatten(node.children, keys, result);
        storeAs<std::int32_t>(result[place].data() + 4, size);
        storeAs<std::int32_t>(result[place].data() + 8, static_cast<std::int32_t>(place));
        total += size;
    }
    return total;
}

}  // namespace

std::uint32_t arrivalOf(const Bytes& record) {
    return loadU32(record.data());
}

Records randomWorld(std::mt19937& random, int count, int distinct, int tags, bool nulls) {
    Records records;
    const auto below = [&random](int bound) {
        return static_cast<int>(random() % static_cast<unsigned>(bound));
    };
    for (int i = 0; i < count; ++i) {
        Bytes record(kWorldRecordLength, 0);
        storeAs(record.data(), static_cast<std::uint32_t>(i));
        record[kRecordFlagOffset] = static_cast<Byte>(1 + below(tags));
        storeAs<std::int32_t>(record.data() + kLevelOffset, 1);
        storeAs(record.data() + kKeyAOffset, static_cast<std::int16_t>(below(distinct)));
        storeAs(record.data() + kKeyBOffset, static_cast<std::int16_t>(below(distinct) - 1));
        if (nulls) {
            record[kNullsOffset] = below(4) == 0 ? 1 : 0;
            record[kNullsOffset + 1] = below(4) == 0 ? 1 : 0;
        }
        records.push_back(std::move(record));
    }
    return records;
}

void thinOut(Records& records, const std::vector<KeyDescriptor>& keys) {
    Records kept;
    for (const Bytes& record : records) {
        const auto like = std::count_if(kept.begin(), kept.end(), [&](const Bytes& other) {
            return record[kRecordFlagOffset] == other[kRecordFlagOffset] &&
                   differenceByModel(record, other, keys, false) == 0;
        });
        if (like < kTagRecordsMax) kept.push_back(record);
    }
    records = kept;
}

void growForest(std::mt19937& random, Records& records, int levelMax) {
    int level = 0;
    for (Bytes& record : records) {
        level =
            1 + static_cast<int>(random() % static_cast<unsigned>(std::min(level + 1, levelMax)));
        storeAs<std::int32_t>(record.data() + kLevelOffset, level);
        storeAs<std::int64_t>(record.data() + 4, -1);  // what the fields arrive with does not count
    }
}

std::vector<KeyDescriptor> randomKeys(std::mt19937& random) {
    std::vector<KeyDescriptor> keys = {ascendingKey(DataType::kInteger, kKeyAOffset, 2, 1),
                                       ascendingKey(DataType::kInteger, kKeyBOffset, 2, 2)};
    constexpr std::uint8_t kPlacements[] = {0x00, 0x20, 0x40, 0x60};
    for (KeyDescriptor& key : keys) {
        key.kindFlags = static_cast<std::uint8_t>(random() % 3 | kPlacements[random() % 4]);
        key.groupKey = static_cast<std::uint8_t>(random() % 8 == 0 ? 0 : 1 + random() % 2);
    }
    if (random() % 2 == 0) keys.push_back(nullIndicators(kNullsOffset));
    return keys;
}

Records shapedByModel(const Records& sorted, const std::vector<KeyDescriptor>& keys, SortMode mode,
                      std::int32_t& groupCount) {
    groupCount = mode >= SortMode::kIntersect && mode <= SortMode::kExceptAll ? 0 : 1;
    if (mode == SortMode::kGroups) return grouped(sorted, keys, groupCount);
    return groupCount == 0 ? combined(sorted, keys, mode) : distinct(sorted, keys);
}

std::int32_t limitByModel(const Records& sorted, const std::vector<KeyDescriptor>& keys,
                          std::int32_t limitCount) {
    auto limit = static_cast<std::size_t>(limitCount);
    if (limit >= sorted.size()) return static_cast<std::int32_t>(sorted.size());
    const Bytes& last = sorted[limit - 1];
    while (limit < sorted.size() && differenceByModel(last, sorted[limit], keys, true) == 0)
        ++limit;
    return static_cast<std::int32_t>(limit);
}

Records hierarchyByModel(const Records& records, const std::vector<KeyDescriptor>& keys) {
    std::size_t next = 0;
    std::vector<Node> roots = readSiblings(records, next, 1);
    Records result;
    flatten(roots, keys, result);
    return result;
}

int compareByModel(const Bytes& left, const Bytes& right, const std::vector<KeyDescriptor>& keys) {
    const bool indicators = hasIndicators(keys);
    for (const KeyDescriptor& key : keys) {
        const int order = isSortKey(key) ? compareKey(left, right, key, indicators) : 0;
        if (order != 0) return order;
    }
    return 0;
}

}  // namespace tvsort::test

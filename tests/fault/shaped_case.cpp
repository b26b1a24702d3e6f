#include "tests/fault/shaped_case.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace tvsort::test {

namespace {

constexpr std::uint16_t kTagOffset = 4;
constexpr std::uint16_t kLevelOffset = 12;
constexpr std::uint16_t kKeyOffset = 16;
constexpr std::uint16_t kFillerOffset = 20;

// `count` rows with the keys 0, 0, .., 1, 1, ..., each `repeats` times, shuffled.
std::vector<ShapedRow> shuffledRows(std::int32_t count, std::int32_t repeats) {
    std::vector<ShapedRow> rows;
    rows.reserve(static_cast<std::size_t>(count));
    for (std::int32_t i = 0; i < count; ++i)
        rows.push_back({i / repeats});
    std::shuffle(rows.begin(), rows.end(), std::mt19937(7));
    return rows;
}

// Every `step`th number from `first` on, below `end`, each `repeats` times.
std::vector<std::int32_t> numbers(std::int32_t first, std::int32_t end, std::int32_t step = 1,
                                  std::int32_t repeats = 1) {
    std::vector<std::int32_t> result;
    for (std::int32_t i = first; i < end; i += step)
        result.insert(result.end(), static_cast<std::size_t>(repeats), i);
    return result;
}

// Half of the rows are the first operand, with all keys from 0 on; the other half the second, with
// each even key twice.
std::vector<ShapedRow> twoOperands(std::int32_t count) {
    std::vector<ShapedRow> rows = shuffledRows(count, 1);
    for (ShapedRow& row : rows) {
        if (row.key < count / 2) continue;
        row.key = (row.key - count / 2) / 2 * 2;
        row.tag = 2;
    }
    return rows;
}

// Trees of a root and nine children each, all siblings in falling order.
std::vector<ShapedRow> forest(std::int32_t count) {
    std::vector<ShapedRow> rows;
    for (std::int32_t root = count - 10; root >= 0; root -= 10) {
        rows.push_back({root});
        for (std::int32_t child = root + 9; child > root; --child)
            rows.push_back({child, 1, 2});
    }
    return rows;
}

void fillRecord(Byte* record, std::uint16_t recordLength, std::int32_t place,
                const ShapedRow& row) {
    std::memset(record, 0, kFillerOffset);
    std::memset(record + kFillerOffset, row.key & 0xff, recordLength - kFillerOffset);
    storeAs(record, place);
    record[kTagOffset] = row.tag;
    storeAs(record + kLevelOffset, row.level);
    storeAs(record + kKeyOffset, row.key);
}

bool isWhole(const Byte* record, std::uint16_t recordLength) {
    const auto low = static_cast<Byte>(loadI32(record + kKeyOffset) & 0xff);
    return std::all_of(record + kFillerOffset, record + recordLength,
                       [low](Byte byte) { return byte == low; });
}

}  // namespace

host::RequestBuilder ShapedCase::request() const {
    host::RequestBuilder request;
    KeyDescriptor key = host::ascendingKey(DataType::kInteger, kKeyOffset, 4);
    key.groupKey = kStartsGroup;
    request.addKey(key);
    // The hierarchy sort leaves its first key out.
    if (mode == SortMode::kHierarchy) request.addKey(key);
    request.setMode(mode).setLimit(limitCount);
    return request;
}

host::LoadedData ShapedCase::load(host::SortSlot& slot, const host::Geometry& geometry) const {
    std::size_t next = 0;
    return slot.load(geometry, [&](Byte* target, std::size_t recordsMax) {
        const std::size_t count = std::min(recordsMax, rows.size() - next);
        for (std::size_t i = 0; i < count; ++i, ++next) {
            fillRecord(target + i * geometry.recordLength, geometry.recordLength,
                       static_cast<std::int32_t>(next), rows[next]);
        }
        return count;
    });
}

void ShapedCase::expectResult(host::SortSlot& slot, const host::Geometry& geometry,
                              std::int32_t recordCount) const {
    std::vector<std::int32_t> keys;
    bool allWhole = true;
    slot.read(geometry, recordCount, [&](const Byte* record, std::size_t count) {
        for (; count > 0; --count, record += geometry.recordLength) {
            keys.push_back(loadI32(record + kKeyOffset));
            allWhole = allWhole && isWhole(record, geometry.recordLength);
        }
    });
    EXPECT_EQ(keys, expected) << name;
    EXPECT_TRUE(allWhole) << name << ": a record is torn";
}

void ShapedCase::expectServed(host::SortSlot& slot, const host::Geometry& geometry) const {
    const host::LoadedData loaded = load(slot, geometry);
    const SortReply reply = slot.ask(request(), geometry, loaded.extent);
    ASSERT_EQ(reply.errorCode, 0U) << name;
    expectResult(slot, geometry, reply.recordCount);
}

std::vector<ShapedCase> shapedCases(std::int32_t scale) {
    const std::int32_t count = 100 * scale;
    const std::int32_t half = count / 2;
    return {
        plainCase(scale),
        {"distinct", SortMode::kDistinct, 0, shuffledRows(count, 2), numbers(0, half)},
        {"groups", SortMode::kGroups, 0, shuffledRows(count, 2), numbers(0, half, 1, 2)},
        {"intersection", SortMode::kIntersect, 0, twoOperands(count), numbers(0, half, 2)},
        {"difference", SortMode::kExcept, 0, twoOperands(count), numbers(1, half, 2)},
        {"limit",
         SortMode::kOrder,
         10,
         shuffledRows(count, 4),
         {0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2}},
        {"hierarchy", SortMode::kHierarchy, 0, forest(count), numbers(0, count)},
    };
}

ShapedCase plainCase(std::int32_t scale) {
    return {"order", SortMode::kOrder, 0, shuffledRows(100 * scale, 1), numbers(0, 100 * scale)};
}

}  // namespace tvsort::test

// Small random data sets, and the plainest model of what each sort mode makes of them: vectors of
// records, no blocks, no pool. The model tells the truth; the process has to agree with it.
//
// A record, 24 bytes:
//
//     0   u32   number of the record as it arrived
//     4   u8    recordFlag; in mode 7 the process's own fields, 8 bytes
//     12  i32   hierarchy level
//     16  i16   key A, few distinct values
//     18  i16   key B, likewise
//     20  u8    null indicator of A;  21 of B

#pragma once

#include <random>

#include "tests/support/served_job.h"

namespace tvsort::test {

inline constexpr std::uint16_t kWorldRecordLength = 24;
inline constexpr std::uint16_t kLevelOffset = 12;
inline constexpr std::uint16_t kKeyAOffset = 16;
inline constexpr std::uint16_t kKeyBOffset = 18;
inline constexpr std::uint16_t kNullsOffset = 20;

inline constexpr int kTagRecordsMax = 3;

std::uint32_t arrivalOf(const Bytes& record);

// `count` records with keys below `distinct`, operand tags 1 to `tags`, and nulls if asked for.
Records randomWorld(std::mt19937& random, int count, int distinct, int tags, bool nulls);

// Leaves of each operand the first kTagRecordsMax records of a group: the model of the set
// operations knows no more.
void thinOut(Records& records, const std::vector<KeyDescriptor>& keys);

// Gives the records random levels of a well-formed forest.
void growForest(std::mt19937& random, Records& records, int levelMax);

// Keys A and B with random directions, null placements and, where `random` says so, null
// indicators.
std::vector<KeyDescriptor> randomKeys(std::mt19937& random);

// The result of sort modes 1 to 6 and 10 up on records that are in order, in modes 3 to 6 of three
// operands and thinned out; counts the groups of mode 2.
Records shapedByModel(const Records& sorted, const std::vector<KeyDescriptor>& keys, SortMode mode,
                      std::int32_t& groupCount);

// The number of leading records that a row limit gives.
std::int32_t limitByModel(const Records& sorted, const std::vector<KeyDescriptor>& keys,
                          std::int32_t limitCount);

// The result of sort mode 7, with the process's own fields filled in.
Records hierarchyByModel(const Records& records, const std::vector<KeyDescriptor>& keys);

// Below 0, 0 or above 0, by the keys in their directions.
int compareByModel(const Bytes& left, const Bytes& right, const std::vector<KeyDescriptor>& keys);

}  // namespace tvsort::test

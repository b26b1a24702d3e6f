// `tvsort-host generate`: records in the style of the sort benchmarks.
//
//     0            keyLength bytes   the key, compared as unsigned bytes
//     keyLength    16 digits         the record's number from 0, hexadecimal
//     + 16         the rest          letters, different from record to record
//
// A record too short for all of it is cut. The same seed gives the same bytes on every machine.
//
// Kinds of keys:
//
//     random         every key equally likely
//     skewed         half of the keys from 256 popular values, the others random
//     sorted         ascending through the whole range of keys; equal keys where there are more
//                    records than keys
//     reversed       descending likewise
//     few-distinct   16 different keys
//     equal          one key

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/bytes.h"

namespace tvsort::tools {

enum class KeyDistribution : std::uint8_t {
    kRandom,
    kSkewed,
    kSorted,
    kReversed,
    kFewDistinct,
    kEqual,
};

struct GenerateOptions {
    std::int64_t recordCount = 0;
    std::uint64_t seed = 1;
    KeyDistribution distribution = KeyDistribution::kRandom;
    std::uint16_t recordLength = 100;
    std::uint16_t keyLength = 10;
    std::string output;  // empty: standard output
};

// The records of a data set, one after the other.
class RecordGenerator {
  public:
    explicit RecordGenerator(const GenerateOptions& options);
    // Fills the next record, of `recordLength` bytes.
    void next(Byte* record);

  private:
    std::uint64_t random();
    void randomKey(Byte* key, std::uint64_t state) const;
    void risingKey(Byte* key, std::uint64_t rank) const;
    void fillKey(Byte* key);

    GenerateOptions options_;
    std::uint64_t state_;
    std::uint64_t number_ = 0;
};

// Writes them all.
void generateFile(const GenerateOptions& options);

}  // namespace tvsort::tools

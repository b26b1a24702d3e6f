// How often words of the key are read, whatever the data: each call of the reader of weighted bytes
// is counted where the linker sends it past this file.

#include <gtest/gtest.h>

#include "process/keys/normalized_key.h"

namespace tvsort::test {
namespace {

std::int64_t wordsRead = 0;

}  // namespace
}  // namespace tvsort::test

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" std::uint64_t __real__ZN6tvsort12readWeightedEPKhS1_i(const tvsort::Byte* weights,
                                                                 const tvsort::Byte* content,
                                                                 std::int32_t bytes);
extern "C" std::uint64_t __wrap__ZN6tvsort12readWeightedEPKhS1_i(const tvsort::Byte* weights,
                                                                 const tvsort::Byte* content,
                                                                 std::int32_t bytes) {
    tvsort::test::wordsRead += 1;
    return __real__ZN6tvsort12readWeightedEPKhS1_i(weights, content, bytes);
}
// NOLINTEND(bugprone-reserved-identifier)

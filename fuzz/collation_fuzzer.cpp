// A collation file of any bytes, and, if it can be trusted, two strings compared by it.
//
//     0   u8    units of the left string
//     1   u8    units of the right string
//     2   ...   left string, right string, file

#include <cstdlib>
#include <vector>

#include "process/collation/collation_table.h"
#include "process/keys/collated_text.h"

using namespace tvsort;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// What is only read for reading's sake.
volatile std::uint16_t touched = 0;

void checkOrder(const CollationTable& table, const std::vector<Byte>& left,
                const std::vector<Byte>& right) {
    const auto leftCount = static_cast<std::int32_t>(left.size() / 2);
    const auto rightCount = static_cast<std::int32_t>(right.size() / 2);
    for (const bool padded : {false, true}) {
        const int forward =
            collateCompare(table, left.data(), leftCount, right.data(), rightCount, padded);
        const int backward =
            collateCompare(table, right.data(), rightCount, left.data(), leftCount, padded);
        require(forward == -backward && forward >= -1 && forward <= 1);
        require(collateCompare(table, left.data(), leftCount, left.data(), leftCount, padded) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const Byte* data, std::size_t size) {
    constexpr std::size_t kHeadBytes = 2;
    if (size < kHeadBytes) return 0;
    const std::size_t leftBytes = 2 * std::size_t{data[0]};
    const std::size_t rightBytes = 2 * std::size_t{data[1]};
    if (size < kHeadBytes + leftBytes + rightBytes) return 0;
    const Byte* const strings = data + kHeadBytes;
    // Memory of just their sizes, so that the address sanitizer sees a step beyond them.
    const std::vector<Byte> left(strings, strings + leftBytes);
    const std::vector<Byte> right(strings + leftBytes, strings + leftBytes + rightBytes);
    const std::vector<Byte> file(strings + leftBytes + rightBytes, data + size);
    if (!isCollationFile(file.data(), file.size())) return 0;
    const CollationTable table = {file.data() + kCollationHeaderBytes};
    // The first and the last entry of every page.
    for (unsigned high = 0; high < kCollationPageCount; ++high) {
        for (const unsigned low : {0x00U, 0xffU}) {
            const auto unit = static_cast<std::uint16_t>(high << 8 | low);
            touched = unitWeight(table, unit);
        }
    }
    checkOrder(table, left, right);
    return 0;
}

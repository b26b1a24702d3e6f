#include "tools/command/checksum.h"

#define XXH_INLINE_ALL
#include <fmt/format.h>
#include <xxhash.h>

namespace tvsort::tools {

void RecordChecksum::add(const Byte* record, std::size_t byteCount) {
    const XXH128_hash_t hash = XXH3_128bits(record, byteCount);
    low_ += hash.low64;
    const std::uint64_t carry = low_ < hash.low64 ? 1 : 0;
    high_ += hash.high64 + carry;
}

std::string RecordChecksum::text() const {
    return fmt::format("{:016x}{:016x}", high_, low_);
}

}  // namespace tvsort::tools

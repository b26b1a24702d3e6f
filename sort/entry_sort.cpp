#include "sort/entry_sort.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "sort/normalized_key.h"
#include "storage/record_address.h"

namespace tvsort {

namespace {

constexpr std::uint32_t kDigitsPerEntry = 12;
constexpr std::uint32_t kChunksMax = (kNormalizedBytesMax + kDigitsPerEntry - 1) / kDigitsPerEntry;
// Up to here insertion beats counting.
constexpr std::uint32_t kInsertionEntriesMax = 32;
// How far ahead the gather asks for records: they lie in random order, and a load from memory takes
// as long as some ten copies.
constexpr std::uint32_t kPrefetchDistance = 16;

struct Entry {
    std::uint64_t high;
    std::uint32_t low;
    std::uint32_t place;

    bool precedes(const Entry& other) const {
        return high != other.high ? high < other.high : low < other.low;
    }
    bool hasDigitsOf(const Entry& other) const { return high == other.high && low == other.low; }
    // Digit `index` from the least significant one.
    std::uint32_t digit(std::uint32_t index) const {
        return index < 4 ? low >> 8 * index & 0xff
                         : static_cast<std::uint32_t>(high >> 8 * (index - 4)) & 0xff;
    }
};
static_assert(sizeof(Entry) == 16);

// The bytes of the normalized key that differ between records, in order.
struct VaryingBytes {
    std::uint32_t keyBytes;  // of the whole key
    std::uint32_t count;
    std::uint16_t position[kNormalizedBytesMax];
};

struct EntryArrays {
    Entry* entries;
    Entry* second;
    std::uint32_t count;
};

// Ranges of entries that are equal in all digits so far, one in another.
struct OpenRange {
    std::uint32_t next;
    std::uint32_t end;
};

VaryingBytes varyingBytes;
OpenRange openRanges[kChunksMax + 1];

// Calls `visit` with the place of each record in order.
template <typename Visit>
bool forEachPlace(const SortJob& job, Visit visit) {
    std::int32_t left = job.recordCount;
    for (std::int32_t frame = 0; left > 0; ++frame) {
        const std::int32_t here = std::min<std::int32_t>(left, job.recordsPerBlock);
        std::uint32_t place = frameOffset(job, frame);
        for (std::int32_t i = 0; i < here; ++i, place += job.recordLength) {
            if (!visit(place)) return false;
        }
        left -= here;
    }
    return true;
}

// Finds the varying bytes. False with an invalid decimal. A key that fits an entry is taken whole.
bool findVaryingBytes(const SortJob& job, VaryingBytes& varying) {
    varying.keyBytes = normalizedKeyBytes(job);
    Byte differs[kNormalizedBytesMax] = {};
    if (varying.keyBytes > kDigitsPerEntry) {
        Byte first[kNormalizedBytesMax];
        Byte key[kNormalizedBytesMax];
        if (!normalizeKey(job, recordAt(job, 0), first)) return false;
        const bool good = forEachPlace(job, [&](std::uint32_t place) {
            if (!normalizeKey(job, recordAt(job, place), key)) return false;
            for (std::uint32_t i = 0; i < varying.keyBytes; ++i)
                differs[i] |= key[i] ^ first[i];
            return true;
        });
        if (!good) return false;
    } else {
        std::fill_n(differs, varying.keyBytes, Byte{1});
    }
    varying.count = 0;
    for (std::uint32_t i = 0; i < varying.keyBytes; ++i) {
        if (differs[i] != 0) varying.position[varying.count++] = static_cast<std::uint16_t>(i);
    }
    return true;
}

// The digits of chunk `chunk` of a key.
Entry makeEntry(const VaryingBytes& varying, const Byte* key, std::uint32_t chunk,
                std::uint32_t place) {
    Byte digits[kDigitsPerEntry] = {};
    const std::uint32_t from = chunk * kDigitsPerEntry;
    const std::uint32_t count = std::min(kDigitsPerEntry, varying.count - from);
    for (std::uint32_t i = 0; i < count; ++i)
        digits[i] = key[varying.position[from + i]];
    return {__builtin_bswap64(loadAs<std::uint64_t>(digits)),
            __builtin_bswap32(loadAs<std::uint32_t>(digits + 8)), place};
}

// False with an invalid decimal. `inOrder` tells whether no entry precedes the one before it.
bool makeEntries(const SortJob& job, const VaryingBytes& varying, const EntryArrays& arrays,
                 bool& inOrder) {
    Byte key[kNormalizedBytesMax];
    Entry* next = arrays.entries;
    inOrder = true;
    return forEachPlace(job, [&](std::uint32_t place) {
        if (!normalizeKey(job, recordAt(job, place), key)) return false;
        *next = makeEntry(varying, key, 0, place);
        inOrder = inOrder && (next == arrays.entries || !next->precedes(next[-1]));
        next += 1;
        return true;
    });
}

// Gives the entries of a range the digits of another chunk.
void reloadDigits(const SortJob& job, const VaryingBytes& varying, Entry* first, Entry* last,
                  std::uint32_t chunk) {
    Byte key[kNormalizedBytesMax];
    for (; first != last; ++first) {
        normalizeKey(job, recordAt(job, first->place), key);  // was valid the first time
        *first = makeEntry(varying, key, chunk, first->place);
    }
}

void insertEntries(Entry* first, Entry* last) {
    for (Entry* next = first + 1; next < last; ++next) {
        const Entry entry = *next;
        Entry* place = next;
        for (; place > first && entry.precedes(place[-1]); --place)
            *place = place[-1];
        *place = entry;
    }
}

// One stable pass by byte `digit`. False when all entries have the same one.
bool passByDigit(const Entry* source, Entry* target, std::uint32_t count, std::uint32_t digit) {
    std::uint32_t places[256] = {};
    for (std::uint32_t i = 0; i < count; ++i)
        places[source[i].digit(digit)] += 1;
    if (places[source[0].digit(digit)] == count) return false;
    std::uint32_t before = 0;
    for (std::uint32_t& place : places) {
        const std::uint32_t inBucket = place;
        place = before;
        before += inBucket;
    }
    for (std::uint32_t i = 0; i < count; ++i)
        target[places[source[i].digit(digit)]++] = source[i];
    return true;
}

// Orders the entries of a range, in their place.
void sortRange(const EntryArrays& arrays, std::uint32_t begin, std::uint32_t end) {
    const std::uint32_t count = end - begin;
    Entry* const place = arrays.entries + begin;
    if (count <= kInsertionEntriesMax) {
        insertEntries(place, place + count);
        return;
    }
    Entry* source = place;
    Entry* target = arrays.second + begin;
    for (std::uint32_t digit = 0; digit < kDigitsPerEntry; ++digit) {
        if (passByDigit(source, target, count, digit)) std::swap(source, target);
    }
    if (source != place) std::copy_n(source, count, place);
}

// The end of the run of equal digits that begins at `begin`.
std::uint32_t runEnd(const EntryArrays& arrays, std::uint32_t begin, std::uint32_t end) {
    std::uint32_t next = begin + 1;
    while (next < end && arrays.entries[next].hasDigitsOf(arrays.entries[begin]))
        ++next;
    return next;
}

void sortEntries(const SortJob& job, const VaryingBytes& varying, const EntryArrays& arrays) {
    const std::uint32_t chunks = (varying.count + kDigitsPerEntry - 1) / kDigitsPerEntry;
    sortRange(arrays, 0, arrays.count);
    // openRanges[d] is ordered by the chunks up to d; its runs from `next` on are still to be
    // looked at.
    std::uint32_t depth = 0;
    openRanges[0] = {0, chunks > 1 ? arrays.count : 0};
    for (;;) {
        OpenRange& range = openRanges[depth];
        if (range.next >= range.end) {
            if (depth == 0) return;
            depth -= 1;
            continue;
        }
        const std::uint32_t begin = range.next;
        const std::uint32_t end = runEnd(arrays, begin, range.end);
        range.next = end;
        if (end - begin < 2) continue;
        reloadDigits(job, varying, arrays.entries + begin, arrays.entries + end, depth + 1);
        sortRange(arrays, begin, end);
        if (depth + 2 < chunks) openRanges[++depth] = {begin, end};
    }
}

// Copies the records to the scratch area, in the order of the entries.
void gatherRecords(const SortJob& job, const EntryArrays& arrays, Byte* scratchArea) {
    const std::size_t recordLength = job.recordLength;
    const std::uint32_t count = arrays.count;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (i + kPrefetchDistance < count) {
            const Byte* const ahead = recordAt(job, arrays.entries[i + kPrefetchDistance].place);
            __builtin_prefetch(ahead);
            __builtin_prefetch(ahead + recordLength - 1);
        }
        std::memcpy(scratchArea + i * recordLength, recordAt(job, arrays.entries[i].place),
                    recordLength);
    }
}

void returnRecords(const SortJob& job, const Byte* scratchArea) {
    const std::size_t recordLength = job.recordLength;
    const std::size_t blockBytes = recordLength * job.recordsPerBlock;
    std::size_t left = recordLength * static_cast<std::size_t>(job.recordCount);
    for (std::int32_t frame = 0; left > 0; ++frame) {
        const std::size_t here = std::min(left, blockBytes);
        std::memcpy(recordAt(job, frameOffset(job, frame)), scratchArea, here);
        scratchArea += here;
        left -= here;
    }
}

}  // namespace

bool entriesFit(const SortJob& job) {
    return job.recordLength >= 2 * sizeof(Entry) && normalizedKeyBytes(job) <= kNormalizedBytesMax;
}

void sortByEntries(SortJob& job, Byte* scratchArea) {
    const auto count = static_cast<std::uint32_t>(job.recordCount);
    Byte* const scratchEnd = scratchArea + std::size_t{count} * job.recordLength;
    // The region's end may be unaligned; entries are not.
    const std::size_t slack = reinterpret_cast<std::uintptr_t>(scratchEnd) % alignof(Entry);
    Entry* const entries = reinterpret_cast<Entry*>(scratchEnd - slack) - count;
    const EntryArrays arrays = {entries, entries - count, count};
    bool inOrder = false;
    if (!findVaryingBytes(job, varyingBytes) || !makeEntries(job, varyingBytes, arrays, inOrder)) {
        raise(job, ErrorCode::kDecimalInvalid);
        return;
    }
    if (inOrder && varyingBytes.count <= kDigitsPerEntry) return;
    sortEntries(job, varyingBytes, arrays);
    gatherRecords(job, arrays, scratchArea);
    returnRecords(job, scratchArea);
}

}  // namespace tvsort

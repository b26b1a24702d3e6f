// Numbers, shuffled, and a process that sorts them: for tests that are about the process and not
// about what it sorts.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "host/sort_server.h"

namespace tvsort::host {

inline constexpr Timeout kSoon{20000};
inline constexpr std::uint16_t kRecordBytes = 64;

inline ServerOptions optionsFor(std::int32_t memoryPages, std::int32_t pagesPerBlock,
                                int slots = 1) {
    ServerOptions options;
    options.processPath = TVSORT_PROGRAM;
    options.memoryPages = memoryPages;
    options.pagesPerBlock = pagesPerBlock;
    options.slotCount = slots;
    options.requestTimeout = kSoon;
    return options;
}

// The numbers 0 to `count` - 1, shuffled, at the start of records.
inline std::vector<Byte> shuffledRecords(std::size_t count) {
    std::vector<std::int32_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(7));
    std::vector<Byte> records(count * kRecordBytes, 0x5a);
    for (std::size_t i = 0; i < count; ++i)
        storeAs(&records[i * kRecordBytes], numbers[i]);
    return records;
}

inline RecordSource sourceOf(const std::vector<Byte>& records) {
    return [&records, next = std::size_t{0}](Byte* target, std::size_t recordsMax) mutable {
        const std::size_t count = std::min(recordsMax, (records.size() - next) / kRecordBytes);
        std::copy_n(records.begin() + static_cast<std::ptrdiff_t>(next), count * kRecordBytes,
                    target);
        next += count * kRecordBytes;
        return count;
    };
}

inline RequestBuilder byNumber() {
    RequestBuilder request;
    request.addKey(ascendingKey(DataType::kInteger, 0, 4));
    return request;
}

// Sorts the numbers and checks them all.
inline void expectSorts(SortSlot& slot, std::size_t count) {
    const std::vector<Byte> records = shuffledRecords(count);
    const auto result = slot.sort(byNumber(), chooseGeometry(kRecordBytes, 1), sourceOf(records));
    std::int32_t expected = 0;
    result.read([&expected](const Byte* record, std::size_t here) {
        for (std::size_t i = 0; i < here; ++i) {
            ASSERT_EQ(loadI32(record + i * kRecordBytes), expected++);
        }
    });
    EXPECT_EQ(expected, static_cast<std::int32_t>(count));
}

}  // namespace tvsort::host

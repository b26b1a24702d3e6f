// How a sort by ordered keys uses its memory: decided from the first rows.
//
// As many bytes of the key as tell nearly all rows apart go into a record, and no more: every byte
// is moved as often as the record is. More than that costs no correctness, nor does less: rows
// whose bytes are alike are settled in further rounds (run_maker.h).
//
//     all stays in memory where there is room for
//
//         the inputs             as they are
//       + a record for each row  once more, in order
//       + the slots              records and what the process needs to sort them, 24 bytes each or
//                                a copy
//
//     else as many rows make a run as have room, with all three, in a worker's part of the memory;
//     runs go to files, and are merged.

#pragma once

#include <cstdint>
#include <optional>

#include "tools/formats/keyed_input.h"
#include "tools/ordered/key_record.h"

namespace tvsort::tools {

// What the first rows tell of all.
struct RunFacts {
    std::uint64_t inputBytes;
    std::uint64_t rowCount;  // about, unless all were seen
    bool isExact;
    std::uint64_t rowBytes;     // of a row, on average
    std::uint64_t rowBytesMax;  // that can be read at once
    std::size_t keyBytes;       // that tell nearly all rows apart
};

struct RunPlan {
    KeyRecord::Form form;
    std::size_t workerCount;
    bool stays;  // in memory
    std::uint64_t chunkCount;
    std::uint64_t chunkBytes;  // of the inputs, for a run
    std::uint64_t rowsMax;     // of a run
    std::uint64_t windowBytes;
    std::int32_t slotPages;
    std::int32_t blockPages;
    // What may be held at once by runs in memory.
    std::uint64_t keptBytesMax;
    // While runs are merged, each worker has so many bytes for what it reads and what it writes.
    std::uint64_t readBytes;
    std::uint64_t runReadBytesMin;  // of each run: a row, and its key where others are like it
    std::uint64_t writeBytes;

    // That a record of a further round has, of so many.
    std::size_t roundKeyBytes(std::uint64_t recordCount) const;
};

struct PlanSetting {
    std::uint64_t memoryBytes;
    std::optional<std::size_t> workerCount;  // else what the machine and the inputs are good for
    std::optional<std::int32_t> blockPages;
};

RunFacts readFacts(const KeyedInput& input);
RunPlan planRuns(const RunFacts& facts, const PlanSetting& setting);

}  // namespace tvsort::tools

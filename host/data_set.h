// A data set of fixed-length records on its way into the slot and the work file, and back.
//
//     frames of the slot     [ block 1 ][ block 2 ] ... [ block frameCount ]
//     work file              [        a hole        ...                    ][ frameCount + 1 ] ...
//
// Each block holds `recordsPerBlock` records from its first byte on; what is left at its end is
// zero. Records stream through: no more of them than one block are ever held here, and a data set
// that fits into the frames never touches the work file.

#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "host/request_builder.h"
#include "host/slot_memory.h"
#include "host/work_file.h"

namespace tvsort::host {

// Puts up to `recordsMax` records, one behind the other, to `target`, and answers how many they
// are; 0 means that there are no more.
using RecordSource = std::function<std::size_t(Byte* target, std::size_t recordsMax)>;
// Takes `recordCount` records that lie one behind the other.
using RecordSink = std::function<void(const Byte* records, std::size_t recordCount)>;

// A record starts below this byte of its block.
inline constexpr std::int64_t kRecordStartEnd = 65536;

// Pages that a block needs to hold one record.
std::int32_t blockPagesFor(std::uint16_t recordLength);

// The geometry that puts as many records into a block as it can. Records of no bytes and blocks
// smaller than a record are bad use.
Geometry chooseGeometry(std::uint16_t recordLength, std::int32_t blockPages);

struct LoadedData {
    Extent extent;
    bool fitted = true;              // all blocks are in the frames
    std::int64_t workFileBytes = 0;  // written to the work file
};

// Lays records into frames and work file as they come.
class RecordLoader {
  public:
    // Empties the work file. All that is passed but the geometry must outlive the loader.
    RecordLoader(const SlotMemory& memory, int slotNumber, WorkFile& workFile,
                 const Geometry& geometry);

    // Room for `recordsMax` records, one or more, in the block that is being filled.
    Byte* room(std::size_t& recordsMax);
    // So many records have been put there. More than 2147483647 in all are bad use.
    void took(std::size_t recordCount);
    // No record follows.
    LoadedData finish();

  private:
    void endBlock();

    const SlotMemory& memory_;
    int slotNumber_;
    WorkFile& workFile_;
    Geometry geometry_;
    std::int32_t frameCount_;
    LoadedData loaded_;
    std::vector<Byte> spill_;
    std::span<Byte> block_;         // that is being filled; empty between blocks
    std::size_t blockRecords_ = 0;  // in it
};

// Lays all records of `source` into frames and work file. More than 2147483647 of them are bad use.
LoadedData loadRecords(const SlotMemory& memory, int slotNumber, WorkFile& workFile,
                       const Geometry& geometry, const RecordSource& source);

// Hands records 1 to `recordCount` of a result to `sink`, in order. They are copies, which the
// process cannot change any more: a length is the same when it is used as when it was looked at. A
// work file that ends before is kProtocolBroken.
void readRecords(const SlotMemory& memory, int slotNumber, const WorkFile& workFile,
                 const Geometry& geometry, std::int32_t recordCount, const RecordSink& sink);

}  // namespace tvsort::host

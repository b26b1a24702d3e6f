#include "host/data_set.h"

#include <algorithm>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

// Fills one block from the source; answers the records in it, fewer than a block's at the end.
std::size_t fillBlock(std::span<Byte> block, const Geometry& geometry, const RecordSource& source) {
    std::size_t filled = 0;
    while (filled < geometry.recordsPerBlock) {
        const std::size_t added = source(block.data() + filled * geometry.recordLength,
                                         geometry.recordsPerBlock - filled);
        if (added == 0) break;
        filled += added;
    }
    const std::size_t usedBytes = filled * geometry.recordLength;
    std::fill(block.begin() + static_cast<std::ptrdiff_t>(usedBytes), block.end(), Byte{0});
    return filled;
}

void countBlock(Extent& extent, std::size_t records) {
    constexpr auto kRecordsMax = std::numeric_limits<std::int32_t>::max();
    if (records > static_cast<std::size_t>(kRecordsMax - extent.recordCount)) {
        throw badUse("there are more than " + std::to_string(kRecordsMax) +
                     " records; sort them in parts");
    }
    extent.recordCount += static_cast<std::int32_t>(records);
    extent.fileBlocks += 1;
}

}  // namespace

std::int32_t blockPagesFor(std::uint16_t recordLength) {
    return static_cast<std::int32_t>((recordLength + kPageBytes - 1) / kPageBytes);
}

Geometry chooseGeometry(std::uint16_t recordLength, std::int32_t blockPages) {
    if (recordLength == 0) throw badUse("records of no bytes cannot be sorted");
    if (blockPages < blockPagesFor(recordLength)) {
        throw badUse("a block of " + std::to_string(blockPages) +
                     " pages cannot hold a record of " + std::to_string(recordLength) +
                     " bytes; use blocks of " + std::to_string(blockPagesFor(recordLength)) +
                     " pages or more");
    }
    const std::int64_t length = recordLength;
    const std::int64_t byBlock = blockPages * kPageBytes / length;
    const std::int64_t byStart = (kRecordStartEnd - 1) / length + 1;
    const std::int64_t byCount = std::numeric_limits<std::uint16_t>::max();
    const std::int64_t perBlock = std::min({byBlock, byStart, byCount});
    return {recordLength, blockPages, static_cast<std::uint16_t>(perBlock)};
}

LoadedData loadRecords(const SlotMemory& memory, int slotNumber, WorkFile& workFile,
                       const Geometry& geometry, const RecordSource& source) {
    const std::int32_t frameCount = memory.frameCount(geometry.blockPages);
    workFile.makeEmpty();
    LoadedData loaded;
    std::vector<Byte> spill;
    bool ended = false;
    while (!ended) {
        const std::int32_t blockIndex = loaded.extent.fileBlocks;
        const bool inFrames = blockIndex < frameCount;
        if (!inFrames) spill.resize(geometry.blockBytes());
        const std::span<Byte> block =
            inFrames ? memory.frame(slotNumber, blockIndex, geometry.blockPages) : std::span(spill);
        const std::size_t records = fillBlock(block, geometry, source);
        ended = records < geometry.recordsPerBlock;
        if (records == 0) break;
        countBlock(loaded.extent, records);
        if (!inFrames) workFile.writeBlock(loaded.extent.fileBlocks, block);
    }
    loaded.fitted = loaded.extent.fileBlocks <= frameCount;
    loaded.workFileBytes = workFile.writtenBytes();
    return loaded;
}

void readRecords(const SlotMemory& memory, int slotNumber, const WorkFile& workFile,
                 const Geometry& geometry, std::int32_t recordCount, const RecordSink& sink) {
    const std::int32_t frameCount = memory.frameCount(geometry.blockPages);
    std::vector<Byte> spilled;
    std::int32_t blockIndex = 0;
    for (std::int32_t left = recordCount; left > 0; ++blockIndex) {
        const std::int32_t records = std::min<std::int32_t>(left, geometry.recordsPerBlock);
        if (blockIndex < frameCount) {
            sink(memory.frame(slotNumber, blockIndex, geometry.blockPages).data(),
                 static_cast<std::size_t>(records));
        } else {
            spilled.resize(geometry.blockBytes());
            workFile.readBlock(blockIndex + 1, spilled);
            sink(spilled.data(), static_cast<std::size_t>(records));
        }
        left -= records;
    }
}

}  // namespace tvsort::host

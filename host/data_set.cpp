#include "host/data_set.h"

#include <algorithm>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

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

RecordLoader::RecordLoader(const SlotMemory& memory, int slotNumber, WorkFile& workFile,
                           const Geometry& geometry)
    : memory_(memory),
      slotNumber_(slotNumber),
      workFile_(workFile),
      geometry_(geometry),
      frameCount_(memory.frameCount(geometry.blockPages)) {
    workFile_.makeEmpty();
}

Byte* RecordLoader::room(std::size_t& recordsMax) {
    if (block_.empty()) {
        const std::int32_t blockIndex = loaded_.extent.fileBlocks;
        const bool inFrames = blockIndex < frameCount_;
        if (!inFrames) spill_.resize(geometry_.blockBytes());
        block_ = inFrames ? memory_.frame(slotNumber_, blockIndex, geometry_.blockPages)
                          : std::span(spill_);
    }
    recordsMax = geometry_.recordsPerBlock - blockRecords_;
    return block_.data() + blockRecords_ * geometry_.recordLength;
}

void RecordLoader::took(std::size_t recordCount) {
    blockRecords_ += recordCount;
    if (blockRecords_ == geometry_.recordsPerBlock) endBlock();
}

void RecordLoader::endBlock() {
    const std::size_t usedBytes = blockRecords_ * geometry_.recordLength;
    std::fill(block_.begin() + static_cast<std::ptrdiff_t>(usedBytes), block_.end(), Byte{0});
    countBlock(loaded_.extent, blockRecords_);
    if (loaded_.extent.fileBlocks > frameCount_) {
        workFile_.writeBlock(loaded_.extent.fileBlocks, block_);
    }
    block_ = {};
    blockRecords_ = 0;
}

LoadedData RecordLoader::finish() {
    if (blockRecords_ > 0) endBlock();
    loaded_.fitted = loaded_.extent.fileBlocks <= frameCount_;
    loaded_.workFileBytes = workFile_.writtenBytes();
    return loaded_;
}

LoadedData loadRecords(const SlotMemory& memory, int slotNumber, WorkFile& workFile,
                       const Geometry& geometry, const RecordSource& source) {
    RecordLoader loader(memory, slotNumber, workFile, geometry);
    for (;;) {
        std::size_t recordsMax = 0;
        Byte* const room = loader.room(recordsMax);
        const std::size_t records = source(room, recordsMax);
        if (records == 0) return loader.finish();
        loader.took(records);
    }
}

void readRecords(const SlotMemory& memory, int slotNumber, const WorkFile& workFile,
                 const Geometry& geometry, std::int32_t recordCount, const RecordSink& sink) {
    const std::int32_t frameCount = memory.frameCount(geometry.blockPages);
    std::vector<Byte> block(geometry.blockBytes());
    std::int32_t blockIndex = 0;
    for (std::int32_t left = recordCount; left > 0; ++blockIndex) {
        const std::int32_t records = std::min<std::int32_t>(left, geometry.recordsPerBlock);
        if (blockIndex < frameCount) {
            const std::span<Byte> frame = memory.frame(slotNumber, blockIndex, geometry.blockPages);
            std::copy_n(frame.begin(), static_cast<std::size_t>(records) * geometry.recordLength,
                        block.begin());
        } else {
            workFile.readBlock(blockIndex + 1, block);
        }
        sink(block.data(), static_cast<std::size_t>(records));
        left -= records;
    }
}

}  // namespace tvsort::host

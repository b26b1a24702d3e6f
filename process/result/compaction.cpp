#include "process/result/compaction.h"

#include <cstring>

#include "process/result/duplicate_marking.h"
#include "process/result/set_operation.h"
#include "process/storage/page_pool.h"
#include "process/storage/record_address.h"
#include "process/storage/work_file.h"

namespace tvsort {

namespace {

// Survivors among the records at hand, and what they fill.
struct Survivors {
    std::int32_t kept;        // records
    std::int32_t partial;     // records of the last, partly filled block; 0 when all are full
    std::int32_t fullBlocks;  // blocks

    std::int32_t blocks() const { return fullBlocks + (partial != 0 ? 1 : 0); }
};

Survivors survivorsOf(const SortJob& job, std::int32_t kept) {
    return {kept, kept % job.recordsPerBlock, kept / job.recordsPerBlock};
}

Byte& flagAt(const SortJob& job, std::uint32_t offset) {
    return recordAt(job, offset)[kRecordFlagOffset];
}

// Packs records 1 to `last`, which lie in the frames; the first one has survived already.
Survivors compactRecords(const SortJob& job, std::int32_t last) {
    if (job.sortMode == SortMode::kGroups) return survivorsOf(job, last);
    std::int32_t kept = 1;
    for (std::int32_t source = 2; source <= last; ++source) {
        const std::uint32_t place = placeInFrames(job, source);
        if (flagAt(job, place) == 0) continue;
        kept += 1;
        if (source > kept) {
            std::memcpy(recordAt(job, placeInFrames(job, kept)), recordAt(job, place),
                        job.recordLength);
        }
    }
    return survivorsOf(job, kept);
}

// Copies a record over another one through the pool. Stops at the pool's errors.
void copyThroughPool(SortJob& job, const HeldRecord& source, std::int32_t targetNumber) {
    pinFrame(job, source.frameIndex);
    const HeldRecord target = locateRecord(job, targetNumber);
    unpinFrame(job, source.frameIndex);
    if (failed(job)) return;
    std::memcpy(recordAt(job, target.offset), recordAt(job, source.offset), job.recordLength);
    markDirty(job, target.frameIndex);
}

Survivors compactThroughPool(SortJob& job) {
    std::int32_t kept = 0;
    for (std::int32_t before = 0; before < job.recordCount; ++before) {
        const HeldRecord source = locateRecord(job, before + 1);
        if (failed(job)) break;
        if (flagAt(job, source.offset) == 0) continue;
        kept += 1;
        if (before >= kept) copyThroughPool(job, source, kept);
    }
    return survivorsOf(job, kept);
}

void compactSetOperation(SortJob& job) {
    applySetOperation(job);
    if (failed(job)) return;
    const Survivors survivors = compactThroughPool(job);
    if (failed(job)) return;
    if (!flushPool(job)) return;
    job.recordCount = survivors.kept;
    job.fileBlocks = survivors.blocks();
}

// The walk over a data set in the duplicate modes. Positions are blocks of the work file, from 1.
struct ChunkWalk {
    bool spilled;              // blocks are read and written: the data set does not fit
    std::int32_t chunkBlocks;  // blocks of a whole chunk
    std::int32_t chunkCount;   // whole chunks
    std::int32_t tailBlocks;   // blocks behind them
    std::int32_t readPosition = 1;
    std::int32_t writePosition = 1;
    std::int32_t outRecords = 0;  // survivors written as final
    std::int32_t reference = 1;   // record that the marker compares with
    std::int32_t start = 2;       // first record that it tests
    std::int32_t last;            // last one
    std::int32_t carrySlot = 0;   // block slot that the next read goes to
};

Byte* blockSlot(const SortJob& job, std::int32_t slot) {
    return recordAt(job, frameOffset(job, slot));
}

// A record in one of these modes takes at least five bytes, so the records of all frames can be
// counted in 32 bits.
ChunkWalk planChunks(const SortJob& job) {
    ChunkWalk walk = {};
    const std::int32_t blocks = blockOfRecord(job, job.recordCount);
    walk.spilled = job.fileBlocks > job.frameCount;
    walk.chunkBlocks = blocks == job.frameCount ? blocks : job.frameCount - 1;
    const std::int32_t chunkRecords = walk.chunkBlocks * std::int32_t{job.recordsPerBlock};
    // What is one chunk exactly needs no carry: it is handled as a tail.
    walk.chunkCount = job.recordCount == chunkRecords ? 0 : job.recordCount / chunkRecords;
    walk.tailBlocks = blocks - walk.chunkCount * walk.chunkBlocks;
    walk.last = walk.chunkCount == 0 ? job.recordCount : chunkRecords;
    return walk;
}

bool readChunk(SortJob& job, ChunkWalk& walk, std::int32_t blocks) {
    if (walk.spilled &&
        !readBlocks(job, blockSlot(job, walk.carrySlot), walk.readPosition, blocks)) {
        return false;
    }
    walk.readPosition += blocks;
    return true;
}

bool writeSurvivors(SortJob& job, ChunkWalk& walk, std::int32_t blocks) {
    if (walk.spilled && !writeBlocks(job, blockSlot(job, 0), walk.writePosition, blocks)) {
        return false;
    }
    walk.writePosition += blocks;
    return true;
}

// Nothing survives an error of the comparator.
Survivors markAndCompact(SortJob& job, const ChunkWalk& walk) {
    markDuplicates(job, walk.reference, walk.start, walk.last);
    return failed(job) ? Survivors{} : compactRecords(job, walk.last);
}

// Moves the last block of survivors, `partial` records, to block slot 0 and makes its last record
// the reference.
void carryLastBlock(const SortJob& job, ChunkWalk& walk, const Survivors& survivors) {
    if (survivors.fullBlocks > 0) {
        std::memcpy(blockSlot(job, 0), blockSlot(job, survivors.fullBlocks),
                    std::size_t{job.recordLength} * static_cast<std::size_t>(survivors.partial));
    }
    walk.reference = survivors.partial;
    walk.start = job.recordsPerBlock + 1;
    walk.carrySlot = 1;
}

// The empty places of the carry block count as dropped, so that the next compaction skips them.
void dropEmptyPlaces(const SortJob& job, std::int32_t carriedRecords) {
    for (std::int32_t n = carriedRecords + 1; n <= job.recordsPerBlock; ++n) {
        flagAt(job, placeInFrames(job, n)) = 0;
    }
}

// One whole chunk. False after a failure.
bool compactChunk(SortJob& job, ChunkWalk& walk, Survivors& survivors) {
    if (!readChunk(job, walk, walk.chunkBlocks)) return false;
    survivors = markAndCompact(job, walk);
    if (failed(job)) return false;
    if (survivors.partial == 0) {
        // The last whole block is the carry.
        survivors.fullBlocks -= 1;
        survivors.partial = job.recordsPerBlock;
    }
    if (!writeSurvivors(job, walk, survivors.fullBlocks)) return false;
    walk.outRecords += survivors.fullBlocks * std::int32_t{job.recordsPerBlock};
    carryLastBlock(job, walk, survivors);
    walk.last = (walk.chunkBlocks + 1) * std::int32_t{job.recordsPerBlock};
    return true;
}

void compactDuplicates(SortJob& job) {
    job.groupCount = 1;
    ChunkWalk walk = planChunks(job);
    const std::int32_t chunkRecords = walk.chunkBlocks * std::int32_t{job.recordsPerBlock};
    Survivors survivors = {};
    for (std::int32_t chunk = 1; chunk <= walk.chunkCount; ++chunk) {
        if (!compactChunk(job, walk, survivors)) return;
        const bool goesOn = chunk < walk.chunkCount || walk.tailBlocks > 0;
        if (goesOn) dropEmptyPlaces(job, survivors.partial);
    }
    if (walk.tailBlocks > 0) {
        if (!readChunk(job, walk, walk.tailBlocks)) return;
        if (walk.chunkCount > 0) {
            walk.last = job.recordCount - walk.chunkCount * chunkRecords + job.recordsPerBlock;
        }
        survivors = markAndCompact(job, walk);
        if (failed(job)) return;
    } else {
        // Nothing follows the last chunk: its carry block ends the result.
        survivors = {survivors.partial, survivors.partial, 0};
    }
    if (!writeSurvivors(job, walk, survivors.blocks())) return;
    job.recordCount = walk.outRecords + survivors.kept;
    job.fileBlocks = walk.writePosition - 1;
}

}  // namespace

void compactSortedFile(SortJob& job) {
    if (job.modeFlag != 0) {
        compactSetOperation(job);
    } else {
        compactDuplicates(job);
    }
}

}  // namespace tvsort

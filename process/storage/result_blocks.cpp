#include "process/storage/result_blocks.h"

#include <algorithm>
#include <cstring>

#include "process/storage/server_watch.h"
#include "process/storage/work_file.h"

namespace tvsort {

namespace {

// Moves a block that stands in `source`. There is room: behind the chunk there are as many places
// as blocks that are still to be written.
bool moveBlock(ResultBlocks& result, const StoredBlock& block, const Byte* source) {
    const std::int32_t place = putBlock(result.store, block, source, result.regions[block.range]);
    if (place < 0) return false;
    if (block.range == result.listedRange) result.listedPlaces[block.number] = place;
    return true;
}

// Moves the `count` blocks from `place` on, all of which stand in the way.
bool moveBlocks(ResultBlocks& result, std::int32_t place, std::int32_t count) {
    const Byte* source = result.spare;
    if (result.store.isFrame(place)) {
        source = result.store.frameOf(place);
    } else if (!readBlocks(result.store.job, result.spare, place + 1, count)) {
        return false;
    }
    for (std::int32_t i = 0; i < count; ++i, source += frameBytes(result.store.job)) {
        StoredBlock block = {};
        const bool holdsBlock = result.store.map.holdsBlock(place + i, block);
        result.store.map.close(place + i);
        if (holdsBlock && !moveBlock(result, block, source)) return false;
    }
    return true;
}

// Makes room for `count` blocks of the result.
bool clearPlaces(ResultBlocks& result, std::int32_t count) {
    const std::int32_t end = result.place + count;
    StoredBlock block = {};
    for (std::int32_t place = result.place; place < end; ++place) {
        if (!result.store.map.holdsBlock(place, block)) result.store.map.close(place);
    }
    for (std::int32_t place = result.place; place < end;) {
        std::int32_t run = 0;
        while (place + run < end && result.store.map.holdsBlock(place + run, block))
            ++run;
        if (run > 0 && !moveBlocks(result, place, run)) return false;
        place += std::max(run, 1);
    }
    return true;
}

}  // namespace

bool writeChunk(ResultBlocks& result) {
    const std::int32_t count = result.full + (result.inBlock > 0 ? 1 : 0);
    if (count == 0) return true;
    if (!clearPlaces(result, count)) return false;
    SortJob& job = result.store.job;
    if (result.store.isFrame(result.place)) {
        watchServer(job, static_cast<std::size_t>(count) * frameBytes(job));
        std::memcpy(result.store.frameOf(result.place), result.chunk,
                    static_cast<std::size_t>(count) * frameBytes(job));
    } else if (!writeBlocks(job, result.chunk, result.place + 1, count)) {
        return false;
    }
    result.place += count;
    result.full = 0;
    result.inBlock = 0;
    return true;
}

}  // namespace tvsort

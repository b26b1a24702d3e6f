#include "process/storage/block_store.h"

#include <algorithm>
#include <cstring>

#include "process/storage/work_file.h"

namespace tvsort {

std::int32_t putBlock(BlockStore& store, const StoredBlock& block, const Byte* source,
                      std::int32_t from) {
    std::int32_t place = -1;
    if (store.filePlaces > 0) place = store.map.findFree(store.filePlaces);
    if (place < store.filePlaces) place = store.map.findFree(from);
    if (place < 0) {
        raise(store.job, ErrorCode::kNoFreeFrame);
        return -1;
    }
    if (store.isFrame(place)) {
        std::memcpy(store.frameOf(place), source, frameBytes(store.job));
    } else if (!writeBlocks(store.job, source, place + 1, 1)) {
        return -1;
    }
    store.map.store(place, block);
    return place;
}

namespace {

// How many of `count` places stand one behind the other from the first one on.
std::int32_t runOf(const BlockStore& store, const std::int32_t* places, std::uint32_t count) {
    std::int32_t run = 1;
    while (static_cast<std::uint32_t>(run) < count && places[run] == places[0] + run &&
           store.isFrame(places[0]) == store.isFrame(places[0] + run))
        ++run;
    return run;
}

}  // namespace

void expectBlocks(const BlockStore& store, const std::int32_t* places, std::uint32_t count) {
    for (std::uint32_t n = 0; n < count;) {
        const std::int32_t run = runOf(store, places + n, count - n);
        if (!store.isFrame(places[n])) expectReads(store.job, places[n] + 1, run);
        n += static_cast<std::uint32_t>(run);
    }
}

bool takeBlocks(BlockStore& store, const std::int32_t* places, std::uint32_t count, Byte* target) {
    for (std::uint32_t n = 0; n < count;) {
        const std::int32_t place = places[n];
        const std::int32_t run = runOf(store, places + n, count - n);
        if (store.isFrame(place)) {
            std::memcpy(target, store.frameOf(place),
                        static_cast<std::size_t>(run) * frameBytes(store.job));
        } else if (!readBlocks(store.job, target, place + 1, run)) {
            return false;
        }
        for (std::int32_t i = 0; i < run; ++i)
            store.map.setFree(place + i);
        n += static_cast<std::uint32_t>(run);
        target += static_cast<std::size_t>(run) * frameBytes(store.job);
    }
    return true;
}

}  // namespace tvsort

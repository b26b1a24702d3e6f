// Where the blocks of ranges are while a data set is distributed: in the places of the work file,
// and in frames that nobody needs otherwise, which spares them two trips to the file.
//
// The frames count as places behind those of the file.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"
#include "process/storage/place_map.h"

namespace tvsort {

struct BlockStore {
    SortJob& job;
    PlaceMap& map;
    std::int32_t filePlaces;
    Byte* frames;  // one behind the other

    bool isFrame(std::int32_t place) const { return place >= filePlaces; }
    Byte* frameOf(std::int32_t place) const {
        return frames + static_cast<std::size_t>(place - filePlaces) * frameBytes(job);
    }
};

// Puts a block to a frame, or to the first free place of the file from `from` on, or to the last
// one before it. Answers the place; -1 with 1403, or with 1409 where there is no free place.
std::int32_t putBlock(BlockStore& store, const StoredBlock& block, const Byte* source,
                      std::int32_t from);

// Tells the system that those of `count` blocks that stand in the file are brought soon.
void expectBlocks(const BlockStore& store, const std::int32_t* places, std::uint32_t count);

// Brings the `count` blocks that stand in `places` to `target`, one behind the other, and frees the
// places. False with 1402.
bool takeBlocks(BlockStore& store, const std::int32_t* places, std::uint32_t count, Byte* target);

}  // namespace tvsort

// The buffer cache over the work file: page frames in the slot, each holding one block.
//
// When a request arrives the server has laid blocks 1 to min(fileBlocks, frameCount) into frames 0
// onward; the rest of the data set is in the work file. A block is found through a hash chain, and
// a ring of all frames in use keeps them in order of use:
//
//      mruFrame, the hand: used last
//          |        next                 prev <- ... -> next
//          v
//     +-> [3] -> [0] -> [1] -> [2] --+       frames 0 to 3 after set-up: 3 was filled last,
//     |           ^                  |       0 is the least recently used
//     +-----------|------------------+
//                 least recently used
//
// A frame that is used again moves right behind the hand and becomes the hand. A full pool reuses
// the hand itself when it is not pinned, else the least recently used frame that is not.
//
// Pins: a caller that keeps a place in one frame while it asks for another block pins the first
// frame. At most four frames are pinned at a time (sort/partition.h), so five are enough.
//
// The module alone writes the descriptors' links and the hash table; `framesInUse` and `mruFrame`
// are set by the request loop once per request and by the module afterwards; `dirty` and `pinned`
// are set by whoever changes or holds a frame's records.
//
// Descriptors and hash table are the process's own: their numbers are indexes and links, and in the
// slot another writer could change them at any time. The slot's copies are written for the server
// to read, once at the end of a request (`showPool`); all that is ever taken from them are the
// dirty flags that a request finds (`initPool`).

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// The largest frame area, spare block included, is 4 GiB, and a frame at least a page.
inline constexpr std::int32_t kFramesMax = std::int32_t{1} << 20;

// Where `initPool` takes the dirty flags from: all set, as the pool has them, or as the slot does.
enum class DirtyFlags : std::uint8_t { kSet, kKeep, kFromSlot };

// Gives the job the pool's own descriptors and hash table. There is one pool: it belongs to the job
// whose request set it up last.
void attachPool(SortJob& job);

inline std::int32_t hashBucket(const SortJob& job, std::int32_t block) {
    return block % (job.hashBlocks * job.framesPerBlock);
}

// The frame that holds `block`, whose bucket is `bucket`; kNoFrame when none does.
std::int32_t findFrame(const SortJob& job, std::int32_t bucket, std::int32_t block);

// Puts `frame` at the head of the bucket's chain.
void linkFrame(SortJob& job, std::int32_t bucket, std::int32_t frame);

// Takes `frame` out of the bucket's chain, if it is there.
void unlinkFrame(SortJob& job, std::int32_t bucket, std::int32_t frame);

// Empties the buckets that the blocks of a data set of `blockCount` blocks can use.
void clearHashTable(SortJob& job, std::int32_t blockCount);

// Lays blocks 1 to `frames` into frames 0 to `frames` - 1, unpinned. Needs an empty hash table and
// at most `frameCount` frames; `framesInUse` and `mruFrame` are the caller's to set.
void initPool(SortJob& job, std::int32_t frames, DirtyFlags dirtyFlags);

// Makes the pool hold no block: what the frames have is in the file, or is not wanted. No frame is
// in use then.
void forgetBlocks(SortJob& job);

// Copies the descriptors of the frames in use, and the buckets that `clearHashTable` empties for
// `blockCount` blocks, to the slot.
void showPool(const SortJob& job, std::int32_t blockCount);

// Moves a frame of the ring right behind the hand and makes it the hand.
void moveToHand(SortJob& job, std::int32_t frame);

// Finds a frame for `wantedBlock`, which no frame holds and whose bucket is `bucket`, and reads the
// block into it; `currentFrame` and `mruFrame` name the frame. Raises 1409 when no frame can be
// reused (nothing has changed then), 1403 when its old block cannot be written (it keeps that
// block) and 1402 when the wanted block cannot be read.
void bringInBlock(SortJob& job, std::int32_t bucket);

// Writes every dirty frame to its block, in frame order, unless the whole data set lives in the
// frames. False after a write failure (1403): that frame and those behind it stay as they are.
bool flushPool(SortJob& job);

// How many frames callers may have pinned when they ask for a block.
inline constexpr int kPinsMax = 4;

// For assertions. Whether the ring runs through all frames in use and back, and each of them is
// found by the block that it holds, so that no two hold the same.
bool poolIsSane(const SortJob& job);
// Whether at most kPinsMax frames are pinned.
bool pinsAreFew(const SortJob& job);

}  // namespace tvsort

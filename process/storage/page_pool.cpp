#include "process/storage/page_pool.h"

#include <algorithm>
#include <cassert>

#include "process/storage/work_file.h"

namespace tvsort {

namespace {

PageDescriptor ownDescriptors[kFramesMax];
std::int32_t ownHashTable[kFramesMax];

PageDescriptor& descriptorOf(SortJob& job, std::int32_t frame) {
    return job.pageDescriptors[frame];
}

void insertBehindHand(SortJob& job, std::int32_t frame) {
    PageDescriptor& hand = descriptorOf(job, job.mruFrame);
    PageDescriptor& inserted = descriptorOf(job, frame);
    inserted.next = hand.next;
    inserted.prev = job.mruFrame;
    descriptorOf(job, hand.next).prev = frame;
    hand.next = frame;
}

void removeFromRing(SortJob& job, std::int32_t frame) {
    const PageDescriptor& removed = descriptorOf(job, frame);
    descriptorOf(job, removed.next).prev = removed.prev;
    descriptorOf(job, removed.prev).next = removed.next;
}

void assignWantedBlock(SortJob& job, std::int32_t frame) {
    PageDescriptor& descriptor = descriptorOf(job, frame);
    descriptor.block = job.wantedBlock;
    descriptor.frame = frame;
    descriptor.dirty = 0;
    descriptor.pinned = 0;
    job.mruFrame = frame;
}

void takeFreshFrame(SortJob& job) {
    const std::int32_t frame = job.framesInUse;
    job.currentFrame = frame;
    job.framesInUse = frame + 1;
    if (frame > 0) {
        insertBehindHand(job, frame);
    } else {
        descriptorOf(job, frame).prev = 0;
        descriptorOf(job, frame).next = 0;
    }
    assignWantedBlock(job, frame);
}

bool writeFrame(SortJob& job, std::int32_t block, std::int32_t frame) {
    return writeBlocks(job, recordAt(job, frameOffset(job, frame)), block, 1);
}

// The buckets that the blocks of a data set of `blockCount` blocks can use: up to bucket
// blockCount, or all of them once they wrap.
std::int64_t bucketsFor(const SortJob& job, std::int32_t blockCount) {
    const std::int64_t blocks =
        std::min(std::int64_t{blockCount} + 1, std::int64_t{job.hashBlocks});
    return blocks * job.framesPerBlock;
}

// The reserved bytes are the server's.
void showDescriptor(const PageDescriptor& own, PageDescriptor& shown) {
    shown.block = own.block;
    shown.frame = own.frame;
    shown.prev = own.prev;
    shown.next = own.next;
    shown.dirty = own.dirty;
    shown.pinned = own.pinned;
    shown.hashNext = own.hashNext;
}

// A walk over more frames at every block would make a checked build useless.
std::int32_t walkedFrames(const SortJob& job) {
    constexpr std::int32_t kWalkedFramesMax = 1024;
    return job.framesInUse <= kWalkedFramesMax ? job.framesInUse : 0;
}

// The hand, or the first frame behind it that is not pinned; kNoFrame when all are.
std::int32_t findVictim(SortJob& job) {
    std::int32_t frame = job.mruFrame;
    for (std::int32_t examined = 0; examined < job.framesInUse; ++examined) {
        if (descriptorOf(job, frame).pinned == 0) return frame;
        frame = descriptorOf(job, frame).next;
    }
    return kNoFrame;
}

// Makes the victim the current frame, with its old block written back. False with 1403 or 1409; an
// earlier code that the caller has not looked at yet does not count.
bool reuseFrame(SortJob& job) {
    const std::int32_t victim = findVictim(job);
    if (victim == kNoFrame) {
        raise(job, ErrorCode::kNoFreeFrame);
        return false;
    }
    if (victim != job.mruFrame) {
        removeFromRing(job, victim);
        insertBehindHand(job, victim);
    }
    job.currentFrame = victim;
    PageDescriptor& descriptor = descriptorOf(job, victim);
    if (descriptor.dirty != 0 && !writeFrame(job, descriptor.block, victim)) return false;
    unlinkFrame(job, hashBucket(job, descriptor.block), victim);
    assignWantedBlock(job, victim);
    return true;
}

}  // namespace

void attachPool(SortJob& job) {
    job.pageDescriptors = ownDescriptors;
    job.hashTable = ownHashTable;
}

std::int32_t findFrame(const SortJob& job, std::int32_t bucket, std::int32_t block) {
    std::int32_t frame = job.hashTable[bucket];
    while (frame != kNoFrame && job.pageDescriptors[frame].block != block)
        frame = job.pageDescriptors[frame].hashNext;
    return frame;
}

void linkFrame(SortJob& job, std::int32_t bucket, std::int32_t frame) {
    descriptorOf(job, frame).hashNext = job.hashTable[bucket];
    job.hashTable[bucket] = frame;
}

void unlinkFrame(SortJob& job, std::int32_t bucket, std::int32_t frame) {
    std::int32_t* link = &job.hashTable[bucket];
    while (*link != kNoFrame && *link != frame)
        link = &descriptorOf(job, *link).hashNext;
    if (*link == frame) *link = descriptorOf(job, frame).hashNext;
}

void clearHashTable(SortJob& job, std::int32_t blockCount) {
    std::fill_n(job.hashTable, bucketsFor(job, blockCount), kNoFrame);
}

void initPool(SortJob& job, std::int32_t frames, DirtyFlags dirtyFlags) {
    assert(frames <= job.frameCount);
    for (std::int32_t frame = 0; frame < frames; ++frame) {
        PageDescriptor& descriptor = descriptorOf(job, frame);
        descriptor.block = frame + 1;
        descriptor.frame = frame;
        descriptor.prev = frame > 0 ? frame - 1 : frames - 1;
        descriptor.next = frame < frames - 1 ? frame + 1 : 0;
        if (dirtyFlags == DirtyFlags::kSet) descriptor.dirty = 1;
        if (dirtyFlags == DirtyFlags::kFromSlot)
            descriptor.dirty = job.shownPageDescriptors[frame].dirty;
        descriptor.pinned = 0;
        linkFrame(job, hashBucket(job, descriptor.block), frame);
    }
}

void forgetBlocks(SortJob& job) {
    clearHashTable(job, job.fileBlocks);
    job.framesInUse = 0;
    job.mruFrame = kNoFrame;
    job.currentFrame = 0;
    descriptorOf(job, 0).block = 0;  // which is looked at before the pool is asked
}

void showPool(const SortJob& job, std::int32_t blockCount) {
    for (std::int32_t frame = 0; frame < job.framesInUse; ++frame)
        showDescriptor(job.pageDescriptors[frame], job.shownPageDescriptors[frame]);
    std::copy_n(job.hashTable, bucketsFor(job, blockCount), job.shownHashTable);
}

void moveToHand(SortJob& job, std::int32_t frame) {
    removeFromRing(job, frame);
    insertBehindHand(job, frame);
    job.mruFrame = frame;
}

void bringInBlock(SortJob& job, std::int32_t bucket) {
    if (job.framesInUse < job.frameCount) {
        takeFreshFrame(job);
    } else if (!reuseFrame(job)) {
        return;
    }
    linkFrame(job, bucket, job.currentFrame);
    assert(poolIsSane(job));
    readBlocks(job, recordAt(job, frameOffset(job, job.currentFrame)), job.wantedBlock, 1);
}

bool flushPool(SortJob& job) {
    if (job.fileBlocks <= job.frameCount) return true;
    assert(poolIsSane(job));
    for (std::int32_t frame = 0; frame < job.framesInUse; ++frame) {
        PageDescriptor& descriptor = descriptorOf(job, frame);
        if (descriptor.dirty == 0) continue;
        if (!writeFrame(job, descriptor.block, frame)) return false;
        descriptor.dirty = 0;
    }
    return true;
}

bool poolIsSane(const SortJob& job) {
    std::int32_t frame = job.mruFrame;
    for (std::int32_t steps = 0; steps < walkedFrames(job); ++steps) {
        const PageDescriptor& descriptor = job.pageDescriptors[frame];
        const std::int32_t next = descriptor.next;
        if (descriptor.frame != frame || next < 0 || next >= job.framesInUse) return false;
        if (job.pageDescriptors[next].prev != frame) return false;
        const bool closes = next == job.mruFrame;
        if (closes != (steps == job.framesInUse - 1)) return false;
        if (findFrame(job, hashBucket(job, descriptor.block), descriptor.block) != frame)
            return false;
        frame = next;
    }
    return true;
}

bool pinsAreFew(const SortJob& job) {
    const PageDescriptor* const first = job.pageDescriptors;
    return std::count_if(first, first + walkedFrames(job),
                         [](const PageDescriptor& d) { return d.pinned != 0; }) <= kPinsMax;
}

}  // namespace tvsort

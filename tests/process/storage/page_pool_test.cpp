#include "process/storage/page_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "process/storage/record_address.h"
#include "tests/support/served_job.h"

namespace tvsort {
namespace {

using ::testing::ElementsAre;

// A pool of `frames` one-page frames over a work file of 20 blocks, of which each byte is the
// block's number. Records of 100 bytes, 10 to a block.
class PagePool : public ::testing::Test {
  protected:
    explicit PagePool(std::int32_t frames = 5) : served_({frames, 1}), job_(served_.job()) {
        job_.blockPages = 1;
        job_.framesPerBlock = 1;
        job_.frameCount = frames;
        job_.fileBlocks = 20;
        job_.recordsPerBlock = 10;
        job_.recordLength = 100;
        for (int block = 1; block <= 20; ++block) {
            const test::Bytes bytes(4096, static_cast<Byte>(block));
            EXPECT_EQ(pwrite(job_.workFd, bytes.data(), 4096, (block - 1) * 4096), 4096);
        }
    }

    // Blocks 1 to `count` in frames 0 onward, clean.
    void fill(std::int32_t count) {
        clearHashTable(job_, job_.fileBlocks);
        initPool(job_, count, DirtyFlags::kKeep);
        job_.framesInUse = count;
        job_.mruFrame = count - 1;
        job_.currentFrame = 0;
        for (int i = 0; i < count; ++i) {
            job_.pageDescriptors[i].dirty = 0;
            std::fill_n(job_.frameArea + i * 4096, 4096, static_cast<Byte>(i + 1));
        }
    }

    void bringIn(std::int32_t block) {
        job_.wantedBlock = block;
        bringInBlock(job_, hashBucket(job_, block));
    }

    // The frames from the hand on, along the ring, with a check of its backward links.
    std::vector<int> ringFromHand() {
        std::vector<int> ring;
        int frame = job_.mruFrame;
        do {
            ring.push_back(frame);
            EXPECT_EQ(job_.pageDescriptors[job_.pageDescriptors[frame].next].prev, frame);
            frame = job_.pageDescriptors[frame].next;
        } while (frame != job_.mruFrame && ring.size() < 100);
        return ring;
    }

    PageDescriptor& descriptor(int frame) { return job_.pageDescriptors[frame]; }

    test::ServedJob served_;
    SortJob& job_;
};

TEST_F(PagePool, FullPoolReusesTheHandUnlessPinned) {
    job_.frameCount = 4;
    job_.hashBlocks = 4;
    fill(4);
    EXPECT_THAT(ringFromHand(), ElementsAre(3, 0, 1, 2));
    bringIn(5);
    EXPECT_EQ(job_.currentFrame, 3);
    EXPECT_THAT(ringFromHand(), ElementsAre(3, 0, 1, 2));

    pinFrame(job_, 3);
    bringIn(6);
    EXPECT_EQ(job_.currentFrame, 0);
    EXPECT_EQ(job_.mruFrame, 0);
    EXPECT_THAT(ringFromHand(), ElementsAre(0, 1, 2, 3));
    EXPECT_EQ(job_.frameArea[0], 6);
}

TEST_F(PagePool, NoUnpinnedFrameIsAnErrorThatChangesNothing) {
    fill(5);
    for (int frame = 0; frame < 5; ++frame)
        pinFrame(job_, frame);
    bringIn(6);
    EXPECT_EQ(job_.errorCode, ErrorCode::kNoFreeFrame);
    EXPECT_THAT(ringFromHand(), ElementsAre(4, 0, 1, 2, 3));
    EXPECT_EQ(descriptor(4).block, 5);
    for (std::size_t frame = 0; frame < 5; ++frame)
        EXPECT_NE(job_.frameArea[frame * 4096], 6) << "block 6 was read into frame " << frame;
}

TEST_F(PagePool, FreshFramesAreUsedBeforeAnyIsReused) {
    fill(2);
    bringIn(7);
    EXPECT_EQ(job_.framesInUse, 3);
    EXPECT_THAT(ringFromHand(), ElementsAre(2, 0, 1));
    EXPECT_EQ(addressRecord(job_, 61), 2U * 4096);
}

TEST_F(PagePool, DirtyFramesReachTheFileBeforeTheirFrameIsReused) {
    fill(5);
    job_.frameArea[4 * 4096] = 99;
    markDirty(job_, 4);
    bringIn(12);
    EXPECT_EQ(served_.workFile()[4 * 4096], 99);
    EXPECT_EQ(descriptor(4).dirty, 0);
}

TEST_F(PagePool, AFailedWriteKeepsTheOldBlock) {
    fill(5);
    markDirty(job_, 4);
    const int workFd = job_.workFd;
    job_.workFd = -1;
    bringIn(6);
    job_.workFd = workFd;
    EXPECT_EQ(job_.errorCode, ErrorCode::kWorkFileWrite);
    job_.errorCode = ErrorCode::kSuccess;
    EXPECT_EQ(addressRecord(job_, 41), 4U * 4096);  // block 5 is still found
    EXPECT_EQ(descriptor(4).dirty, 1);
}

TEST_F(PagePool, FlushWritesDirtyFramesOnlyWhereTheDataSetIsLarger) {
    fill(5);
    job_.frameArea[0] = 77;
    markDirty(job_, 0);
    job_.fileBlocks = 5;
    EXPECT_TRUE(flushPool(job_));
    EXPECT_EQ(served_.workFile()[0], 1);
    job_.fileBlocks = 6;
    EXPECT_TRUE(flushPool(job_));
    EXPECT_EQ(served_.workFile()[0], 77);
    EXPECT_EQ(descriptor(0).dirty, 0);
}

TEST_F(PagePool, ClearsTheBucketsThatADataSetCanUse) {
    job_.hashBlocks = 5;
    std::fill_n(job_.hashTable, 5, 4711);
    clearHashTable(job_, 3);
    EXPECT_THAT(std::vector<int>(job_.hashTable, job_.hashTable + 5),
                ElementsAre(kNoFrame, kNoFrame, kNoFrame, kNoFrame, 4711));
}

// Any sequence of accesses finds the right block, and hits behave like a plain list in order of
// use.
TEST_F(PagePool, RandomAccessesFindTheirBlocksWithPinsInPlace) {
    fill(5);
    std::uint32_t state = 20561;
    int pinned = -1;
    for (int step = 0; step < 20000; ++step) {
        state = state * 1664525 + 1013904223;
        const std::int32_t record = static_cast<std::int32_t>(state >> 8) % 200 + 1;
        const std::uint32_t place = addressRecord(job_, record);
        ASSERT_EQ(job_.errorCode, ErrorCode::kSuccess);
        ASSERT_EQ(job_.frameArea[place], (record - 1) / 10 + 1) << "step " << step;
        if (pinned >= 0) {
            ASSERT_NE(descriptor(pinned).pinned, 0);
        }
        if (state % 5 == 0) {
            if (pinned >= 0) unpinFrame(job_, pinned);
            pinned = job_.currentFrame;
            pinFrame(job_, pinned);
        }
        ASSERT_EQ(ringFromHand().size(), 5U);
    }
}

TEST_F(PagePool, AddressesCountFromTheFrameArea) {
    job_.blockPages = 2;
    fill(0);
    job_.framesInUse = 5;
    for (int i = 0; i < 5; ++i)
        descriptor(i).block = 3;
    job_.currentFrame = 4;
    EXPECT_EQ(addressRecord(job_, 25), 33168U);  // frame 4, record 5 of block 3
}

}  // namespace
}  // namespace tvsort

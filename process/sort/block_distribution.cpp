#include "process/sort/block_distribution.h"

#include <algorithm>
#include <cstring>

#include "process/sort/block_plan.h"
#include "process/sort/entry_sort.h"
#include "process/sort/own_entries.h"
#include "process/sort/splitters.h"
#include "process/storage/page_pool.h"
#include "process/storage/place_map.h"
#include "process/storage/record_address.h"
#include "process/storage/result_blocks.h"
#include "process/storage/server_watch.h"
#include "process/storage/work_file.h"

namespace tvsort {

namespace {

// So often a range may be distributed once more.
constexpr std::uint32_t kDepthMax = 3;
// Records of the sample for each range, at least.
constexpr std::uint32_t kSampledPerRange = 16;
constexpr std::int32_t kSampledBlocksMin = 32;
// What is laid out for a data set that stays in its frames.
constexpr std::size_t kOwnFramesBytes = std::size_t{12} << 20;

// A range: full blocks in places, and the other records in a buffer, which has room for a block's
// and is stored as soon as it is full.
struct Range {
    Byte* buffer;            // of one block; nullptr until the first record comes
    std::uint32_t inBuffer;  // records
    std::uint32_t blocks;
    std::uint32_t depth;
    bool isEqual;
};

PlaceMap map;
Range ranges[kRangeNumbersMax];
std::int32_t regions[kRangeNumbersMax];  // by range: the place where it will begin
std::uint16_t freeNumbers[kRangeNumbersMax];
std::uint16_t waiting[kRangeNumbersMax];  // the first range of the order is the last one here
// Buffers are made for ranges that are to be opened, so there are not more than numbers.
Byte* freeBuffers[kRangeNumbersMax];
std::int32_t listedPlaces[kPlacesMax];  // of a range's blocks, by their numbers
alignas(64) Byte ownFrames[kOwnFramesBytes];
Splitters splitters;
NormalizedKey normalizedKey;

struct Distribution {
    SortJob& job;
    Byte* base;  // of the frames that are laid out
    std::int32_t frames;
    Layout layout;
    BlockStore store;
    ResultBlocks result;
    std::uint32_t numberCount;  // of those that are free
    std::uint32_t bufferCount;
    std::uint32_t waitingCount;
    Byte* last;  // copy of the record that the result ends with
    bool hasLast;
    bool gaveUp;  // there are other orders: records are only written back

    Byte* frame(std::int32_t number) const {
        return base + static_cast<std::size_t>(number) * frameBytes(job);
    }
    // The data set stays in its own frames, and what is laid out is the process's memory.
    bool isInMemory() const { return base != job.frameArea; }
};

RecordArray packedIn(const SortJob& job, Byte* first, std::uint32_t count) {
    return recordsInBlocks(first, count, job.recordLength, job.recordsPerBlock, frameBytes(job));
}

// The records of the data set's `count` blocks from `place` on, which have been read to `first`.
RecordArray blocksRead(const SortJob& job, Byte* first, std::int32_t place, std::int32_t count) {
    const std::uint32_t inLast =
        place + count == blocksOf(job) ? inLastBlock(job) : job.recordsPerBlock;
    return packedIn(job, first,
                    static_cast<std::uint32_t>(count - 1) * job.recordsPerBlock + inLast);
}

// --- The sample ---------------------------------------------------------------------------------

// Records of a sample that fit into `frames` frames.
std::uint32_t sampleRoom(const SortJob& job, std::int32_t frames) {
    const std::int64_t records = std::int64_t{frames} * frameBytes(job) / job.recordLength;
    return static_cast<std::uint32_t>(std::min(records, std::int64_t{kOwnEntriesMax}));
}

// Numbers without a pattern that data could have, too; those of rand() belong to the pivots.
std::uint32_t scatter(std::uint32_t number) {
    std::uint64_t bits = (number + 1) * 0x9e3779b97f4a7c15;
    bits = (bits ^ bits >> 30) * 0xbf58476d1ce4e5b9;
    return static_cast<std::uint32_t>(bits >> 32);
}

// What a sample is taken from: blocks, all full but the last one.
template <typename BlockAt>
struct SampleSource {
    std::int32_t blocks;
    std::uint32_t inLast;  // records
    std::int32_t frames;
    BlockAt blockAt;  // answers a block's records, or nullptr after a failure
};

// Takes `room` records or fewer, evenly from blocks spread over the data, to `target`. How many; 0
// after a failure.
template <typename BlockAt>
std::uint32_t takeSample(const SortJob& job, const SampleSource<BlockAt>& source,
                         std::uint32_t room, Byte* target) {
    const std::int32_t wanted = std::max(8 * (source.blocks / source.frames), kSampledBlocksMin);
    // No more than there is room for, or the sample would show the data's beginning only.
    const std::int32_t sampled =
        std::min({wanted, std::max(source.blocks / 8, 1), static_cast<std::int32_t>(room)});
    const std::uint32_t share = std::max(room / static_cast<std::uint32_t>(sampled), 1U);
    std::uint32_t count = 0;
    for (std::int32_t s = 0; s < sampled; ++s) {
        const auto first = static_cast<std::int32_t>(std::int64_t{s} * source.blocks / sampled);
        const auto end = static_cast<std::int32_t>(std::int64_t{s + 1} * source.blocks / sampled);
        const auto block =
            first + static_cast<std::int32_t>(scatter(static_cast<std::uint32_t>(s)) %
                                              static_cast<std::uint32_t>(end - first));
        const Byte* const records = source.blockAt(block);
        if (records == nullptr) return 0;
        const std::uint32_t inBlock =
            block + 1 == source.blocks ? source.inLast : job.recordsPerBlock;
        const std::uint32_t taken = std::min({share, inBlock, room - count});
        for (std::uint32_t t = 0; t < taken; ++t, ++count) {
            const std::uint32_t index = t * inBlock / taken;
            copyRecord(target + std::size_t{count} * job.recordLength,
                       records + std::size_t{index} * job.recordLength, job.recordLength);
        }
    }
    return count;
}

// --- Ranges ---------------------------------------------------------------------------------

std::uint16_t takeNumber(Distribution& work, std::uint32_t depth, bool isEqual,
                         std::int32_t region) {
    const std::uint16_t number = freeNumbers[--work.numberCount];
    ranges[number] = {nullptr, 0, 0, depth, isEqual};
    regions[number] = region;
    return number;
}

void releaseRange(Distribution& work, std::uint16_t number) {
    if (ranges[number].buffer != nullptr) freeBuffers[work.bufferCount++] = ranges[number].buffer;
    ranges[number].buffer = nullptr;
    freeNumbers[work.numberCount++] = number;
}

std::uint32_t recordsOf(const SortJob& job, const Range& range) {
    return range.blocks * job.recordsPerBlock + range.inBuffer;
}

// Puts the full buffer of a range to a free place.
bool storeBuffer(Distribution& work, std::uint16_t number) {
    Range& range = ranges[number];
    const StoredBlock block = {number, range.blocks};
    if (putBlock(work.store, block, range.buffer, regions[number]) < 0) return false;
    range.blocks += 1;
    range.inBuffer = 0;
    return true;
}

// Appends records, one behind the other, to the ranges that they belong to. `numbers` has the
// number of each of the splitters' ranges.
bool distributeRecords(Distribution& work, const Byte* records, std::uint32_t count,
                       const std::uint16_t* numbers) {
    const SortJob& job = work.job;
    const std::size_t length = job.recordLength;
    std::uint16_t found[kSplitBatch];
    while (count > 0) {
        const std::uint32_t here = std::min(count, kSplitBatch);
        findRanges(normalizedKey, splitters, records, here, found);
        for (std::uint32_t n = 0; n < here; ++n, records += length) {
            if (doubtsAbout(normalizedKey, records) != kNoDoubts) work.gaveUp = true;
            Range& range = ranges[numbers[found[n]]];
            if (range.buffer == nullptr) range.buffer = freeBuffers[--work.bufferCount];
            copyRecord(range.buffer + range.inBuffer * length, records, job.recordLength);
            if (++range.inBuffer == job.recordsPerBlock && !storeBuffer(work, numbers[found[n]]))
                return false;
        }
        count -= here;
    }
    return true;
}

// The same for the records of blocks in consecutive frames.
bool distributeBlocks(Distribution& work, const RecordArray& blocks, const std::uint16_t* numbers) {
    const Byte* block = blocks.first;
    for (std::uint32_t left = blocks.count; left > 0; block += blocks.blockBytes) {
        watchServer(work.job, blocks.blockBytes);
        const std::uint32_t records = std::min(left, blocks.recordsPerBlock);
        if (!distributeRecords(work, block, records, numbers)) return false;
        left -= records;
    }
    return true;
}

// Gives each of the splitters' ranges a number, and a region within that of all: by the sample.
void openRanges(Distribution& work, std::uint32_t depth, std::uint32_t sampleCount,
                std::int32_t region, std::int32_t blocks, std::uint16_t* numbers) {
    for (std::uint32_t r = 0; r < splitters.rangeCount; ++r) {
        const std::int64_t before = std::int64_t{splitters.before[r]} * blocks / sampleCount;
        numbers[r] = takeNumber(work, depth, splitters.isEqual[r],
                                region + static_cast<std::int32_t>(before));
    }
}

// Lets the ranges wait, the first one on top, and tells them their regions.
void awaitRanges(Distribution& work, std::int32_t region, const std::uint16_t* numbers) {
    std::int64_t before = 0;
    for (std::uint32_t r = 0; r < splitters.rangeCount; ++r) {
        regions[numbers[r]] = region + static_cast<std::int32_t>(before / work.job.recordsPerBlock);
        before += recordsOf(work.job, ranges[numbers[r]]);
    }
    for (std::uint32_t r = splitters.rangeCount; r > 0; --r)
        waiting[work.waitingCount++] = numbers[r - 1];
}

// --- The first pass ---------------------------------------------------------------------------

// Distributes the records of a data set that stays in its frames: they are the places.
bool distributeFrames(Distribution& work, const std::uint16_t* numbers) {
    SortJob& job = work.job;
    const std::int32_t blocks = blocksOf(job);
    map.open(blocks);
    for (std::int32_t b = 0; b < blocks; ++b) {
        watchServer(job, frameBytes(job));
        const std::uint32_t records = b + 1 == blocks ? inLastBlock(job) : job.recordsPerBlock;
        const Byte* const first = work.store.frameOf(b);
        const Byte* const last = first + std::size_t{records - 1} * job.recordLength;
        if (!distributeRecords(work, first, records - 1, numbers)) return false;
        // The last record may fill the buffer that takes its place: all others may be full and
        // stored. It has been copied by then.
        map.setFree(b);
        markDirty(job, b);
        if (!distributeRecords(work, last, 1, numbers)) return false;
    }
    return true;
}

// Distributes all records: first those in frames, which take stored blocks then, and then those of
// the file.
bool distributeData(Distribution& work, const std::uint16_t* numbers) {
    if (work.isInMemory()) return distributeFrames(work, numbers);
    SortJob& job = work.job;
    const Layout& layout = work.layout;
    const std::int32_t blocks = blocksOf(job);
    map.open(blocks + layout.copiesAt - layout.working);
    for (std::int32_t place = 0; place < layout.copiesAt; ++place)
        map.setFree(place);
    for (std::int32_t f = 0; f < layout.copiesAt; ++f) {
        watchServer(job, frameBytes(job));
        if (!distributeRecords(work, work.frame(f), job.recordsPerBlock, numbers)) return false;
        if (f >= layout.working) map.setFree(blocks + f - layout.working);
    }
    const std::int32_t chunk = std::min(2 * layout.chunk, layout.working);
    for (std::int32_t place = layout.copiesAt; place < blocks; place += chunk) {
        const std::int32_t count = std::min(chunk, blocks - place);
        if (!readBlocks(job, job.frameArea, place + 1, count)) return false;
        if (place + count < blocks)
            expectReads(job, place + count + 1, std::min(chunk, blocks - place - count));
        for (std::int32_t i = 0; i < count; ++i)
            map.setFree(place + i);
        if (!distributeBlocks(work, blocksRead(job, job.frameArea, place, count), numbers))
            return false;
    }
    return true;
}

// --- The second pass ---------------------------------------------------------------------------

bool fits(const Distribution& work, const Range& range) {
    return framesOfRange(work.job, range.blocks) <= work.layout.working;
}

// To be asked before a record is appended that is not the next one of an order: the result may have
// another order where it meets what stands before.
void meetNext(Distribution& work, const Byte* next) {
    if (work.hasLast && mayBeOtherwise(work.job, normalizedKey, work.last, next))
        work.gaveUp = true;
}

void keepLast(Distribution& work, const Byte* last) {
    copyRecord(work.last, last, work.job.recordLength);
    work.hasLast = true;
}

// Appends records as they stand.
bool appendAll(Distribution& work, const RecordArray& records) {
    if (records.count == 0) return true;
    meetNext(work, records.first);
    std::uint32_t index = 0;
    keepLast(work, records.at(records.count - 1));
    return appendRecords(work.result, records.count, [&] { return records.at(index++); });
}

// To be asked of records that are equal in every key: they have one order unless only some of them
// are excused from being unique.
void meetEqual(Distribution& work, const RecordArray& records) {
    if (!normalizedKey.isUnique()) return;
    for (std::uint32_t i = 1; i < records.count && !work.gaveUp; ++i)
        work.gaveUp = mayBeOtherwise(work.job, normalizedKey, records.at(i - 1), records.at(i));
}

// Brings the listed blocks of a range to the working frames, as many at a time as these hold, and
// calls `use` with their records.
template <typename Use>
bool takeRange(Distribution& work, const Range& range, Use use) {
    const SortJob& job = work.job;
    const auto room = static_cast<std::uint32_t>(work.layout.working);
    for (std::uint32_t first = 0; first < range.blocks; first += room) {
        const std::uint32_t count = std::min(room, range.blocks - first);
        if (!takeBlocks(work.store, listedPlaces + first, count, work.frame(0)) ||
            !use(packedIn(job, work.frame(0), count * job.recordsPerBlock))) {
            return false;
        }
    }
    return use(packedIn(job, range.buffer, range.inBuffer));
}

// Appends the records of a range that needs no order, or is to have none.
bool appendRange(Distribution& work, std::uint16_t number) {
    const Range& range = ranges[number];
    map.listBlocks(number, range.blocks, listedPlaces);
    work.result.listedRange = number;
    const bool appended = takeRange(work, range, [&](const RecordArray& records) {
        meetEqual(work, records);
        return appendAll(work, records);
    });
    work.result.listedRange = kNoRange;
    releaseRange(work, number);
    return appended;
}

bool appendOrdered(Distribution& work, const RecordArray& records, const EntryArea& area) {
    constexpr std::uint32_t kReadAhead = 8;
    const auto recordOf = [&](std::uint32_t place) {
        const Entry& entry = area.entries[std::min(place, area.count - 1)];
        return records.at(boundedIndex(entry, area.count));
    };
    meetNext(work, recordOf(0));
    if (work.gaveUp) return appendAll(work, records);
    keepLast(work, recordOf(area.count - 1));
    std::uint32_t place = 0;
    return appendRecords(work.result, area.count, [&] {
        prefetchRecord(recordOf(place + kReadAhead), records.recordLength);
        return recordOf(place++);
    });
}

// The blocks of the range that is finished next are brought while this one is ordered.
void expectNext(const Distribution& work) {
    if (work.isInMemory() || work.waitingCount == 0) return;
    const std::uint16_t next = waiting[work.waitingCount - 1];
    if (!fits(work, ranges[next])) return;
    map.listBlocks(next, ranges[next].blocks, listedPlaces);
    expectBlocks(work.store, listedPlaces, ranges[next].blocks);
}

// Orders a range that fits, and appends it.
bool finishRange(Distribution& work, std::uint16_t number) {
    SortJob& job = work.job;
    const Range& range = ranges[number];
    const std::uint32_t count = recordsOf(job, range);
    map.listBlocks(number, range.blocks, listedPlaces);
    if (!takeBlocks(work.store, listedPlaces, range.blocks, work.frame(0))) return false;
    const auto blocks = static_cast<std::int32_t>(range.blocks);
    if (range.inBuffer > 0)
        std::memcpy(work.frame(blocks), range.buffer,
                    std::size_t{range.inBuffer} * job.recordLength);
    releaseRange(work, number);
    expectNext(work);
    const RecordArray records = packedIn(job, work.frame(0), count);
    Entry* const entries = reinterpret_cast<Entry*>(work.frame(blocks + 1));
    const EntryArea area = {entries, entries + count, count};
    if (orderByEntries(job, normalizedKey, records, area))
        return appendOrdered(work, records, area);
    work.gaveUp = true;
    return appendAll(work, records);
}

// Takes the sample of a range to the upper half of the working frames.
RecordArray sampleRange(Distribution& work, const Range& range) {
    SortJob& job = work.job;
    const std::int32_t half = work.layout.working / 2;
    const auto blockAt = [&](std::int32_t block) -> const Byte* {
        const std::int32_t place = listedPlaces[block];
        if (work.store.isFrame(place)) return work.store.frameOf(place);
        return readBlocks(job, work.frame(0), place + 1, 1) ? work.frame(0) : nullptr;
    };
    Byte* const target = work.frame(half);
    const SampleSource<decltype(blockAt)> source = {static_cast<std::int32_t>(range.blocks),
                                                    job.recordsPerBlock, work.frames, blockAt};
    const std::uint32_t count = takeSample(job, source, sampleRoom(job, half), target);
    return packedRecords(target, count, job.recordLength);
}

// How many ranges to make of one that does not fit. The buffers of ranges that are finished serve
// again; where there are too few, working frames become buffers.
std::uint32_t partsOf(Distribution& work, const Range& range) {
    const std::int64_t wanted = 2 * framesOfRange(work.job, range.blocks) / work.layout.working + 1;
    const auto parts = static_cast<std::uint32_t>(
        std::min({wanted, std::int64_t{work.layout.rangesWanted}, std::int64_t{work.numberCount}}));
    // What is in a buffer alone has to fit, since no sample can be taken of it.
    const std::int64_t least =
        std::max({std::int64_t{work.layout.working} * 2 / 3, std::int64_t{kWorkingFramesMin} / 2,
                  framesOfRange(work.job, 0)});
    while (work.bufferCount < parts && work.layout.working > least)
        freeBuffers[work.bufferCount++] = work.frame(--work.layout.working);
    return std::min(parts, work.bufferCount);
}

// Distributes a range that does not fit to ranges that wait in its place.
bool distributeRange(Distribution& work, std::uint16_t number) {
    const Range range = ranges[number];
    const std::int32_t region = regions[number];
    std::uint32_t parts = partsOf(work, range);
    if (parts < 2) {
        work.gaveUp = true;
        return appendRange(work, number);
    }
    map.listBlocks(number, range.blocks, listedPlaces);
    const RecordArray sample = sampleRange(work, range);
    if (sample.count == 0) return false;
    // More would be of the same keys.
    parts = std::min(parts, std::max(sample.count, 2U));
    chooseSplitters(normalizedKey, sample, parts, work.frame(work.layout.copiesAt), splitters);
    std::uint16_t numbers[kSplitRangesMax];
    openRanges(work, range.depth + 1, sample.count, region, static_cast<std::int32_t>(range.blocks),
               numbers);
    const bool distributed = takeRange(work, range, [&](const RecordArray& records) {
        return distributeBlocks(work, records, numbers);
    });
    if (!distributed) return false;
    releaseRange(work, number);
    awaitRanges(work, region, numbers);
    return true;
}

// Writes the ranges that wait, one after the other.
bool writeRanges(Distribution& work) {
    while (work.waitingCount > 0) {
        const std::uint16_t number = waiting[--work.waitingCount];
        const Range& range = ranges[number];
        bool good = true;
        if (recordsOf(work.job, range) == 0) {
            releaseRange(work, number);
        } else if (work.gaveUp || range.isEqual) {
            good = appendRange(work, number);
        } else if (fits(work, range)) {
            good = finishRange(work, number);
        } else if (range.depth < kDepthMax) {
            good = distributeRange(work, number);
        } else {
            work.gaveUp = true;
            good = appendRange(work, number);
        }
        if (!good) return false;
    }
    return writeChunk(work.result);
}

// --- Before anything moves ------------------------------------------------------------------

bool areInOrder(const Distribution& work, const Byte* left, const Byte* right) {
    return compareKeys(normalizedKey, kKeyStart, left, right).order <= 0 &&
           !mayBeOtherwise(work.job, normalizedKey, left, right);
}

// Whether records are in order, behind the last one that was looked at.
bool goOnInOrder(Distribution& work, const RecordArray& records) {
    const Byte* before = work.hasLast ? work.last : records.first;
    bool inOrder = true;
    for (std::uint32_t i = 0; i < records.count && inOrder; ++i) {
        const Byte* const record = records.at(i);
        watchServer(work.job, records.recordLength);
        inOrder =
            doubtsAbout(normalizedKey, record) == kNoDoubts && areInOrder(work, before, record);
        before = record;
    }
    keepLast(work, before);
    return inOrder;
}

// Whether the whole data set is in order: a pass that ends at the first record that is not.
bool isInOrder(Distribution& work) {
    SortJob& job = work.job;
    if (work.isInMemory()) {
        const bool inOrder = goOnInOrder(work, recordsInFrames(job));
        work.hasLast = false;
        return inOrder;
    }
    const std::int32_t blocks = blocksOf(job);
    Byte* const chunk = work.frame(work.layout.buffersAt);
    const std::int32_t chunkBlocks = work.frames - work.layout.buffersAt;
    const auto inFrames = static_cast<std::uint32_t>(work.layout.copiesAt);
    bool inOrder = goOnInOrder(work, packedIn(job, job.frameArea, inFrames * job.recordsPerBlock));
    for (std::int32_t place = work.layout.copiesAt; place < blocks && inOrder;
         place += chunkBlocks) {
        const std::int32_t count = std::min(chunkBlocks, blocks - place);
        if (!readBlocks(job, chunk, place + 1, count)) return false;
        inOrder = goOnInOrder(work, blocksRead(job, chunk, place, count));
    }
    work.hasLast = false;
    return inOrder;
}

// Takes the sample of the data set.
RecordArray sampleData(Distribution& work) {
    SortJob& job = work.job;
    Byte* const lastFrame = work.frame(work.frames - 1);
    const auto blockAt = [&](std::int32_t block) -> const Byte* {
        if (work.isInMemory()) return work.store.frameOf(block);
        if (block < work.layout.copiesAt) return work.frame(block);
        return readBlocks(job, lastFrame, block + 1, 1) ? lastFrame : nullptr;
    };
    Byte* const target = work.frame(work.layout.buffersAt);
    const SampleSource<decltype(blockAt)> source = {blocksOf(job), inLastBlock(job), work.frames,
                                                    blockAt};
    const std::uint32_t room = sampleRoom(job, work.frames - 1 - work.layout.buffersAt);
    return packedRecords(target, takeSample(job, source, room, target), job.recordLength);
}

void releaseAll(Distribution& work) {
    for (std::uint32_t n = 0; n < kRangeNumbersMax; ++n)
        freeNumbers[n] = static_cast<std::uint16_t>(kRangeNumbersMax - 1 - n);
    work.numberCount = kRangeNumbersMax;
    for (std::int32_t b = work.layout.rangesWanted; b > 0; --b)
        freeBuffers[work.bufferCount++] = work.frame(work.layout.buffersAt + b - 1);
}

// What stands in frames goes to its places: all is in the file then.
bool writeBack(Distribution& work) {
    if (work.isInMemory()) return true;
    return writeBlocks(work.job, work.job.frameArea, 1, work.layout.copiesAt);
}

// Whether the sample is in order, which comes in that of the data.
bool sampleAscends(const Distribution& work, const RecordArray& sample) {
    for (std::uint32_t i = 1; i < sample.count; ++i)
        if (!areInOrder(work, sample.at(i - 1), sample.at(i))) return false;
    return true;
}

// Whether the sample, whose entries are in order, has other orders. Then the data set has, too.
bool hasOtherOrders(const Distribution& work, const RecordArray& sample) {
    const auto recordOf = [&](std::uint32_t place) { return sample.at(ownEntries[place].index); };
    for (std::uint32_t i = 1; i < sample.count; ++i) {
        if (mayBeOtherwise(work.job, normalizedKey, recordOf(i - 1), recordOf(i))) return true;
    }
    return false;
}

// Sorts the data set, all of which but the blocks below the copies is in the file. False when it is
// left in some order, or after a failure.
bool sortBlocks(Distribution& work) {
    SortJob& job = work.job;
    RecordArray sample = sampleData(work);
    if (failed(job)) return false;
    if (doubtsAboutAll(job, normalizedKey, sample) != kNoDoubts) {
        writeBack(work);
        return false;
    }
    if (sampleAscends(work, sample)) {
        if (isInOrder(work)) return writeBack(work);
        if (!failed(job)) sample = sampleData(work);
        if (failed(job)) return false;
    }
    const std::uint32_t rangesWanted = std::clamp(
        sample.count / kSampledPerRange, 2U, static_cast<std::uint32_t>(work.layout.rangesWanted));
    chooseSplitters(normalizedKey, sample, rangesWanted, work.frame(work.layout.copiesAt),
                    splitters);
    if (hasOtherOrders(work, sample)) {
        writeBack(work);
        return false;
    }
    releaseAll(work);
    std::uint16_t numbers[kSplitRangesMax];
    openRanges(work, 0, sample.count, 0, blocksOf(job), numbers);
    if (!distributeData(work, numbers)) return false;
    // Every value has been looked at.
    if (!work.gaveUp) normalizedKey.checkCount = 0;
    awaitRanges(work, 0, numbers);
    return writeRanges(work) && !work.gaveUp;
}

}  // namespace

bool sortByBlocks(SortJob& job, Byte* scratch) {
    const bool inMemory = job.fileBlocks <= job.frameCount;
    const std::int32_t frames =
        inMemory ? static_cast<std::int32_t>(sizeof ownFrames / frameBytes(job)) : job.frameCount;
    if (!isWorthIt(job, frames) || (!inMemory && blocksOf(job) <= frames)) return false;
    describeKey(job, normalizedKey);
    if (!normalizedKey.isWhole || normalizedKey.segmentCount == 0) return false;
    // In memory nothing moves that the quicksort may have to sort.
    if (inMemory && (normalizedKey.isUnique() || normalizedKey.hasTolerantFloats)) return false;
    const Layout layout = planLayout(job, frames);
    if (!threeRoundsAreEnough(job, layout) ||
        doubtsAboutAll(job, normalizedKey, recordsInFrames(job)) != kNoDoubts) {
        return false;
    }
    Byte* const base = inMemory ? ownFrames : job.frameArea;
    const auto frameAt = [&](std::int32_t frame) {
        return base + static_cast<std::size_t>(frame) * frameBytes(job);
    };
    const std::int32_t filePlaces = inMemory ? 0 : blocksOf(job);
    Byte* const stored = inMemory ? job.frameArea : frameAt(layout.working);
    Distribution work = {
        job,
        base,
        frames,
        layout,
        {job, map, filePlaces, stored},
        {work.store, regions, frameAt(layout.chunksAt), frameAt(layout.chunksAt + layout.chunk),
         layout.chunk, kNoRange, listedPlaces, 0, 0, 0},
        0,
        0,
        0,
        scratch,
        false,
        false};
    if (inMemory) normalizedKey.checkCount = 0;
    if (inMemory) return sortBlocks(work) || failed(job);
    const std::int32_t others = frames - layout.copiesAt;
    const bool sorted =
        writeBlocks(job, work.frame(layout.copiesAt), layout.copiesAt + 1, others) &&
        sortBlocks(work);
    forgetBlocks(job);
    return sorted || failed(job);
}

}  // namespace tvsort

// The one working record of the process.
//
// Everything the process knows about the channel, its memory, the current request and the page pool
// lives in the `SortJob`. There is one, zero-filled at start, never freed; every operation takes it
// by reference. All other memory is static, too, and each piece belongs to one module:
//
//     module                      bytes        content
//     service/channel             65,528       the message received last
//     service/request_loop        65,536       scratch record
//     storage/page_pool           29,360,128   page descriptors and hash table, for 2^20 frames
//     sort/block_distribution     34,100,000   places of blocks, and ranges
//     sort/own_entries            459,000      entries, twice, and their runs
//     sort/entry_order, copy_sort 8,400,000    waiting ranges
//     sort/ elsewhere             70,000       keys, windows, judges
//     result/hierarchy_sort       131,072      two records
//     keys/geometry_envelope      147,456      open collections
//     collation/collation_file    67,079       the file
//
// Of the large ones only the pages in use are ever touched. The records lie in the slot, which is
// shared: no count, index, link or place that the process follows is read from there twice, and
// none is followed unchecked.
//
// Most fields belong to a request and are set afresh for each. Those that no request resets keep an
// earlier request's value: `kind4Key` (meaningful only while `hasKind4Key` is 1), `compareState`,
// `partitionStack`, `groupTable`, and the descriptors of frames that are not in use.
//
// Numbers of records, blocks and key positions count from 1, frames and buckets from 0. A record's
// place is the byte offset of its first byte from `frameArea`.

#pragma once

#include <cstddef>
#include <cstdint>

#include "process/job/key_rule.h"
#include "protocol/bytes.h"
#include "protocol/error_code.h"
#include "protocol/messages.h"
#include "protocol/page_descriptor.h"

namespace tvsort {

inline constexpr int kPartitionStackPairs = 31;
inline constexpr std::int32_t kHierarchyLevelMax = 4095;
// The in-memory sort and the hierarchy sort hold one record at a time beside the frames, and a
// record is at most 65535 bytes.
inline constexpr std::size_t kRecordBufferBytes = 65536;

// Two record numbers, both ends inclusive.
struct RecordRange {
    std::int32_t low;
    std::int32_t high;
};

// The open run of siblings at one level of a hierarchy, by record number.
struct SiblingRun {
    std::int32_t first;
    std::int32_t last;
};

struct SortJob {
    std::uint16_t slotNumber;  // from 1; selects the slot and ends the work file's name
    std::int32_t processId;
    std::int32_t shmFd;     // the server's shared-memory object, inherited; -1 once it is mapped
    std::int32_t socketFd;  // the connected socket
    std::int32_t workFd;    // the work file
    std::uint16_t workFileOpen;
    std::size_t unwatchedBytes;  // moved or compared since the last look (storage/server_watch.h)
    Byte* shmBase;
    Byte* frameArea;
    Byte* message;                         // request in, reply out
    PageDescriptor* pageDescriptors;       // the pool's own (storage/page_pool.h)
    PageDescriptor* shownPageDescriptors;  // the slot's, for the server
    std::int32_t memoryBlocks;             // memory granted, in blocks of pagesPerBlock pages
    std::int32_t pagesPerBlock;            // pages
    std::int32_t framesPerBlock;
    std::int32_t frameCount;        // framesPerBlock x memoryBlocks
    std::int32_t fileBlocks;        // blocks of the data set; result/ may lower it
    std::int32_t blockPages;        // pages per block of the data set, and so per frame
    std::int32_t recordCount;       // records of the data set; of the result, at the end
    std::int32_t groupCount;        // reported to the server; counted by duplicate marking
    std::uint16_t recordsPerBlock;  // records
    std::uint16_t recordLength;     // bytes
    std::uint16_t keyCount;         // sort keys
    SortMode sortMode;
    std::uint8_t compareState;  // set to 1 by each comparison that finds a difference
    KeyDescriptor keys[kKeysMax];
    KeyDescriptor kind4Key;  // where the null indicators stand
    std::uint16_t hasKind4Key;
    std::uint16_t modeFlag;         // 1 in the set-operation modes 3 to 6
    std::uint16_t extraKeyCount;    // request keys that are not sort keys
    std::uint16_t primaryKeyCount;  // request keys that are
    std::int32_t mruFrame;          // the hand: the most recently used frame
    std::int32_t framesInUse;
    std::int32_t memoryBytes;   // memoryBlocks x pagesPerBlock x 4096, its low 32 bits
    std::int32_t currentFrame;  // frame of the record addressed last
    RecordRange partitionStack[kPartitionStackPairs];
    std::int32_t partitionDepth;
    SiblingRun groupTable[kHierarchyLevelMax + 1];  // by level, from 1
    std::int32_t groupTableTop;
    std::int32_t wantedBlock;
    std::uint16_t recordOffset;  // bytes of the addressed record inside its block
    ErrorCode errorCode;
    std::uint16_t itemCount;
    ByteWeightTable items[kItemsMax];
    const KeyDescriptor* keyOrder[kKeysMax];
    std::uint8_t keyPositions[kKeysMax];  // by place in keyOrder: the key's place in the request
    std::int32_t hashBlocks;              // memoryBlocks: the pool's modulus counts in it
    std::int32_t* hashTable;              // the pool's own
    std::int32_t* shownHashTable;         // the slot's, for the server
    std::int32_t limitCount;              // leading records wanted; raised over ties

    SortReply reply;              // as it will be sent: the request's bytes until they are written
    KeyRule keyRules[kKeysMax];   // keyOrder as the comparators read it (keys/key_meaning.h)
    const char* directoryPrefix;  // start-up argument 4, unchanged
    bool systemCallsRestricted;   // service/system_call_filter.h
};

inline void raise(SortJob& job, ErrorCode code) {
    job.errorCode = code;
}

inline bool failed(const SortJob& job) {
    return job.errorCode != ErrorCode::kSuccess;
}

// A failed system call: its number goes into the reply.
inline void raiseSystemError(SortJob& job, ErrorCode code, std::int32_t systemError) {
    job.reply.osError = systemError;
    raise(job, code);
}

// Bytes of a block of the data set, and so of a frame.
inline std::uint32_t frameBytes(const SortJob& job) {
    return static_cast<std::uint32_t>(job.blockPages) * static_cast<std::uint32_t>(kPageBytes);
}

// Place of frame `frame`, and of the spare block behind the last one, from the frame area.
inline std::uint32_t frameOffset(const SortJob& job, std::int32_t frame) {
    return static_cast<std::uint32_t>(frame) * frameBytes(job);
}

inline Byte* recordAt(const SortJob& job, std::uint32_t offset) {
    return job.frameArea + offset;
}

}  // namespace tvsort

// The messages between the server and the sort process, byte for byte.
//
// Every message starts with a u32 that counts the whole message, itself included. What the process
// receives is laid into the message buffer at the start of its slot; what it sends is the first 80
// bytes of that same buffer, rewritten in place. All integers are little-endian, signed ones two's
// complement.
//
// A request:
//
//      0   84 bytes        SortRequest
//     84   12 x keyCount   KeyDescriptor array, at most 100
//      +    2              itemCount (u16)
//      +  260 x itemCount  ByteWeightTable array, at most 32
//
// A message that ends right after its descriptors has no items. Bytes that neither side's structs
// name are the server's own: the process passes them through untouched.

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tvsort {

inline constexpr std::size_t kMessageBufferBytes = 8192;
// The largest message; also the size of both socket buffers.
inline constexpr std::uint32_t kMessageBytesMax = 65528;
// A message shorter than a length word and one byte of content can announce nothing.
inline constexpr std::uint32_t kMessageBytesMin = 5;
inline constexpr std::size_t kLengthWordBytes = 4;

inline constexpr int kKeysMax = 100;
inline constexpr int kItemsMax = 32;
inline constexpr std::size_t kDirectoryNameBytes = 4;
// In place of a directory name: the server asks the process to stop.
inline constexpr char kShutdownName[] = "SHUT";

inline constexpr std::int64_t kPageBytes = 4096;

// Low five bits of a descriptor's kind byte. Kinds 0 to 2 are sort keys.
enum class KeyKind : std::uint8_t {
    kDescending = 0,
    kAscending = 1,
    kAlsoDescending = 2,
    kIgnored = 3,
    kNullIndicators = 4,  // the field holds one null-indicator byte per request key
};
inline constexpr std::uint8_t kKeyKindMask = 0x1f;
inline constexpr std::uint8_t kNullsLastBit = 0x20;
inline constexpr std::uint8_t kNullsFirstBit = 0x40;
// Geometry keys: the stored value already is an envelope.
inline constexpr std::uint8_t kEnvelopeBit = 0x80;

// `groupKey` value of a key whose difference between neighbours starts a new group.
inline constexpr std::uint8_t kStartsGroup = 2;

struct KeyDescriptor {
    std::uint8_t dataType;        //  0  type code (protocol/data_type.h)
    std::uint8_t geometryType;    //  1  types 8 and 9: 0 for text, else a geometry type
    std::uint16_t fieldLength;    //  2  bytes of the field; the largest length of a prefixed value
    std::uint16_t fieldOffset;    //  4  byte of the record where the field starts
    std::uint8_t kindFlags;       //  6  KeyKind in the low five bits, the three bits above
    std::uint8_t groupKey;        //  7  kStartsGroup, another value or 0: see records_differ.h
    std::uint8_t orderNumber;     //  8  place in comparison order, from 1, gaps allowed
    std::uint8_t position;        //  9  place in the request, from 1; set by the process
    std::uint16_t weightTableId;  // 10  ByteWeightTable::identifier, types 1 and 8
};
static_assert(sizeof(KeyDescriptor) == 12);
static_assert(offsetof(KeyDescriptor, fieldLength) == 2);
static_assert(offsetof(KeyDescriptor, fieldOffset) == 4);
static_assert(offsetof(KeyDescriptor, kindFlags) == 6);
static_assert(offsetof(KeyDescriptor, weightTableId) == 10);
static_assert(std::has_unique_object_representations_v<KeyDescriptor>);

struct ByteWeightTable {
    std::uint16_t identifier;   // 0
    std::uint8_t applies;       // 2  1 when the table is to be used
    std::uint8_t reserved;      // 3
    std::uint8_t weights[256];  // 4  by byte value
};
static_assert(sizeof(ByteWeightTable) == 260);
static_assert(offsetof(ByteWeightTable, weights) == 4);
static_assert(std::has_unique_object_representations_v<ByteWeightTable>);

struct SortRequest {
    std::uint32_t length;           //  0  bytes of the whole message
    std::uint8_t reserved1[16];     //  4
    char workDirName[4];            // 20  "SHUT", or the work file's directory, blank-padded
    std::uint8_t reserved2[36];     // 24
    std::int32_t fileBlocks;        // 60  blocks of the data set
    std::int32_t blockPages;        // 64  pages per block
    std::int32_t recordCount;       // 68
    std::uint16_t recordsPerBlock;  // 72
    std::uint16_t recordLength;     // 74  bytes
    std::uint16_t keyCount;         // 76  descriptors that follow
    std::uint16_t sortMode;         // 78  only the low byte is used
    std::int32_t limitCount;        // 80  leading records wanted; 0 means all
};
static_assert(sizeof(SortRequest) == 84);
static_assert(offsetof(SortRequest, workDirName) == 20);
static_assert(offsetof(SortRequest, fileBlocks) == 60);
static_assert(offsetof(SortRequest, recordsPerBlock) == 72);
static_assert(offsetof(SortRequest, limitCount) == 80);
static_assert(std::has_unique_object_representations_v<SortRequest>);

// Where a descriptor list of `keyCount` entries ends, and the item count stands.
inline constexpr std::size_t itemCountOffset(std::size_t keyCount) {
    return sizeof(SortRequest) + keyCount * sizeof(KeyDescriptor);
}

// The hello has the same form, with errorCode 0 and no result words.
struct SortReply {
    std::uint32_t length;        //  0  always 80
    std::int32_t processId;      //  4
    std::uint32_t errorCode;     //  8  ErrorCode, zero-extended
    std::uint8_t reserved1[32];  // 12  as the request had them
    std::int32_t osError;        // 44  errno after 1401, 1402 and 1403
    std::uint8_t reserved2[12];  // 48
    std::int32_t fileBlocks;     // 60  from here on: written only on success
    std::int32_t blockPages;     // 64
    std::int32_t recordCount;    // 68  records in the result
    std::int32_t groupCount;     // 72
    std::uint16_t recordLength;  // 76
    std::uint16_t reserved3;     // 78  never written
};
static_assert(sizeof(SortReply) == 80);
static_assert(offsetof(SortReply, errorCode) == 8);
static_assert(offsetof(SortReply, osError) == 44);
static_assert(offsetof(SortReply, fileBlocks) == 60);
static_assert(offsetof(SortReply, groupCount) == 72);
static_assert(offsetof(SortReply, recordLength) == 76);
static_assert(std::has_unique_object_representations_v<SortReply>);

enum class SortMode : std::uint8_t {
    kOrder = 0,
    kDistinct = 1,
    kGroups = 2,
    kIntersect = 3,
    kIntersectAll = 4,
    kExcept = 5,
    kExceptAll = 6,
    kHierarchy = 7,
    kUnique = 8,
    kUniqueUnlessNull = 9,
    // 10 to 255 are shaped as kDistinct.
};

// Byte of every record that carries its fate or its operand (process/result/compaction.h).
inline constexpr std::size_t kRecordFlagOffset = 4;
// Set in that byte of the last record of a group, of all groups but the last one.
inline constexpr std::uint8_t kGroupEndBit = 2;

}  // namespace tvsort

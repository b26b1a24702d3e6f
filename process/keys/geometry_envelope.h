// Envelopes of geometries: keys of types 8 and 9 with a geometry type are ordered by the bounding
// box of their value.
//
// A value is a geometry in well-known binary (OGC Simple Feature Access, part 1, section 8.2), read
// as little-endian whatever its byte-order byte says:
//
//      0   u8    byte order, not read
//      1   u32   type, of which the low byte counts; read only where the type comes from the value
//      5         body:
//
//     1        point               x, y (doubles); all 16 bytes 0xFF: empty, no envelope
//     2, 130   line string         u32 count, points
//     3        polygon             u32 count, rings: u32 count, points; the first ring decides
//     4        multi-point         u32 count, points with headers of their own
//     5        multi-line string   u32 count, members read as type 2
//     6        multi-polygon       u32 count, members read as type 3
//     7        collection          u32 count, members read by the type byte that each carries
//     129      circle              x, y, radius; a negative radius or an empty centre: no envelope
//     others   no body, no envelope
//
// A geometry without an envelope, and one without points, has the empty envelope (M, M, -M, -M), M
// being the largest double. Coordinates within 1e-10 of one another count as equal, both when an
// envelope grows and when two are compared, so the order is not transitive in the last digits.

#pragma once

#include <cstdint>

#include "protocol/bytes.h"
#include "protocol/data_type.h"

namespace tvsort {

// Collections inside collections, this many levels deep, are followed: more than any value can
// hold, whose length is at most 32767 bytes of which a level takes at least 9.
inline constexpr int kCollectionDepthMax = 32767 / 9 + 1;

// Reads the geometry of type `type` that starts at byte `position` of the `length` bytes at
// `value`, moves `position` behind it and fills `envelope`. False when the geometry would reach
// beyond `length`; position and envelope are then not to be used.
bool geometryEnvelope(std::uint8_t type, const Byte* value, std::uint32_t length,
                      std::uint32_t& position, Envelope& envelope);

// -1, 0 or 1: by the lower left corner, then by the upper right one. NaN ties with everything.
int compareEnvelopes(const Envelope& left, const Envelope& right);

// Compares two values of `leftLength` and `rightLength` bytes (0 or less: no value) by envelope,
// and sets `order` to -1, 0 or 1. False when a value cannot be read, or, where the values are
// stored envelopes, is not 32 bytes long.
bool compareGeometryKeys(std::uint8_t geometryType, bool storedEnvelope, const Byte* left,
                         std::int32_t leftLength, const Byte* right, std::int32_t rightLength,
                         int& order);

}  // namespace tvsort

// The codes with which a request can be answered.
//
// A code is stored in the job by whoever meets the failure (`raise`, see process/job/sort_job.h)
// and travels to the server in reply word 8, zero-extended. After the three work-file codes reply
// word 44 carries the operating system's error number of the failed call as well.

#pragma once

#include <cstdint>

namespace tvsort {

enum class ErrorCode : std::uint16_t {
    kSuccess = 0,
    // The request carries more than 100 key descriptors.
    kTooManyKeys = 137,
    // A geometry value cannot be read, or a precomputed envelope is not 32 bytes long.
    kGeometryUnreadable = 181,
    // Sort modes 8 and 9: two records agree on every key but the last.
    kNotUnique = 903,
    // An invalid decimal value under an ascending key, or met by the distribution sort.
    kDecimalInvalid = 1090,
    // The work file could not be opened.
    kWorkFileOpen = 1401,
    // Positioning in, or reading from, the work file failed.
    kWorkFileRead = 1402,
    // Positioning in, or writing to, the work file failed.
    kWorkFileWrite = 1403,
    // A push onto the partition stack found a negative depth.
    kPartitionDepthNegative = 1404,
    // A push onto a full partition stack, or a depth above its size at a pop.
    kPartitionStackFull = 1405,
    // The request cannot be served as it describes itself: its counts, lengths or offsets
    // contradict one another or the memory granted (process/service/request_check.h lists the
    // rules).
    kRequestContradictory = 1406,
    // A group of the set operation holds more than 64 different operand tags.
    kTooManyOperands = 1407,
    // The order numbers of the sort keys do not give each key its own place.
    kKeyOrder = 1408,
    // The page pool has no unpinned frame to reuse.
    kNoFreeFrame = 1409,
    // The request carries no key descriptor at all.
    kNoKeys = 1410,
    // A length-prefixed key value is longer than the key field's declared length.
    kValueTooLong = 1411,
    // Sort mode 7: a record's level is outside 1 to 4095 or more than one deeper than the record
    // before it, the first record is no root, or the sort's own fields come back from the work file
    // as no hierarchy has them.
    kHierarchyInvalid = 1412,
};

}  // namespace tvsort

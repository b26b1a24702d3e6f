// Points of time as ordered bytes. Years are those of the Gregorian calendar, before its time too.
//
//     date           compact   days since 1970-01-01
//     time           compact   seconds since midnight
//                    compact   nanoseconds
//     timestamp      compact   seconds since 1970-01-01T00:00:00
//                    compact   nanoseconds
//     timestamptz    the same, in UTC
//     month          1 byte    01 January to 0c December
//
// A year has four digits, or more behind a sign. A time may lack its seconds and can be 24:00:00; a
// second may have the number 60.

#pragma once

#include <memory>

#include "host/keys/ordered_type.h"

namespace tvsort::host {

std::unique_ptr<OrderedType> makeDate(const TypeText& text);
std::unique_ptr<OrderedType> makeTime(const TypeText& text);
std::unique_ptr<OrderedType> makeTimestamp(const TypeText& text);
std::unique_ptr<OrderedType> makeTimestampWithZone(const TypeText& text);
std::unique_ptr<OrderedType> makeMonth(const TypeText& text);

}  // namespace tvsort::host

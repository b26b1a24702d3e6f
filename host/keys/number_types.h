// Numbers as ordered bytes.
//
//     integers    compact (ordered_bytes.h), whatever their width
//     double      fixed 8 bytes: a positive number's bits with the sign bit set, a negative one's
//                 complemented; -0 as 0. NaN is eight bytes ff, or 00 where it is low
//     float       the same in 4 bytes
//     decimal     1 byte   class: 00 NaN where it is low, 01 lowest, -inf, 02 negative, 03 zero,
//                          04 positive, 05 highest, inf, 06 NaN
//                 of 02 and 04, and of 02 complemented:
//                 compact  exponent e of 0.DDDD x 10^e, the first digit not 0
//                 n bytes  two digits each, 01 for 00 to hexadecimal 64 for 99; no zeros at the end
//                 00
//     size        the decimal that it stands for
//     hex         1 byte   00 negative, complemented from here on, or 01
//                 compact  number of its digits without leading zeros
//                 n bytes  two digits each, filled up with a zero behind the last

#pragma once

#include <memory>

#include "host/keys/ordered_type.h"

namespace tvsort::host {

std::unique_ptr<OrderedType> makeInt64(const TypeText& text);
std::unique_ptr<OrderedType> makeInt32(const TypeText& text);
std::unique_ptr<OrderedType> makeInt16(const TypeText& text);
std::unique_ptr<OrderedType> makeByte(const TypeText& text);
std::unique_ptr<OrderedType> makeDouble(const TypeText& text);
std::unique_ptr<OrderedType> makeFloat(const TypeText& text);
std::unique_ptr<OrderedType> makeDecimal(const TypeText& text);
std::unique_ptr<OrderedType> makeSize(const TypeText& text);
std::unique_ptr<OrderedType> makeHex(const TypeText& text);

}  // namespace tvsort::host

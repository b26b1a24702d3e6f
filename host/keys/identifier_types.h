// Booleans, UUIDs and network addresses as ordered bytes.
//
//     boolean     1 byte     00 false, 01 true
//     uuid        16 bytes   as written
//     inet        1 byte     04 or 06
//                 4 or 16    the network: the address with all bits behind the prefix zero
//                 1 byte     bits of the prefix; without one all
//                 4 or 16    the address, where the prefix is shorter than it
//
// A network stands before the addresses and narrower networks in it.

#pragma once

#include <memory>

#include "host/keys/ordered_type.h"

namespace tvsort::host {

std::unique_ptr<OrderedType> makeBoolean(const TypeText& text);
std::unique_ptr<OrderedType> makeUuid(const TypeText& text);
std::unique_ptr<OrderedType> makeInet(const TypeText& text);

}  // namespace tvsort::host

// The key types by the names that a person writes.
//
// One table holds them all; a new type is a row of it (and a comparison in host/record_order.cpp,
// if its order is to be verified).

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "protocol/data_type.h"

namespace tvsort::tools {

// What the LENGTH of a key says.
enum class LengthMeaning : std::uint8_t {
    kGivenByType,  // the type has one length; LENGTH is not written
    kWholeField,   // LENGTH bytes, all of them the value
    kPrefixed,     // a u16 length and up to LENGTH bytes behind it
};

struct KeyType {
    std::string_view name;
    DataType dataType;
    LengthMeaning lengthMeaning;
    std::uint16_t fieldLength;  // for kGivenByType: as the descriptor states it
    std::uint16_t fieldBytes;   // for kGivenByType: bytes of the record that it takes
    std::uint8_t geometryType;  // as the descriptor states it
    std::uint8_t extraBits;     // set in the descriptor's kind byte
    std::string_view explanation;
};

std::span<const KeyType> keyTypes();

// Null when there is no type of this name.
const KeyType* findKeyType(std::string_view name);

// The table as lines for a help text.
std::string keyTypesHelp();

}  // namespace tvsort::tools

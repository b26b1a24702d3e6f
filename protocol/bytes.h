// Unaligned little-endian values in messages, records and the collation file.
//
// Key fields may start at any byte of a record, so no value in a record is ever read through a
// typed pointer: these few functions copy its bytes, which the compiler turns into one load.

#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tvsort {

static_assert(std::endian::native == std::endian::little,
              "all stored values are little-endian and are read as they lie");

using Byte = std::uint8_t;

template <typename Value>
inline Value loadAs(const Byte* source) {
    static_assert(std::is_trivially_copyable_v<Value>);
    Value value;
    std::memcpy(&value, source, sizeof value);
    return value;
}

// A number that bounds or indexes what follows, from memory that the server shares. The compiler is
// kept from loading it again where it is used: what has been checked is what is used.
template <typename Value>
inline Value loadOnce(const Byte* source) {
    Value value = loadAs<Value>(source);
    asm volatile("" : "+r"(value));
    return value;
}

template <typename Value>
inline void storeAs(Byte* target, Value value) {
    static_assert(std::is_trivially_copyable_v<Value>);
    std::memcpy(target, &value, sizeof value);
}

inline std::uint16_t loadU16(const Byte* source) {
    return loadAs<std::uint16_t>(source);
}
inline std::int16_t loadI16(const Byte* source) {
    return loadAs<std::int16_t>(source);
}
inline std::uint32_t loadU32(const Byte* source) {
    return loadAs<std::uint32_t>(source);
}
inline std::int32_t loadI32(const Byte* source) {
    return loadAs<std::int32_t>(source);
}

}  // namespace tvsort

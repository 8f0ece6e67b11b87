// Numbers in stored records: little-endian bytes at any address, aligned or not.
#pragma once

#include <cstddef>
#include <type_traits>

namespace kqlib {

/// The unsigned number whose sizeof(T) bytes stand at bytes, lowest first. Any address; any thread.
template <class T> inline T LoadLittleEndian(const unsigned char* bytes)
{
    static_assert(std::is_unsigned_v<T>, "stored numbers are unsigned");
    T value = 0;
    for (std::size_t index = 0; index < sizeof(T); ++index)
        value = static_cast<T>(value | static_cast<T>(static_cast<T>(bytes[index]) << (8 * index)));
    return value;
}

/// Puts the sizeof(T) bytes of value to bytes, lowest first. Any address; any thread.
template <class T> inline void StoreLittleEndian(unsigned char* bytes, T value)
{
    static_assert(std::is_unsigned_v<T>, "stored numbers are unsigned");
    for (std::size_t index = 0; index < sizeof(T); ++index)
        bytes[index] = static_cast<unsigned char>(value >> (8 * index));
}

} // namespace kqlib

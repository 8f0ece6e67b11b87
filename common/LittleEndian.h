// Numbers in stored records: little-endian bytes at any address, aligned or not. Inside the library only.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

namespace kqlib {

/// What the two functions below do, byte by byte and without a loop: so compilers make one load or store of it where
/// the processor has one, and counters are increased for every command.
///@{
template <class T, std::size_t... INDEX>
inline T LoadLittleEndian(const unsigned char* bytes, std::index_sequence<INDEX...>)
{
    return static_cast<T>((... | static_cast<T>(static_cast<T>(bytes[INDEX]) << (8 * INDEX))));
}

template <class T, std::size_t... INDEX>
inline void StoreLittleEndian(unsigned char* bytes, T value, std::index_sequence<INDEX...>)
{
    (..., (bytes[INDEX] = static_cast<unsigned char>(value >> (8 * INDEX))));
}
///@}

/// The unsigned number whose sizeof(T) bytes stand at bytes, lowest first. Any address; any thread.
template <class T> inline T LoadLittleEndian(const unsigned char* bytes)
{
    static_assert(std::is_unsigned_v<T>, "stored numbers are unsigned");
    return LoadLittleEndian<T>(bytes, std::make_index_sequence<sizeof(T)>());
}

/// Puts the sizeof(T) bytes of value to bytes, lowest first. Any address; any thread.
template <class T> inline void StoreLittleEndian(unsigned char* bytes, T value)
{
    static_assert(std::is_unsigned_v<T>, "stored numbers are unsigned");
    StoreLittleEndian(bytes, value, std::make_index_sequence<sizeof(T)>());
}

} // namespace kqlib

// The integer types that the interface speaks in, equal in name on every system.
#pragma once

#include <cstdint>

/// Everything of the two libraries, `kqcommon` and `kqnet`.
namespace kqlib {

/// A byte of data; text is char.
using BYTE = unsigned char;
/// 16 bits; ports are in host order.
using USHORT = unsigned short;
/// At least 32 bits: 64 on Linux, 32 on Windows. What is 32 bits by contract is stored as std::uint32_t instead.
using ULONG = unsigned long;
/// 64 bits on every system, without sign and with.
///@{
using ULONG8 = unsigned long long;
using SLONG8 = long long;
///@}

/// "Not found" and "none" wherever a 32-bit index or id is handed out.
inline constexpr ULONG ALL_BITS_32 = 0xFFFFFFFFUL;

} // namespace kqlib

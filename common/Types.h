// The integer types that the interface speaks in, equal in name on every system.
#pragma once

#include <cstdint>

namespace kqlib {

using BYTE = unsigned char;
using USHORT = unsigned short;
/// At least 32 bits: 64 on Linux, 32 on Windows. What is 32 bits by contract is stored as std::uint32_t instead.
using ULONG = unsigned long;
using ULONG8 = unsigned long long;
using SLONG8 = long long;

/// "Not found" and "none" wherever a 32-bit index or id is handed out.
inline constexpr ULONG ALL_BITS_32 = 0xFFFFFFFFUL;

} // namespace kqlib

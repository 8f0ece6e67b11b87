#include "platform/windows/FileTime.h"

namespace kqlib::platform {

namespace {

constexpr std::int64_t UNITS_PER_MS = 10000;
constexpr std::int64_t MS_FROM_1601_TO_1970 = 11644473600000LL;

} // namespace

std::int64_t MsFromFileTime(const FILETIME& time)
{
    const std::uint64_t units = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
    return static_cast<std::int64_t>(units) / UNITS_PER_MS - MS_FROM_1601_TO_1970;
}

bool MsToFileTime(std::int64_t wallMs, FILETIME& out)
{
    constexpr std::int64_t lastMs = INT64_MAX / UNITS_PER_MS - MS_FROM_1601_TO_1970;
    if (wallMs < -MS_FROM_1601_TO_1970 || wallMs > lastMs)
        return false;
    const auto units = static_cast<std::uint64_t>((wallMs + MS_FROM_1601_TO_1970) * UNITS_PER_MS);
    out.dwHighDateTime = static_cast<DWORD>(units >> 32);
    out.dwLowDateTime = static_cast<DWORD>(units & 0xFFFFFFFFU);
    return true;
}

} // namespace kqlib::platform

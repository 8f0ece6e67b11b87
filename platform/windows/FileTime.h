// The system's file times: 64 bits that count 100 ns from 1601-01-01 UTC.
#pragma once

#include "platform/windows/SystemHeaders.h"

#include <cstdint>

namespace kqlib::platform {

/// Milliseconds since 1970 UTC.
std::int64_t MsFromFileTime(const FILETIME& time);

/// False for a time (milliseconds since 1970 UTC) that a file time cannot hold; out stays as it is.
bool MsToFileTime(std::int64_t wallMs, FILETIME& out);

} // namespace kqlib::platform

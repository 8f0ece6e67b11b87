// LogTime: times of the data logs as people write and read them. All times are UTC.
#pragma once

#include "common/TimePos.h"

#include <cstdint>
#include <string>

namespace kq {

/// Reads "2026-11-21", "2026-11-21 07:30", "2026-11-21T07:30:05", "now", or a span before now such as "90m" (s, m, h,
/// d). endOfPeriod: a time without seconds stands for its last millisecond (a date for the whole day). False: none of
/// these.
bool ReadLogTime(const std::string& text, bool endOfPeriod, kqlib::TimePos& time);

/// Reads a length of time such as "30", "30s", "5m", "2h" or "1d" as seconds, at least 1. False: none of these.
bool ReadSpan(const std::string& text, std::uint32_t& seconds);

/// "2026-11-21 07:30:05"; "-" for an unset time.
std::string LogTimeText(const kqlib::TimePos& time);

/// "2026-11-21T07:30:05.123Z" for programs; "" for an unset time.
std::string LogTimeIso(const kqlib::TimePos& time);

} // namespace kq

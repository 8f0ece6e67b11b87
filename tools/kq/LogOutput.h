// LogOutput: sessions and activity as a table for people, as CSV (RFC 4180) or as JSON.
#pragma once

#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"

#include <string>
#include <vector>

namespace kq {

enum class LOGFORMAT
{
    TABLE, ///< columns in line, the counters that matter most, a line of sums
    CSV,   ///< a line of names, then a line each with every field; CR LF as the RFC asks
    JSON   ///< one list of objects with every field, on one line
};

/// The whole output. Texts of strangers are made safe for a terminal and for a spreadsheet.
std::string FormatSessions(const std::vector<kqlib::NetSessionStatus>& sessions, LOGFORMAT format);
std::string FormatActivity(const std::vector<kqlib::NetSessionActivity>& periods, LOGFORMAT format);

/// A number of bytes for people, at most six characters: "0", "999", "1.5 K", "12 M" (powers of 1024).
std::string ShortNumber(kqlib::ULONG8 value);

} // namespace kq

// FtpTime: times in commands, replies and listings.
#pragma once

#include "common/String.h"

#include <cstdint>

namespace kqlib {

/// The form "YYYYMMDDhhmmss" in UTC (RFC 3659, section 2.3).
///
/// Ownership: none. Threads: any thread. Errors: by result.
class FtpTime
{
public:
    /// A UTC time in its fields, year 0 to 9999.
    struct MOMENT
    {
        int year;
        unsigned month; ///< 1 to 12
        unsigned day;
        unsigned hour;
        unsigned minute;
        unsigned second;
    };

    /// The fields of milliseconds since 1970; times outside the years 0 to 9999 are taken to the nearest one.
    static MOMENT sToMoment(std::int64_t timeMs);
    /// Of milliseconds since 1970; times outside the years 0 to 9999 are taken to the nearest one.
    static String sFormat(std::int64_t timeMs);
    /// Reads that form, with an optional fraction ".s" to ".sss". False: not a time from the years 1601 to 9999.
    [[nodiscard]] static bool sParse(const String& text, std::int64_t& timeMs);
    /// The time at the beginning of the second.
    static std::int64_t sToFullSecond(std::int64_t timeMs);
    /// "Jan" for 1, and so on.
    static const char* sGetMonthName(unsigned month);
};

} // namespace kqlib

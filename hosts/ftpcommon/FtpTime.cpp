// FtpTime: times in commands, replies and listings.
#include "hosts/ftpcommon/FtpTime.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>

namespace kqlib {

namespace {

/// Reads count digits at position of text. False: other characters.
bool ReadDigits(const std::string& text, std::size_t position, std::size_t count, int& out)
{
    const char* first = text.data() + position;
    const char* last = first + count;
    out = 0;
    return std::all_of(first, last, [](char c) { return c >= '0' && c <= '9'; }) &&
           std::from_chars(first, last, out).ec == std::errc();
}

/// Reads an optional fraction of one to three digits behind the seconds, as milliseconds.
bool ReadFraction(const std::string& text, std::size_t position, int& milliSecs)
{
    milliSecs = 0;
    if (text.size() == position)
        return true;
    const std::size_t digits = text.size() - position - 1;
    if (text[position] != '.' || digits < 1 || digits > 3 || !ReadDigits(text, position + 1, digits, milliSecs))
        return false;
    for (std::size_t i = digits; i < 3; ++i)
        milliSecs *= 10;
    return true;
}

} // namespace

FtpTime::MOMENT FtpTime::sToMoment(std::int64_t timeMs)
{
    using namespace std::chrono;
    constexpr std::int64_t FIRST_MS = -62167219200000; // 0000-01-01
    constexpr std::int64_t LAST_MS = 253402300799999;  // 9999-12-31 23:59:59.999
    const sys_time<milliseconds> time(milliseconds(std::clamp(timeMs, FIRST_MS, LAST_MS)));
    const auto midnight = floor<days>(time);
    const year_month_day date(midnight);
    const hh_mm_ss clock(floor<seconds>(time - midnight));
    return {int(date.year()),
            unsigned(date.month()),
            unsigned(date.day()),
            static_cast<unsigned>(clock.hours().count()),
            static_cast<unsigned>(clock.minutes().count()),
            static_cast<unsigned>(clock.seconds().count())};
}

String FtpTime::sFormat(std::int64_t timeMs)
{
    const MOMENT moment = sToMoment(timeMs);
    char text[64]; // more than any number in a field could need
    std::snprintf(text, sizeof text, "%04d%02u%02u%02u%02u%02u", moment.year, moment.month, moment.day, moment.hour,
                  moment.minute, moment.second);
    return text;
}

bool FtpTime::sParse(const String& text, std::int64_t& timeMs)
{
    using namespace std::chrono;
    constexpr std::size_t LENGTH = 14;
    const std::string& digits = text.str();
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int milliSecs = 0;
    if (digits.size() < LENGTH || !ReadDigits(digits, 0, 4, year) || !ReadDigits(digits, 4, 2, month) ||
        !ReadDigits(digits, 6, 2, day) || !ReadDigits(digits, 8, 2, hour) || !ReadDigits(digits, 10, 2, minute) ||
        !ReadDigits(digits, 12, 2, second) || !ReadFraction(digits, LENGTH, milliSecs))
        return false;
    const year_month_day date(std::chrono::year{year} / month / day);
    if (!date.ok() || year < 1601 || hour > 23 || minute > 59 || second > 60)
        return false;
    const auto time = sys_days(date) + hours(hour) + minutes(minute) + seconds(second) + milliseconds(milliSecs);
    timeMs = duration_cast<milliseconds>(time.time_since_epoch()).count();
    return true;
}

std::int64_t FtpTime::sToFullSecond(std::int64_t timeMs)
{
    using namespace std::chrono;
    return milliseconds(floor<seconds>(milliseconds(timeMs))).count();
}

const char* FtpTime::sGetMonthName(unsigned month)
{
    constexpr const char* NAMES[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return NAMES[month - 1];
}

} // namespace kqlib

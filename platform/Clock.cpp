// The part of the clock contract that needs no system: calendar arithmetic in UTC.
#include "platform/Clock.h"

namespace kqlib::platform {

namespace {

constexpr std::int64_t MS_PER_DAY = 86400000;
constexpr std::int64_t FIRST_MS = -62135596800000; // 0001-01-01 00:00:00.000
constexpr std::int64_t END_MS = 253402300800000;   // 10000-01-01 00:00:00.000

constexpr int DAYS_PER_ERA = 146097; // the calendar repeats itself after 400 years
constexpr int DAYS_TO_1970 = 719468; // from 0000-03-01, the start of era 0

} // namespace

bool ToUtcTime(std::int64_t wallMs, CalendarTime& out)
{
    if (wallMs < FIRST_MS || wallMs >= END_MS)
        return false;
    std::int64_t days = wallMs / MS_PER_DAY;
    int rest = static_cast<int>(wallMs % MS_PER_DAY);
    if (rest < 0) { // before 1970: the time of day still counts upwards
        rest += static_cast<int>(MS_PER_DAY);
        --days;
    }

    // Years begin on the first of March here, so that the day a leap year adds is a year's last.
    const int day = static_cast<int>(days) + DAYS_TO_1970;
    const int era = day / DAYS_PER_ERA;
    const int dayOfEra = day % DAYS_PER_ERA;
    const int yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int monthFromMarch = (5 * dayOfYear + 2) / 153;

    out.day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    out.month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    out.year = yearOfEra + era * 400 + (out.month <= 2 ? 1 : 0);
    out.hour = rest / 3600000;
    out.minute = rest / 60000 % 60;
    out.second = rest / 1000 % 60;
    out.millisecond = rest % 1000;
    return true;
}

} // namespace kqlib::platform

#include "tools/kq/LogTime.h"

#include "platform/Clock.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <limits>
#include <optional>
#include <string_view>

namespace kq {

using namespace kqlib;

namespace {

constexpr SLONG8 MS_PER_SECOND = 1000;

/// Takes a number of exactly count digits off the front.
std::optional<unsigned> TakeDigits(std::string_view& text, std::size_t count)
{
    unsigned value = 0;
    if (text.size() < count)
        return std::nullopt;
    const char* const end = text.data() + count;
    const auto [next, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || next != end)
        return std::nullopt;
    text.remove_prefix(count);
    return value;
}

/// Takes separator and two digits below limit off the front.
std::optional<unsigned> TakePart(std::string_view& text, std::string_view separators, unsigned limit)
{
    if (text.empty() || separators.find(text.front()) == std::string_view::npos)
        return std::nullopt;
    text.remove_prefix(1);
    const std::optional<unsigned> value = TakeDigits(text, 2);
    return value && *value < limit ? value : std::nullopt;
}

/// Milliseconds since 1970 of a calendar text, and how many milliseconds the period has that it names.
bool ReadCalendar(std::string_view text, SLONG8& start, SLONG8& length)
{
    using namespace std::chrono;
    const auto yearNumber = TakeDigits(text, 4);
    const auto monthNumber = yearNumber ? TakePart(text, "-", 13) : std::nullopt;
    const auto dayNumber = monthNumber ? TakePart(text, "-", 32) : std::nullopt;
    if (!dayNumber)
        return false;
    const year_month_day date(year(static_cast<int>(*yearNumber)), month(*monthNumber), day(*dayNumber));
    if (!date.ok())
        return false;
    milliseconds time = sys_days(date).time_since_epoch();
    milliseconds span = days(1);
    if (!text.empty()) {
        const auto hour = TakePart(text, " T", 24);
        const auto minute = hour ? TakePart(text, ":", 60) : std::nullopt;
        if (!minute)
            return false;
        time += hours(*hour) + minutes(*minute);
        span = minutes(1);
        if (!text.empty()) {
            const auto second = TakePart(text, ":", 60);
            if (!second || !text.empty())
                return false;
            time += seconds(*second);
            span = seconds(1);
        }
    }
    start = time.count();
    length = span.count();
    return true;
}

bool ToCalendar(const TimePos& time, platform::CalendarTime& calendar)
{
    return time.IsSet() && platform::ToUtcTime(time.GetMilliSeconds(), calendar);
}

} // namespace

bool ReadSpan(const std::string& text, std::uint32_t& seconds)
{
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || number == 0 || end - next > 1)
        return false;
    std::uint32_t unit = 1;
    if (next != end) {
        constexpr std::string_view LETTERS = "smhd";
        constexpr std::uint32_t SECONDS[] = {1, 60, 3600, 86400};
        const std::size_t place = LETTERS.find(*next);
        if (place == std::string_view::npos)
            return false;
        unit = SECONDS[place];
    }
    if (number > std::numeric_limits<std::uint32_t>::max() / unit)
        return false;
    seconds = number * unit;
    return true;
}

bool ReadLogTime(const std::string& text, bool endOfPeriod, TimePos& time)
{
    if (text == "now") {
        time.SetNow();
        return true;
    }
    SLONG8 start = 0;
    SLONG8 length = 0;
    if (ReadCalendar(text, start, length)) {
        time.SetMilliSeconds(endOfPeriod ? start + length - 1 : start);
        return time.IsSet(); // the first millisecond of 1970 means "unset"
    }
    std::uint32_t seconds = 0;
    if (!ReadSpan(text, seconds))
        return false;
    time.SetNow();
    time.OffsetByMilliSeconds(-SLONG8{seconds} * MS_PER_SECOND);
    return true;
}

std::string LogTimeText(const TimePos& time)
{
    platform::CalendarTime calendar{};
    if (!ToCalendar(time, calendar))
        return "-";
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", calendar.year, calendar.month, calendar.day,
                  calendar.hour, calendar.minute, calendar.second);
    return text;
}

std::string LogTimeIso(const TimePos& time)
{
    platform::CalendarTime calendar{};
    if (!ToCalendar(time, calendar))
        return {};
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", calendar.year, calendar.month, calendar.day,
                  calendar.hour, calendar.minute, calendar.second, calendar.millisecond);
    return text;
}

} // namespace kq

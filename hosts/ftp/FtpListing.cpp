// FtpListing: how files look in listings, and times in commands and replies.
#include "hosts/ftp/FtpListing.h"

#include "common/STRINGS.h"
#include "hosts/ftp/FtpText.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>

namespace kqlib {

namespace {

using platform::FileKind;

constexpr std::int64_t MS_PER_DAY = 86400000;
constexpr std::int64_t RECENT_MS = 182 * MS_PER_DAY;
constexpr const char* MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct FACT_NAME
{
    FtpListing::FACT fact;
    const char* name;
};

constexpr FACT_NAME FACT_NAMES[] = {
    {FtpListing::TYPE, "type"}, {FtpListing::SIZE, "size"},     {FtpListing::MODIFY, "modify"},
    {FtpListing::PERM, "perm"}, {FtpListing::UNIQUE, "unique"}, {FtpListing::UNIX_MODE, "UNIX.mode"},
};

/// A UTC time in its fields, year 0 to 9999 (times outside are taken to the nearest one).
struct MOMENT
{
    int year;
    unsigned month;
    unsigned day;
    unsigned hour;
    unsigned minute;
    unsigned second;
};

MOMENT ToMoment(std::int64_t timeMs)
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

const char* TypeName(FileKind kind)
{
    switch (kind) {
    case FileKind::FILE:
        return "file";
    case FileKind::FOLDER:
        return "dir";
    case FileKind::LINK:
        return "OS.unix=slink";
    case FileKind::OTHER:
        break;
    }
    return "OS.unix=special";
}

char TypeLetter(FileKind kind)
{
    switch (kind) {
    case FileKind::FILE:
        return '-';
    case FileKind::FOLDER:
        return 'd';
    case FileKind::LINK:
        return 'l';
    case FileKind::OTHER:
        break;
    }
    return 'p';
}

/// The letters of RFC 3659, section 7.5.5.
std::string Permissions(FileKind kind, const FtpListing::RIGHTS& rights)
{
    std::string letters;
    const auto add = [&letters](bool may, const char* which) {
        if (may)
            letters += which;
    };
    const bool isFolder = kind == FileKind::FOLDER;
    if (isFolder) {
        add(rights.write, "c");
        add(rights.remove, "d");
        add(true, "e");
        add(rights.write, "f");
        add(rights.read, "l");
        add(rights.write, "m");
        add(rights.remove, "p");
        return letters;
    }
    const bool isFile = kind == FileKind::FILE;
    add(rights.write && isFile, "a");
    add(rights.remove, "d");
    add(rights.write, "f");
    add(rights.read && isFile, "r");
    add(rights.write && isFile, "w");
    return letters;
}

template <class... Arguments> void AddFormatted(std::string& out, const char* format, Arguments... arguments)
{
    char text[128];
    const int length = std::snprintf(text, sizeof text, format, arguments...);
    if (length > 0)
        out.append(text, std::min(static_cast<std::size_t>(length), sizeof text - 1));
}

void AddSafe(std::string& out, const String& name)
{
    const std::size_t start = out.size();
    out += name.str();
    std::replace_if(out.begin() + static_cast<std::ptrdiff_t>(start), out.end(), IsControlCharacter, '?');
}

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

void FtpListing::sAddLongLine(std::string& out, const String& name, const FACTS& facts, std::int64_t nowMs)
{
    constexpr const char LETTERS[] = "rwxrwxrwx";
    out += TypeLetter(facts.kind);
    for (unsigned bit = 0; bit < 9; ++bit)
        out += (facts.permissions & (0400U >> bit)) != 0 ? LETTERS[bit] : '-';
    const MOMENT moment = ToMoment(facts.modifiedMs);
    AddFormatted(out, " %4u ftp      ftp      %12llu %s %2u ", facts.links, static_cast<unsigned long long>(facts.size),
                 MONTHS[moment.month - 1], moment.day);
    if (facts.modifiedMs <= nowMs && nowMs - facts.modifiedMs < RECENT_MS)
        AddFormatted(out, "%02u:%02u ", moment.hour, moment.minute);
    else
        AddFormatted(out, "%5d ", moment.year);
    AddSafe(out, name);
    out += "\r\n";
}

void FtpListing::sAddFactLine(std::string& out, const String& name, const FACTS& facts, std::uint32_t selection,
                              const RIGHTS& rights, const char* type)
{
    if ((selection & TYPE) != 0)
        out.append("type=").append(type != nullptr ? type : TypeName(facts.kind)).append(";");
    if ((selection & SIZE) != 0 && facts.kind == FileKind::FILE)
        AddFormatted(out, "size=%llu;", static_cast<unsigned long long>(facts.size));
    if ((selection & MODIFY) != 0)
        out.append("modify=").append(sFormatTime(facts.modifiedMs).str()).append(";");
    if ((selection & PERM) != 0)
        out.append("perm=").append(Permissions(facts.kind, rights)).append(";");
    if ((selection & UNIQUE) != 0)
        AddFormatted(out, "unique=%llxg%llx;", static_cast<unsigned long long>(facts.volume),
                     static_cast<unsigned long long>(facts.serial));
    if ((selection & UNIX_MODE) != 0)
        AddFormatted(out, "UNIX.mode=0%03o;", facts.permissions);
    out += ' ';
    AddSafe(out, name);
    out += "\r\n";
}

String FtpListing::sGetFactNames(std::uint32_t selection, bool forFeatures)
{
    String line;
    for (const FACT_NAME& entry : FACT_NAMES) {
        const bool isSelected = (selection & entry.fact) != 0;
        if (!isSelected && !forFeatures)
            continue;
        line += entry.name;
        line += isSelected && forFeatures ? "*;" : ";";
    }
    return line;
}

std::uint32_t FtpListing::sParseFactNames(const String& line)
{
    STRINGS words;
    words.AddByLine(line, static_cast<unsigned char>(';'));
    std::uint32_t selection = 0;
    for (const String& word : words) {
        const auto* found = std::find_if(std::begin(FACT_NAMES), std::end(FACT_NAMES),
                                         [&word](const FACT_NAME& entry) { return word.MatchesI(entry.name); });
        if (found != std::end(FACT_NAMES))
            selection |= found->fact;
    }
    return selection;
}

String FtpListing::sFormatTime(std::int64_t timeMs)
{
    const MOMENT moment = ToMoment(timeMs);
    std::string text;
    AddFormatted(text, "%04d%02u%02u%02u%02u%02u", moment.year, moment.month, moment.day, moment.hour, moment.minute,
                 moment.second);
    return String(text);
}

bool FtpListing::sParseTime(const String& text, std::int64_t& timeMs)
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

String FtpListing::sMakeSafe(const String& text)
{
    std::string safe;
    AddSafe(safe, text);
    return String(safe);
}

} // namespace kqlib

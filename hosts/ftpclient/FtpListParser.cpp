// FtpListParser: reads the lines of listings.
#include "hosts/ftpclient/FtpListParser.h"

#include "common/STRINGS.h"
#include "hosts/ftpcommon/FtpText.h"
#include "hosts/ftpcommon/FtpTime.h"

#include <algorithm>
#include <utility>

namespace kqlib {

namespace {

using KIND = FtpRemoteEntry::KIND;

constexpr std::size_t MAX_SIZE_DIGITS = 19; // so that the number fits

KIND KindOfType(const String& type)
{
    if (type.MatchesI("file"))
        return KIND::FILE;
    if (type.MatchesI("dir") || type.MatchesI("cdir") || type.MatchesI("pdir"))
        return KIND::FOLDER;
    return type.StartsWithI("OS.unix=slink") || type.StartsWithI("OS.unix=symlink") ? KIND::LINK : KIND::OTHER;
}

KIND KindOfLetter(char letter)
{
    switch (letter) {
    case '-':
        return KIND::FILE;
    case 'd':
        return KIND::FOLDER;
    case 'l':
        return KIND::LINK;
    default:
        return KIND::OTHER;
    }
}

/// Takes the next word off the front of the rest; blanks before it are skipped, one behind it is taken.
String TakeWord(String& rest)
{
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    const auto first = std::find_if_not(rest.begin(), rest.end(), isBlank);
    const auto last = std::find_if(first, rest.end(), isBlank);
    const String word(std::string(first, last));
    const auto taken = static_cast<String::size_type>(last - rest.begin());
    rest.erase(0, std::min(taken + 1, rest.size()));
    return word;
}

bool IsMonth(const String& word)
{
    static constexpr const char* MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return std::any_of(std::begin(MONTHS), std::end(MONTHS), [&](const char* month) { return word.MatchesI(month); });
}

bool SetSize(const String& digits, FtpRemoteEntry& entry)
{
    if (!IsDecimal(digits, MAX_SIZE_DIGITS))
        return false;
    entry.size = digits.ToULONG8();
    return true;
}

} // namespace

FtpListParser::LINE FtpListParser::sParse(FORM form, const String& line, FtpRemoteEntry& entry)
{
    entry = FtpRemoteEntry();
    switch (form) {
    case FORM::FACTS:
        return xsParseFactLine(line, entry);
    case FORM::LONG:
        return xsParseLongLine(line, entry);
    case FORM::NAMES:
        break;
    }
    // Some servers put the folder before each name.
    const String::size_type slash = line.rfind('/');
    entry.name = slash == String::npos ? line : line.substr(slash + 1);
    return entry.name == "." || entry.name == ".." ? LINE::NO_ENTRY : LINE::ENTRY;
}

std::size_t FtpListParser::sParseAll(FORM form, const std::string& text, std::vector<FtpRemoteEntry>& entries)
{
    std::size_t unknown = 0;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::size_t length = end - start;
        if (length > 0 && text[start + length - 1] == '\r')
            --length;
        FtpRemoteEntry entry;
        const LINE kind = sParse(form, String(text.substr(start, length)), entry);
        if (kind == LINE::ENTRY)
            entries.push_back(std::move(entry));
        unknown += kind == LINE::UNKNOWN ? 1U : 0U;
        start = end + 1;
    }
    return unknown;
}

FtpListParser::LINE FtpListParser::xsParseFactLine(const String& line, FtpRemoteEntry& entry)
{
    // The first blank ends the facts; none of them holds one.
    const String::size_type blank = line.find(' ');
    if (blank == String::npos || !sParseFacts(line.substr(0, blank), entry))
        return LINE::UNKNOWN;
    entry.name = line.substr(blank + 1);
    const String::size_type type = line.FindI("type=");
    const bool isListed =
        type < blank && (line.substr(type + 5).StartsWithI("cdir;") || line.substr(type + 5).StartsWithI("pdir;"));
    return isListed ? LINE::NO_ENTRY : LINE::ENTRY;
}

bool FtpListParser::sParseFacts(const String& facts, FtpRemoteEntry& entry)
{
    STRINGS fields;
    fields.AddByLine(facts, static_cast<unsigned char>(';'));
    for (const String& field : fields) {
        const String::size_type sign = field.find('=');
        if (sign == String::npos)
            return false;
        const String name = field.substr(0, sign);
        const String value = field.substr(sign + 1);
        std::int64_t timeMs = 0;
        if (name.MatchesI("type"))
            entry.kind = KindOfType(value);
        else if (name.MatchesI("size"))
            static_cast<void>(SetSize(value, entry)); // a size that is none is not known
        else if (name.MatchesI("modify") && FtpTime::sParse(value, timeMs))
            entry.modifiedMs = FtpTime::sToFullSecond(timeMs);
    }
    return true;
}

/// "drwxr-xr-x  2 owner group  4096 Jan  1 12:34 name", the group or the number of links missing on some.
FtpListParser::LINE FtpListParser::xsParseLongLine(const String& line, FtpRemoteEntry& entry)
{
    if (line.StartsWithI("total "))
        return LINE::NO_ENTRY;
    if (xsParseDosLine(line, entry))
        return LINE::ENTRY;
    constexpr int MAX_WORDS = 6; // before the size
    String rest = line;
    const String mode = TakeWord(rest);
    if (mode.size() < 10 || std::string("-dlbcpsD").find(mode[0]) == std::string::npos)
        return LINE::UNKNOWN;
    String size = TakeWord(rest);
    String month = TakeWord(rest);
    String day = TakeWord(rest);
    const auto isInPlace = [&] { return IsDecimal(size) && IsMonth(month) && IsDecimal(day, 2); };
    for (int i = 0; i < MAX_WORDS && !isInPlace(); ++i) { // owners and groups may be called like months
        size = std::exchange(month, std::exchange(day, TakeWord(rest)));
    }
    const String clock = TakeWord(rest);
    if (!isInPlace() || clock.empty() || !SetSize(size, entry))
        return LINE::UNKNOWN;
    entry.kind = KindOfLetter(mode[0]);
    entry.name = rest; // blanks at its start and end are its own
    if (entry.kind == KIND::LINK && entry.name.Find(" -> ") != String::npos)
        entry.name = entry.name.substr(0, entry.name.Find(" -> "));
    return entry.name == "." || entry.name == ".." ? LINE::NO_ENTRY : LINE::ENTRY;
}

/// "01-31-24  12:34PM       <DIR>          name", or a size in the place of <DIR>.
bool FtpListParser::xsParseDosLine(const String& line, FtpRemoteEntry& entry)
{
    String rest = line;
    const String date = TakeWord(rest);
    const String clock = TakeWord(rest);
    if (date.size() < 8 || date[2] != '-' || date[5] != '-' || clock.size() < 5 || clock[2] != ':')
        return false;
    const String what = TakeWord(rest);
    const bool isFolder = what == "<DIR>";
    if (!isFolder && !SetSize(what, entry))
        return false;
    // Names stand in a column of their own behind <DIR>, and right behind a size.
    const auto first = std::find_if_not(rest.begin(), rest.end(), [](char c) { return c == ' '; });
    entry.name = isFolder ? String(std::string(first, rest.end())) : rest;
    entry.kind = isFolder ? KIND::FOLDER : KIND::FILE;
    return true;
}

} // namespace kqlib

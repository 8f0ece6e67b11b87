// FtpListing: how files look in listings.
#include "hosts/ftp/FtpListing.h"

#include "common/STRINGS.h"
#include "hosts/ftpcommon/FtpText.h"
#include "hosts/ftpcommon/FtpTime.h"

#include <algorithm>
#include <cstdio>

namespace kqlib {

namespace {

using platform::FileKind;

constexpr std::int64_t MS_PER_DAY = 86400000;
constexpr std::int64_t RECENT_MS = 182 * MS_PER_DAY;

struct FACT_NAME
{
    FtpListing::FACT fact;
    const char* name;
};

constexpr FACT_NAME FACT_NAMES[] = {
    {FtpListing::TYPE, "type"}, {FtpListing::SIZE, "size"},     {FtpListing::MODIFY, "modify"},
    {FtpListing::PERM, "perm"}, {FtpListing::UNIQUE, "unique"}, {FtpListing::UNIX_MODE, "UNIX.mode"},
};

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

} // namespace

void FtpListing::sAddLongLine(std::string& out, const String& name, const FACTS& facts, std::int64_t nowMs)
{
    constexpr const char LETTERS[] = "rwxrwxrwx";
    out += TypeLetter(facts.kind);
    for (unsigned bit = 0; bit < 9; ++bit)
        out += (facts.permissions & (0400U >> bit)) != 0 ? LETTERS[bit] : '-';
    const FtpTime::MOMENT moment = FtpTime::sToMoment(facts.modifiedMs);
    AddFormatted(out, " %4u ftp      ftp      %12llu %s %2u ", facts.links, static_cast<unsigned long long>(facts.size),
                 FtpTime::sGetMonthName(moment.month), moment.day);
    if (facts.modifiedMs <= nowMs && nowMs - facts.modifiedMs < RECENT_MS)
        AddFormatted(out, "%02u:%02u ", moment.hour, moment.minute);
    else
        AddFormatted(out, "%5d ", moment.year);
    out += MakeVisible(name).str();
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
        out.append("modify=").append(FtpTime::sFormat(facts.modifiedMs).str()).append(";");
    if ((selection & PERM) != 0)
        out.append("perm=").append(Permissions(facts.kind, rights)).append(";");
    if ((selection & UNIQUE) != 0)
        AddFormatted(out, "unique=%llxg%llx;", static_cast<unsigned long long>(facts.volume),
                     static_cast<unsigned long long>(facts.serial));
    if ((selection & UNIX_MODE) != 0)
        AddFormatted(out, "UNIX.mode=0%03o;", facts.permissions);
    out += ' ';
    out += MakeVisible(name).str();
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

} // namespace kqlib

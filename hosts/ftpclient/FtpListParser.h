// FtpListParser: reads the lines of listings.
#pragma once

#include "hosts/ftpclient/FtpRemoteEntry.h"

#include <string>
#include <vector>

namespace kqlib {

/// Of MLSD (RFC 3659, section 7.2) exactly, of LIST as the two widespread kinds of servers write it.
///
/// Names come out as they are, however hostile: who makes files of them has to look first.
///
/// Ownership: none. Threads: any thread. Errors: by result.
class FtpListParser
{
public:
    enum class FORM : std::uint8_t
    {
        FACTS, ///< MLSD
        LONG,  ///< LIST
        NAMES  ///< NLST: names alone
    };
    enum class LINE : std::uint8_t
    {
        ENTRY,
        NO_ENTRY, ///< understood, but nothing of the folder: the folder itself, a total
        UNKNOWN
    };

    /// Reads one line, without its end.
    static LINE sParse(FORM form, const String& line, FtpRemoteEntry& entry);
    /// Splits a whole listing into lines and appends their entries. The result is the number of lines that were not
    /// understood.
    static std::size_t sParseAll(FORM form, const std::string& text, std::vector<FtpRemoteEntry>& entries);
    /// Reads "fact=value;...;", without the name.
    [[nodiscard]] static bool sParseFacts(const String& facts, FtpRemoteEntry& entry);

private:
    static LINE xsParseFactLine(const String& line, FtpRemoteEntry& entry);
    static LINE xsParseLongLine(const String& line, FtpRemoteEntry& entry);
    static bool xsParseDosLine(const String& line, FtpRemoteEntry& entry);
};

} // namespace kqlib

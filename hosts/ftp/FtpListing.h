// FtpListing: how files look in listings.
#pragma once

#include "common/String.h"
#include "platform/Folders.h"

#include <cstdint>

namespace kqlib {

/// Formats entries for LIST (the form of "ls -l"), MLST and MLSD (RFC 3659, section 7).
///
/// Control characters in names become "?", so that no name can forge a line. Lines end in CR LF. Times are UTC.
///
/// Ownership: none. Threads: any thread. Errors: by result.
class FtpListing
{
public:
    using FACTS = platform::FileFacts;

    /// The facts of MLST, as bits of a selection.
    enum FACT : std::uint32_t
    {
        TYPE = 1,
        SIZE = 2,
        MODIFY = 4,
        PERM = 8,
        UNIQUE = 16,
        UNIX_MODE = 32,
        ALL_FACTS = 63
    };

    /// What the user may do, for the fact "perm".
    struct RIGHTS
    {
        bool read = false;
        bool write = false;
        bool remove = false;
    };

    /// Appends one line in the form of "ls -l". Entries younger than half a year, and not of the future, show the time
    /// of day, others the year. nowMs: milliseconds since 1970 UTC.
    static void sAddLongLine(std::string& out, const String& name, const FACTS& facts, std::int64_t nowMs);
    /// Appends "fact=value;...; name" with the selected facts. type: null, or "cdir"/"pdir" in the place of "dir".
    static void sAddFactLine(std::string& out, const String& name, const FACTS& facts, std::uint32_t selection,
                             const RIGHTS& rights, const char* type = nullptr);

    /// The list of facts for FEAT ("type*;size*;...": selected ones carry a star) or for the reply to OPTS MLST (only
    /// those selected, without stars).
    static String sGetFactNames(std::uint32_t selection, bool forFeatures);
    /// The facts that a line like "type;size;" names; unknown names are left out.
    static std::uint32_t sParseFactNames(const String& line);
};

} // namespace kqlib

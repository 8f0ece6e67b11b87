// FtpTelnet: what Telnet puts between the characters of a command.
#pragma once

#include "common/String.h"

namespace kqlib {

/// The control connection follows the Telnet protocol (RFC 959, section 3.1; RFC 854), of which nothing is offered.
///
/// Ownership: none. Threads: any thread. Errors: none.
class FtpTelnet
{
public:
    /// The line without Telnet commands and negotiations; a doubled byte 255 becomes a single one, and one that no
    /// Telnet command follows stays.
    static String sStrip(const String& line);
};

} // namespace kqlib

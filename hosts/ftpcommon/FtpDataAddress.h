// FtpDataAddress: addresses of data connections in commands and replies.
#pragma once

#include "common/NetIP.h"
#include "common/String.h"

namespace kqlib {

/// An IPv4 address and a port, in the two forms that FTP knows for them.
///
/// A plain value. Threads: one at a time. Errors: by result.
struct FtpDataAddress
{
    NetIP address;
    USHORT port = 0; ///< in host order

    /// Reads "h1,h2,h3,h4,p1,p2" (RFC 959, section 4.1.2) and nothing else.
    [[nodiscard]] bool ParseNumbers(const String& text);
    String FormatNumbers() const;

    /// What stands between the four delimiters of "|1|132.235.1.2|6275|" (RFC 2428, section 2).
    struct EXTENDED
    {
        String family;
        String address;
        String port;
    };
    /// Splits such a text at its own first character. False: another form.
    [[nodiscard]] static bool sSplitExtended(const String& text, EXTENDED& out);
    String FormatExtended() const;
    /// Takes over the port of such a text. False: not a number from 0 to 65535.
    [[nodiscard]] bool ParsePort(const String& text);
};

} // namespace kqlib

// FtpAscii: the line ends of TYPE A.
#pragma once

#include <cstddef>
#include <string>

namespace kqlib {

/// Between the lines of a file, which end in LF, and those on the wire, which end in CR LF (RFC 959, section 3.1.1.1).
///
/// Every LF becomes CR LF on its way out, and every CR LF becomes LF on its way in; a CR anywhere else is kept. So any
/// file whatever comes back as it was.
///
/// Ownership: none. Threads: one at a time. Errors: none.
class FtpAscii
{
public:
    /// Appends the wire form of the bytes.
    static void sToWire(const unsigned char* bytes, std::size_t size, std::string& out);

    /// Turns received bytes into what the file gets, in their place; returns how many that are. A CR at the end waits
    /// for what follows it, so up to one byte more than was received may come out: bytes has room for size + 1.
    std::size_t FromWire(unsigned char* bytes, std::size_t size);
    /// What is left at the end of the data: 1 byte at bytes, or 0.
    std::size_t EndFromWire(unsigned char* bytes);

private:
    bool m_isCRWaiting = false;
};

} // namespace kqlib

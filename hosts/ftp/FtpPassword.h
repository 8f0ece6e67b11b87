// FtpPassword: the stored form of a password.
#pragma once

#include "common/String.h"

namespace kqlib {

/// Passwords as salted scrypt hashes (RFC 7914), in the text form "scrypt$N$r$p$salt$hash": the three cost numbers
/// decimal, salt and hash in hexadecimal. Checking costs about 50 ms of processor time and 16 MiB of memory with the
/// numbers that sHash uses.
///
/// Ownership: none. Threads: any thread. Errors: by result.
class FtpPassword
{
public:
    /// The stored form of password with a fresh salt. Empty when the system has no random numbers to give.
    static String sHash(const String& password);
    /// True when password is the one that stored was made from. Takes as long for a wrong password as for the right
    /// one. False for a stored text that is not of the form above.
    static bool sVerify(const String& password, const String& stored);
    /// True when stored is of the form above, with cost numbers within what this server is willing to spend.
    static bool sIsWellFormed(const String& stored);
};

} // namespace kqlib

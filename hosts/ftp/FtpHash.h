// FtpHash: the hashes that a client may ask for.
#pragma once

#include "common/String.h"

#include <cstddef>
#include <memory>

namespace kqlib {

/// Makes one hash from bytes that come in pieces. Ownership: owns what it has of OpenSSL. Threads: one at a time.
/// Errors: by result.
class FtpHash
{
public:
    /// The names that FEAT and OPTS HASH know, the best one first, with ";" between; the selected one with a star.
    static String sGetNames(const String& selected);
    /// The name as sGetNames has it, whatever its case; empty: unknown.
    static String sFindName(const String& name);
    /// What HASH uses at first.
    static constexpr const char* DEFAULT = "SHA-256";

    /// name: one of sFindName.
    explicit FtpHash(const String& name);
    ~FtpHash();
    FtpHash(const FtpHash&) = delete;
    FtpHash& operator=(const FtpHash&) = delete;

    /// False: the system's OpenSSL does not have it, or not any more.
    [[nodiscard]] bool Add(const unsigned char* bytes, std::size_t length);
    /// The hash in hexadecimal, lower case; once. Empty: as for Add.
    String Finish();

private:
    struct STATE;
    std::unique_ptr<STATE> m_state;
};

} // namespace kqlib

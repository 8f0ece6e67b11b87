// FtpClientSettings: where the client connects to, and how.
#pragma once

#include "common/FilePath.h"

namespace kqlib {

/// A plain value.
struct FtpClientSettings
{
    enum class TLS : std::uint8_t
    {
        NONE,
        EXPLICIT, ///< AUTH TLS; without it there is no log-in
        IMPLICIT  ///< from the first byte
    };

    /// The trusted certificates are those of the system.
    static constexpr const char* SYSTEM_CERTIFICATES = "system";

    String host;
    USHORT port = 21;
    String user = "anonymous";
    String password = "anonymous@";
    TLS tls = TLS::NONE;
    /// With which certificates the server's one is verified: SYSTEM_CERTIFICATES, a file of them (PEM), or empty for
    /// whatever the server shows.
    String trusted;
    bool isActive = false;  ///< the server makes the data connections
    bool isInPlace = false; ///< uploads go straight under their names; nothing is resumed then
    ULONG timeOutSecs = 60; ///< without a byte from the server
    ULONG keepAliveSecs = 30;
    ULONG retries = 2;  ///< of a request whose connection broke
    FilePath logFolder; ///< empty: no log
    bool isLogDebug = false;
};

} // namespace kqlib

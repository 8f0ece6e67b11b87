// FtpPeerCertificate: whether the server is the one that was meant.
#pragma once

#include "common/String.h"

namespace kqlib {

class FtpPeerCertificate
{
public:
    /// chain: what the server showed, PEM, its own certificate first. trusted: a file of certificates (PEM) or
    /// FtpClientSettings::SYSTEM_CERTIFICATES. True: the server's own certificate stands in that file, or leads to one
    /// of the trusted ones and is for this host, a name or an address. False: error says why not. Any thread.
    [[nodiscard]] static bool sIsTrusted(const String& chain, const String& trusted, const String& host, String& error);
};

} // namespace kqlib

// FtpSettingsCheck: whether settings can work on this machine.
#pragma once

#include "common/STRINGS.h"
#include "hosts/ftp/FtpSettings.h"

namespace kqlib {

/// Looks at what settings name: folders, files, addresses. Nothing is made or changed; what a check as one user finds
/// good may still be refused to another.
///
/// Ownership: none. Threads: any thread. Errors: by result, one sentence for each fault, which names the key.
class FtpSettingsCheck
{
public:
    /// Everything that cannot work. The system's sockets must have been started (NetSocket::sStartSockets). May wait
    /// for name servers when listening on the name of a host.
    static STRINGS sFindFaults(const FtpSettings& settings);
    /// The homes that cannot be entered: the server serves all the others.
    static STRINGS sFindHomeFaults(const FtpSettings& settings);
};

} // namespace kqlib

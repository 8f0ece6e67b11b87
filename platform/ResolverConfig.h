// The resolver configuration of the system: which DNS servers its owner or its network told it to ask.
//
// Two sources are read one after the other. The first is a name service that lists servers by itself; the second is the
// system's settings, as texts that may each hold several servers. What the caller makes of the texts (separators,
// repeats) is its own affair; nothing is interpreted here beyond finding them.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <string>
#include <vector>

namespace kqlib::platform {

/// Appends the dotted IPv4 address of every DNS server that the system's name service lists (Windows: the Winsock
/// name-space query for TCP port 53), in its order, repeats kept. A service that cannot be asked, or that the system
/// does not have (POSIX), adds nothing. Any thread.
KQCOMMON_API void AppendNameServiceServers(std::vector<std::string>& addresses);

/// Appends the texts of the system's settings that name DNS servers, in order of preference: what was configured comes
/// before what address configuration (DHCP) supplied. A text holds one or more servers, separated by blanks, TABs, ","
/// or ";", and is never empty. False: the settings could not be opened at all; nothing was appended. Any thread.
///
/// POSIX: the "nameserver" lines of /etc/resolv.conf in order; then those of /run/systemd/resolve/resolv.conf, the
/// leases of systemd-networkd, and the newest lease of each interface in the lease files of the DHCP clients. Servers
/// with a zone id ("fe80::1%eth0") are left out. A file that is not there is skipped; the result is always true.
/// Windows: for each subkey of SYSTEM\CurrentControlSet\Services\Tcpip\Parameters\Interfaces the value "NameServer",
/// then "DhcpNameServer"; false when that key cannot be opened for reading.
KQCOMMON_API bool AppendServerSettings(std::vector<std::string>& texts);

/// Takes the settings from elsewhere, for tests: POSIX: a folder that stands for "/". Windows: a key below
/// HKEY_CURRENT_USER that stands for the one named above. Null brings the system's own back. Before other threads run.
KQCOMMON_API void SetServerSettingsRoot(const char* root);

} // namespace kqlib::platform

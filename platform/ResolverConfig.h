// The resolver configuration of the system: which DNS servers its owner or its network told it to ask.
//
// Two sources are read one after the other. The first is a name service that lists servers by itself; the second is the
// system's settings. Both give one server at a time, as a text; repeats are the caller's affair.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kqlib::platform {

/// Appends the dotted IPv4 address of every DNS server that the system's name service lists (Windows: the Winsock
/// name-space query for TCP port 53), in its order, repeats kept. A service that cannot be asked, or that the system
/// does not have (POSIX), adds nothing. Any thread.
KQCOMMON_API void AppendNameServiceServers(std::vector<std::string>& addresses);

/// Appends the DNS servers that the system's settings name, in order of preference: what was configured comes before
/// what address configuration (DHCP) supplied. Addresses or host names, never empty, repeats kept. False: the settings
/// could not be opened at all; nothing was appended. Any thread.
///
/// POSIX: the "nameserver" lines of /etc/resolv.conf in order; then those of /run/systemd/resolve/resolv.conf, the
/// leases of systemd-networkd, and the newest lease of each interface in the lease files of the DHCP clients. Only
/// files that are named like leases are opened, for other things lie beside them. Servers with a zone id
/// ("fe80::1%eth0") are left out, and so are lines of more than 4096 bytes and what stands behind the first MiB of a
/// file. A file that is not there is skipped; the result is always true. What was found is kept until one of the files
/// or folders has changed, but not while a change is less than two seconds old: a second one might look the same. Nor
/// is it kept when something could not be read for want of descriptors or the like.
/// Windows: for each subkey of SYSTEM\CurrentControlSet\Services\Tcpip\Parameters\Interfaces the value "NameServer",
/// then "DhcpNameServer"; false when that key cannot be opened for reading. Read at each call.
KQCOMMON_API bool AppendServerSettings(std::vector<std::string>& servers);

/// How often AppendServerSettings has read the settings anew in this process. Any thread. For tests.
KQCOMMON_API std::uint32_t GetServerSettingsReads();

/// Appends the servers of one value of the settings: what stands between blanks, TABs, "," and ";", up to its end or
/// its first zero byte. Any thread.
KQCOMMON_API void SplitServers(std::string_view value, std::vector<std::string>& servers);

/// The path of the file in which the system keeps names of hosts (POSIX: /etc/hosts), UTF-8. Any thread.
KQCOMMON_API std::string GetHostsFile();

/// Takes the settings from elsewhere, for tests: POSIX: a folder that stands for "/". Windows: a key below
/// HKEY_CURRENT_USER that stands for the one named above. Null brings the system's own back. Before other threads run.
KQCOMMON_API void SetServerSettingsRoot(const char* root);

} // namespace kqlib::platform

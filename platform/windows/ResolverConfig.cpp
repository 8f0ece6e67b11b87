#include "platform/ResolverConfig.h"

#include "platform/windows/SystemHeaders.h"

#include <svcguid.h>

#include <atomic>
#include <cstddef>

namespace kqlib::platform {

namespace {

constexpr const char* INTERFACES_KEY = "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces";
constexpr DWORD KEY_NAME_SIZE = 256 + 1; ///< with the terminator
constexpr std::size_t VALUE_SIZE = 2048;
constexpr std::size_t RESULT_SIZE = 2048;
constexpr DWORD RETURN_ALL = 0x0FF0; ///< LUP_RETURN_ALL: every part of a result
constexpr unsigned short DNS_PORT = 53;

std::atomic<std::uint32_t> g_reads{0};
std::string g_root; ///< a key below HKEY_CURRENT_USER in place of the interfaces' key; set before other threads run

/// Closes a registry key at the end of a scope.
class KEY
{
public:
    KEY(HKEY parent, const std::string& path)
        : m_open(RegOpenKeyExA(parent, path.c_str(), 0, KEY_READ, &m_key) == 0)
    {
    }
    ~KEY()
    {
        if (m_open)
            RegCloseKey(m_key);
    }
    KEY(const KEY&) = delete;
    KEY& operator=(const KEY&) = delete;

    bool IsOpen() const { return m_open; }
    HKEY Get() const { return m_key; }

private:
    HKEY m_key = nullptr;
    bool m_open;
};

/// Appends the dotted remote address of every IPv4 entry of one result.
void AppendAddresses(const WSAQUERYSETA& result, std::vector<std::string>& addresses)
{
    for (DWORD i = 0; i < result.dwNumberOfCsAddrs; ++i) {
        const SOCKET_ADDRESS& remote = result.lpcsaBuffer[i].RemoteAddr;
        if (remote.lpSockaddr == nullptr || remote.iSockaddrLength < static_cast<int>(sizeof(sockaddr_in)) ||
            remote.lpSockaddr->sa_family != AF_INET)
            continue;
        const auto* address = reinterpret_cast<const sockaddr_in*>(remote.lpSockaddr);
        const auto* bytes = reinterpret_cast<const unsigned char*>(&address->sin_addr);
        std::string text;
        for (int part = 0; part < 4; ++part)
            text += (part > 0 ? "." : "") + std::to_string(bytes[part]);
        addresses.push_back(text);
    }
}

/// Appends the servers of a value. One byte alone is the end of an empty text.
void AppendValue(HKEY key, const char* name, std::vector<std::string>& servers)
{
    char buffer[VALUE_SIZE];
    DWORD length = sizeof(buffer);
    if (RegQueryValueExA(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &length) != 0 || length <= 1)
        return;
    SplitServers(std::string_view(buffer, length), servers);
}

} // namespace

void AppendNameServiceServers(std::vector<std::string>& addresses)
{
    GUID service = SVCID_TCP(DNS_PORT);
    AFPROTOCOLS protocols[2] = {{AF_INET, IPPROTO_TCP}, {AF_INET, IPPROTO_UDP}};
    WSAQUERYSETA query = {};
    query.dwSize = sizeof(query);
    query.lpServiceClassId = &service;
    query.dwNumberOfProtocols = 2;
    query.lpafpProtocols = protocols;
    HANDLE handle = nullptr;
    if (WSALookupServiceBeginA(&query, RETURN_ALL, &handle) != 0)
        return;
    alignas(WSAQUERYSETA) unsigned char buffer[RESULT_SIZE];
    auto* result = reinterpret_cast<WSAQUERYSETA*>(buffer);
    for (DWORD length = sizeof(buffer); WSALookupServiceNextA(handle, RETURN_ALL, &length, result) == 0;
         length = sizeof(buffer))
        AppendAddresses(*result, addresses);
    WSALookupServiceEnd(handle);
}

bool AppendServerSettings(std::vector<std::string>& servers)
{
    ++g_reads;
    const HKEY hive = g_root.empty() ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    const std::string path = g_root.empty() ? INTERFACES_KEY : g_root;
    const KEY interfaces(hive, path);
    if (!interfaces.IsOpen())
        return false;
    for (DWORD index = 0;; ++index) {
        char name[KEY_NAME_SIZE];
        DWORD length = sizeof(name);
        if (RegEnumKeyExA(interfaces.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != 0)
            return true;
        const KEY interfaceKey(hive, path + "\\" + name);
        if (!interfaceKey.IsOpen())
            continue;
        AppendValue(interfaceKey.Get(), "NameServer", servers);
        AppendValue(interfaceKey.Get(), "DhcpNameServer", servers);
    }
}

std::string GetHostsFile()
{
    char folder[MAX_PATH + 1];
    const UINT size = GetSystemDirectoryA(folder, sizeof(folder));
    return std::string(folder, size < sizeof(folder) ? size : 0) + "\\drivers\\etc\\hosts";
}

std::uint32_t GetServerSettingsReads()
{
    return g_reads;
}

void SetServerSettingsRoot(const char* root)
{
    g_root = root ? root : "";
}

} // namespace kqlib::platform

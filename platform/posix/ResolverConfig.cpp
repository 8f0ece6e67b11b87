#include "platform/ResolverConfig.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

namespace kqlib::platform {

namespace {

constexpr std::streamsize LONGEST_FILE = 1024 * 1024; ///< what stands further back in a file is not read

constexpr const char* RESOLV_CONF = "/etc/resolv.conf";
constexpr const char* RESOLVED_CONF = "/run/systemd/resolve/resolv.conf";
constexpr const char* NETWORKD_LEASES = "/run/systemd/netif/leases";
/// Where DHCP clients keep their leases.
constexpr const char* LEASE_FOLDERS[] = {"/var/lib/dhcp", "/var/lib/dhclient", "/var/lib/NetworkManager"};

std::string g_root; ///< stands in front of every path; set before other threads run

std::vector<std::string> ReadLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream file(path, std::ios::binary);
    std::streamsize size = 0;
    for (std::string line; size < LONGEST_FILE && std::getline(file, line);) {
        size += static_cast<std::streamsize>(line.size()) + 1;
        lines.push_back(line);
    }
    return lines;
}

/// The plain files of a folder in the order of their names; none when it cannot be read.
std::vector<std::string> ListFiles(const std::string& folder)
{
    std::vector<std::string> files;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    {
        std::error_code ignored; // a file that has gone meanwhile is no plain file
        if (entry->is_regular_file(ignored))
            files.push_back(entry->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// Appends the servers of a text to texts as one text, without those that carry a zone id. Nothing when none is left.
void AppendServers(const std::string& text, std::vector<std::string>& texts)
{
    std::string unified = text;
    for (char& character : unified) {
        if (character == ',' || character == ';' || character == '\t' || character == '\r')
            character = ' ';
    }
    std::istringstream words(unified);
    std::string servers;
    for (std::string word; words >> word;) {
        if (word.find('%') != std::string::npos)
            continue;
        if (!servers.empty())
            servers += ' ';
        servers += word;
    }
    if (!servers.empty())
        texts.push_back(std::move(servers));
}

/// The "nameserver" lines of a file in the form of /etc/resolv.conf: the first word behind the keyword of each.
void AppendResolvConf(const std::string& path, std::vector<std::string>& texts)
{
    for (const std::string& line : ReadLines(path)) {
        std::istringstream words(line);
        std::string keyword;
        std::string server;
        if (words >> keyword >> server && keyword == "nameserver")
            AppendServers(server, texts);
    }
}

/// The "DNS=" lines of a file of settings: leases of systemd-networkd and NetworkManager.
void AppendKeyFile(const std::string& path, std::vector<std::string>& texts)
{
    for (const std::string& line : ReadLines(path)) {
        if (line.starts_with("DNS="))
            AppendServers(line.substr(4), texts);
    }
}

/// The text between the quotes of a line, or an empty one.
std::string Quoted(const std::string& line)
{
    const auto open = line.find('"');
    const auto close = line.find('"', open == std::string::npos ? open : open + 1);
    return close == std::string::npos ? std::string() : line.substr(open + 1, close - open - 1);
}

/// A file to which a DHCP client appends "lease { ... }" blocks: for each interface, in the order of their first lease,
/// the "option domain-name-servers" of its newest lease.
void AppendLeaseBlocks(const std::string& path, std::vector<std::string>& texts)
{
    std::vector<std::pair<std::string, std::string>> newest; // interface, servers
    std::string interfaceName;
    std::string servers;
    for (const std::string& line : ReadLines(path)) {
        std::istringstream words(line);
        std::string first;
        std::string second;
        words >> first >> second;
        if (first.starts_with("lease")) {
            interfaceName.clear();
            servers.clear();
        } else if (first == "interface") {
            interfaceName = Quoted(line);
        } else if (first == "option" && second == "domain-name-servers") {
            std::getline(words, servers);
        } else if (first.starts_with("}")) {
            const auto known = std::find_if(newest.begin(), newest.end(),
                                            [&](const auto& lease) { return lease.first == interfaceName; });
            if (known == newest.end())
                newest.emplace_back(interfaceName, servers);
            else
                known->second = servers;
        }
    }
    for (const auto& lease : newest)
        AppendServers(lease.second, texts);
}

} // namespace

void AppendNameServiceServers(std::vector<std::string>&)
{
    // There is no such service here: the settings say it all.
}

bool AppendServerSettings(std::vector<std::string>& texts)
{
    AppendResolvConf(g_root + RESOLV_CONF, texts);
    AppendResolvConf(g_root + RESOLVED_CONF, texts);
    for (const std::string& file : ListFiles(g_root + NETWORKD_LEASES))
        AppendKeyFile(file, texts);
    for (const char* folder : LEASE_FOLDERS) {
        for (const std::string& file : ListFiles(g_root + folder)) {
            AppendKeyFile(file, texts);
            AppendLeaseBlocks(file, texts);
        }
    }
    return true;
}

void SetServerSettingsRoot(const char* root)
{
    g_root = root ? root : "";
}

} // namespace kqlib::platform

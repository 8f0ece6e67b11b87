#include "platform/ResolverConfig.h"

#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <utility>

namespace kqlib::platform {

namespace {

constexpr std::size_t LONGEST_FILE = 1024UL * 1024UL; ///< what stands further back in a file is not read
constexpr std::size_t LONGEST_LINE = 4096;            ///< a longer line is left out
constexpr std::int64_t YOUNG_NS = 2000000000;         ///< how long a second change may look like the first

constexpr const char* RESOLV_CONF = "/etc/resolv.conf";
constexpr const char* HOSTS_FILE = "/etc/hosts";
constexpr const char* RESOLVED_CONF = "/run/systemd/resolve/resolv.conf";
constexpr const char* NETWORKD_LEASES = "/run/systemd/netif/leases";
/// Where DHCP clients keep their leases.
constexpr const char* LEASE_FOLDERS[] = {"/var/lib/dhcp", "/var/lib/dhclient", "/var/lib/NetworkManager"};

/// What tells that a file or folder is still what it was; all zero when it is not there.
struct STAMP
{
    dev_t device = 0;
    ino_t number = 0;
    off_t size = 0;
    std::int64_t changedNs = 0;

    bool operator==(const STAMP&) const = default;
};

STAMP StampOf(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return {};
    return {status.st_dev, status.st_ino, status.st_size,
            static_cast<std::int64_t>(status.st_ctim.tv_sec) * 1000000000 + status.st_ctim.tv_nsec};
}

std::int64_t NowNs()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

/// What was found, and the files and folders that it depends on, those that are missing too.
struct FOUND
{
    std::vector<std::pair<std::string, STAMP>> sources;
    std::vector<std::string> servers;
    bool isWhole = true; ///< nothing was left out for want of descriptors or the like, which passes

    bool IsFresh() const
    {
        return !sources.empty() && std::all_of(sources.begin(), sources.end(), [](const auto& source) {
            return StampOf(source.first) == source.second;
        });
    }

    /// Whether a later reading would find the same, until a change that is sure to be seen.
    bool MayBeKept() const
    {
        if (!isWhole)
            return false;
        const std::int64_t latest = NowNs() - YOUNG_NS;
        return std::all_of(sources.begin(), sources.end(),
                           [latest](const auto& source) { return source.second.changedNs < latest; });
    }
};

std::mutex g_mutex;
FOUND g_found; // guarded by g_mutex
std::atomic<std::uint32_t> g_reads{0};
std::string g_root; ///< stands in front of every path; set before other threads run

/// After a file or folder could not be read: whether it will be so the next time, too. It is not there, is something
/// else, or is not for this process.
bool IsLasting(int error)
{
    return error == ENOENT || error == ENOTDIR || error == EISDIR || error == EACCES || error == EPERM ||
           error == ELOOP;
}

/// The lines of a file, without those that are too long.
std::vector<std::string> ReadLines(const std::string& path, FOUND& found)
{
    found.sources.emplace_back(path, StampOf(path)); // before the reading: a change during it is seen
    std::string text(LONGEST_FILE, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if ((!file.is_open() || file.bad()) && !IsLasting(errno))
        found.isWhole = false;
    text.resize(static_cast<std::size_t>(file.gcount()));
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::size_t size = end - start;
        if (size > 0 && text[end - 1] == '\r')
            --size;
        if (size <= LONGEST_LINE)
            lines.push_back(text.substr(start, size));
        start = end + 1;
    }
    return lines;
}

/// Whether a file of a DHCP client's folder holds leases: "dhclient.eth0.leases", "internal-….lease". What else lies
/// there may be secret.
bool IsClientLease(const std::string& name)
{
    return name.ends_with(".lease") || name.ends_with(".leases");
}

/// The leases of systemd-networkd are named by the number of their interface.
bool IsNetworkdLease(const std::string& name)
{
    return name.find_first_not_of("0123456789") == std::string::npos;
}

/// The plain files of a folder whose names are wanted, in the order of their names; none when it cannot be read.
std::vector<std::string> ListFiles(const std::string& folder, bool (*isWanted)(const std::string&), FOUND& found)
{
    found.sources.emplace_back(folder, StampOf(folder));
    std::vector<std::string> files;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    {
        std::error_code ignored; // a file that has gone meanwhile is no plain file
        if (isWanted(entry->path().filename().string()) && entry->is_regular_file(ignored))
            files.push_back(entry->path().string());
    }
    if (error && !IsLasting(error.value()))
        found.isWhole = false;
    std::sort(files.begin(), files.end());
    return files;
}

/// Appends the servers of a value, without those that carry a zone id.
void AppendServers(const std::string& value, FOUND& found)
{
    std::vector<std::string> servers;
    SplitServers(value, servers);
    for (std::string& server : servers) {
        if (server.find('%') == std::string::npos)
            found.servers.push_back(std::move(server));
    }
}

/// The "nameserver" lines of a file in the form of /etc/resolv.conf: the first word behind the keyword of each.
void AppendResolvConf(const std::string& path, FOUND& found)
{
    for (const std::string& line : ReadLines(path, found)) {
        std::istringstream words(line);
        std::string keyword;
        std::string server;
        if (words >> keyword >> server && keyword == "nameserver")
            AppendServers(server, found);
    }
}

/// The "DNS=" lines among those of a file of settings: leases of systemd-networkd and NetworkManager.
void AppendKeyFile(const std::vector<std::string>& lines, FOUND& found)
{
    for (const std::string& line : lines) {
        if (line.starts_with("DNS="))
            AppendServers(line.substr(4), found);
    }
}

/// The text between the quotes of a line, or an empty one.
std::string Quoted(const std::string& line)
{
    const auto open = line.find('"');
    const auto close = line.find('"', open == std::string::npos ? open : open + 1);
    return close == std::string::npos ? std::string() : line.substr(open + 1, close - open - 1);
}

/// The lines of a file to which a DHCP client appends "lease { ... }" blocks: for each interface, in the order of their
/// first lease, the "option domain-name-servers" of its newest lease.
void AppendLeaseBlocks(const std::vector<std::string>& lines, FOUND& found)
{
    std::vector<std::pair<std::string, std::string>> newest; // interface, servers
    std::string interfaceName;
    std::string servers;
    for (const std::string& line : lines) {
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
        AppendServers(lease.second, found);
}

FOUND ReadSettings()
{
    ++g_reads;
    FOUND found;
    AppendResolvConf(g_root + RESOLV_CONF, found);
    AppendResolvConf(g_root + RESOLVED_CONF, found);
    for (const std::string& file : ListFiles(g_root + NETWORKD_LEASES, &IsNetworkdLease, found))
        AppendKeyFile(ReadLines(file, found), found);
    for (const char* folder : LEASE_FOLDERS) {
        for (const std::string& file : ListFiles(g_root + folder, &IsClientLease, found)) {
            const std::vector<std::string> lines = ReadLines(file, found);
            AppendKeyFile(lines, found);
            AppendLeaseBlocks(lines, found);
        }
    }
    return found;
}

} // namespace

void AppendNameServiceServers(std::vector<std::string>&)
{
    // There is no such service here: the settings say it all.
}

bool AppendServerSettings(std::vector<std::string>& servers)
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_found.IsFresh()) {
        FOUND found = ReadSettings();
        servers.insert(servers.end(), found.servers.begin(), found.servers.end());
        g_found = found.MayBeKept() ? std::move(found) : FOUND();
        return true;
    }
    servers.insert(servers.end(), g_found.servers.begin(), g_found.servers.end());
    return true;
}

std::string GetHostsFile()
{
    return g_root + HOSTS_FILE;
}

std::uint32_t GetServerSettingsReads()
{
    return g_reads;
}

void SetServerSettingsRoot(const char* root)
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_root = root ? root : "";
    g_found = FOUND();
}

} // namespace kqlib::platform

#include "net/dns/NetDNSHosts.h"

#include "common/NetIP.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <utility>

namespace kqlib {

namespace {

constexpr std::size_t LONGEST_FILE = 1024UL * 1024UL;
constexpr std::chrono::seconds YOUNG{2}; ///< how long a second change may look like the first
constexpr std::string_view BLANKS = " \t\r";

std::string Folded(std::string_view name)
{
    std::string folded(name);
    for (char& character : folded) {
        if (character >= 'A' && character <= 'Z')
            character = static_cast<char>(character + ('a' - 'A'));
    }
    return folded;
}

/// Takes the next word off the front of a line; empty at its end.
std::string_view TakeWord(std::string_view& line)
{
    line.remove_prefix(std::min(line.find_first_not_of(BLANKS), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(BLANKS));
    line.remove_prefix(word.size());
    return word;
}

/// False: the file could not be read whole.
bool ReadText(const String& path, std::string& text)
{
    text.resize(LONGEST_FILE);
    std::ifstream file(path.str(), std::ios::binary);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return file.is_open() && !file.bad();
}

/// What tells that a file is still what it was.
struct STAMP
{
    std::filesystem::file_time_type written{};
    std::uintmax_t size = 0;

    bool IsMissing() const { return size == static_cast<std::uintmax_t>(-1); }
    bool operator==(const STAMP&) const = default;
};

STAMP StampOf(const String& path)
{
    std::error_code error; // one that is not there has times of its own
    const std::filesystem::path file(path.str());
    return {std::filesystem::last_write_time(file, error), std::filesystem::file_size(file, error)};
}

/// The file that was read last.
struct KEPT
{
    String path;
    STAMP stamp;
    std::shared_ptr<const NetDNSHosts> hosts;
};

std::mutex g_mutex;
KEPT g_kept; // guarded by g_mutex

} // namespace

NetDNSHosts::NetDNSHosts(std::string_view text)
{
    text = text.substr(0, LONGEST_FILE);
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        xAddLine(line.substr(0, line.find('#')));
    }
}

std::shared_ptr<const NetDNSHosts> NetDNSHosts::sGet(const String& path)
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    const STAMP stamp = StampOf(path);
    if (g_kept.hosts && g_kept.path.view() == path.view() && g_kept.stamp == stamp)
        return g_kept.hosts;
    std::string text;
    // One that is there and cannot be read may be read the next time: descriptors were short, for instance.
    const bool isSure = ReadText(path, text) || stamp.IsMissing();
    const bool isOld = stamp.written < std::filesystem::file_time_type::clock::now() - YOUNG;
    const auto hosts = std::make_shared<const NetDNSHosts>(text);
    g_kept = isSure && isOld ? KEPT{path, stamp, hosts} : KEPT();
    return hosts;
}

bool NetDNSHosts::Find(const String& name, NetDNS::RRTYPE type, NetDNSAnswer& answer) const
{
    if (type != NetDNS::RR_A && type != NetDNS::RR_AAAA && type != NetDNS::RR_PTR)
        return false;
    const auto found = m_entries.find(Folded(name.view()));
    if (found == m_entries.end())
        return false;
    std::vector<NetDNSAnswer::RECORD> records;
    for (const String& text : found->second) {
        NetIP address;
        const bool isAddress = address.Set(text);
        const NetDNS::RRTYPE own = !isAddress ? NetDNS::RR_PTR : address.IsIP4() ? NetDNS::RR_A : NetDNS::RR_AAAA;
        if (own == type)
            records.push_back({text});
    }
    answer.Give(std::move(records));
    return true;
}

void NetDNSHosts::xAddLine(std::string_view line)
{
    NetIP address;
    if (!address.Set(String(TakeWord(line))))
        return;
    const String reverse = address.GetTextReverseByteOrder() + (address.IsIP4() ? ".in-addr.arpa" : ".ip6.arpa");
    for (std::string_view name = TakeWord(line); !name.empty(); name = TakeWord(line)) {
        NetIP literal;
        if (literal.Set(String(name)))
            continue;
        m_entries[Folded(name)].push_back(address.GetText());
        m_entries[reverse.str()].push_back(String(name));
    }
}

} // namespace kqlib

#include "tools/kq/DnsCommand.h"

#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSCache.h"
#include "tools/kq/MessageTexts.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kq {

using namespace kqlib;

namespace {

struct OPTIONS
{
    std::string name;
    std::string server; ///< empty: the system's servers
    unsigned repeat = 1;
    bool json = false;
};

/// One type of look-up: its sub-command and what the resolver and the cache have for it.
struct TYPE
{
    const char* command;
    const char* help;
    bool (NetDNS::*lookUp)(const String&, Messages&);
    bool (NetDNS::*lookUpAt)(const String&, const String&, Messages&);
    ULONG (NetDNS::*getCount)() const;
    const String& (NetDNS::*getRecord)(ULONG) const;
    bool (NetDNSCache::*isCached)(const String&, VectorPtr<String>&); ///< null: mail exchangers
};

constexpr TYPE TYPES[] = {
    {"a", "Addresses of a host", &NetDNS::DoALookup, &NetDNS::DoALookup, &NetDNS::GetARecordCount, &NetDNS::GetARecord,
     &NetDNSCache::IsALookupCached},
    {"mx", "Mail exchangers of a domain", &NetDNS::DoMXLookup, &NetDNS::DoMXLookup, &NetDNS::GetMXRecordCount,
     &NetDNS::GetMXRecord, nullptr},
    {"ptr", "Names of an address (or of a name below in-addr.arpa)", &NetDNS::DoPTRLookup, &NetDNS::DoPTRLookup,
     &NetDNS::GetPTRRecordCount, &NetDNS::GetPTRRecord, &NetDNSCache::IsPtrLookupCached},
    {"txt", "Texts of a name", &NetDNS::DoTXTLookup, &NetDNS::DoTXTLookup, &NetDNS::GetTXTRecordCount,
     &NetDNS::GetTXTRecord, &NetDNSCache::IsTxtLookupCached},
    {"spf", "SPF records (type 99) of a domain", &NetDNS::DoSPFLookup, &NetDNS::DoSPFLookup, &NetDNS::GetSPFRecordCount,
     &NetDNS::GetSPFRecord, &NetDNSCache::IsSpfLookupCached},
};

bool IsMx(const TYPE& type)
{
    return type.isCached == nullptr;
}

/// What came of one look-up.
struct RESULT
{
    bool success = false;
    bool cached = false;
    double milliseconds = 0;
    std::vector<std::pair<ULONG, String>> records; ///< priority (0 but for mail exchangers) and text
    Messages msgs;
};

bool IsCached(const TYPE& type, NetDNSCache& cache, const String& name)
{
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    VectorPtr<String> texts;
    return IsMx(type) ? cache.IsMxLookupCached(name, exchangers) : (cache.*type.isCached)(name, texts);
}

RESULT LookUp(const TYPE& type, const String& name, const String& server, NetDNS& dns)
{
    RESULT result;
    result.cached = IsCached(type, *dns.GetCache(), name);
    const auto start = std::chrono::steady_clock::now();
    result.success =
        server.empty() ? (dns.*type.lookUp)(name, result.msgs) : (dns.*type.lookUpAt)(name, server, result.msgs);
    const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
    result.milliseconds = passed.count();
    for (ULONG i = 0; result.success && i < (dns.*type.getCount)(); ++i)
        result.records.emplace_back(IsMx(type) ? dns.GetMXRecordPriority(i) : 0, (dns.*type.getRecord)(i));
    return result;
}

void PrintResult(const TYPE& type, const RESULT& result)
{
    for (const auto& [priority, text] : result.records) {
        if (IsMx(type))
            std::printf("%lu ", priority);
        std::printf("%s\n", Printable(text).c_str());
    }
    for (ULONG i = 0; i < result.msgs.GetMessageCount(); ++i)
        std::printf("message %d: %s\n", result.msgs.Get(i), MessageText(result.msgs.Get(i)).c_str());
    std::printf("-- %s, %lu record(s), %s, %.3f ms\n", result.success ? "found" : "failed",
                static_cast<ULONG>(result.records.size()), result.cached ? "from the cache" : "from a server",
                result.milliseconds);
}

nlohmann::json ToJson(const TYPE& type, const RESULT& result)
{
    nlohmann::json records = nlohmann::json::array();
    for (const auto& [priority, text] : result.records) {
        if (IsMx(type))
            records.push_back({{"priority", priority}, {"name", text.str()}});
        else
            records.push_back(text.str());
    }
    return {{"success", result.success},
            {"cached", result.cached},
            {"milliseconds", result.milliseconds},
            {"records", records},
            {"messages", MessagesToJson(result.msgs)}};
}

/// The name to ask for: an address after "ptr" stands for its reverse name.
String QueryName(const TYPE& type, const String& given)
{
    NetIP address;
    // By the command's name: on Windows the address of a function of a DLL is not the same everywhere.
    if (std::string_view(type.command) == "ptr" && address.Set(given))
        return address.GetTextReverseByteOrder() + ".in-addr.arpa";
    return given;
}

bool RunLookUps(const TYPE& type, const OPTIONS& options)
{
    NetDNSCache cache;
    NetDNS dns(NetIP::LOOKUP_ANY, cache);
    const String name = QueryName(type, options.name);
    nlohmann::json lookups = nlohmann::json::array();
    bool success = true;
    for (unsigned i = 0; i < options.repeat; ++i) {
        const RESULT result = LookUp(type, name, options.server, dns);
        success = success && result.success;
        if (options.json)
            lookups.push_back(ToJson(type, result));
        else
            PrintResult(type, result);
    }
    if (options.json)
        PrintJson({{"type", type.command}, {"name", name.str()}, {"lookups", lookups}});
    return success;
}

bool RunServers(bool json)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    const bool found = dns.GetDNSServers();
    nlohmann::json servers = nlohmann::json::array();
    for (ULONG i = 0; i < dns.GetDNSServerCount(); ++i) {
        if (json)
            servers.push_back(dns.GetDNSServer(i).str());
        else
            std::printf("%s\n", Printable(dns.GetDNSServer(i)).c_str());
    }
    if (json)
        PrintJson({{"servers", servers}});
    else if (!found)
        std::printf("-- no DNS servers found\n");
    return found;
}

} // namespace

void AddDnsCommand(CLI::App& app, int& exitCode)
{
    CLI::App* const dns = app.add_subcommand("dns", "Asks DNS servers with the library's own resolver");
    dns->require_subcommand(1);
    const auto options = std::make_shared<OPTIONS>();
    for (const TYPE& type : TYPES) {
        CLI::App* const command = dns->add_subcommand(type.command, type.help);
        command->add_option("name", options->name, "What to look up")->required();
        command->add_option("--server", options->server, "Ask this server alone (default: the system's servers)");
        command->add_option("--repeat", options->repeat, "Look up this many times over one cache")
            ->check(CLI::Range(1U, 100000U));
        command->add_flag("--json", options->json, "Print one line of JSON");
        command->callback([options, &type, &exitCode] { exitCode = RunLookUps(type, *options) ? 0 : 1; });
    }
    CLI::App* const servers = dns->add_subcommand("servers", "Lists the DNS servers of this system");
    servers->add_flag("--json", options->json, "Print one line of JSON");
    servers->callback([options, &exitCode] { exitCode = RunServers(options->json) ? 0 : 1; });
}

} // namespace kq

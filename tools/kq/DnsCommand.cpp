#include "tools/kq/DnsCommand.h"

#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSCache.h"
#include "net/dns/NetDNSOptions.h"
#include "tools/kq/MessageTexts.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
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
    bool checked = false; ///< with NetDNSOptions
};

/// One type of look-up: its sub-command and what the resolver and the cache have for it.
struct TYPE
{
    const char* command;
    const char* help;
    bool (NetDNS::*lookUp)(const String&, Messages&);
    bool (NetDNS::*lookUpAt)(const String&, const String&, Messages&);
    ULONG (NetDNS::*getCount)() const;
    const String& (NetDNS::*getRecord)(ULONG) const;                  ///< null: services
    bool (NetDNSCache::*isCached)(const String&, VectorPtr<String>&); ///< null where options are needed, and for MX
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
    {"aaaa", "IPv6 addresses of a host (always with --checked)", &NetDNS::DoAAAALookup, &NetDNS::DoAAAALookup,
     &NetDNS::GetAAAARecordCount, &NetDNS::GetAAAARecord, nullptr},
    {"srv", "Hosts of a service: priority, weight, port, host (always with --checked)", &NetDNS::DoSRVLookup,
     &NetDNS::DoSRVLookup, &NetDNS::GetSRVRecordCount, nullptr, nullptr},
    {"spf", "SPF records (type 99) of a domain", &NetDNS::DoSPFLookup, &NetDNS::DoSPFLookup, &NetDNS::GetSPFRecordCount,
     &NetDNS::GetSPFRecord, &NetDNSCache::IsSpfLookupCached},
};

// By the commands' names: on Windows the address of a function of a DLL is not the same everywhere.
bool IsA(const TYPE& type, std::string_view command)
{
    return type.command == command;
}

bool HasPriority(const TYPE& type)
{
    return IsA(type, "mx") || IsA(type, "srv");
}

/// One record; what its type does not have is 0.
struct RECORD
{
    ULONG priority;
    ULONG weight;
    ULONG port;
    String text;
};

/// What came of one look-up.
struct RESULT
{
    bool success = false;
    bool cached = false;
    double milliseconds = 0;
    std::vector<RECORD> records;
    Messages msgs;
};

bool IsCached(const TYPE& type, NetDNSCache& cache, const String& name)
{
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    VectorPtr<String> texts;
    return IsA(type, "mx") ? cache.IsMxLookupCached(name, exchangers) : (cache.*type.isCached)(name, texts);
}

RECORD GetRecord(const TYPE& type, const NetDNS& dns, ULONG index)
{
    if (IsA(type, "mx"))
        return {dns.GetMXRecordPriority(index), 0, 0, dns.GetMXRecord(index)};
    if (!IsA(type, "srv"))
        return {0, 0, 0, (dns.*type.getRecord)(index)};
    const NetDNS::SRV_RECORD& record = dns.GetSRVRecord(index);
    return {record.priority, record.weight, record.port, record.name};
}

RESULT LookUp(const TYPE& type, const String& name, const String& server, NetDNS& dns)
{
    RESULT result;
    result.cached = dns.GetOptions() == nullptr && IsCached(type, *dns.GetCache(), name);
    const auto start = std::chrono::steady_clock::now();
    result.success =
        server.empty() ? (dns.*type.lookUp)(name, result.msgs) : (dns.*type.lookUpAt)(name, server, result.msgs);
    const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
    result.milliseconds = passed.count();
    result.cached = result.cached || dns.IsLastFromCache();
    for (ULONG i = 0; result.success && i < (dns.*type.getCount)(); ++i)
        result.records.push_back(GetRecord(type, dns, i));
    return result;
}

void PrintResult(const TYPE& type, const RESULT& result)
{
    for (const RECORD& record : result.records) {
        if (HasPriority(type))
            std::printf("%lu ", record.priority);
        if (IsA(type, "srv"))
            std::printf("%lu %lu ", record.weight, record.port);
        std::printf("%s\n", Printable(record.text).c_str());
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
    for (const RECORD& record : result.records) {
        if (!HasPriority(type)) {
            records.push_back(record.text.str());
            continue;
        }
        nlohmann::json fields = {{"priority", record.priority}, {"name", record.text.str()}};
        if (IsA(type, "srv")) {
            fields["weight"] = record.weight;
            fields["port"] = record.port;
        }
        records.push_back(fields);
    }
    return {{"success", result.success},
            {"cached", result.cached},
            {"milliseconds", result.milliseconds},
            {"records", records},
            {"messages", MessagesToJson(result.msgs)}};
}

/// The name to ask for: an address after "ptr" stands for its reverse name.
String QueryName(const TYPE& type, const String& given, bool checked)
{
    NetIP address;
    if (IsA(type, "ptr") && address.Set(given))
        return address.GetTextReverseByteOrder() + (checked && !address.IsIP4() ? ".ip6.arpa" : ".in-addr.arpa");
    return given;
}

bool RunLookUps(const TYPE& type, const OPTIONS& options)
{
    NetDNSCache cache;
    NetDNS dns(NetIP::LOOKUP_ANY, cache);
    const bool checked = options.checked || IsA(type, "aaaa") || IsA(type, "srv");
    if (checked)
        dns.SetOptions(NetDNSOptions());
    const String name = QueryName(type, options.name, checked);
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
        PrintJson({{"type", type.command},
                   {"name", name.str()},
                   {"checked", checked},
                   {"refused", dns.GetRefusedAnswers()},
                   {"lookups", lookups}});
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
        command->add_flag("--checked", options->checked,
                          "Believe only answers to the very question; whole texts, long answers, the hosts file");
        command->callback([options, &type, &exitCode] { exitCode = RunLookUps(type, *options) ? 0 : 1; });
    }
    CLI::App* const servers = dns->add_subcommand("servers", "Lists the DNS servers of this system");
    servers->add_flag("--json", options->json, "Print one line of JSON");
    servers->callback([options, &exitCode] { exitCode = RunServers(options->json) ? 0 : 1; });
}

} // namespace kq

#include "tools/kq/RulesCommand.h"

#include "common/EmailAddress.h"
#include "common/STRINGS.h"
#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSCache.h"
#include "net/ipcontrol/NetIPControlQuery.h"
#include "tools/kq/MessageTexts.h"
#include "tools/kq/RuleFile.h"
#include "tools/kq/RuleLint.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace kq {

using namespace kqlib;
using Entry = NetIPControlEntry;

namespace {

constexpr int EXIT_ALLOWED = 0;
constexpr int EXIT_DENIED = 1;
constexpr int EXIT_NO_FILE = 2;

struct OPTIONS
{
    std::string file;
    std::string key = "connection_rules";
    std::string peer;
    std::string local = "0.0.0.0";
    std::string sender;
    std::vector<std::string> recipients;
};

/// One connection, or one message, that the rules are tried on.
struct SUBJECT
{
    NetIP peer;
    NetIP local;
    bool isMail = false;
    EmailAddress sender;
    ADDRESSES recipients;
};

int Fail(const std::string& text)
{
    std::fprintf(stderr, "kq: %s\n", text.c_str());
    return EXIT_NO_FILE;
}

std::string Join(const std::vector<std::string>& items)
{
    std::string joined;
    for (const std::string& item : items)
        joined += (joined.empty() ? "" : ", ") + item;
    return joined;
}

/// What a name server says that decides a host rule, from the cache that the decision came from or filled.
std::string ExplainLookup(const Entry& rule, const SUBJECT& subject, NetDNSCache& cache)
{
    NetDNS dns(NetIP::LOOKUP_ANY, cache);
    Messages msgs;
    std::vector<std::string> found;
    if (rule.GetType() == Entry::ET_HOST) {
        Vector<NetIP> addresses;
        dns.ResolveHost(rule.GetHost(), false, addresses, msgs);
        for (const NetIP& address : addresses)
            found.push_back(address.GetText().str());
    } else {
        STRINGS names;
        dns.ResolveIP(subject.peer, names, msgs);
        for (const String& name : names)
            found.push_back(Printable(name));
    }
    const std::string what = rule.GetType() == Entry::ET_HOST ? "the host has " : "the peer is called ";
    if (!found.empty())
        return what + Join(found);
    return "look-up without result" + (msgs.GetMessageCount() > 0 ? ": " + MessageText(msgs.Get(0)) : std::string());
}

/// Why a rule matches or does not.
std::string Explain(const Entry& rule, const SUBJECT& subject, NetDNSCache& cache)
{
    const std::string peer = subject.peer.GetText().str();
    switch (rule.GetType()) {
    case Entry::ET_IP:
        return "peer " + peer;
    case Entry::ET_IPMASK:
        return "peer " + peer + " under the mask " + rule.GetSubnetMask().GetText().str();
    case Entry::ET_IPRANGE:
        return rule.GetIPLow() > rule.GetIPHigh() ? "the range is upside down" : "peer " + peer;
    case Entry::ET_ISLOCAL:
        return "peer " + peer + ", local " + subject.local.GetText().str();
    case Entry::ET_HOST:
    case Entry::ET_RHOST:
        return ExplainLookup(rule, subject, cache);
    case Entry::ET_SENDER:
    case Entry::ET_RCPT:
        return subject.isMail ? "mail addresses compared" : "passed over: a connection has no mail addresses";
    }
    return "unknown kind of rule";
}

bool DoesMatch(const NetIPControlQuery& query, const Entry& rule, const SUBJECT& subject)
{
    return subject.isMail ? query.DoesMatch(rule, subject.local, subject.peer, subject.sender, subject.recipients)
                          : query.DoesMatch(rule, subject.local, subject.peer);
}

/// Prints a line per rule up to the one that decides. Returns the exit code.
int PrintDecision(const FILERULES& rules, const SUBJECT& subject)
{
    NetDNSCache cache;
    const NetIPControlQuery query(cache);
    for (const FILERULE& item : rules) {
        const std::string place = item.where + ": " + Printable(String(item.text));
        if (!item.isRule) {
            std::printf("%s: left out, not a rule\n", place.c_str());
            continue;
        }
        const bool matches = DoesMatch(query, item.rule, subject);
        std::printf("%s: %s (%s)\n", place.c_str(), matches ? "matches" : "no match",
                    Explain(item.rule, subject, cache).c_str());
        if (!matches)
            continue;
        std::printf("%s, by %s\n", item.rule.GetAllow() ? "allowed" : "denied", item.where.c_str());
        return item.rule.GetAllow() ? EXIT_ALLOWED : EXIT_DENIED;
    }
    std::printf("allowed, for no rule matches\n");
    return EXIT_ALLOWED;
}

int RunCheck(const OPTIONS& options)
{
    SUBJECT subject;
    if (!subject.peer.Set(String(options.peer)))
        return Fail("--peer: not an address: " + options.peer);
    if (!subject.local.Set(String(options.local)))
        return Fail("--local: not an address: " + options.local);
    subject.isMail = !options.sender.empty() || !options.recipients.empty();
    subject.sender = EmailAddress(String(options.sender));
    for (const std::string& recipient : options.recipients)
        subject.recipients.Add(EmailAddress(String(recipient)));
    FILERULES rules;
    std::string error;
    if (!ReadRuleFile(options.file, options.key, rules, error))
        return Fail(options.file + ": " + error);
    return PrintDecision(rules, subject);
}

int RunLint(const OPTIONS& options)
{
    FILERULES rules;
    std::string error;
    if (!ReadRuleFile(options.file, options.key, rules, error))
        return Fail(options.file + ": " + error);
    int errors = 0;
    int warnings = 0;
    for (const REMARK& remark : LintRules(rules)) {
        ++(remark.isError ? errors : warnings);
        std::printf("%s%s%s: %s\n", remark.where.c_str(), remark.where.empty() ? "" : ": ",
                    remark.isError ? "error" : "warning", remark.text.c_str());
    }
    std::printf("-- %lu rule(s), %d error(s), %d warning(s)\n", static_cast<ULONG>(rules.size()), errors, warnings);
    return errors == 0 ? 0 : 1;
}

void AddFileOptions(CLI::App& command, OPTIONS& options)
{
    command.add_option("file", options.file, "Rules, one a line (\"#\": comment), or a JSON file of settings")
        ->required();
    command.add_option("--key", options.key, "Key of the list in a JSON file")->capture_default_str();
}

} // namespace

void AddRulesCommand(CLI::App& app, int& exitCode)
{
    CLI::App* const rules = app.add_subcommand("rules", "Tries out and looks through address rules");
    rules->require_subcommand(1);
    const auto options = std::make_shared<OPTIONS>();
    CLI::App* const check = rules->add_subcommand("check", "Says which rule decides about a client, and why");
    AddFileOptions(*check, *options);
    check->add_option("--peer", options->peer, "The client's address")->required();
    check->add_option("--local", options->local, "The server's own address of the connection")->capture_default_str();
    check->add_option("--sender", options->sender, "Sender of a message");
    check->add_option("--rcpt", options->recipients, "Recipients of a message");
    check->callback([options, &exitCode] { exitCode = RunCheck(*options); });
    CLI::App* const lint = rules->add_subcommand("lint", "Finds errors, and what surprises people");
    AddFileOptions(*lint, *options);
    lint->callback([options, &exitCode] { exitCode = RunLint(*options); });
}

} // namespace kq

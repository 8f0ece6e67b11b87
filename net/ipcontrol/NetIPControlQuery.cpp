#include "net/ipcontrol/NetIPControlQuery.h"

#include "common/EmailAddress.h"
#include "common/STRINGS.h"
#include "common/Vector.h"
#include "net/dns/NetDNS.h"
#include "net/ipcontrol/NetIPControl.h"
#include "net/ipcontrol/NetIPControlIndex.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace kqlib {

NetIPControlQuery::NetIPControlQuery(NetDNSCache& cache)
    : m_cache(cache)
{
}

NetIPControlQuery::~NetIPControlQuery() = default;

bool NetIPControlQuery::IsAllowed(const NetIPControl& rules, const NetIP& local, const NetIP& peer) const
{
    return xIsAllowed(rules, local, peer, nullptr);
}

bool NetIPControlQuery::IsDenied(const NetIPControl& rules, const NetIP& local, const NetIP& peer) const
{
    return !xIsAllowed(rules, local, peer, nullptr);
}

bool NetIPControlQuery::IsAllowed(const NetIPControl& rules, const NetIP& local, const NetIP& peer,
                                  const EmailAddress& sender, const ADDRESSES& recipients) const
{
    const MAIL mail{sender, recipients};
    return xIsAllowed(rules, local, peer, &mail);
}

bool NetIPControlQuery::IsDenied(const NetIPControl& rules, const NetIP& local, const NetIP& peer,
                                 const EmailAddress& sender, const ADDRESSES& recipients) const
{
    return !IsAllowed(rules, local, peer, sender, recipients);
}

bool NetIPControlQuery::DoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer) const
{
    return xDoesMatch(rule, local, peer, nullptr);
}

bool NetIPControlQuery::DoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer,
                                  const EmailAddress& sender, const ADDRESSES& recipients) const
{
    const MAIL mail{sender, recipients};
    return xDoesMatch(rule, local, peer, &mail);
}

bool NetIPControlQuery::xIsAllowed(const NetIPControl& rules, const NetIP& local, const NetIP& peer,
                                   const MAIL* mail) const
{
    const NetIPControlIndex* const index = NetIPControlIndex::sKnows(peer) ? rules.xGetIndex() : nullptr;
    return index == nullptr ? xWalk(rules, local, peer, mail) : xDecideByIndex(rules, *index, local, peer, mail);
}

bool NetIPControlQuery::xWalk(const NetIPControl& rules, const NetIP& local, const NetIP& peer, const MAIL* mail) const
{
    const ULONG count = rules.GetCount();
    for (ULONG index = 0; index < count; ++index)
        if (xDoesMatch(rules.Get(index), local, peer, mail))
            return rules.Get(index).GetAllow();
    return true;
}

/// As the walk, and with the look-ups that it makes: rules with names are asked in their order, and none of those
/// behind the first rule that matches by addresses.
bool NetIPControlQuery::xDecideByIndex(const NetIPControl& rules, const NetIPControlIndex& index, const NetIP& local,
                                       const NetIP& peer, const MAIL* mail) const
{
    const std::uint32_t first = index.FindFirst(local, peer);
    for (const std::uint32_t asked : index.GetAsked()) {
        if (asked >= first)
            break;
        if (xDoesMatch(rules.Get(asked), local, peer, mail))
            return rules.Get(asked).GetAllow();
    }
    return first == NetIPControlIndex::NONE || index.IsAllowing(first);
}

bool NetIPControlQuery::xDoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer,
                                   const MAIL* mail) const
{
    const auto isMeant = [&rule](const EmailAddress& address) {
        return address.GetAddress().ApproxMatchesI(rule.GetAddress());
    };
    switch (rule.GetType()) {
    case NetIPControlEntry::ET_IP:
        return peer == rule.GetIP();
    case NetIPControlEntry::ET_IPMASK:
        return rule.GetIP().IsSame(peer, rule.GetSubnetMask());
    case NetIPControlEntry::ET_IPRANGE:
        return peer >= rule.GetIPLow() && peer <= rule.GetIPHigh();
    case NetIPControlEntry::ET_HOST:
        return xDoesHostMatch(rule, peer);
    case NetIPControlEntry::ET_RHOST:
        return xDoesReverseHostMatch(rule, peer);
    case NetIPControlEntry::ET_ISLOCAL:
        return peer == local;
    case NetIPControlEntry::ET_SENDER:
        return mail != nullptr && isMeant(mail->sender);
    case NetIPControlEntry::ET_RCPT:
        return mail != nullptr && std::any_of(mail->recipients.begin(), mail->recipients.end(), isMeant);
    }
    return false;
}

bool NetIPControlQuery::xDoesHostMatch(const NetIPControlEntry& rule, const NetIP& peer) const
{
    NetDNS resolver(NetIP::LOOKUP_ANY, m_cache);
    Vector<NetIP> addresses;
    Messages messages;
    // An address literal is refused here: the rule names a host.
    if (!resolver.ResolveHost(rule.GetHost(), false, addresses, messages))
        return false;
    return std::find(addresses.begin(), addresses.end(), peer) != addresses.end();
}

bool NetIPControlQuery::xDoesReverseHostMatch(const NetIPControlEntry& rule, const NetIP& peer) const
{
    NetDNS resolver(NetIP::LOOKUP_ANY, m_cache);
    STRINGS names;
    Messages messages;
    if (!resolver.ResolveIP(peer, names, messages))
        return false;
    // The owner of the address wrote the name: it is plain text to every rule, and never a pattern.
    const String& pattern = rule.GetHost();
    const bool hasWildcards = pattern.view().find_first_of("*?") != std::string_view::npos;
    return std::any_of(names.begin(), names.end(), [&](const String& name) {
        return hasWildcards ? pattern.ApproxMatchesI(name) : pattern.MatchesI(name);
    });
}

} // namespace kqlib

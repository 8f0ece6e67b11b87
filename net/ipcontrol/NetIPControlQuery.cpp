#include "net/ipcontrol/NetIPControlQuery.h"

#include "common/EmailAddress.h"
#include "common/STRINGS.h"
#include "common/Vector.h"
#include "net/dns/NetDNS.h"
#include "net/ipcontrol/NetIPControl.h"

#include <algorithm>

namespace kqlib {

NetIPControlQuery::NetIPControlQuery(NetDNSCache& cache)
    : m_cache(cache)
{
}

NetIPControlQuery::~NetIPControlQuery() = default;

bool NetIPControlQuery::IsAllowed(const NetIPControl& rules, const NetIP& local, const NetIP& peer) const
{
    return xEvaluate(rules, local, peer) != VERDICT::DENY;
}

bool NetIPControlQuery::IsDenied(const NetIPControl& rules, const NetIP& local, const NetIP& peer) const
{
    return xEvaluate(rules, local, peer) == VERDICT::DENY;
}

bool NetIPControlQuery::IsAllowed(const NetIPControl& rules, const NetIP& local, const NetIP& peer,
                                  const EmailAddress& sender, const ADDRESSES& recipients) const
{
    return xEvaluate(rules, local, peer, sender, recipients) != VERDICT::DENY;
}

bool NetIPControlQuery::IsDenied(const NetIPControl& rules, const NetIP& local, const NetIP& peer,
                                 const EmailAddress& sender, const ADDRESSES& recipients) const
{
    return xEvaluate(rules, local, peer, sender, recipients) == VERDICT::DENY;
}

bool NetIPControlQuery::DoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer) const
{
    return xDoesMatch(rule, local, peer);
}

bool NetIPControlQuery::DoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer,
                                  const EmailAddress& sender, const ADDRESSES& recipients) const
{
    return xDoesMatch(rule, local, peer) || xDoesMatch(rule, sender, recipients);
}

NetIPControlQuery::VERDICT NetIPControlQuery::xEvaluate(const NetIPControl& rules, const NetIP& local,
                                                        const NetIP& peer) const
{
    const ULONG count = rules.GetCount();
    for (ULONG index = 0; index < count; ++index)
        if (DoesMatch(rules.Get(index), local, peer))
            return rules.Get(index).GetAllow() ? VERDICT::ALLOW : VERDICT::DENY;
    return VERDICT::NO_MATCH;
}

NetIPControlQuery::VERDICT NetIPControlQuery::xEvaluate(const NetIPControl& rules, const NetIP& local,
                                                        const NetIP& peer, const EmailAddress& sender,
                                                        const ADDRESSES& recipients) const
{
    const ULONG count = rules.GetCount();
    for (ULONG index = 0; index < count; ++index)
        if (DoesMatch(rules.Get(index), local, peer, sender, recipients))
            return rules.Get(index).GetAllow() ? VERDICT::ALLOW : VERDICT::DENY;
    return VERDICT::NO_MATCH;
}

bool NetIPControlQuery::xDoesMatch(const NetIPControlEntry& rule, const NetIP& local, const NetIP& peer) const
{
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
    case NetIPControlEntry::ET_RCPT:
        return false;
    }
    return false;
}

bool NetIPControlQuery::xDoesMatch(const NetIPControlEntry& rule, const EmailAddress& sender,
                                   const ADDRESSES& recipients) const
{
    if (rule.GetType() == NetIPControlEntry::ET_SENDER)
        return sender.GetAddress().ApproxMatchesI(rule.GetAddress());
    if (rule.GetType() == NetIPControlEntry::ET_RCPT)
        return std::any_of(recipients.begin(), recipients.end(), [&](const EmailAddress& recipient) {
            return recipient.GetAddress().ApproxMatchesI(rule.GetAddress());
        });
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
    return std::any_of(names.begin(), names.end(),
                       [&](const String& name) { return rule.GetHost().ApproxMatchesI(name); });
}

} // namespace kqlib

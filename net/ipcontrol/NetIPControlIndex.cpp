#include "net/ipcontrol/NetIPControlIndex.h"

#include "net/ipcontrol/NetIPControl.h"

#include <algorithm>

namespace kqlib {

namespace {

constexpr int IP4_SIZE = 4;
constexpr int IP6_SIZE = 16;

bool IsZero(const unsigned char* first, const unsigned char* end)
{
    return std::all_of(first, end, [](unsigned char byte) { return byte == 0; });
}

} // namespace

NetIPControlIndex::NetIPControlIndex(const NetIPControl& rules)
    : m_isAllowing(rules.GetCount())
{
    BUILDERS builders;
    for (auto place = static_cast<std::uint32_t>(rules.GetCount()); place-- > 0;) {
        m_isAllowing[place] = rules.Get(place).GetAllow();
        xAdd(builders, rules.Get(place), place);
    }
    std::reverse(m_asked.begin(), m_asked.end());
    m_ip4 = IP4LINE(builders.ip4);
    m_ip6 = IP6LINE(builders.ip6);
}

void NetIPControlIndex::xAdd(BUILDERS& builders, const NetIPControlEntry& rule, std::uint32_t place)
{
    switch (rule.GetType()) {
    case NetIPControlEntry::ET_IP:
    case NetIPControlEntry::ET_IPMASK:
    case NetIPControlEntry::ET_IPRANGE:
        if (!xsAddAddresses(builders, rule, place))
            m_asked.push_back(place);
        return;
    case NetIPControlEntry::ET_ISLOCAL:
        m_local = place;
        return;
    case NetIPControlEntry::ET_HOST:
    case NetIPControlEntry::ET_RHOST:
    case NetIPControlEntry::ET_SENDER:
    case NetIPControlEntry::ET_RCPT:
        m_asked.push_back(place);
        return;
    }
    // A type that is none of these never matches.
}

/// False: the rule has an address that the index does not know.
bool NetIPControlIndex::xsAddAddresses(BUILDERS& builders, const NetIPControlEntry& rule, std::uint32_t place)
{
    const bool isOne = rule.GetType() == NetIPControlEntry::ET_IP;
    if (!sKnows(rule.GetIP()) || (!isOne && !sKnows(rule.GetIPHigh())))
        return false;
    if (rule.GetType() == NetIPControlEntry::ET_IPMASK)
        xsAddMask(builders, rule.GetIP(), rule.GetSubnetMask(), place);
    else
        xsAddRange(builders, rule.GetIPLow(), isOne ? rule.GetIP() : rule.GetIPHigh(), place);
    return true;
}

/// In the order of addresses those of IPv4 come before those of IPv6, so that a range may have a part of both.
void NetIPControlIndex::xsAddRange(BUILDERS& builders, const NetIP& low, const NetIP& high, std::uint32_t place)
{
    if (low > high)
        return;
    if (low.IsIP4())
        builders.ip4.AddRange(xsKey4(low), high.IsIP4() ? xsKey4(high) : ~0U, place);
    if (!high.IsIP4())
        builders.ip6.AddRange(low.IsIP4() ? IP6KEY() : xsKey6(low), xsKey6(high), place);
}

/// A mask without a bit matches every address, whatever its type. Otherwise all three are of one type.
void NetIPControlIndex::xsAddMask(BUILDERS& builders, const NetIP& ip, const NetIP& mask, std::uint32_t place)
{
    const bool matchesAll = IsZero(mask.GetBytes(), mask.GetBytes() + IP6_SIZE);
    if (!matchesAll && ip.GetType() != mask.GetType())
        return;
    if (matchesAll || ip.IsIP4())
        builders.ip4.AddMask(xsKey4(ip), xsKey4(mask), place);
    if (matchesAll || !ip.IsIP4())
        builders.ip6.AddMask(xsKey6(ip), xsKey6(mask), place);
}

bool NetIPControlIndex::sKnows(const NetIP& ip)
{
    return ip.GetType() == NetIP::IP_6 || (ip.IsIP4() && IsZero(ip.GetBytes() + IP4_SIZE, ip.GetBytes() + IP6_SIZE));
}

std::uint32_t NetIPControlIndex::FindFirst(const NetIP& local, const NetIP& peer) const
{
    const std::uint32_t first = peer.IsIP4() ? m_ip4.FindFirst(xsKey4(peer)) : m_ip6.FindFirst(xsKey6(peer));
    return m_local < first && peer == local ? m_local : first;
}

std::uint64_t NetIPControlIndex::xsNumber(const unsigned char* bytes, int count)
{
    std::uint64_t number = 0;
    for (int index = 0; index < count; ++index)
        number = (number << 8) | bytes[index];
    return number;
}

std::uint32_t NetIPControlIndex::xsKey4(const NetIP& ip)
{
    return static_cast<std::uint32_t>(xsNumber(ip.GetBytes(), IP4_SIZE));
}

NetIPControlIndex::IP6KEY NetIPControlIndex::xsKey6(const NetIP& ip)
{
    return {xsNumber(ip.GetBytes(), IP6_SIZE / 2), xsNumber(ip.GetBytes() + IP6_SIZE / 2, IP6_SIZE / 2)};
}

} // namespace kqlib

#include "tools/kq/RuleLint.h"

#include "tools/kq/MessageTexts.h"

#include <algorithm>

namespace kq {

using namespace kqlib;
using Entry = NetIPControlEntry;

namespace {

bool IsRangeUpsideDown(const Entry& rule)
{
    return rule.GetType() == Entry::ET_IPRANGE && rule.GetIPLow() > rule.GetIPHigh();
}

bool HasAnyBit(const NetIP& mask)
{
    return mask != NetIP::sGetAnyIP(mask.GetType());
}

/// Matches every address, of either kind.
bool MatchesAll(const Entry& rule)
{
    return rule.GetType() == Entry::ET_IPMASK && !HasAnyBit(rule.GetSubnetMask());
}

/// The addresses from low to high that a rule matches, when they are one run.
struct SPAN
{
    NetIP low;
    NetIP high;
};

std::size_t AddressSize(const NetIP& ip)
{
    return ip.IsIP4() ? 4 : 16;
}

/// True when the set bits of a mask come first, as those of a network do.
bool IsNetworkMask(const NetIP& mask)
{
    bool ended = false;
    for (std::size_t bit = 0; bit < AddressSize(mask) * 8; ++bit) {
        const bool isSet = (mask.GetBytes()[bit / 8] >> (7 - bit % 8) & 1) != 0;
        if (isSet && ended)
            return false;
        ended = ended || !isSet;
    }
    return true;
}

SPAN SpanOfMask(const NetIP& network, const NetIP& mask)
{
    unsigned char low[16] = {};
    unsigned char high[16] = {};
    for (std::size_t i = 0; i < AddressSize(network); ++i) {
        low[i] = static_cast<unsigned char>(network.GetBytes()[i] & mask.GetBytes()[i]);
        high[i] = static_cast<unsigned char>(low[i] | (mask.GetBytes()[i] ^ 0xFF));
    }
    SPAN span;
    span.low.Set(network.GetType(), low);
    span.high.Set(network.GetType(), high);
    return span;
}

bool GetSpan(const Entry& rule, SPAN& span)
{
    switch (rule.GetType()) {
    case Entry::ET_IP:
        span = {rule.GetIP(), rule.GetIP()};
        return true;
    case Entry::ET_IPMASK:
        if (rule.GetIP().GetType() != rule.GetSubnetMask().GetType() || !IsNetworkMask(rule.GetSubnetMask()))
            return false;
        span = SpanOfMask(rule.GetIP(), rule.GetSubnetMask());
        return true;
    case Entry::ET_IPRANGE:
        span = {rule.GetIPLow(), rule.GetIPHigh()};
        return !IsRangeUpsideDown(rule);
    default:
        return false;
    }
}

bool IsMailRule(const Entry& rule)
{
    return rule.GetType() == Entry::ET_SENDER || rule.GetType() == Entry::ET_RCPT;
}

/// True when the earlier rule matches whatever the later one does.
bool DoesCover(const Entry& earlier, const Entry& later)
{
    if (MatchesAll(earlier))
        return true;
    SPAN wide;
    SPAN narrow;
    if (GetSpan(earlier, wide) && GetSpan(later, narrow) && !MatchesAll(later))
        return wide.low <= narrow.low && narrow.high <= wide.high;
    if (earlier.GetType() != later.GetType())
        return false;
    if (earlier.GetType() == Entry::ET_ISLOCAL)
        return true;
    const bool isText =
        IsMailRule(earlier) || earlier.GetType() == Entry::ET_HOST || earlier.GetType() == Entry::ET_RHOST;
    if (isText)
        return earlier.GetHost().MatchesI(later.GetHost()) ||
               (earlier.GetHost() == "*" && earlier.GetType() != Entry::ET_HOST);
    return earlier.GetType() == Entry::ET_IPMASK && earlier.GetIP() == later.GetIP() &&
           earlier.GetSubnetMask() == later.GetSubnetMask();
}

/// Collects remarks about one list.
class LINT
{
public:
    explicit LINT(const FILERULES& rules)
        : m_rules(rules)
    {
    }

    std::vector<REMARK> Run()
    {
        for (std::size_t i = 0; i < m_rules.size(); ++i) {
            if (!m_rules[i].isRule) {
                xAdd(true, m_rules[i].where, "not a rule: " + Printable(String(m_rules[i].text)));
                continue;
            }
            xCheckErrors(m_rules[i]);
            xCheckReach(i);
            xCheckRule(m_rules[i]);
        }
        xCheckEnd();
        return m_remarks;
    }

private:
    void xAdd(bool isError, const std::string& where, const std::string& text)
    {
        m_remarks.push_back({isError, where, text});
    }

    void xCheckErrors(const FILERULE& checked)
    {
        Messages messages;
        checked.rule.CheckErrors(messages);
        for (ULONG i = 0; i < messages.GetMessageCount(); ++i)
            xAdd(true, checked.where, std::to_string(messages.Get(i)) + ", " + MessageText(messages.Get(i)));
        if (IsRangeUpsideDown(checked.rule))
            xAdd(false, checked.where, "a range upside down matches nobody");
    }

    void xCheckReach(std::size_t index)
    {
        const auto first = m_rules.begin();
        const auto last = first + static_cast<std::ptrdiff_t>(index);
        const auto found = std::find_if(first, last, [&](const FILERULE& earlier) {
            return earlier.isRule && DoesCover(earlier.rule, m_rules[index].rule);
        });
        if (found != last)
            xAdd(false, m_rules[index].where,
                 "can never be reached: " + found->where + ", " + Printable(String(found->text)) +
                     ", matches first whatever this one would");
    }

    void xCheckRule(const FILERULE& checked)
    {
        const Entry& rule = checked.rule;
        if (rule.GetType() == Entry::ET_RHOST && rule.GetAllow())
            xAdd(false, checked.where,
                 "trusts reverse names: who owns an address block writes them, and can name himself so");
        if (rule.GetType() == Entry::ET_HOST && NetIP().Set(rule.GetHost()))
            xAdd(false, checked.where, "matches nobody: an address is no host name (use ip=)");
        if (rule.GetType() != Entry::ET_IPMASK || !HasAnyBit(rule.GetSubnetMask()))
            return;
        if (rule.GetIP().GetType() != rule.GetSubnetMask().GetType())
            xAdd(false, checked.where, "matches nobody: address and mask are of different kinds");
        else if (!IsNetworkMask(rule.GetSubnetMask()))
            xAdd(false, checked.where, "the mask has gaps: it is no network's");
    }

    /// What no rule matches is allowed. A list that only or finally allows therefore allows everybody.
    void xCheckEnd()
    {
        const auto isRule = [](const FILERULE& item) { return item.isRule; };
        const auto isAllow = [](const FILERULE& item) { return item.isRule && item.rule.GetAllow(); };
        const auto isAll = [](const FILERULE& item) { return item.isRule && MatchesAll(item.rule); };
        if (std::none_of(m_rules.begin(), m_rules.end(), isRule))
            xAdd(false, "", "no rules: everybody is allowed, and as a list of exemptions it lifts every block");
        else if (std::any_of(m_rules.begin(), m_rules.end(), isAllow) &&
                 std::none_of(m_rules.begin(), m_rules.end(), isAll))
            xAdd(false, "",
                 "no final rule: whom no rule matches is allowed; a list that names those who may come, or exemptions, "
                 "ends with -ipmask=0.0.0.0/0.0.0.0");
    }

    const FILERULES& m_rules;
    std::vector<REMARK> m_remarks;
};

} // namespace

std::vector<REMARK> LintRules(const FILERULES& rules)
{
    return LINT(rules).Run();
}

} // namespace kq

#include "net/ipcontrol/NetIPControlEntry.h"

#include "common/EmailAddress.h"
#include "common/SettingsTransportSet.h"

#include <array>

namespace kqlib {

namespace {

constexpr String::size_type SHORTEST_RULE = 4;
const char* const ENTRY_KEY = "entry";
const char* const LOCAL_KEYWORD = "islocal";

/// Keywords in the order in which they are compared; their places are the values of ENTRYTYPE.
constexpr std::array<const char*, 8> KEYWORDS = {"ip", "ipmask", "iprange", "host", "rhost", nullptr, "sender", "rcpt"};

bool IsTextType(NetIPControlEntry::ENTRYTYPE type)
{
    return type == NetIPControlEntry::ET_HOST || type == NetIPControlEntry::ET_RHOST ||
           type == NetIPControlEntry::ET_SENDER || type == NetIPControlEntry::ET_RCPT;
}

} // namespace

NetIPControlEntry::NetIPControlEntry()
{
    xReset();
}

void NetIPControlEntry::Reset()
{
    xReset();
}

void NetIPControlEntry::xReset()
{
    m_allow = true;
    m_type = ET_IP;
    m_ip.Reset();
    m_ipHigh.Set("255.255.255.255");
    m_text.clear();
}

SettingsTransferable* NetIPControlEntry::Spawn(bool copy) const
{
    return copy ? new NetIPControlEntry(*this) : new NetIPControlEntry();
}

void NetIPControlEntry::SetAllowAll()
{
    Reset();
    m_type = ET_IPMASK;
    m_ip = NetIP();
    m_ipHigh = NetIP();
    m_allow = true;
}

void NetIPControlEntry::SetDenyAll()
{
    SetAllowAll();
    m_allow = false;
}

bool NetIPControlEntry::SetByString(const String& text)
{
    Reset();
    if (text.size() < SHORTEST_RULE || (text[0] != '+' && text[0] != '-'))
        return false;
    // The sign counts even when the rest turns out not to be a rule.
    m_allow = text[0] == '+';
    if (text.substr(1).MatchesI(LOCAL_KEYWORD)) {
        m_type = ET_ISLOCAL;
        return true;
    }
    const String::size_type equals = text.find('=', 1);
    if (equals == String::npos || equals == 1 || equals + 1 == text.size())
        return false;
    const String keyword = text.substr(1, equals - 1);
    const String value = text.substr(equals + 1);
    for (std::uint32_t index = 0; index < KEYWORDS.size(); ++index) {
        if (KEYWORDS[index] == nullptr || !keyword.MatchesI(KEYWORDS[index]))
            continue;
        const auto type = static_cast<ENTRYTYPE>(index);
        if (type == ET_IP)
            return m_ip.Set(value);
        if (type == ET_IPMASK)
            return xSetAddressPair(value, '/', type);
        if (type == ET_IPRANGE)
            return xSetAddressPair(value, '-', type);
        m_text = value;
        m_type = type;
        return true;
    }
    return false;
}

bool NetIPControlEntry::xSetAddressPair(const String& value, char separator, ENTRYTYPE type)
{
    const String::size_type place = value.find(separator);
    if (place == String::npos || !m_ip.Set(value.substr(0, place)))
        return false;
    if (!m_ipHigh.Set(value.substr(place + 1)))
        return false;
    m_type = type;
    return true;
}

String NetIPControlEntry::GetAsString() const
{
    String text = m_allow ? "+" : "-";
    if (m_type == ET_ISLOCAL)
        return text + LOCAL_KEYWORD;
    if (m_type >= KEYWORDS.size())
        return text;
    text += KEYWORDS[m_type];
    text += '=';
    if (IsTextType(m_type))
        return text + m_text;
    text += m_ip.GetText();
    if (m_type == ET_IPMASK)
        text += "/" + m_ipHigh.GetText();
    if (m_type == ET_IPRANGE)
        text += "-" + m_ipHigh.GetText();
    return text;
}

String NetIPControlEntry::GetDisplayText() const
{
    const String sign = m_allow ? "+" : "-";
    switch (m_type) {
    case ET_IP:
        return sign + m_ip.GetText();
    case ET_IPMASK:
        return sign + m_ip.GetText() + "/" + m_ipHigh.GetText();
    case ET_IPRANGE:
        return sign + m_ip.GetText() + " -> " + m_ipHigh.GetText();
    case ET_HOST:
        return sign + "Host = " + m_text;
    case ET_RHOST:
        return sign + "Reverse Lookup = " + m_text;
    case ET_ISLOCAL:
        return sign + "Local IP Addresses";
    case ET_SENDER:
        return sign + "Sender = " + m_text;
    case ET_RCPT:
        return sign + "Recipient(s) = " + m_text;
    }
    return sign;
}

bool NetIPControlEntry::IsSame(const SettingsTransferable& other) const
{
    const auto* entry = dynamic_cast<const NetIPControlEntry*>(&other);
    return entry != nullptr && IsSame(*entry);
}

bool NetIPControlEntry::IsSame(const NetIPControlEntry& other) const
{
    return m_allow == other.m_allow && m_type == other.m_type && m_ip == other.m_ip && m_ipHigh == other.m_ipHigh &&
           m_text == other.m_text;
}

bool NetIPControlEntry::xWriteTo(SettingsTransportSet& set) const
{
    return set.AddString(ENTRY_KEY, GetDisplayText());
}

bool NetIPControlEntry::xReadFrom(const SettingsTransportSet& set)
{
    String text;
    // A text that does not parse leaves what SetByString leaves; it is no failure of the settings.
    if (set.GetString(ENTRY_KEY, text))
        SetByString(text);
    return true;
}

void NetIPControlEntry::xCheckErrors(Messages& messages) const
{
    if (m_type == ET_IPRANGE && m_ip > m_ipHigh)
        messages.AddMessage(MSG_RANGE_UPSIDE_DOWN);
    else if (m_type == ET_HOST && m_text.empty())
        messages.AddMessage(MSG_HOST_EMPTY);
    else if (m_type == ET_RHOST && m_text.empty())
        messages.AddMessage(MSG_REVERSE_HOST_EMPTY);
    else if (m_type == ET_SENDER && EmailAddress(m_text).IsAddressValid())
        messages.AddMessage(MSG_SENDER_IS_ADDRESS);
    else if (m_type == ET_RCPT && EmailAddress(m_text).IsAddressValid())
        messages.AddMessage(MSG_RECIPIENT_IS_ADDRESS);
}

} // namespace kqlib

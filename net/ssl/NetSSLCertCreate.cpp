#include "net/ssl/NetSSLCertCreate.h"

#include "common/CountryList.h"
#include "common/SettingsTransportSet.h"

namespace kqlib {

namespace {

constexpr SLONG8 DEFAULT_DAYS = 730;
constexpr std::uint32_t DEFAULT_BITS = 2048;
constexpr ULONG MAX_SEED_SIZE = 2000;

constexpr const char* FORBIDDEN = "<>~!#$%^*\\/?,&\r\n\t";
/// Names may hold no "@" either.
constexpr const char* FORBIDDEN_IN_NAMES = "<>~!#$%^*\\/?,&\r\n\t@";

bool IsTextValid(const String& text, const char* forbidden)
{
    return !text.empty() && text.FindFirstCharI(forbidden) == String::npos;
}

bool IsCountryValid(const String& country)
{
    ULONG number = 0;
    return IsTextValid(country, FORBIDDEN) && CountryList::sLookupCode(country, number);
}

bool IsExpiryValid(const TimePos& expire)
{
    const TimePos now = TimePos::sNow();
    return expire.GetDaysBetween(now) != 0 && now < expire;
}

} // namespace

NetSSLCertCreate::NetSSLCertCreate()
{
    xReset();
}

void NetSSLCertCreate::Reset()
{
    xReset();
}

void NetSSLCertCreate::xReset()
{
    for (String* text : {&m_name, &m_commonName, &m_unit, &m_organization, &m_email, &m_city, &m_state, &m_country})
        text->clear();
    m_expire.SetNow();
    m_expire.OffsetByDays(DEFAULT_DAYS);
    m_bits = DEFAULT_BITS;
    m_seed.ResetDeleteMemory();
}

SettingsTransferable* NetSSLCertCreate::Spawn(bool copy) const
{
    return copy ? new NetSSLCertCreate(*this) : new NetSSLCertCreate();
}

bool NetSSLCertCreate::IsSame(const SettingsTransferable& other) const
{
    const auto* create = dynamic_cast<const NetSSLCertCreate*>(&other);
    return create != nullptr && IsSame(*create);
}

bool NetSSLCertCreate::IsSame(const NetSSLCertCreate& other) const
{
    return m_name == other.m_name && m_commonName == other.m_commonName && m_unit == other.m_unit &&
           m_organization == other.m_organization && m_email == other.m_email && m_city == other.m_city &&
           m_state == other.m_state && m_country == other.m_country && m_expire == other.m_expire &&
           m_bits == other.m_bits && m_seed == other.m_seed;
}

bool NetSSLCertCreate::xWriteTo(SettingsTransportSet& set) const
{
    bool written = set.AddString("name", m_name);
    written = set.AddString("commonname", m_commonName) && written;
    written = set.AddString("unit", m_unit) && written;
    written = set.AddString("organization", m_organization) && written;
    written = set.AddString("email", m_email) && written;
    written = set.AddString("city", m_city) && written;
    written = set.AddString("state", m_state) && written;
    written = set.AddString("country", m_country) && written;
    written = set.AddTimePos("expire", m_expire) && written;
    written = set.AddULONG("bits", m_bits) && written;
    return set.AddBinaryStore("seed", m_seed) && written;
}

bool NetSSLCertCreate::xReadFrom(const SettingsTransportSet& set)
{
    // Absent keys leave their fields as they are.
    set.GetString("name", m_name);
    set.GetString("commonname", m_commonName);
    set.GetString("unit", m_unit);
    set.GetString("organization", m_organization);
    set.GetString("email", m_email);
    set.GetString("city", m_city);
    set.GetString("state", m_state);
    set.GetString("country", m_country);
    set.GetTimePos("expire", m_expire);
    ULONG bits = m_bits;
    if (set.GetULONG("bits", bits))
        SetBits(bits);
    set.GetBinaryStore("seed", m_seed);
    return true;
}

void NetSSLCertCreate::xCheckErrors(Messages& messages) const
{
    const auto check = [&messages](bool valid, int code) {
        if (!valid)
            messages.AddMessage(code);
    };
    check(IsTextValid(m_name, FORBIDDEN_IN_NAMES), MSG_NAME);
    check(IsTextValid(m_commonName, FORBIDDEN_IN_NAMES), MSG_COMMON_NAME);
    check(IsTextValid(m_email, FORBIDDEN), MSG_EMAIL);
    check(IsTextValid(m_organization, FORBIDDEN), MSG_ORGANIZATION);
    check(IsTextValid(m_unit, FORBIDDEN), MSG_UNIT);
    check(IsTextValid(m_city, FORBIDDEN), MSG_CITY);
    check(IsTextValid(m_state, FORBIDDEN), MSG_STATE);
    check(IsCountryValid(m_country), MSG_COUNTRY);
    check(IsExpiryValid(m_expire), MSG_EXPIRE);
    check(m_seed.GetSize() != 0, MSG_SEED_EMPTY);
    check(m_seed.GetSize() <= MAX_SEED_SIZE, MSG_SEED_TOO_LONG);
}

} // namespace kqlib

#include "net/dns/NetDNSAnswer.h"

#include "common/NetIP.h"
#include "net/dns/NetDNSReader.h"

#include <algorithm>
#include <utility>

namespace kqlib {

namespace {

constexpr ULONG HEADER_SIZE = 12;
constexpr std::uint16_t CLASS_IN = 1;
constexpr std::uint16_t TYPE_NS = 2;
constexpr std::uint16_t TYPE_SOA = 6;
constexpr int MOST_ALIASES = 16;                    ///< in a row, within one answer
constexpr String::size_type MOST_TEXT = 256 * 1024; ///< of all names and texts of one answer, unfolded

/// The parts of a header (RFC 1035 section 4.1.1).
struct HEADER
{
    bool truncated = false;
    unsigned responseCode = 0;
    std::uint16_t answers = 0;
    std::uint16_t authorities = 0;
};

bool ReadHeader(NetDNSReader& reader, HEADER& header)
{
    std::uint16_t flags = 0;
    if (!reader.Skip(2) || !reader.Read16(flags) || !reader.Skip(2) || !reader.Read16(header.answers) ||
        !reader.Read16(header.authorities))
        return false;
    header.truncated = (flags & 0x0200U) != 0;
    header.responseCode = flags & 0x000FU;
    return reader.Seek(HEADER_SIZE);
}

/// The code of a response code that gives no verdict.
NetDNS::MESSAGE FailureOf(unsigned responseCode)
{
    switch (responseCode) {
    case 1:
        return NetDNS::MSG_FORMAT_ERROR;
    case 4:
        return NetDNS::MSG_NOT_IMPLEMENTED;
    case 5:
        return NetDNS::MSG_REFUSED;
    default:
        return NetDNS::MSG_SERVER_FAILURE;
    }
}

/// The bytes of an address as its text.
bool ReadAddress(NetDNSReader& reader, NetIP::IPTYPE type, String& text)
{
    const ULONG size = type == NetIP::IP_4 ? 4 : 16;
    String bytes;
    NetIP address;
    if (!reader.ReadText(size, bytes) || !address.Set(type, reinterpret_cast<const BYTE*>(bytes.data())))
        return false;
    text = address.GetText();
    return true;
}

/// All character-strings up to the end, joined (RFC 7208 section 3.3).
bool ReadTexts(NetDNSReader& reader, ULONG end, String& text)
{
    while (reader.GetPosition() < end) {
        std::uint8_t size = 0;
        if (!reader.Read8(size) || !reader.ReadText(size, text))
            return false;
    }
    return true;
}

} // namespace

void NetDNSAnswer::Fail(NetDNS::MESSAGE code)
{
    *this = NetDNSAnswer();
    m_code = code;
}

void NetDNSAnswer::Give(std::vector<RECORD> records)
{
    *this = NetDNSAnswer();
    m_records = std::move(records);
    m_code = m_records.empty() ? NetDNS::MSG_NO_RECORDS : 0;
    m_lifeSec = 0;
}

bool NetDNSAnswer::IsVerdict() const
{
    return m_code == 0 || m_code == NetDNS::MSG_NO_RECORDS || m_code == NetDNS::MSG_NAME_ERROR;
}

void NetDNSAnswer::LimitLife(std::uint32_t lifeSec)
{
    m_lifeSec = std::min(m_lifeSec, lifeSec);
}

std::size_t NetDNSAnswer::GetBytes() const
{
    std::size_t bytes = sizeof(*this);
    for (const RECORD& record : m_records)
        bytes += sizeof(record) + record.text.size();
    return bytes;
}

void NetDNSAnswer::Parse(const BYTE* message, ULONG length, const String& name, NetDNS::RRTYPE type)
{
    Fail(NetDNS::MSG_SERVER_FAILURE);
    NetDNSReader reader(message, length);
    HEADER header;
    String question;
    std::vector<RAW> answers;
    std::vector<RAW> authorities;
    if (!ReadHeader(reader, header))
        return;
    if (header.truncated) {
        m_truncated = true;
        return;
    }
    if (header.responseCode != 0 && header.responseCode != 3) {
        m_code = FailureOf(header.responseCode);
        return;
    }
    if (!reader.ReadStrictName(question) || !reader.Skip(4) || !xReadRecords(reader, header.answers, answers) ||
        !xReadRecords(reader, header.authorities, authorities) || !xFollow(message, length, answers, name, type))
    {
        Fail(NetDNS::MSG_SERVER_FAILURE);
        return;
    }
    const RAW* const start = xFindStart(authorities);
    if (header.responseCode == 0 && (!m_records.empty() || (!m_alias.empty() && start == nullptr))) {
        m_code = 0;
        return;
    }
    // A server that points to others has not looked itself (RFC 2308 section 2.2).
    const bool isReferral =
        header.responseCode == 0 && start == nullptr &&
        std::any_of(authorities.begin(), authorities.end(), [](const RAW& raw) { return raw.type == TYPE_NS; });
    if (isReferral) {
        Fail(NetDNS::MSG_SERVER_FAILURE);
        return;
    }
    m_code = header.responseCode == 0 ? NetDNS::MSG_NO_RECORDS : NetDNS::MSG_NAME_ERROR;
    m_records.clear();
    m_alias.clear();
    LimitLife(start == nullptr ? 0 : xGetNegativeLife(message, length, *start));
}

/// Reads the records of one section (RFC 1035 section 4.1.3), their data left for later.
bool NetDNSAnswer::xReadRecords(NetDNSReader& reader, unsigned count, std::vector<RAW>& records)
{
    String::size_type text = 0;
    for (; count > 0; --count) {
        RAW raw;
        std::uint16_t size = 0;
        if (!reader.ReadStrictName(raw.owner) || !reader.Read16(raw.type) || !reader.Read16(raw.recordClass) ||
            !reader.Read32(raw.lifeSec) || !reader.Read16(size))
            return false;
        raw.begin = reader.GetPosition();
        raw.end = raw.begin + size;
        text += raw.owner.size();
        if (!reader.Skip(size) || text > MOST_TEXT)
            return false;
        if ((raw.lifeSec & 0x80000000U) != 0)
            raw.lifeSec = 0; // RFC 2181 section 8
        records.push_back(std::move(raw));
    }
    return true;
}

/// Takes the records of the name, or of what it is an alias of. Others are none of the question's business.
bool NetDNSAnswer::xFollow(const BYTE* message, ULONG length, const std::vector<RAW>& records, const String& name,
                           NetDNS::RRTYPE type)
{
    String current = name;
    String::size_type text = 0;
    for (int aliases = 0; aliases <= MOST_ALIASES; ++aliases) {
        const RAW* alias = nullptr;
        for (const RAW& raw : records) {
            if (raw.recordClass != CLASS_IN || !raw.owner.MatchesI(current))
                continue;
            if (raw.type == NetDNS::RR_CNAME)
                alias = &raw;
            if (raw.type != type)
                continue;
            // Bounded by the message up to the data's end: nothing behind the record is read.
            NetDNSReader reader(message, raw.end);
            RECORD record;
            if (!reader.Seek(raw.begin) || !xReadData(reader, raw, type, record) || reader.GetPosition() != raw.end)
                return false;
            text += record.text.size();
            if (text > MOST_TEXT)
                return false;
            LimitLife(raw.lifeSec);
            m_records.push_back(std::move(record));
        }
        if (!m_records.empty()) {
            m_alias.clear();
            std::stable_sort(m_records.begin(), m_records.end(),
                             [](const RECORD& left, const RECORD& right) { return left.priority < right.priority; });
            return true;
        }
        if (alias == nullptr)
            return true;
        NetDNSReader reader(message, length);
        current.clear();
        if (!reader.Seek(alias->begin) || !reader.ReadStrictName(current) || reader.GetPosition() != alias->end ||
            current.empty())
            return false;
        LimitLife(alias->lifeSec);
        m_alias = current;
    }
    return false; // a chain that long is a circle
}

bool NetDNSAnswer::xReadData(NetDNSReader& reader, const RAW& raw, NetDNS::RRTYPE type, RECORD& record)
{
    switch (type) {
    case NetDNS::RR_A:
        return ReadAddress(reader, NetIP::IP_4, record.text);
    case NetDNS::RR_AAAA:
        return ReadAddress(reader, NetIP::IP_6, record.text);
    case NetDNS::RR_PTR:
        return reader.ReadStrictName(record.text);
    case NetDNS::RR_MX:
        return reader.Read16(record.priority) && reader.ReadStrictName(record.text);
    case NetDNS::RR_SRV:
        return reader.Read16(record.priority) && reader.Read16(record.weight) && reader.Read16(record.port) &&
               reader.ReadStrictName(record.text);
    case NetDNS::RR_TXT:
    case NetDNS::RR_SPF:
        return ReadTexts(reader, raw.end, record.text);
    case NetDNS::RR_CNAME:
        break;
    }
    return false;
}

/// The record of the zone's start, which comes with "nothing" (RFC 2308 section 2); null without one.
const NetDNSAnswer::RAW* NetDNSAnswer::xFindStart(const std::vector<RAW>& authorities)
{
    const auto found =
        std::find_if(authorities.begin(), authorities.end(), [](const RAW& raw) { return raw.type == TYPE_SOA; });
    return found == authorities.end() ? nullptr : &*found;
}

/// The life of "nothing" is the smaller of that record's own and its last number (RFC 2308 section 5).
std::uint32_t NetDNSAnswer::xGetNegativeLife(const BYTE* message, ULONG length, const RAW& start)
{
    constexpr ULONG MINIMUM_SIZE = 4; // at the very end of the data
    NetDNSReader reader(message, length);
    std::uint32_t minimum = 0;
    if (start.end - start.begin < MINIMUM_SIZE || !reader.Seek(start.end - MINIMUM_SIZE) || !reader.Read32(minimum))
        return 0;
    return std::min(start.lifeSec, minimum);
}

} // namespace kqlib

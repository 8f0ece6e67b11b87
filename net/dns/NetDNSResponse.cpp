#include "net/dns/NetDNSResponse.h"

#include <algorithm>
#include <memory>

namespace kqlib {

namespace {

constexpr ULONG HEADER_SIZE = 12;
constexpr std::uint32_t SHORTEST_TTL_S = 5000; ///< kept on purpose: answers live long
/// What an answer may unfold to, in bytes. An honest one of 1024 bytes holds 71 records at most, with two names of at
/// most 255 bytes each.
constexpr String::size_type MOST_TEXT = 65536;

/// The code of a response code (RFC 1035 section 4.1.1); codes from 6 on count as a server failure.
int ResponseCodeMessage(unsigned code)
{
    return code <= 5 ? NetDNS::MSG_NO_RECORDS + static_cast<int>(code) : NetDNS::MSG_SERVER_FAILURE;
}

} // namespace

NetDNSResponse::NetDNSResponse(NetDNS::RRTYPE type, VectorPtr<String>& texts)
    : m_type(type)
    , m_texts(&texts)
    , m_exchangers(nullptr)
{
}

NetDNSResponse::NetDNSResponse(VectorPtr<NetDNS::MX_RECORD>& exchangers)
    : m_type(NetDNS::RR_MX)
    , m_texts(nullptr)
    , m_exchangers(&exchangers)
{
}

bool NetDNSResponse::Parse(const BYTE* message, ULONG length, Messages& msgs)
{
    NetDNSReader reader(message, length);
    if (length < HEADER_SIZE) {
        msgs.AddMessage(NetDNS::MSG_SERVER_FAILURE);
        return false;
    }
    const unsigned responseCode = message[3] & 0x0FU;
    if (responseCode != 0)
        msgs.AddMessage(ResponseCodeMessage(responseCode));

    std::uint16_t answers = 0;
    if (!reader.Seek(6) || !reader.Read16(answers) || answers == 0) {
        if (responseCode == 0)
            msgs.AddMessage(NetDNS::MSG_NO_RECORDS);
        return false;
    }
    if (!reader.Seek(HEADER_SIZE) || !xSkipQuestion(reader)) {
        msgs.AddMessage(NetDNS::MSG_SERVER_FAILURE);
        return false;
    }
    for (; answers > 0 && m_cname.empty(); --answers) {
        if (!xReadAnswer(reader)) {
            xClearList();
            msgs.AddMessage(NetDNS::MSG_SERVER_FAILURE);
            return false;
        }
    }
    return true;
}

/// Goes behind the question: its name up to the first zero byte (no compression is expected there), QTYPE and QCLASS.
bool NetDNSResponse::xSkipQuestion(NetDNSReader& reader)
{
    std::uint8_t byte = 0;
    do {
        if (!reader.Read8(byte))
            return false;
    } while (byte != 0);
    return reader.Skip(4);
}

/// One record of the answer section (RFC 1035 section 4.1.3).
bool NetDNSResponse::xReadAnswer(NetDNSReader& reader)
{
    String owner;
    std::uint16_t type = 0;
    std::uint32_t ttl = 0;
    std::uint16_t dataLength = 0;
    if (!reader.ReadName(owner) || !xCountText(owner) || !reader.Read16(type) || !reader.Skip(2) ||
        !reader.Read32(ttl) || !reader.Read16(dataLength))
        return false;
    if (type != m_type && type != NetDNS::RR_CNAME)
        return false;
    m_minimumTTL = std::max(std::min(ttl, m_minimumTTL), SHORTEST_TTL_S);
    // The length of the data is good for this test only: the next record is looked for where the reading of this one
    // stops, even inside its data. Kept on purpose.
    if (reader.GetRemaining() < dataLength)
        return false;
    if (type == NetDNS::RR_CNAME)
        return reader.ReadName(m_cname) && xCountText(m_cname) && !m_cname.empty();
    return xReadData(reader);
}

/// Adds to what the answer has unfolded to so far. False: that is too much.
bool NetDNSResponse::xCountText(const String& text)
{
    m_textBytes += text.size();
    return m_textBytes <= MOST_TEXT;
}

/// The data of a record of the asked type, up to the end of what is used of it.
bool NetDNSResponse::xReadData(NetDNSReader& reader)
{
    auto text = std::make_unique<String>();
    switch (m_type) {
    case NetDNS::RR_A:
        if (!xExtractIP(reader, *text))
            return false;
        break;
    case NetDNS::RR_PTR:
        if (!reader.ReadName(*text) || !xCountText(*text))
            return false;
        break;
    case NetDNS::RR_TXT:
    case NetDNS::RR_SPF:
        if (!xExtractText(reader, *text) || !xCountText(*text))
            return false;
        break;
    case NetDNS::RR_MX: {
        std::uint16_t preference = 0;
        if (!reader.Read16(preference) || !reader.ReadName(*text) || !xCountText(*text))
            return false;
        xInsertExchanger(preference, *text);
        return true;
    }
    default:
        return false;
    }
    m_texts->Give(text.release());
    return true;
}

/// Four bytes as a dotted text.
bool NetDNSResponse::xExtractIP(NetDNSReader& reader, String& text)
{
    for (int i = 0; i < 4; ++i) {
        std::uint8_t byte = 0;
        if (!reader.Read8(byte))
            return false;
        if (i > 0)
            text += '.';
        text += String::sToString(byte);
    }
    return true;
}

/// One character-string (RFC 1035 section 3.3).
bool NetDNSResponse::xExtractText(NetDNSReader& reader, String& text)
{
    std::uint8_t length = 0;
    return reader.Read8(length) && reader.ReadText(length, text);
}

/// Puts the exchanger before the first one whose priority is not lower, so that among equal ones a later answer comes
/// first. Kept on purpose.
void NetDNSResponse::xInsertExchanger(std::uint16_t preference, const String& name)
{
    ULONG low = 0;
    ULONG high = m_exchangers->GetCount();
    while (low < high) {
        const ULONG middle = (low + high) / 2;
        if (m_exchangers->Get(middle).priority < preference)
            low = middle + 1;
        else
            high = middle;
    }
    auto record = std::make_unique<NetDNS::MX_RECORD>();
    record->priority = preference;
    record->name = name;
    m_exchangers->GiveAt(low, record.release());
}

void NetDNSResponse::xClearList()
{
    if (m_type == NetDNS::RR_MX)
        m_exchangers->Reset();
    else
        m_texts->Reset();
}

} // namespace kqlib

#include "net/dns/NetDNS.h"

#include "platform/ResolverConfig.h"
#include "platform/Sockets.h"

#include "common/TimedEvent.h"
#include "net/dns/NetDNSAnswer.h"
#include "net/dns/NetDNSCache.h"
#include "net/dns/NetDNSExchange.h"
#include "net/dns/NetDNSHosts.h"
#include "net/dns/NetDNSOptions.h"
#include "net/dns/NetDNSResponse.h"
#include "net/dns/NetDNSWriter.h"
#include "net/sockets/NetUDP.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace kqlib {

namespace {

constexpr unsigned short DNS_PORT = 53;
constexpr ULONG BLOCK_TIME_MS = 50;            ///< of one wait for a datagram
constexpr std::uint32_t ANSWER_WAIT_MS = 5000; ///< for the answer to one query
constexpr int MOST_ATTEMPTS = 3;               ///< at each address, while nothing answers
constexpr int MOST_PASSES = 5;                 ///< queries of one attempt, one for each name of a CNAME chain
constexpr ULONG ANSWER_SIZE = 1024;            ///< a longer answer is no answer
constexpr ULONG MOST_CONFIRMED = 8;            ///< names of one address
constexpr String::size_type DOMAIN_LIMIT = 256;
constexpr String::size_type LONGEST_LABEL = 255; ///< not held against the 63 of the RFC, kept on purpose

constexpr std::uint16_t QUERY_ID = 0xFFFF;    ///< the same for every query and never compared, kept on purpose
constexpr std::uint16_t QUERY_FLAGS = 0x0100; ///< standard query, recursion desired
constexpr std::uint16_t CLASS_IN = 1;

/// True when a server said that there is nothing to find: such a server works and stays on the list.
bool HasVerdict(const Messages& msgs, ULONG from)
{
    for (ULONG i = from; i < msgs.GetMessageCount(); ++i) {
        if (msgs.Get(i) == NetDNS::MSG_NO_RECORDS || msgs.Get(i) == NetDNS::MSG_NAME_ERROR)
            return true;
    }
    return false;
}

bool IsKnownWithoutOptions(NetDNS::RRTYPE type)
{
    return type != NetDNS::RR_AAAA && type != NetDNS::RR_SRV;
}

} // namespace

/// What there is with options only.
struct NetDNS::CHECKED
{
    explicit CHECKED(const NetDNSOptions& given)
        : options(given)
    {
    }

    NetDNSOptions options;
    ULONG refused = 0;
    bool lastFromCache = false;
    VectorPtr<String> aaaaRecords;
    VectorPtr<SRV_RECORD> srvRecords;
};

NetDNS::NetDNS(NetIP::IPLOOKUPMODE mode)
    : m_lookupMode(mode)
    , m_cache(nullptr)
{
}

NetDNS::NetDNS(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache)
    : m_lookupMode(mode)
    , m_cache(&cache)
{
}

NetDNS::~NetDNS() = default;

void NetDNS::SetOptions(const NetDNSOptions& options)
{
    if (m_checked)
        m_checked->options = options;
    else
        m_checked = std::make_unique<CHECKED>(options);
}

const NetDNSOptions* NetDNS::GetOptions() const
{
    return m_checked ? &m_checked->options : nullptr;
}

ULONG NetDNS::GetRefusedAnswers() const
{
    return m_checked ? m_checked->refused : 0;
}

bool NetDNS::IsLastFromCache() const
{
    return m_checked && m_checked->lastFromCache;
}

bool NetDNS::DoALookup(const String& domain, Messages& msgs)
{
    return xLookup(domain, RR_A, msgs);
}

bool NetDNS::DoMXLookup(const String& domain, Messages& msgs)
{
    return xLookup(domain, RR_MX, msgs);
}

bool NetDNS::DoPTRLookup(const String& domain, Messages& msgs)
{
    return xLookup(domain, RR_PTR, msgs);
}

bool NetDNS::DoTXTLookup(const String& domain, Messages& msgs)
{
    return xLookup(domain, RR_TXT, msgs);
}

bool NetDNS::DoSPFLookup(const String& domain, Messages& msgs)
{
    return xLookup(domain, RR_SPF, msgs);
}

bool NetDNS::DoAAAALookup(const String& domain, Messages& msgs)
{
    return xLookup(domain, RR_AAAA, msgs);
}

bool NetDNS::DoSRVLookup(const String& domain, Messages& msgs)
{
    return xLookup(domain, RR_SRV, msgs);
}

bool NetDNS::DoALookup(const String& domain, const String& server, Messages& msgs)
{
    return xLookup(domain, server, RR_A, msgs);
}

bool NetDNS::DoMXLookup(const String& domain, const String& server, Messages& msgs)
{
    return xLookup(domain, server, RR_MX, msgs);
}

bool NetDNS::DoPTRLookup(const String& domain, const String& server, Messages& msgs)
{
    return xLookup(domain, server, RR_PTR, msgs);
}

bool NetDNS::DoTXTLookup(const String& domain, const String& server, Messages& msgs)
{
    return xLookup(domain, server, RR_TXT, msgs);
}

bool NetDNS::DoSPFLookup(const String& domain, const String& server, Messages& msgs)
{
    return xLookup(domain, server, RR_SPF, msgs);
}

bool NetDNS::DoAAAALookup(const String& domain, const String& server, Messages& msgs)
{
    return xLookup(domain, server, RR_AAAA, msgs);
}

bool NetDNS::DoSRVLookup(const String& domain, const String& server, Messages& msgs)
{
    return xLookup(domain, server, RR_SRV, msgs);
}

ULONG NetDNS::GetARecordCount() const
{
    return m_aRecords.GetCount();
}

const String& NetDNS::GetARecord(ULONG index) const
{
    return m_aRecords.Get(index);
}

ULONG NetDNS::GetPTRRecordCount() const
{
    return m_ptrRecords.GetCount();
}

const String& NetDNS::GetPTRRecord(ULONG index) const
{
    return m_ptrRecords.Get(index);
}

ULONG NetDNS::GetAAAARecordCount() const
{
    return m_checked ? m_checked->aaaaRecords.GetCount() : 0;
}

const String& NetDNS::GetAAAARecord(ULONG index) const
{
    if (!m_checked)
        throw std::out_of_range("NetDNS::GetAAAARecord");
    return m_checked->aaaaRecords.Get(index);
}

ULONG NetDNS::GetSRVRecordCount() const
{
    return m_checked ? m_checked->srvRecords.GetCount() : 0;
}

const NetDNS::SRV_RECORD& NetDNS::GetSRVRecord(ULONG index) const
{
    if (!m_checked)
        throw std::out_of_range("NetDNS::GetSRVRecord");
    return m_checked->srvRecords.Get(index);
}

ULONG NetDNS::GetTXTRecordCount() const
{
    return m_txtRecords.GetCount();
}

const String& NetDNS::GetTXTRecord(ULONG index) const
{
    return m_txtRecords.Get(index);
}

ULONG NetDNS::GetSPFRecordCount() const
{
    return m_spfRecords.GetCount();
}

const String& NetDNS::GetSPFRecord(ULONG index) const
{
    return m_spfRecords.Get(index);
}

ULONG NetDNS::GetMXRecordCount() const
{
    return m_mxRecords.GetCount();
}

const String& NetDNS::GetMXRecord(ULONG index) const
{
    return m_mxRecords.Get(index).name;
}

ULONG NetDNS::GetMXRecordPriority(ULONG index) const
{
    return m_mxRecords.Get(index).priority;
}

bool NetDNS::ResolveHost(const String& host, bool acceptAddress, Vector<NetIP>& addresses, Messages& msgs)
{
    addresses.Reset();
    NetIP literal;
    const bool isLiteral = literal.Set(host);
    if (host.empty() || (isLiteral && !acceptAddress)) {
        msgs.AddMessage(MSG_NAME_ERROR);
        return false;
    }
    if (isLiteral) {
        addresses.Add(literal);
        return true;
    }
    if (!m_checked)
        return xAppendAddresses(host, RR_A, addresses, msgs);
    Messages codes; // of a family that has nothing; told only when there is no other
    const bool found4 = m_lookupMode != NetIP::LOOKUP_IP6 && xAppendAddresses(host, RR_A, addresses, codes);
    const bool found6 = m_lookupMode != NetIP::LOOKUP_IP4 && xAppendAddresses(host, RR_AAAA, addresses, codes);
    if (!found4 && !found6 && codes.GetMessageCount() > 0)
        msgs.AddMessage(codes.Get(0));
    return found4 || found6;
}

bool NetDNS::ResolveHost(const String& host, bool acceptAddress, NetIP& address, Messages& msgs)
{
    Vector<NetIP> addresses;
    if (!ResolveHost(host, acceptAddress, addresses, msgs) || addresses.GetCount() == 0)
        return false;
    address = addresses.Get(0);
    return true;
}

bool NetDNS::ResolveIP(const NetIP& ip, STRINGS& names, Messages& msgs)
{
    names.clear();
    const char* const zone = m_checked && !ip.IsIP4() ? ".ip6.arpa" : ".in-addr.arpa"; // the first: RFC 3596
    if (!DoPTRLookup(ip.GetTextReverseByteOrder() + zone, msgs))
        return false;
    const bool confirm = m_checked && m_checked->options.GetConfirmNames();
    const ULONG most = confirm ? MOST_CONFIRMED : GetPTRRecordCount();
    for (ULONG i = 0; i < std::min(GetPTRRecordCount(), most); ++i) {
        if (!confirm || xLeadsTo(GetPTRRecord(i), ip))
            names.push_back(GetPTRRecord(i));
    }
    if (confirm && names.empty()) {
        msgs.AddMessage(MSG_NAME_ERROR);
        return false;
    }
    return true;
}

bool NetDNS::ResolveIP(const NetIP& ip, String& name, Messages& msgs)
{
    STRINGS names;
    if (!ResolveIP(ip, names, msgs) || names.empty())
        return false;
    name = names[0];
    return true;
}

bool NetDNS::GetDNSServers()
{
    xClearDNSServers();
    xGetDNSServersViaWSA();
    std::vector<std::string> servers;
    // Settings that cannot be opened fail the discovery even when the name service gave servers. These stay on the list
    // for the next look-up. Kept on purpose.
    if (!platform::AppendServerSettings(servers))
        return false;
    for (const std::string& server : servers)
        xAddDNS(server);
    return m_servers.GetCount() > 0;
}

void NetDNS::SetDNSServers(const STRINGS& servers)
{
    xClearDNSServers();
    for (const String& server : servers)
        m_servers.Give(new String(server));
}

void NetDNS::ClearDNSServers()
{
    xClearDNSServers();
}

ULONG NetDNS::GetDNSServerCount() const
{
    return m_servers.GetCount();
}

const String& NetDNS::GetDNSServer(ULONG index) const
{
    return m_servers.Get(index);
}

void NetDNS::ResetFirstExpiryTime()
{
    m_firstExpiry = 0xFFFFFFFFU;
}

bool NetDNS::xLookup(const String& domain, RRTYPE type, Messages& msgs)
{
    if (m_checked || !IsKnownWithoutOptions(type))
        return xCheckedLookup(domain, nullptr, type, msgs);
    return xIsLookupCached(domain, type) || xDoLookup(domain, type, msgs);
}

bool NetDNS::xLookup(const String& domain, const String& server, RRTYPE type, Messages& msgs)
{
    if (m_checked || !IsKnownWithoutOptions(type))
        return xCheckedLookup(domain, &server, type, msgs);
    return xIsLookupCached(domain, type) || xDoLookup(domain, server, type, msgs);
}

/// What this object and the cache have for a type whose records are texts.
struct NetDNS::TEXT_TYPE
{
    RRTYPE type;
    VectorPtr<String> NetDNS::*records;
    bool (NetDNSCache::*isCached)(const String& name, VectorPtr<String>& records);
    void (NetDNSCache::*store)(const String& name, ULONG expiry, const VectorPtr<String>& records);
};

/// For any type that is asked for but RR_MX.
const NetDNS::TEXT_TYPE& NetDNS::xsGetTextType(RRTYPE type)
{
    static constexpr TEXT_TYPE TYPES[] = {
        {RR_A, &NetDNS::m_aRecords, &NetDNSCache::IsALookupCached, &NetDNSCache::CacheALookup},
        {RR_PTR, &NetDNS::m_ptrRecords, &NetDNSCache::IsPtrLookupCached, &NetDNSCache::CachePtrLookup},
        {RR_TXT, &NetDNS::m_txtRecords, &NetDNSCache::IsTxtLookupCached, &NetDNSCache::CacheTxtLookup},
        {RR_SPF, &NetDNS::m_spfRecords, &NetDNSCache::IsSpfLookupCached, &NetDNSCache::CacheSpfLookup}};
    return *std::find_if(std::begin(TYPES), std::end(TYPES) - 1,
                         [type](const TEXT_TYPE& item) { return item.type == type; });
}

/// Clears the type's list and fills it from the cache. False without a cache (the list stays) or a cached answer.
bool NetDNS::xIsLookupCached(const String& domain, RRTYPE type)
{
    if (!m_cache)
        return false;
    xClearList(type);
    if (type == RR_MX)
        return m_cache->IsMxLookupCached(domain, m_mxRecords);
    return (m_cache->*xsGetTextType(type).isCached)(domain, xGetTextList(type));
}

/// Asks the servers of the list in their order, finding them first when there are none.
bool NetDNS::xDoLookup(const String& domain, RRTYPE type, Messages& msgs)
{
    if (m_servers.GetCount() == 0 && !GetDNSServers()) {
        msgs.AddMessage(MSG_SERVER_FAILURE);
        return false;
    }
    ULONG index = 0;
    while (index < m_servers.GetCount()) {
        const ULONG messagesBefore = msgs.GetMessageCount();
        const String server = m_servers.Get(index);
        if (xDoLookup(domain, server, type, msgs))
            return true;
        if (HasVerdict(msgs, messagesBefore))
            ++index;
        else
            m_servers.Delete(index);
    }
    return false;
}

/// Asks one server at each of its addresses in turn. The first that cannot be opened ends it.
bool NetDNS::xDoLookup(const String& domain, const String& server, RRTYPE type, Messages& msgs)
{
    xClearList(type);
    Vector<NetIP> addresses;
    if (!NetDNSExchange::sGetAddresses(server, addresses)) {
        msgs.AddMessage(MSG_SERVER_FAILURE);
        return false;
    }
    for (const NetIP& address : addresses) {
        NetUDP udp(m_lookupMode);
        udp.SetBlockTime(BLOCK_TIME_MS);
        if (!udp.OpenClient(address.GetText(), DNS_PORT)) {
            msgs.AddMessage(MSG_SERVER_FAILURE);
            return false;
        }
        bool retry = true;
        for (int attempt = 0; attempt < MOST_ATTEMPTS && udp.IsOpen() && retry; ++attempt) {
            if (xAttempt(domain, udp, type, retry, msgs))
                return true;
        }
    }
    return false;
}

/// Asks for the domain and, as long as the answer is a CNAME, for its target. Five CNAMEs in a row fail without a code.
/// retry: unchanged until a query went out; then whether nothing was received for the last one.
bool NetDNS::xAttempt(const String& domain, NetUDP& udp, RRTYPE type, bool& retry, Messages& msgs)
{
    String name = domain;
    for (int pass = 0; pass < MOST_PASSES; ++pass) {
        String cname;
        if (!xSendDNSRequest(name, udp, type, msgs) || !xProcessResponse(name, udp, type, cname, retry, msgs))
            return false;
        if (cname.empty()) {
            udp.Close();
            return true;
        }
        name = cname;
    }
    return false;
}

/// Sends a query (RFC 1035 sections 4.1.1 and 4.1.2).
bool NetDNS::xSendDNSRequest(const String& domain, NetUDP& udp, RRTYPE type, Messages& msgs)
{
    NetDNSWriter query;
    query.Write16(QUERY_ID);
    query.Write16(QUERY_FLAGS);
    query.Write16(1); // one question
    query.Write16(0); // no answers,
    query.Write16(0); // authorities
    query.Write16(0); // or additional records
    if (domain.size() >= DOMAIN_LIMIT || !query.WriteName(domain, LONGEST_LABEL)) {
        msgs.AddMessage(MSG_NAME_ERROR);
        return false;
    }
    query.Write16(type);
    query.Write16(CLASS_IN);

    ULONG sent = query.GetLength();
    if (!udp.SendClient(query.GetData(), sent) || sent < query.GetLength()) {
        msgs.AddMessage(MSG_SERVER_FAILURE);
        return false;
    }
    return true;
}

/// Waits for one datagram. length: in, room in buffer; out, its size, 0 on failure.
bool NetDNS::xRecv(NetUDP& udp, BYTE* buffer, ULONG& length)
{
    const ULONG room = length;
    xResetTimeOut();
    while (udp.IsOpen() && !xIsTimeOut()) {
        length = room;
        if (!udp.RecvClient(buffer, length))
            break;
        if (length > 0)
            return true;
    }
    length = 0;
    return false;
}

/// True when the time for an answer is over.
bool NetDNS::xIsTimeOut() const
{
    return static_cast<std::uint32_t>(TimedEvent::sGetNow() - m_timeOutStart) >= ANSWER_WAIT_MS;
}

void NetDNS::xResetTimeOut()
{
    m_timeOutStart = static_cast<std::uint32_t>(TimedEvent::sGetNow());
}

/// Receives and takes in the answer to the query for domain. True with a cname: that name is to be asked for. True
/// without: the records are in the type's list, and in the cache under the name that was asked for last, so that an
/// alias is asked for anew every time (kept on purpose). retry: true when nothing was received.
bool NetDNS::xProcessResponse(const String& domain, NetUDP& udp, RRTYPE type, String& cname, bool& retry,
                              Messages& msgs)
{
    retry = true;
    BYTE buffer[ANSWER_SIZE];
    ULONG length = sizeof(buffer);
    if (!xRecv(udp, buffer, length)) {
        msgs.AddMessage(MSG_SERVER_FAILURE);
        return false;
    }
    retry = false;
    NetDNSResponse response = type == RR_MX ? NetDNSResponse(m_mxRecords) : NetDNSResponse(type, xGetTextList(type));
    if (!response.Parse(buffer, length, msgs))
        return false;
    cname = response.GetCName();
    if (!cname.empty())
        return true;

    xResetTimeOut();
    // 32-bit arithmetic: a life of more than 49 days wraps, kept on purpose.
    const auto expiry = static_cast<std::uint32_t>(m_timeOutStart + response.GetMinimumTTL() * 1000U);
    if (expiry < m_firstExpiry)
        m_firstExpiry = expiry;
    if (m_cache)
        xStoreInCache(domain, type, expiry);
    return true;
}

void NetDNS::xStoreInCache(const String& domain, RRTYPE type, std::uint32_t expiry)
{
    if (type == RR_MX)
        m_cache->CacheMxLookup(domain, expiry, m_mxRecords);
    else
        (m_cache->*xsGetTextType(type).store)(domain, expiry, xGetTextList(type));
}

/// The list of any type whose records are texts (all but RR_MX and RR_SRV). RR_AAAA: with options only.
VectorPtr<String>& NetDNS::xGetTextList(RRTYPE type)
{
    return type == RR_AAAA ? m_checked->aaaaRecords : this->*xsGetTextType(type).records;
}

void NetDNS::xClearList(RRTYPE type)
{
    if (type == RR_MX)
        m_mxRecords.Reset();
    else if (type == RR_SRV)
        m_checked->srvRecords.Reset();
    else
        xGetTextList(type).Reset();
}

/// A look-up with options, in any form. server: null for those of the list.
bool NetDNS::xCheckedLookup(const String& domain, const String* server, RRTYPE type, Messages& msgs)
{
    if (!m_checked) {
        msgs.AddMessage(MSG_NOT_IMPLEMENTED);
        return false;
    }
    std::shared_ptr<const NetDNSAnswer> answer = m_cache ? m_cache->xReadChecked(domain, type) : nullptr;
    m_checked->lastFromCache = answer != nullptr;
    if (!answer)
        answer = xAskChecked(domain, server, type);
    xTakeAnswer(*answer, type);
    if (answer->GetCode() == 0)
        return true;
    msgs.AddMessage(answer->GetCode());
    return false;
}

/// Looks into the hosts file, then asks servers and keeps their verdict. Never null.
std::shared_ptr<const NetDNSAnswer> NetDNS::xAskChecked(const String& domain, const String* server, RRTYPE type)
{
    const NetDNSOptions& options = m_checked->options;
    NetDNSAnswer known;
    if (server == nullptr && !options.GetHostsFile().empty() &&
        NetDNSHosts::sGet(options.GetHostsFile())->Find(domain, type, known))
        return std::make_shared<NetDNSAnswer>(std::move(known));
    std::vector<String> servers;
    if (server != nullptr) {
        servers.push_back(*server);
    } else if (m_servers.GetCount() > 0 || GetDNSServers()) {
        for (ULONG i = 0; i < m_servers.GetCount(); ++i)
            servers.push_back(m_servers.Get(i));
    }
    NetDNSExchange exchange(options);
    auto answer = std::make_shared<NetDNSAnswer>(exchange.Run(servers, domain, type));
    m_checked->refused += exchange.GetRefused();
    if (!answer->IsVerdict())
        return answer;
    const std::uint32_t lifeSec =
        answer->GetCode() == 0
            ? std::clamp(answer->GetLifeSec(), options.GetShortestLifeSec(), options.GetLongestLifeSec())
            : std::min(answer->GetLifeSec(), options.GetLongestNegativeLifeSec());
    const auto now = static_cast<std::uint32_t>(TimedEvent::sGetNow());
    const auto expiry = static_cast<std::uint32_t>(now + lifeSec * 1000U);
    if (answer->GetCode() == 0)
        m_firstExpiry = std::min(m_firstExpiry, expiry);
    if (m_cache && lifeSec > 0)
        m_cache->xStoreChecked(domain, type, expiry, answer);
    return answer;
}

/// Replaces the records of the type by those of the answer, none for a failure.
void NetDNS::xTakeAnswer(const NetDNSAnswer& answer, RRTYPE type)
{
    xClearList(type);
    for (const NetDNSAnswer::RECORD& record : answer.GetRecords()) {
        if (type == RR_MX)
            m_mxRecords.Give(new MX_RECORD{record.priority, record.text});
        else if (type == RR_SRV)
            m_checked->srvRecords.Give(new SRV_RECORD{record.priority, record.weight, record.port, record.text});
        else
            xGetTextList(type).Give(new String(record.text));
    }
}

/// Looks up the addresses of one family.
bool NetDNS::xAppendAddresses(const String& host, RRTYPE type, Vector<NetIP>& addresses, Messages& msgs)
{
    if (!xLookup(host, type, msgs))
        return false;
    const VectorPtr<String>& records = xGetTextList(type);
    for (ULONG i = 0; i < records.GetCount(); ++i)
        addresses.Add(NetIP(records.Get(i)));
    return true;
}

/// Whether a name has the address among its own. A failed look-up of it says no more than that.
bool NetDNS::xLeadsTo(const String& name, const NetIP& ip)
{
    NetIP literal;
    Vector<NetIP> addresses;
    Messages codes;
    return !literal.Set(name) && xAppendAddresses(name, ip.IsIP4() ? RR_A : RR_AAAA, addresses, codes) &&
           std::find(addresses.begin(), addresses.end(), ip) != addresses.end();
}

/// Servers that the system's name service lists come first.
void NetDNS::xGetDNSServersViaWSA()
{
    std::vector<std::string> addresses;
    platform::AppendNameServiceServers(addresses);
    for (const std::string& address : addresses)
        xAddDNS(address);
}

/// Appends a server, unless it is on the list already in whatever case.
void NetDNS::xAddDNS(const String& server)
{
    for (ULONG i = 0; i < m_servers.GetCount(); ++i) {
        if (m_servers.Get(i).MatchesI(server))
            return;
    }
    m_servers.Give(new String(server));
}

void NetDNS::xClearDNSServers()
{
    m_servers.Reset();
}

} // namespace kqlib

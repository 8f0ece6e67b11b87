// NetDNS: the library's own DNS stub resolver.
#pragma once

#include "common/Messages.h"
#include "common/NetIP.h"
#include "common/STRINGS.h"
#include "common/String.h"
#include "common/Types.h"
#include "common/Vector.h"
#include "common/VectorPtr.h"
#include "platform/Export.h"

#include <cstdint>
#include <memory>

namespace kqlib {

class NetDNSAnswer;
class NetDNSCache;
class NetDNSOptions;
class NetUDP;

/// Asks DNS servers for addresses, names, mail exchangers and texts, and turns host names into addresses.
///
/// A host makes one over the process-wide NetDNSCache, calls a look-up or ResolveHost/ResolveIP and reads the records
/// through the Get functions until the next look-up of the same type. The object is cheap: one per check is fine. The
/// servers are those of the system, found at the first look-up, or those given by SetDNSServers. Every query goes over
/// UDP to port 53 (RFC 1035); CNAME records are followed by asking for their target. SetOptions makes it ask, check and
/// read in another way, see NetDNSOptions.
///
/// Ownership: owns its records and server texts; borrows the cache, which must outlive this object; may have none.
///
/// Threads: one thread at a time, no lock. A look-up blocks its thread: up to three attempts at each address of each
/// server, each up to 5 seconds for each of at most five names along a chain of aliases. NetDNSCache locks itself and
/// is never locked while the network is waited for.
///
/// Errors: false, and codes (MESSAGE) added to the given list, which is never cleared. A code may be added once per
/// attempt. Nothing is thrown.
class KQNET_API NetDNS
{
public:
    /// Types of resource records, numbered as on the wire (RFC 1035 section 3.2.2; 99: RFC 4408).
    enum RRTYPE : std::uint16_t
    {
        RR_A = 1,     ///< an IPv4 address
        RR_CNAME = 5, ///< followed, never asked for
        RR_PTR = 12,  ///< the name of an address
        RR_MX = 15,   ///< a mail exchanger
        RR_TXT = 16,  ///< texts
        RR_AAAA = 28, ///< an IPv6 address; with options only (RFC 3596)
        RR_SRV = 33,  ///< the host of a service; with options only (RFC 2782)
        RR_SPF = 99   ///< a policy for mail senders
    };

    /// Message codes of look-ups. Their texts belong to the host.
    enum MESSAGE : int
    {
        MSG_NO_RECORDS = 51,     ///< the server answered without error and without records
        MSG_FORMAT_ERROR = 52,   ///< response code 1
        MSG_SERVER_FAILURE = 53, ///< response code 2 or from 6 on, no server, no or a malformed answer, network failure
        MSG_NAME_ERROR = 54,     ///< response code 3, or a name that cannot be asked for
        MSG_NOT_IMPLEMENTED = 55, ///< response code 4
        MSG_REFUSED = 56          ///< response code 5
    };

    /// A mail exchanger (RFC 1035 section 3.3.9).
    struct MX_RECORD
    {
        ULONG priority = 0; ///< the record's preference, 16 bits; the lowest is to be used first
        String name;        ///< of the host, without a dot at its end
    };

    /// The host of a service (RFC 2782).
    struct SRV_RECORD
    {
        ULONG priority = 0; ///< the lowest is to be used first
        ULONG weight = 0;   ///< among equal priorities: the share of its uses
        ULONG port = 0;     ///< of the service on that host
        String name;        ///< of the host, without a dot at its end; empty: the service is not offered
    };

    /// A resolver without a cache. mode is handed to the sockets that it makes; without options nothing depends on its
    /// value.
    explicit NetDNS(NetIP::IPLOOKUPMODE mode);
    /// With a cache that is asked before the servers and stores their answers; it must outlive this object.
    NetDNS(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache);
    NetDNS(const NetDNS&) = delete;
    NetDNS& operator=(const NetDNS&) = delete;
    /// Ends the records that the Get functions gave; what the cache holds stays.
    virtual ~NetDNS();

    /// From now on asks as the options say, of which it keeps a copy. What is said below about look-ups changes then:
    /// - one code is added for a failed look-up, never several;
    /// - the server list stays as it is, and "no such name" or "no records" from one server ends the look-up;
    /// - the cache is asked for answers of resolvers with options alone; it never mixes the two kinds;
    /// - MX records of equal priority keep the order of the answer; an exchanger "" says that there is no mail
    ///   (RFC 7505);
    /// - ResolveHost gives addresses of the families that the mode names, IPv4 ones first.
    void SetOptions(const NetDNSOptions& options);
    /// The options; null when none were set.
    const NetDNSOptions* GetOptions() const;
    /// How many datagrams this object has refused to believe since its options were set first: of another identifier,
    /// of another question, or in another mix of cases. What comes from other addresses or ports the system drops
    /// unseen. 0 without options.
    ULONG GetRefusedAnswers() const;
    /// Whether the last look-up was answered by the cache. False without options.
    bool IsLastFromCache() const;

    /// Look-ups of one type. Each asks the cache, then the servers in their order until one gives records. True: the
    /// records can be read. False: codes were added, except after five CNAME records in a row, which add none.
    /// The records of the type are cleared by asking the cache, and again by asking each server. Without a cache, and
    /// without a server to ask, those of the look-up before stay.
    /// A server that fails otherwise than by "no records" or "no such name" is taken off this object's list. When none
    /// is left, the next look-up finds the servers of the system, also where others had been set. domain: at most 255
    /// characters, without a dot at its end.
    ///@{
    bool DoALookup(const String& domain, Messages& msgs);
    bool DoMXLookup(const String& domain, Messages& msgs);
    /// As the others. domain: the reverse name, as in "4.3.2.1.in-addr.arpa".
    bool DoPTRLookup(const String& domain, Messages& msgs);
    bool DoTXTLookup(const String& domain, Messages& msgs);
    bool DoSPFLookup(const String& domain, Messages& msgs);
    /// Without options: false, MSG_NOT_IMPLEMENTED.
    bool DoAAAALookup(const String& domain, Messages& msgs);
    bool DoSRVLookup(const String& domain, Messages& msgs);
    ///@}

    /// The same, but asking only the given server (an address or a host name); the server list is neither used nor
    /// changed. The cache is asked first all the same.
    ///@{
    bool DoALookup(const String& domain, const String& server, Messages& msgs);
    bool DoMXLookup(const String& domain, const String& server, Messages& msgs);
    bool DoPTRLookup(const String& domain, const String& server, Messages& msgs);
    bool DoTXTLookup(const String& domain, const String& server, Messages& msgs);
    bool DoSPFLookup(const String& domain, const String& server, Messages& msgs);
    bool DoAAAALookup(const String& domain, const String& server, Messages& msgs);
    bool DoSRVLookup(const String& domain, const String& server, Messages& msgs);
    ///@}

    /// Records of the last look-up of each type. An index at or past the count throws std::out_of_range.
    /// A and PTR: dotted addresses, and names, in the order of the answer.
    ///@{
    ULONG GetARecordCount() const;
    const String& GetARecord(ULONG index) const;
    ULONG GetPTRRecordCount() const;
    const String& GetPTRRecord(ULONG index) const;
    ///@}
    /// AAAA: addresses in the form of RFC 5952. SRV: ascending by priority, otherwise in the order of the answer.
    ///@{
    ULONG GetAAAARecordCount() const;
    const String& GetAAAARecord(ULONG index) const;
    ULONG GetSRVRecordCount() const;
    const SRV_RECORD& GetSRVRecord(ULONG index) const;
    ///@}
    /// TXT and SPF: the first character-string of each record only, kept on purpose; with options all of them, joined.
    ///@{
    ULONG GetTXTRecordCount() const;
    const String& GetTXTRecord(ULONG index) const;
    ULONG GetSPFRecordCount() const;
    const String& GetSPFRecord(ULONG index) const;
    ///@}
    /// MX: ascending by priority; among equal ones a later answer stands first, kept on purpose.
    ///@{
    ULONG GetMXRecordCount() const;
    const String& GetMXRecord(ULONG index) const;
    ULONG GetMXRecordPriority(ULONG index) const;
    ///@}

    /// The addresses of a host, cleared first. acceptAddress: an address text gives that address without any query;
    /// false refuses such a text with MSG_NAME_ERROR, as is an empty host. Single form: the first address; false also
    /// when the look-up succeeded without any.
    ///@{
    bool ResolveHost(const String& host, bool acceptAddress, Vector<NetIP>& addresses, Messages& msgs);
    bool ResolveHost(const String& host, bool acceptAddress, NetIP& address, Messages& msgs);
    ///@}
    /// The names of an address, cleared first (single form: the first name).
    ///@{
    bool ResolveIP(const NetIP& ip, STRINGS& names, Messages& msgs);
    bool ResolveIP(const NetIP& ip, String& name, Messages& msgs);
    ///@}

    /// Drops the server list and fills it from the system's configuration, each server once. True when at least one was
    /// found and the settings could be read. A look-up does this by itself when the list is empty.
    bool GetDNSServers();
    /// Takes the servers (addresses or host names) as they are, in their order, repeats kept. An empty list brings
    /// discovery back, and so does one whose servers have all failed.
    void SetDNSServers(const STRINGS& servers);
    /// Empties the list, which brings discovery back.
    void ClearDNSServers();
    /// The list as it is now: empty before the first look-up, without the servers that failed since. An index at or
    /// past the count throws std::out_of_range.
    ///@{
    ULONG GetDNSServerCount() const;
    const String& GetDNSServer(ULONG index) const;
    ///@}

    /// The cache given at construction; may be null.
    NetDNSCache* GetCache() const { return m_cache; }
    /// The mode given at construction or set since; for sockets made from then on.
    ///@{
    NetIP::IPLOOKUPMODE GetIPLookupMode() const { return m_lookupMode; }
    void SetIPLookupMode(NetIP::IPLOOKUPMODE mode) { m_lookupMode = mode; }
    ///@}

    /// The earliest tick (milliseconds, 32 bits) at which an answer that this object received goes stale; 0xFFFFFFFF
    /// before the first answer and after a reset. Answers from the cache do not count.
    ULONG GetFirstExpiryTime() const { return m_firstExpiry; }
    /// Forgets the answers received so far.
    void ResetFirstExpiryTime();

private:
    struct TEXT_TYPE;
    struct CHECKED;

    static const TEXT_TYPE& xsGetTextType(RRTYPE type);
    bool xLookup(const String& domain, RRTYPE type, Messages& msgs);
    bool xLookup(const String& domain, const String& server, RRTYPE type, Messages& msgs);
    bool xIsLookupCached(const String& domain, RRTYPE type);
    bool xDoLookup(const String& domain, RRTYPE type, Messages& msgs);
    bool xDoLookup(const String& domain, const String& server, RRTYPE type, Messages& msgs);
    bool xAttempt(const String& domain, NetUDP& udp, RRTYPE type, bool& retry, Messages& msgs);
    bool xSendDNSRequest(const String& domain, NetUDP& udp, RRTYPE type, Messages& msgs);
    bool xRecv(NetUDP& udp, BYTE* buffer, ULONG& length);
    bool xIsTimeOut() const;
    void xResetTimeOut();
    bool xProcessResponse(const String& domain, NetUDP& udp, RRTYPE type, String& cname, bool& retry, Messages& msgs);
    void xStoreInCache(const String& domain, RRTYPE type, std::uint32_t expiry);
    VectorPtr<String>& xGetTextList(RRTYPE type);
    void xClearList(RRTYPE type);

    bool xCheckedLookup(const String& domain, const String* server, RRTYPE type, Messages& msgs);
    std::shared_ptr<const NetDNSAnswer> xAskChecked(const String& domain, const String* server, RRTYPE type);
    void xTakeAnswer(const NetDNSAnswer& answer, RRTYPE type);
    bool xAppendAddresses(const String& host, RRTYPE type, Vector<NetIP>& addresses, Messages& msgs);

    bool xLeadsTo(const String& name, const NetIP& ip);
    void xGetDNSServersViaWSA();
    void xAddDNS(const String& server);
    void xClearDNSServers();

    // All data is used by one thread at a time.
    VectorPtr<String> m_aRecords;
    VectorPtr<String> m_ptrRecords;
    VectorPtr<MX_RECORD> m_mxRecords;
    VectorPtr<String> m_txtRecords;
    VectorPtr<String> m_spfRecords;
    VectorPtr<String> m_servers;
    NetIP::IPLOOKUPMODE m_lookupMode;
    NetDNSCache* m_cache; ///< borrowed, may be null; set once at construction
    std::uint32_t m_timeOutStart = 0;
    std::uint32_t m_firstExpiry = 0xFFFFFFFFU;
    std::unique_ptr<CHECKED> m_checked; ///< null without options
};

} // namespace kqlib

// NetDNSAnswer: what a server said about a name, read by the RFCs. Inside the library only.
#pragma once

#include "common/String.h"
#include "common/Types.h"
#include "net/dns/NetDNS.h"
#include "platform/Export.h"

#include <cstdint>
#include <vector>

namespace kqlib {

class NetDNSReader;

/// The strict reader of a whole answer, for resolvers with options. Internal; exported for tests and fuzz targets.
///
/// Whether the message answers the question at all (identifier, question, source) is checked before, by NetDNSExchange.
///
/// Ownership: a plain value. Threads: one at a time. Errors: Parse sets the code.
class KQNET_API NetDNSAnswer
{
public:
    /// One record of any type.
    struct RECORD
    {
        String text; ///< the address, name or text; an exchanger or service "" is the root: there is none
        std::uint16_t priority = 0; ///< MX, SRV
        std::uint16_t weight = 0;   ///< SRV
        std::uint16_t port = 0;     ///< SRV
    };

    /// Takes in a message of length bytes: the answer to a question for name and type.
    void Parse(const BYTE* message, ULONG length, const String& name, NetDNS::RRTYPE type);
    /// Makes it the records; none: MSG_NO_RECORDS. Their life is 0.
    void Give(std::vector<RECORD> records);
    /// Makes it a failure.
    void Fail(NetDNS::MESSAGE code);

    /// 0: there are records, or an alias to be asked for. MSG_NO_RECORDS and MSG_NAME_ERROR: the server says that there
    /// is nothing. Others: what NetDNS adds for a failure.
    int GetCode() const { return m_code; }
    /// Whether a server that works has decided the question: with records, or with nothing.
    bool IsVerdict() const;
    /// MX and SRV ascending by priority, others in the order of the answer.
    const std::vector<RECORD>& GetRecords() const { return m_records; }
    /// The end of a chain of aliases that the answer has no records for; empty when there is none.
    const String& GetAlias() const { return m_alias; }
    /// The shortest life along the chain; of "nothing", what its SOA record allows (RFC 2308), 0 without one. Seconds.
    std::uint32_t GetLifeSec() const { return m_lifeSec; }
    /// Shortens the life.
    void LimitLife(std::uint32_t lifeSec);
    /// The server cut the answer, which has no records then.
    bool IsTruncated() const { return m_truncated; }
    /// About what it takes of memory.
    std::size_t GetBytes() const;

private:
    /// A record before it is known whether it is asked for.
    struct RAW
    {
        String owner;
        std::uint16_t type = 0;
        std::uint16_t recordClass = 0;
        std::uint32_t lifeSec = 0;
        ULONG begin = 0; ///< of its data
        ULONG end = 0;
    };

    [[nodiscard]] static bool xReadRecords(NetDNSReader& reader, unsigned count, std::vector<RAW>& records);
    [[nodiscard]] bool xFollow(const BYTE* message, ULONG length, const std::vector<RAW>& records, const String& name,
                               NetDNS::RRTYPE type);
    [[nodiscard]] static bool xReadData(NetDNSReader& reader, const RAW& raw, NetDNS::RRTYPE type, RECORD& record);
    static const RAW* xFindStart(const std::vector<RAW>& authorities);
    static std::uint32_t xGetNegativeLife(const BYTE* message, ULONG length, const RAW& start);

    int m_code = NetDNS::MSG_SERVER_FAILURE;
    std::vector<RECORD> m_records;
    String m_alias;
    std::uint32_t m_lifeSec = 0xFFFFFFFFU;
    bool m_truncated = false;
};

} // namespace kqlib

// NetDNSResponse: the parser of a DNS server's answer. Inside the library only.
#pragma once

#include "common/Messages.h"
#include "common/String.h"
#include "common/VectorPtr.h"
#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSReader.h"
#include "platform/Export.h"

#include <cstdint>

namespace kqlib {

/// Takes the records of one type out of a received message (RFC 1035 section 4). Internal; exported for tests and fuzz
/// targets.
///
/// Lenient by design: the id, the question's name, the owner names, the classes and the truncation flag are never
/// compared with anything. One bound is not described by any RFC: the names and texts of one answer, owner names
/// included, may unfold to 64 KiB, which is twice what an honest answer of 1024 bytes can. More is malformed.
///
/// Ownership: borrows the lists that records are added to; they must outlive this object. Threads: one at a time.
/// Errors: false, with a code of NetDNS::MESSAGE added.
class KQNET_API NetDNSResponse
{
public:
    /// For a query of any type but RR_MX. The list is not cleared first: records of an earlier pass stay in front.
    NetDNSResponse(NetDNS::RRTYPE type, VectorPtr<String>& texts);
    /// For an RR_MX query. The list must be in order; records of an earlier pass stay.
    explicit NetDNSResponse(VectorPtr<NetDNS::MX_RECORD>& exchangers);

    /// Parses a message of length bytes; called once. True: its records were added; or it gave a CNAME, which is the
    /// end of the parse, whatever stands behind it. False: see the codes; when a record was at fault, the list is empty
    /// now. A response code other than 0 adds its code and the parse goes on, so that true may come with one.
    [[nodiscard]] bool Parse(const BYTE* message, ULONG length, Messages& msgs);

    /// The name to ask for instead; empty when the records are there.
    const String& GetCName() const { return m_cname; }
    /// The shortest life of the records in seconds, never below 5000 (kept on purpose).
    std::uint32_t GetMinimumTTL() const { return m_minimumTTL; }

private:
    [[nodiscard]] static bool xSkipQuestion(NetDNSReader& reader);
    [[nodiscard]] bool xReadAnswer(NetDNSReader& reader);
    [[nodiscard]] bool xReadData(NetDNSReader& reader);
    [[nodiscard]] static bool xExtractIP(NetDNSReader& reader, String& text);
    [[nodiscard]] static bool xExtractText(NetDNSReader& reader, String& text);
    [[nodiscard]] bool xCountText(const String& text);
    void xInsertExchanger(std::uint16_t preference, const String& name);
    void xClearList();

    const NetDNS::RRTYPE m_type;
    VectorPtr<String>* const m_texts;                 ///< null for RR_MX
    VectorPtr<NetDNS::MX_RECORD>* const m_exchangers; ///< null for any other type
    String m_cname;
    String::size_type m_textBytes = 0; ///< unfolded so far
    std::uint32_t m_minimumTTL = 0xFFFFFFFFU;
};

} // namespace kqlib

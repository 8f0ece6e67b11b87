// NetDNSOptions: how a resolver asks when its answers are to be trusted further.
#pragma once

#include "common/String.h"
#include "common/Types.h"
#include "platform/Export.h"

#include <cstdint>

namespace kqlib {

/// What NetDNS::SetOptions takes. A resolver without options asks and believes as it always did; one with them,
/// whatever they say,
/// - sends a random identifier from a fresh port with each query, and believes an answer only when its identifier and
///   its question are those of the query. Whatever else comes is counted (NetDNS::GetRefusedAnswers), and it goes on
///   waiting;
/// - reads an answer by its RFCs: records of the asked name alone, aliases followed within the answer, texts joined
///   whole, names of at most 255 bytes;
/// - takes long answers, over TCP where a server has to cut them;
/// - knows AAAA and SRV records; ResolveHost gives addresses of both families;
/// - ends a look-up after a set time, keeps its list of servers, and takes "no such name" from the first that says so;
/// - honours the life that the zone gives an answer, within bounds, and keeps "nothing there" for a short time.
///
/// Set what differs from the defaults, hand the object to each resolver; it is copied.
///
/// Ownership: a plain value. Threads: one at a time; any number may read. Errors: a setter that answers false says that
/// the value is outside the range that its comment gives, and changes nothing.
class KQNET_API NetDNSOptions
{
public:
    /// The defaults that the setters name.
    NetDNSOptions();

    /// How long a query waits for its answer, in milliseconds: 10 to 60000; 2000 at first.
    ///@{
    [[nodiscard]] bool SetAnswerWaitMs(ULONG ms);
    std::uint32_t GetAnswerWaitMs() const { return m_answerWaitMs; }
    ///@}
    /// How long a whole look-up may last, over all servers, attempts and aliases, in milliseconds: 10 to 600000; 10000
    /// at first. ResolveHost may make two look-ups, and ResolveIP one more for each name that it confirms. A server
    /// given by its host name is looked up by the system first, which takes what time it likes.
    ///@{
    [[nodiscard]] bool SetLookupLimitMs(ULONG ms);
    std::uint32_t GetLookupLimitMs() const { return m_lookupLimitMs; }
    ///@}
    /// How often the list of servers is gone through while none of them answers: 1 to 10; 2 at first.
    ///@{
    [[nodiscard]] bool SetRounds(ULONG rounds);
    std::uint32_t GetRounds() const { return m_rounds; }
    ///@}
    /// The bounds of an answer's life in the cache, in seconds: a shorter one is lengthened, a longer one cut. At most
    /// 604800 (a week) each, the first not above the second; 0 and 86400 at first. An answer with life 0 is not kept.
    ///@{
    [[nodiscard]] bool SetLifeBounds(ULONG shortestSec, ULONG longestSec);
    std::uint32_t GetShortestLifeSec() const { return m_shortestLifeSec; }
    std::uint32_t GetLongestLifeSec() const { return m_longestLifeSec; }
    ///@}
    /// The longest life of "no such name" and "no records" in the cache (RFC 2308), in seconds: at most 10800; 300 at
    /// first. 0: they are not kept.
    ///@{
    [[nodiscard]] bool SetLongestNegativeLife(ULONG sec);
    std::uint32_t GetLongestNegativeLifeSec() const { return m_longestNegativeSec; }
    ///@}
    /// Whether the letters of each question are sent in a random mix of cases, which the answer has to repeat: one more
    /// bit to guess for each letter. On at first.
    ///@{
    void SetMixedCase(bool on) { m_mixedCase = on; }
    bool GetMixedCase() const { return m_mixedCase; }
    ///@}

    /// Whether answers longer than 512 bytes are welcome: queries say that 1232 bytes may come in a datagram (EDNS, RFC
    /// 6891), and an answer that the server had to cut is asked for again over TCP. On at first. Off: a cut answer is a
    /// server failure.
    ///@{
    void SetLargeAnswers(bool on) { m_largeAnswers = on; }
    bool GetLargeAnswers() const { return m_largeAnswers; }
    ///@}

    /// The hosts file that is looked at before servers are asked, after the cache; empty: none. At first that of the
    /// system. A name that stands there is answered by it alone, unless a server is named for the look-up.
    ///@{
    void SetHostsFile(const String& path) { m_hostsFile = path; }
    const String& GetHostsFile() const { return m_hostsFile; }
    static String sGetSystemHostsFile();
    ///@}
    /// Whether ResolveIP gives only names that lead back to the address: each name that the owner of the address
    /// claims, at most eight, is looked up, which replaces the A or AAAA records. None left: MSG_NAME_ERROR. Off at
    /// first.
    ///@{
    void SetConfirmNames(bool on) { m_confirmNames = on; }
    bool GetConfirmNames() const { return m_confirmNames; }
    ///@}

private:
    std::uint32_t m_answerWaitMs = 2000;
    std::uint32_t m_lookupLimitMs = 10000;
    std::uint32_t m_rounds = 2;
    std::uint32_t m_shortestLifeSec = 0;
    std::uint32_t m_longestLifeSec = 86400;
    std::uint32_t m_longestNegativeSec = 300;
    bool m_mixedCase = true;
    bool m_largeAnswers = true;
    bool m_confirmNames = false;
    String m_hostsFile;
};

} // namespace kqlib

// NetDNSExchange: questions that only their own answer is believed for.
#pragma once

#include "common/String.h"
#include "common/Types.h"
#include "common/Vector.h"
#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSAnswer.h"
#include "net/dns/NetDNSOptions.h"
#include "platform/Export.h"

#include <cstdint>
#include <vector>

namespace kqlib {

/// One look-up of a resolver with options: asks the given servers in turn, as often and as long as the options say, and
/// follows aliases. Internal; no part of the interface.
///
/// Ownership: owns copies of all it is given. Threads: one at a time; Run blocks for at most the limit of the options.
/// Errors: the code of the answer.
class KQNET_API NetDNSExchange
{
public:
    /// The time for the whole look-up begins to run.
    explicit NetDNSExchange(const NetDNSOptions& options);

    /// The addresses of a server given as an address text or as a name that the system's own look-up knows, at most 50.
    /// False: none.
    static bool sGetAddresses(const String& server, Vector<NetIP>& addresses);

    /// Asks the servers, each an address text or a host name, for the records of a name.
    NetDNSAnswer Run(const std::vector<String>& servers, const String& name, NetDNS::RRTYPE type);
    /// How many datagrams were refused.
    ULONG GetRefused() const { return m_refused; }

private:
    NetDNSAnswer xAskAll(const Vector<NetIP>& servers, const String& name, NetDNS::RRTYPE type);
    [[nodiscard]] bool xAsk(const NetIP& server, const String& name, NetDNS::RRTYPE type, NetDNSAnswer& answer);
    [[nodiscard]] bool xMakeQuery(const String& name, NetDNS::RRTYPE type, std::vector<BYTE>& query) const;
    [[nodiscard]] bool xAnswers(const std::vector<BYTE>& query, const BYTE* message, ULONG length) const;
    [[nodiscard]] bool xReceive(std::uint32_t handle, const std::vector<BYTE>& query, std::vector<BYTE>& message);
    std::uint32_t xGetTimeLeftMs() const;

    const NetDNSOptions m_options;
    const std::uint32_t m_start; ///< tick
    ULONG m_refused = 0;
};

} // namespace kqlib

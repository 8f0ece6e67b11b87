// NetDNSExchange: questions that only their own answer is believed for. Inside the library only.
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

namespace platform {
struct Endpoint;
} // namespace platform

/// One look-up of a resolver with options: asks the given servers in turn, as often and as long as the options say, and
/// follows aliases. Internal; no part of the interface.
///
/// Ownership: owns copies of all it is given. Threads: one at a time; Run blocks for at most the limit of the options,
/// and for the system's own look-up of servers that are given by host names.
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
    /// How a question goes out.
    enum WAY
    {
        WAY_PLAIN,    ///< over UDP as RFC 1035 has it
        WAY_EXTENDED, ///< over UDP with the word that more than 512 bytes may come
        WAY_STREAM    ///< over TCP
    };

    [[nodiscard]] bool xAsk(const NetIP& server, const String& name, NetDNS::RRTYPE type, NetDNSAnswer& answer);
    [[nodiscard]] bool xAskBy(WAY way, const NetIP& server, const String& name, NetDNS::RRTYPE type,
                              NetDNSAnswer& answer);
    [[nodiscard]] bool xMakeQuery(WAY way, const String& name, NetDNS::RRTYPE type, std::vector<BYTE>& query) const;
    [[nodiscard]] bool xAnswers(const std::vector<BYTE>& query, const BYTE* message, ULONG length) const;
    [[nodiscard]] bool xAskByDatagram(const platform::Endpoint& server, const std::vector<BYTE>& query,
                                      std::vector<BYTE>& message);
    [[nodiscard]] bool xReceive(std::uint32_t handle, const std::vector<BYTE>& query, std::vector<BYTE>& message);
    [[nodiscard]] bool xAskByStream(const platform::Endpoint& server, const std::vector<BYTE>& query,
                                    std::vector<BYTE>& message);
    [[nodiscard]] static bool xSendAll(std::uint32_t handle, const std::vector<BYTE>& bytes, std::uint32_t endTick);
    [[nodiscard]] static bool xRecvAll(std::uint32_t handle, std::size_t count, std::uint32_t endTick,
                                       std::vector<BYTE>& bytes);
    std::uint32_t xGetTimeLeftMs() const;
    std::uint32_t xGetEndOfWait() const;

    const NetDNSOptions m_options;
    const std::uint32_t m_start; ///< tick
    ULONG m_refused = 0;
};

} // namespace kqlib

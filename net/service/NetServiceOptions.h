// NetServiceOptions: what a service may do better than its defaults.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <cstdint>

namespace kqlib {

/// What NetTCPService::SetOptions takes. The defaults are those of a service without options.
///
/// Set what differs, hand the object to the service; it is copied.
///
/// Ownership: a plain value. Threads: one at a time; any number may read. Errors: a setter that answers false says that
/// the value is outside the range that its comment gives, and changes nothing.
class KQNET_API NetServiceOptions
{
public:
    /// How many connections may wait at each port until the service accepts them: 1 to 65535; 5 at first. Where it is
    /// too short for the clients that come at once, some of them wait a second or longer before they try again. A
    /// system with a lower limit of its own applies that without a word.
    ///@{
    [[nodiscard]] bool SetBacklog(ULONG connections);
    std::uint16_t GetBacklog() const { return m_backlog; }
    ///@}

private:
    std::uint16_t m_backlog = 5;
};

} // namespace kqlib

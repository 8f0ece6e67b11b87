// FtpGate: which clients may come in.
#pragma once

#include "hosts/ftp/FtpSettings.h"
#include "net/ipcontrol/NetAntiHammer.h"
#include "net/ipcontrol/NetIPTrack.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace kqlib {

/// Looks at the address of each client: whether it is blocked after failed log-ins, what the connection rules say, and
/// how many sessions it has already. One gate serves all sessions of a service.
///
/// A session calls Enter first, with the settings that it runs with, and Leave at its end when it was let in.
///
/// Ownership: borrows the cache, which must outlive it. Threads: any thread. Enter and IsBlocked wait for name servers
/// when rules name hosts, so they belong to a session's own thread. Errors: none.
class FtpGate
{
public:
    enum class VERDICT : std::uint8_t
    {
        WELCOME,
        BLOCKED, ///< too many failed log-ins
        DENIED,  ///< by the connection rules
        CROWDED  ///< as many sessions as an address may have
    };

    explicit FtpGate(NetDNSCache& cache);

    /// Takes over the numbers and exemptions of the anti-hammer. Addresses that are held stay, but for hammer attempts
    /// of 0, which turn it off and forget them.
    void SetSettings(const FtpSettings& settings);

    /// Decides about a new session; WELCOME counts it. local: the server's address of the connection.
    VERDICT Enter(const FtpSettings& settings, const NetIP& local, const NetIP& peer);
    /// The end of a session that was welcome.
    void Leave(const NetIP& peer);

    /// Counts a failed log-in. True: the address is blocked now.
    bool ReportFailure(const NetIP& local, const NetIP& peer);
    bool IsBlocked(const NetIP& local, const NetIP& peer);

    /// The sentence for a client that is not welcome, and for the log.
    static const char* sDescribe(VERDICT verdict);

private:
    bool xTakePlace(ULONG limit, const NetIP& peer);

    NetDNSCache& m_cache;
    NetAntiHammer m_hammer;
    std::atomic<bool> m_isHammerUsed{false};
    std::mutex m_mutex;
    NetIPTrack m_sessions; // guarded by m_mutex
};

} // namespace kqlib

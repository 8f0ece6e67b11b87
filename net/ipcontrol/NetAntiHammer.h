// NetAntiHammer: blocks addresses after repeated failures.
#pragma once

#include "common/NetIP.h"
#include "common/ThreadSafe.h"
#include "common/Vector.h"
#include "net/ipcontrol/NetIPControl.h"

#include <cstdint>
#include <memory>

namespace kqlib {

class NetAntiHammerTable;
class NetDNSCache;

/// Counts the failed attempts of each client address and blocks an address for a time once there were too many.
///
/// Sessions report each failure with AddFailedAttempt and ask IsBlocked when a client comes. An address is unknown,
/// failed (1 to max attempts - 1 failures, each at most the attempt window after the one before) or blocked (until the
/// block time has passed since the blocking; more failures do not lengthen it). There is no timer: what is over is
/// noticed by the next call.
///
/// At most 1,747,626 addresses are held; while that many are, a new address is not tracked and so never blocked. A call
/// costs the same however many are held. Two kinds of call take longer: one that doubles the table (tens of
/// milliseconds at the most), and the first one after a long silence, which forgets all that ran out meanwhile (some
/// tenths of a second for a million addresses).
///
/// With exemptions, IsBlocked lifts the block of an address that the rule list allows. What no rule matches is allowed,
/// so an empty list lifts every block; a list that names a few addresses ends with a rule that denies all.
///
/// Ownership: borrows the cache, which must outlive it. Threads: any thread; every call holds the object's lock, also
/// while IsBlocked looks up the host names of exemption rules. Errors: none but std::bad_alloc, from a constructor,
/// SetData, AddFailedAttempt of a new address and GetEntries; what the object holds has not changed then.
class KQNET_API NetAntiHammer : public ThreadSafe
{
public:
    /// An address that is held.
    struct ENTRY
    {
        NetIP ip;    ///< of the client
        ULONG time;  ///< tick of the last failure, or of the blocking
        ULONG count; ///< failures so far, 0 when blocked
    };

    /// The most addresses held at a time, failed and blocked ones together.
    static constexpr ULONG MAX_ENTRIES = 1747626;

    /// Five attempts, a window of 300 s, blocks of 1800 s, no exemptions.
    explicit NetAntiHammer(NetDNSCache& cache);
    /// As above but for the exemptions: the three numbers are ignored, kept on purpose; SetData sets them.
    NetAntiHammer(NetDNSCache& cache, ULONG ignoredAttempts, ULONG ignoredWindow, ULONG ignoredBlock,
                  bool useExemptions, const NetIPControl& exemptions);
    /// Forgets every address.
    ~NetAntiHammer();
    NetAntiHammer(const NetAntiHammer&) = delete;
    NetAntiHammer& operator=(const NetAntiHammer&) = delete;

    /// Addresses held stay and are judged by the new numbers from the next call on. maxAttempts 0: the second failure
    /// of an address blocks it. Windows in seconds. A number of more than 32 bits counts as the largest of 32 bits.
    void SetData(ULONG maxAttempts, ULONG attemptWindowSeconds, ULONG blockSeconds, bool useExemptions,
                 const NetIPControl& exemptions);

    /// Records one failure. True: peer is blocked now. local is not used.
    bool AddFailedAttempt(NetIP peer, NetIP local);
    /// True while peer is blocked. local: the server's own address, for the exemption rules.
    bool IsBlocked(NetIP peer, NetIP local);
    /// Forgets every address.
    void ResetIPs();

    /// Copies of what is held now, the oldest time first, for people to look at. Does not expire anything.
    void GetEntries(Vector<ENTRY>& failed, Vector<ENTRY>& blocked) const;

protected:
    /// As the first, but at most maxEntries addresses are held (never more than MAX_ENTRIES), to save memory.
    NetAntiHammer(NetDNSCache& cache, ULONG maxEntries);

private:
    void xRemoveExpired();

    NetDNSCache& m_cache; ///< set once at construction; the rest is guarded by the object's lock
    std::unique_ptr<NetAntiHammerTable> m_table;
    std::uint32_t m_maxAttempts;
    std::uint32_t m_attemptWindow; ///< seconds
    std::uint32_t m_blockTime;     ///< seconds
    bool m_useExemptions = false;
    NetIPControl m_exemptions;
};

} // namespace kqlib

// FtpGate: which clients may come in.
#pragma once

#include "common/EventLogSessionID.h"
#include "hosts/ftp/FtpSettings.h"
#include "net/ipcontrol/NetAntiHammer.h"
#include "net/ipcontrol/NetIPTrack.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>

namespace kqlib {

/// Looks at the address of each client (whether it is blocked after failed log-ins, what the connection rules say, how
/// many sessions it has already) and hands out the places of the server. One gate serves all sessions of a service.
///
/// When every place is taken, a newcomer gets that of the client that has waited longest without logging in, so that
/// silent clients lock nobody out. When all have logged in, a few more places are kept for administrators and for the
/// addresses that the settings favour.
///
/// A session calls Enter first, with the settings that it runs with. When it was let in it calls LogIn and LogOut as
/// its client does, and Leave at its end. Whoever is handed the number of a displaced session asks that to end.
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
        CROWDED, ///< as many sessions as an address may have
        FULL,    ///< no place left
        USED_UP  ///< as many sessions as an account may have
    };

    /// A session that was let in.
    struct GUEST
    {
        EventLogSessionID id;
        NetIP address;
        bool isFavoured = false;  ///< comes from an address that places are kept for
        bool isOnReserve = false; ///< has one of the places that are kept
        bool isLoggedIn = false;
        String user = String();   ///< while logged in
        bool isDisplaced = false; ///< its place is somebody else's; it only has to leave yet
    };
    using PLACE = std::list<GUEST>::iterator;
    using DISPLACED = std::optional<EventLogSessionID>;

    struct ENTRY
    {
        VERDICT verdict = VERDICT::FULL;
        std::optional<PLACE> place; ///< with WELCOME
        DISPLACED displaced;        ///< whose place it was, if it was somebody's
    };

    explicit FtpGate(NetDNSCache& cache);

    /// Takes over the numbers and exemptions of the anti-hammer. Addresses that are held stay, but for hammer attempts
    /// of 0, which turn it off and forget them.
    void SetSettings(const FtpSettings& settings);

    /// Decides about a new session. local: the server's address of the connection.
    [[nodiscard]] ENTRY Enter(const FtpSettings& settings, const EventLogSessionID& id, const NetIP& local,
                              const NetIP& peer);
    /// FULL: the place is gone, or was one of those kept and the user is no administrator. USED_UP: the account has as
    /// many sessions as it may have.
    [[nodiscard]] VERDICT LogIn(const FtpSettings& settings, PLACE place, const FtpUserSettings& user,
                                DISPLACED& displaced);
    void LogOut(PLACE place);
    /// The end of a session that was welcome; place is spent.
    void Leave(PLACE place);

    /// Counts a failed log-in. True: the address is blocked now.
    bool ReportFailure(const NetIP& local, const NetIP& peer);
    bool IsBlocked(const NetIP& local, const NetIP& peer);

    /// The sentence for a client that is not welcome, and for the log.
    static const char* sDescribe(VERDICT verdict);

private:
    ULONG xCountSessionsPreLocked(const String& user) const;
    bool xMakeRoomPreLocked(bool onReserve, ULONG places, DISPLACED& displaced);

    NetDNSCache& m_cache;
    NetAntiHammer m_hammer;
    std::atomic<bool> m_isHammerUsed{false};
    std::mutex m_mutex;
    NetIPTrack m_sessions;     // guarded by m_mutex, as what follows
    std::list<GUEST> m_guests; // in the order in which they came
};

} // namespace kqlib

// FtpGate: which clients may come in.
#include "hosts/ftp/FtpGate.h"

#include "net/ipcontrol/NetIPControlQuery.h"

#include <algorithm>

namespace kqlib {

FtpGate::FtpGate(NetDNSCache& cache)
    : m_cache(cache)
    , m_hammer(cache)
{
}

void FtpGate::SetSettings(const FtpSettings& settings)
{
    m_isHammerUsed = settings.GetHammerAttempts() != 0;
    if (!m_isHammerUsed)
        return m_hammer.ResetIPs();
    // An exemption list without rules would lift every block.
    const NetIPControl& exemptions = settings.GetHammerExemptions();
    m_hammer.SetData(settings.GetHammerAttempts(), settings.GetHammerWindowSecs(), settings.GetHammerBlockSecs(),
                     exemptions.GetCount() != 0, exemptions);
}

FtpGate::ENTRY FtpGate::Enter(const FtpSettings& settings, const EventLogSessionID& id, const NetIP& local,
                              const NetIP& peer)
{
    // What may wait for name servers comes first, without the lock.
    NetIPControlQuery query(m_cache);
    if (IsBlocked(local, peer))
        return {VERDICT::BLOCKED, {}, {}};
    if (query.IsDenied(settings.GetConnectionRules(), local, peer))
        return {VERDICT::DENIED, {}, {}};
    const NetIPControl& favoured = settings.GetReservedAddresses();
    const bool isFavoured = favoured.GetCount() != 0 && !query.IsDenied(favoured, local, peer);

    const std::lock_guard lock(m_mutex);
    const ULONG limit = settings.GetMaxSessionsPerAddress();
    if (limit != 0 && m_sessions.GetCount(peer) >= limit)
        return {VERDICT::CROWDED, {}, {}};
    ENTRY entry;
    const bool isOnReserve = !xMakeRoomPreLocked(false, settings.GetMaxSessions(), entry.displaced);
    if (isOnReserve && !xMakeRoomPreLocked(true, settings.GetReservedSessions(), entry.displaced))
        return entry;
    m_sessions.Add(peer);
    entry.verdict = VERDICT::WELCOME;
    entry.place = m_guests.insert(m_guests.end(), GUEST{id, peer, isFavoured, isOnReserve});
    return entry;
}

/// Whether there is a place for one more, if need be that of who has waited longest without logging in; of who comes
/// from a favoured address only when all that wait do.
bool FtpGate::xMakeRoomPreLocked(bool onReserve, ULONG places, DISPLACED& displaced)
{
    ULONG taken = 0;
    GUEST* idler = nullptr;
    for (GUEST& guest : m_guests) {
        if (guest.isDisplaced || guest.isOnReserve != onReserve)
            continue;
        ++taken;
        if (!guest.isLoggedIn && (idler == nullptr || (idler->isFavoured && !guest.isFavoured)))
            idler = &guest;
    }
    if (taken < places)
        return true;
    if (idler == nullptr)
        return false;
    idler->isDisplaced = true;
    displaced = idler->id;
    return true;
}

ULONG FtpGate::xCountSessionsPreLocked(const String& user) const
{
    return static_cast<ULONG>(std::count_if(m_guests.begin(), m_guests.end(), [&user](const GUEST& guest) {
        return guest.isLoggedIn && guest.user == user;
    }));
}

FtpGate::VERDICT FtpGate::LogIn(const FtpSettings& settings, PLACE place, const FtpUserSettings& user,
                                DISPLACED& displaced)
{
    const bool isAdministrator = (user.GetRightBits() & FtpUserSettings::ADMIN) != 0;
    const ULONG limit = user.GetMaxSessions() != 0 ? user.GetMaxSessions() : settings.GetMaxSessionsPerUser();
    const std::lock_guard lock(m_mutex);
    GUEST& guest = *place;
    if (guest.isDisplaced)
        return VERDICT::FULL;
    if (limit != 0 && xCountSessionsPreLocked(user.GetName()) >= limit)
        return VERDICT::USED_UP;
    if (guest.isOnReserve && !isAdministrator && !guest.isFavoured) {
        if (!xMakeRoomPreLocked(false, settings.GetMaxSessions(), displaced))
            return VERDICT::FULL;
        guest.isOnReserve = false;
    }
    guest.isLoggedIn = true;
    guest.user = user.GetName();
    return VERDICT::WELCOME;
}

void FtpGate::LogOut(PLACE place)
{
    const std::lock_guard lock(m_mutex);
    place->isLoggedIn = false;
}

void FtpGate::Leave(PLACE place)
{
    const std::lock_guard lock(m_mutex);
    m_sessions.Remove(place->address);
    m_guests.erase(place);
}

bool FtpGate::ReportFailure(const NetIP& local, const NetIP& peer)
{
    return m_isHammerUsed && m_hammer.AddFailedAttempt(peer, local);
}

bool FtpGate::IsBlocked(const NetIP& local, const NetIP& peer)
{
    return m_isHammerUsed && m_hammer.IsBlocked(peer, local);
}

const char* FtpGate::sDescribe(VERDICT verdict)
{
    switch (verdict) {
    case VERDICT::WELCOME:
        break;
    case VERDICT::BLOCKED:
        return "Too many failed log-ins from your address, come back later";
    case VERDICT::DENIED:
        return "Your address is not served";
    case VERDICT::CROWDED:
        return "Too many connections from your address";
    case VERDICT::FULL:
        return "The server is full, come back later";
    case VERDICT::USED_UP:
        return "Too many sessions of this account";
    }
    return "Welcome";
}

} // namespace kqlib

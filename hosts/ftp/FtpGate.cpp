// FtpGate: which clients may come in.
#include "hosts/ftp/FtpGate.h"

#include "net/ipcontrol/NetIPControlQuery.h"

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

FtpGate::VERDICT FtpGate::Enter(const FtpSettings& settings, const NetIP& local, const NetIP& peer)
{
    if (IsBlocked(local, peer))
        return VERDICT::BLOCKED;
    if (NetIPControlQuery(m_cache).IsDenied(settings.GetConnectionRules(), local, peer))
        return VERDICT::DENIED;
    return xTakePlace(settings.GetMaxSessionsPerAddress(), peer) ? VERDICT::WELCOME : VERDICT::CROWDED;
}

/// Counts one more session of an address, if the limit (0: none) allows it.
bool FtpGate::xTakePlace(ULONG limit, const NetIP& peer)
{
    const std::lock_guard lock(m_mutex);
    if (limit != 0 && m_sessions.GetCount(peer) >= limit)
        return false;
    m_sessions.Add(peer);
    return true;
}

void FtpGate::Leave(const NetIP& peer)
{
    const std::lock_guard lock(m_mutex);
    m_sessions.Remove(peer);
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
    }
    return "Welcome";
}

} // namespace kqlib

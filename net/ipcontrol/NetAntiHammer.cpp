#include "net/ipcontrol/NetAntiHammer.h"

#include "common/TimedEvent.h"
#include "net/ipcontrol/NetAntiHammerTable.h"
#include "net/ipcontrol/NetIPControlQuery.h"

#include <algorithm>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetAntiHammer::MAX_ENTRIES;

namespace {

constexpr std::uint32_t DEFAULT_MAX_ATTEMPTS = 5;
constexpr std::uint32_t DEFAULT_ATTEMPT_WINDOW_SECS = 300;
constexpr std::uint32_t DEFAULT_BLOCK_SECS = 1800;

/// A number too large for 32 bits becomes the largest.
std::uint32_t Cut(ULONG number)
{
    return static_cast<std::uint32_t>(std::min<ULONG>(number, 0xFFFFFFFFUL));
}

std::uint64_t ToMilliSecs(std::uint32_t seconds)
{
    return std::uint64_t{seconds} * 1000;
}

} // namespace

NetAntiHammer::NetAntiHammer(NetDNSCache& cache)
    : NetAntiHammer(cache, MAX_ENTRIES)
{
}

NetAntiHammer::NetAntiHammer(NetDNSCache& cache, ULONG maxEntries)
    : m_cache(cache)
    , m_table(std::make_unique<NetAntiHammerTable>(Cut(std::min(maxEntries, MAX_ENTRIES))))
    , m_maxAttempts(DEFAULT_MAX_ATTEMPTS)
    , m_attemptWindow(DEFAULT_ATTEMPT_WINDOW_SECS)
    , m_blockTime(DEFAULT_BLOCK_SECS)
{
}

NetAntiHammer::NetAntiHammer(NetDNSCache& cache, ULONG, ULONG, ULONG, bool useExemptions,
                             const NetIPControl& exemptions)
    : NetAntiHammer(cache)
{
    m_useExemptions = useExemptions;
    m_exemptions = exemptions;
}

NetAntiHammer::~NetAntiHammer() = default;

void NetAntiHammer::SetData(ULONG maxAttempts, ULONG attemptWindowSeconds, ULONG blockSeconds, bool useExemptions,
                            const NetIPControl& exemptions)
{
    const Guard guard(*this);
    // First what may fail for want of memory: then nothing has changed.
    m_exemptions = exemptions;
    m_maxAttempts = Cut(maxAttempts);
    m_attemptWindow = Cut(attemptWindowSeconds);
    m_blockTime = Cut(blockSeconds);
    m_useExemptions = useExemptions;
}

bool NetAntiHammer::AddFailedAttempt(NetIP peer, NetIP)
{
    const Guard guard(*this);
    xRemoveExpired();
    const auto held = m_table->Find(peer);
    if (!held && m_table->IsFull())
        return false;
    if (!held) {
        const bool block = m_maxAttempts == 1;
        m_table->Add(peer, block ? 0 : 1);
        return block;
    }
    const NetAntiHammerTable::PLACE place = *held;
    if (place->IsBlocked())
        return true;
    const std::uint64_t failures = std::uint64_t{place->count} + 1;
    const bool block = failures >= m_maxAttempts;
    m_table->Renew(place, block ? 0 : static_cast<std::uint32_t>(failures));
    return block;
}

bool NetAntiHammer::IsBlocked(NetIP peer, NetIP local)
{
    const Guard guard(*this);
    xRemoveExpired();
    const auto held = m_table->Find(peer);
    if (!held || !(*held)->IsBlocked())
        return false;
    if (!m_useExemptions || !NetIPControlQuery(m_cache).IsAllowed(m_exemptions, local, peer))
        return true;
    m_table->Remove(*held);
    return false;
}

void NetAntiHammer::ResetIPs()
{
    const Guard guard(*this);
    m_table->Clear();
}

void NetAntiHammer::GetEntries(Vector<ENTRY>& failed, Vector<ENTRY>& blocked) const
{
    const Guard guard(*this);
    failed.Reset();
    blocked.Reset();
    for (const NetAntiHammerTable::ENTRY& entry : m_table->GetFailed())
        failed.Add(ENTRY{entry.ip, entry.time, entry.count});
    for (const NetAntiHammerTable::ENTRY& entry : m_table->GetBlocked())
        blocked.Add(ENTRY{entry.ip, entry.time, entry.count});
}

void NetAntiHammer::xRemoveExpired()
{
    m_table->Advance(static_cast<std::uint32_t>(TimedEvent::sGetNow()), ToMilliSecs(m_attemptWindow),
                     ToMilliSecs(m_blockTime));
}

} // namespace kqlib

#include "net/ipcontrol/NetAntiHammer.h"

#include "common/TimedEvent.h"
#include "net/ipcontrol/NetAntiHammerTable.h"
#include "net/ipcontrol/NetIPControlQuery.h"

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetAntiHammer::MAX_ENTRIES;

namespace {

constexpr std::uint32_t DEFAULT_MAX_ATTEMPTS = 5;
constexpr std::uint32_t DEFAULT_ATTEMPT_WINDOW_SECS = 300;
constexpr std::uint32_t DEFAULT_BLOCK_SECS = 1800;

std::uint64_t ToMilliSecs(std::uint32_t seconds)
{
    return std::uint64_t{seconds} * 1000;
}

} // namespace

static_assert(NetAntiHammer::MAX_ENTRIES <= NetAntiHammerTable::MAX_CAPACITY);

NetAntiHammer::NetAntiHammer(NetDNSCache& cache)
    : NetAntiHammer(cache, MAX_ENTRIES)
{
}

NetAntiHammer::NetAntiHammer(NetDNSCache& cache, ULONG maxEntries)
    : m_cache(cache)
    , m_table(std::make_unique<NetAntiHammerTable>(static_cast<std::uint32_t>(maxEntries)))
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
    // What had run out by the last check is gone for good, whatever the new numbers are.
    m_table->DropExpired();
    m_maxAttempts = static_cast<std::uint32_t>(maxAttempts);
    m_attemptWindow = static_cast<std::uint32_t>(attemptWindowSeconds);
    m_blockTime = static_cast<std::uint32_t>(blockSeconds);
    m_useExemptions = useExemptions;
    m_exemptions = exemptions;
}

bool NetAntiHammer::AddFailedAttempt(NetIP peer, NetIP)
{
    using LIST = NetAntiHammerTable::LIST;
    const Guard guard(*this);
    std::uint32_t now = 0;
    xRemoveExpired(now);
    NetAntiHammerTable::SLOT* slot = m_table->Find(peer);
    if (slot != nullptr && slot->list == LIST::BLOCKED)
        return true;
    if (slot != nullptr) {
        const std::uint64_t failures = std::uint64_t{slot->count} + 1;
        const bool block = failures >= m_maxAttempts;
        m_table->Renew(*slot, block ? LIST::BLOCKED : LIST::FAILED, block ? 0 : static_cast<std::uint32_t>(failures));
        return block;
    }
    if (m_table->IsFull())
        return false;
    const bool block = m_maxAttempts == 1;
    m_table->Add(peer, block ? LIST::BLOCKED : LIST::FAILED, block ? 0 : 1);
    return block;
}

bool NetAntiHammer::IsBlocked(NetIP peer, NetIP local)
{
    const Guard guard(*this);
    std::uint32_t now = 0;
    xRemoveExpired(now);
    NetAntiHammerTable::SLOT* slot = m_table->Find(peer);
    if (slot == nullptr || slot->list != NetAntiHammerTable::LIST::BLOCKED)
        return false;
    if (!m_useExemptions || !NetIPControlQuery(m_cache).IsAllowed(m_exemptions, local, peer))
        return true;
    m_table->Remove(*slot);
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
    m_table->ForEach([&](const NetAntiHammerTable::SLOT& slot) {
        Vector<ENTRY>& target = slot.list == NetAntiHammerTable::LIST::BLOCKED ? blocked : failed;
        target.Add(ENTRY{slot.ip, slot.time, slot.count});
    });
}

void NetAntiHammer::xRemoveExpired(std::uint32_t& now)
{
    now = static_cast<std::uint32_t>(TimedEvent::sGetNow());
    m_table->Advance(now, ToMilliSecs(m_attemptWindow), ToMilliSecs(m_blockTime));
}

} // namespace kqlib

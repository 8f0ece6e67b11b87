#include "net/ipcontrol/NetAntiHammerTable.h"

#include "net/ipcontrol/NetAntiHammer.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace kqlib {

namespace {

/// Run-out entries removed per call: more than the one that a call can add, few enough not to be felt.
constexpr int REMOVALS_PER_CALL = 16;
constexpr std::uint32_t FIRST_BUCKETS = 16;

/// The finishing steps of a 64-bit mixing function: every input bit reaches every output bit.
std::uint64_t Mix(std::uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

} // namespace

NetAntiHammerTable::NetAntiHammerTable()
{
    std::random_device device;
    m_hashSeed = (std::uint64_t{device()} << 32) | device();
    Clear();
}

void NetAntiHammerTable::Clear()
{
    m_chunks.clear();
    m_buckets.assign(FIRST_BUCKETS, NONE);
    m_buckets.shrink_to_fit();
    m_lowMask = FIRST_BUCKETS - 1;
    for (QUEUE& queue : m_queues)
        queue.oldest = queue.newest = NONE;
    m_free = NONE;
    m_used = 0;
    m_count = 0;
}

void NetAntiHammerTable::Advance(std::uint32_t now, std::uint64_t failedLife, std::uint64_t blockedLife)
{
    xQueue(LIST::FAILED).life = failedLife;
    xQueue(LIST::BLOCKED).life = blockedLife;
    if (xWouldAnAgeWrap(now))
        xAdvanceOverWrap(now);
    m_now = now;
    for (QUEUE& queue : m_queues)
        for (int removal = 0; removal < REMOVALS_PER_CALL && xEraseOldestIfExpired(queue); ++removal) {
        }
    if (m_count == 0 && m_used > CHUNK_SIZE)
        Clear();
}

void NetAntiHammerTable::DropExpired(std::uint64_t failedLife, std::uint64_t blockedLife)
{
    xQueue(LIST::FAILED).life = failedLife;
    xQueue(LIST::BLOCKED).life = blockedLife;
    for (QUEUE& queue : m_queues)
        while (xEraseOldestIfExpired(queue)) {
        }
}

// Ages are 32-bit differences: an entry that was not asked about for 49.7 days becomes young again, and the order of
// the lists no longer is the order of ages.
bool NetAntiHammerTable::xWouldAnAgeWrap(std::uint32_t now) const
{
    const std::uint64_t passed = std::uint32_t(now - m_now);
    return std::any_of(m_queues.begin(), m_queues.end(), [&](const QUEUE& queue) {
        return queue.oldest != NONE && xAge(xSlot(queue.oldest)) + passed > 0xFFFFFFFFULL;
    });
}

void NetAntiHammerTable::xAdvanceOverWrap(std::uint32_t now)
{
    for (QUEUE& queue : m_queues) {
        // What had run out at the last call is gone, before it can look young again.
        while (xEraseOldestIfExpired(queue)) {
        }
        std::vector<std::uint32_t> left;
        for (std::uint32_t index = queue.oldest; index != NONE; index = xSlot(index).newer)
            left.push_back(index);
        std::stable_sort(left.begin(), left.end(), [&](std::uint32_t first, std::uint32_t second) {
            return std::uint32_t(now - xSlot(first).time) > std::uint32_t(now - xSlot(second).time);
        });
        queue.oldest = queue.newest = NONE;
        for (const std::uint32_t index : left)
            xAppendToQueue(index);
    }
}

bool NetAntiHammerTable::xEraseOldestIfExpired(QUEUE& queue)
{
    if (queue.oldest == NONE || !xIsExpired(xSlot(queue.oldest)))
        return false;
    xErase(queue.oldest);
    return true;
}

NetAntiHammerTable::SLOT* NetAntiHammerTable::Find(const NetIP& ip)
{
    const std::uint32_t index = xIndexOf(ip);
    if (index == NONE)
        return nullptr;
    if (!xIsExpired(xSlot(index)))
        return &xSlot(index);
    xErase(index);
    return nullptr;
}

void NetAntiHammerTable::Add(const NetIP& ip, LIST list, std::uint32_t count)
{
    xSplitBucket();
    const std::uint32_t index = xTakeFreeSlot();
    std::uint32_t& bucket = m_buckets[xBucketOf(ip)];
    xSlot(index) = SLOT{ip, m_now, count, NONE, NONE, bucket, list};
    bucket = index;
    ++m_count;
    xAppendToQueue(index);
}

void NetAntiHammerTable::Renew(SLOT& slot, LIST list, std::uint32_t count)
{
    const std::uint32_t index = xIndexOf(slot.ip);
    xTakeFromQueue(index);
    slot.list = list;
    slot.time = m_now;
    slot.count = count;
    xAppendToQueue(index);
}

void NetAntiHammerTable::Remove(SLOT& slot)
{
    xErase(xIndexOf(slot.ip));
}

std::uint32_t NetAntiHammerTable::GetCount()
{
    // Whether there is room is all that is asked of a full table: one run-out entry makes it.
    if (m_count >= NetAntiHammer::MAX_ENTRIES && !xEraseOldestIfExpired(xQueue(LIST::FAILED)))
        xEraseOldestIfExpired(xQueue(LIST::BLOCKED));
    return m_count;
}

void NetAntiHammerTable::ForEach(const std::function<void(const SLOT&)>& visit) const
{
    for (const QUEUE& queue : m_queues)
        for (std::uint32_t index = queue.oldest; index != NONE; index = xSlot(index).newer)
            if (!xIsExpired(xSlot(index)))
                visit(xSlot(index));
}

std::uint32_t NetAntiHammerTable::xIndexOf(const NetIP& ip) const
{
    std::uint32_t index = m_buckets[xBucketOf(ip)];
    while (index != NONE && !(xSlot(index).ip == ip))
        index = xSlot(index).chained;
    return index;
}

std::uint32_t NetAntiHammerTable::xBucketOf(const NetIP& ip) const
{
    std::uint64_t words[2];
    std::memcpy(words, ip.GetBytes(), sizeof words);
    const std::uint64_t hash = Mix(Mix(words[0] ^ m_hashSeed) + words[1] + ip.GetType());
    // Buckets past the last doubling exist for the first part of the table only.
    const std::uint64_t wide = hash & (std::uint64_t{m_lowMask} * 2 + 1);
    return static_cast<std::uint32_t>(wide < m_buckets.size() ? wide : hash & m_lowMask);
}

/// Adds one bucket and moves to it what now belongs there from the one bucket that shared its addresses.
void NetAntiHammerTable::xSplitBucket()
{
    if (m_count < m_buckets.size())
        return;
    const auto source = static_cast<std::uint32_t>(m_buckets.size()) & m_lowMask;
    m_buckets.push_back(NONE);
    std::uint32_t index = m_buckets[source];
    m_buckets[source] = NONE;
    while (index != NONE) {
        SLOT& slot = xSlot(index);
        const std::uint32_t next = slot.chained;
        std::uint32_t& bucket = m_buckets[xBucketOf(slot.ip)];
        slot.chained = bucket;
        bucket = index;
        index = next;
    }
    if (m_buckets.size() == (std::size_t{m_lowMask} + 1) * 2)
        m_lowMask = m_lowMask * 2 + 1;
}

std::uint32_t NetAntiHammerTable::xTakeFreeSlot()
{
    if (m_free != NONE) {
        const std::uint32_t index = m_free;
        m_free = xSlot(index).newer;
        return index;
    }
    if (m_used == m_chunks.size() * CHUNK_SIZE)
        m_chunks.push_back(std::make_unique_for_overwrite<SLOT[]>(CHUNK_SIZE));
    return m_used++;
}

void NetAntiHammerTable::xAppendToQueue(std::uint32_t index)
{
    SLOT& slot = xSlot(index);
    QUEUE& queue = xQueue(slot.list);
    slot.older = queue.newest;
    slot.newer = NONE;
    (queue.newest == NONE ? queue.oldest : xSlot(queue.newest).newer) = index;
    queue.newest = index;
}

void NetAntiHammerTable::xTakeFromQueue(std::uint32_t index)
{
    const SLOT& slot = xSlot(index);
    QUEUE& queue = xQueue(slot.list);
    (slot.older == NONE ? queue.oldest : xSlot(slot.older).newer) = slot.newer;
    (slot.newer == NONE ? queue.newest : xSlot(slot.newer).older) = slot.older;
}

void NetAntiHammerTable::xErase(std::uint32_t index)
{
    SLOT& slot = xSlot(index);
    xTakeFromQueue(index);
    std::uint32_t* link = &m_buckets[xBucketOf(slot.ip)];
    while (*link != index)
        link = &xSlot(*link).chained;
    *link = slot.chained;
    slot.newer = m_free;
    m_free = index;
    --m_count;
}

} // namespace kqlib

#include "net/ipcontrol/NetAntiHammerTable.h"

#include <cassert>
#include <cstring>
#include <random>

namespace kqlib {

namespace {

/// Run-out entries removed per call and list: more than the one that a call can add, few enough not to be felt.
constexpr int REMOVALS_PER_CALL = 2;
/// Entries per bucket, on average, above which another bucket is made. Buckets that wait for their split hold up to
/// twice as many, which nearly always find their cells.
constexpr std::uint32_t ENTRIES_PER_BUCKET = 6;

constexpr unsigned INDEX_BITS = 21;
constexpr std::uint32_t INDEX_MASK = (1U << INDEX_BITS) - 1;
constexpr unsigned MARK_BITS = 6;          ///< enough to number the bits of a word
constexpr std::uint32_t KEPT_SLOTS = 1024; ///< memory that an empty table does not give back

/// The finishing steps of a 64-bit mixing function: every input bit reaches every output bit.
std::uint64_t Mix(std::uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31);
}

/// The part of a hash that a cell holds: the bits that choose the bucket are not among them.
std::uint32_t TagOf(std::uint64_t hash)
{
    return static_cast<std::uint32_t>(hash >> (32 + INDEX_BITS)) << INDEX_BITS;
}

/// The bit by which a hash is marked in the word of its bucket; the number of the bit is the uppermost part of the tag.
std::uint64_t MarkOf(std::uint64_t hash)
{
    return std::uint64_t{1} << (hash >> (64 - MARK_BITS));
}

/// The mark of the hash that a cell holds a part of.
std::uint64_t MarkOfCell(std::uint32_t cell)
{
    return std::uint64_t{1} << (cell >> (32 - MARK_BITS));
}

} // namespace

NetAntiHammerTable::NetAntiHammerTable(std::uint32_t capacity)
    : m_capacity(capacity)
{
    assert(capacity <= MAX_CAPACITY);
    std::random_device device;
    m_hashSeed = (std::uint64_t{device()} << 32) | device();
    Clear();
}

void NetAntiHammerTable::Clear()
{
    m_slots.Clear();
    m_buckets.Clear();
    m_marks.Clear();
    xAddBucket();
    m_lowMask = 0;
    for (QUEUE& queue : m_queues)
        queue.oldest = queue.newest = NONE;
    m_free = NONE;
    m_count = 0;
}

void NetAntiHammerTable::Advance(std::uint32_t now, std::uint64_t failedLife, std::uint64_t blockedLife)
{
    // 1. Entries whose age begins anew on the way from the last call to this one.
    for (QUEUE& queue : m_queues)
        xPassWrap(queue, std::uint32_t(now - m_now));
    // 2. The new time and life times.
    m_now = now;
    xQueue(LIST::FAILED).life = failedLife;
    xQueue(LIST::BLOCKED).life = blockedLife;
    // 3. A few of those that have run out.
    for (QUEUE& queue : m_queues)
        for (int removal = 0; removal < REMOVALS_PER_CALL && xEraseOldestIfExpired(queue); ++removal) {
        }
    if (m_count == 0 && m_slots.GetCount() > KEPT_SLOTS)
        Clear();
}

void NetAntiHammerTable::DropExpired()
{
    for (QUEUE& queue : m_queues)
        while (xEraseOldestIfExpired(queue)) {
        }
}

/// Ages are 32-bit differences: an entry that nobody asked about for 49.7 days becomes young again. Such entries are
/// the oldest of their list, and are the youngest afterwards in the order that they had; so they go to its end.
void NetAntiHammerTable::xPassWrap(QUEUE& queue, std::uint64_t passed)
{
    const auto wraps = [&](std::uint32_t index) {
        return std::uint32_t(m_now - m_slots[index].time) + passed > 0xFFFFFFFFULL;
    };
    if (queue.oldest == NONE || !wraps(queue.oldest))
        return;
    // What had run out at the last call is gone, before it can look young again.
    while (xEraseOldestIfExpired(queue)) {
    }
    const std::uint32_t lastToLookAt = queue.newest;
    while (queue.oldest != NONE && wraps(queue.oldest)) {
        const std::uint32_t index = queue.oldest;
        xTakeFromQueue(index);
        xAppendToQueue(index);
        if (index == lastToLookAt)
            break;
    }
}

bool NetAntiHammerTable::xEraseOldestIfExpired(QUEUE& queue)
{
    if (queue.oldest == NONE || !xIsExpired(m_slots[queue.oldest]))
        return false;
    xErase(queue.oldest);
    return true;
}

NetAntiHammerTable::SLOT* NetAntiHammerTable::Find(const NetIP& ip)
{
    const std::uint32_t index = xIndexOf(ip);
    if (index == NONE)
        return nullptr;
    if (!xIsExpired(m_slots[index]))
        return &m_slots[index];
    xErase(index);
    return nullptr;
}

void NetAntiHammerTable::Add(const NetIP& ip, LIST list, std::uint32_t count)
{
    xSplitBucket();
    const std::uint32_t index = xTakeFreeSlot();
    m_slots[index] = SLOT{ip, m_now, count, list, NONE, NONE, NONE};
    xPutIntoBucket(index);
    xAppendToQueue(index);
    ++m_count;
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

bool NetAntiHammerTable::IsFull()
{
    // One run-out entry is room enough; with more of them there is room all the more.
    return m_count >= m_capacity && !xEraseOldestIfExpired(xQueue(LIST::FAILED)) &&
           !xEraseOldestIfExpired(xQueue(LIST::BLOCKED));
}

void NetAntiHammerTable::ForEach(const std::function<void(const SLOT&)>& visit) const
{
    for (const QUEUE& queue : m_queues)
        for (std::uint32_t index = queue.oldest; index != NONE; index = m_slots[index].newer)
            if (!xIsExpired(m_slots[index]))
                visit(m_slots[index]);
}

std::uint64_t NetAntiHammerTable::xHash(const NetIP& ip) const
{
    std::uint64_t words[2]; // an address holds 16 bytes whatever its type is
    std::memcpy(words, ip.GetBytes(), sizeof words);
    return Mix(Mix(words[0] ^ m_hashSeed) + words[1] + ip.GetType());
}

std::uint32_t NetAntiHammerTable::xBucketOf(std::uint64_t hash) const
{
    // Buckets past the last doubling exist for the first part of the table only.
    const auto low = static_cast<std::uint32_t>(hash);
    const std::uint32_t wide = low & (m_lowMask * 2 + 1);
    return wide < m_buckets.GetCount() ? wide : low & m_lowMask;
}

std::uint32_t NetAntiHammerTable::xIndexOf(const NetIP& ip) const
{
    const std::uint64_t hash = xHash(ip);
    const std::uint32_t number = xBucketOf(hash);
    if ((m_marks[number] & MarkOf(hash)) == 0)
        return NONE;
    const BUCKET& bucket = m_buckets[number];
    for (const std::uint32_t cell : bucket.cells) {
        if (cell == 0)
            return NONE; // without an empty cell only are there more than the cells
        if ((cell & ~INDEX_MASK) == TagOf(hash) && m_slots[(cell & INDEX_MASK) - 1].ip == ip)
            return (cell & INDEX_MASK) - 1;
    }
    std::uint32_t index = bucket.overflow;
    while (index != NONE && !(m_slots[index].ip == ip))
        index = m_slots[index].chained;
    return index;
}

void NetAntiHammerTable::xAddBucket()
{
    m_buckets.Add();
    m_marks.Add();
}

void NetAntiHammerTable::xPutIntoBucket(std::uint32_t index)
{
    const std::uint64_t hash = xHash(m_slots[index].ip);
    const std::uint32_t number = xBucketOf(hash);
    BUCKET& bucket = m_buckets[number];
    m_marks[number] |= MarkOf(hash);
    for (std::uint32_t& cell : bucket.cells) {
        if (cell == 0) {
            cell = TagOf(hash) | (index + 1);
            return;
        }
    }
    m_slots[index].chained = bucket.overflow;
    bucket.overflow = index;
}

void NetAntiHammerTable::xTakeFromBucket(std::uint32_t index)
{
    const std::uint32_t number = xBucketOf(xHash(m_slots[index].ip));
    BUCKET& bucket = m_buckets[number];
    std::size_t place = CELLS;
    std::size_t used = 0;
    for (; used < CELLS && bucket.cells[used] != 0; ++used)
        if ((bucket.cells[used] & INDEX_MASK) == index + 1)
            place = used;
    if (place == CELLS) {
        std::uint32_t* link = &bucket.overflow;
        while (*link != index)
            link = &m_slots[*link].chained;
        *link = m_slots[index].chained;
        return; // its mark stays until a cell is given up: one too many does no harm
    }
    // The last cell fills the gap, and one that had no cell gets the last.
    bucket.cells[place] = bucket.cells[used - 1];
    bucket.cells[used - 1] = 0;
    const std::uint32_t waiting = bucket.overflow;
    if (waiting != NONE) {
        bucket.overflow = m_slots[waiting].chained;
        xPutIntoBucket(waiting);
    }
    xMarkAnew(number);
}

void NetAntiHammerTable::xMarkAnew(std::uint32_t number)
{
    const BUCKET& bucket = m_buckets[number];
    std::uint64_t marks = 0;
    for (std::size_t place = 0; place < CELLS && bucket.cells[place] != 0; ++place)
        marks |= MarkOfCell(bucket.cells[place]);
    for (std::uint32_t index = bucket.overflow; index != NONE; index = m_slots[index].chained)
        marks |= MarkOf(xHash(m_slots[index].ip));
    m_marks[number] = marks;
}

/// Adds one bucket, when the entries have become many, and moves to it what now belongs there from the one bucket that
/// shared its addresses.
void NetAntiHammerTable::xSplitBucket()
{
    if (m_count / ENTRIES_PER_BUCKET < m_buckets.GetCount())
        return;
    const std::uint32_t added = m_buckets.GetCount();
    xAddBucket();
    const std::uint32_t split = added & m_lowMask;
    const BUCKET before = m_buckets[split];
    m_buckets[split] = BUCKET();
    m_marks[split] = 0;
    if (added == m_lowMask * 2 + 1)
        m_lowMask = added;
    for (const std::uint32_t cell : before.cells)
        if (cell != 0)
            xPutIntoBucket((cell & INDEX_MASK) - 1);
    for (std::uint32_t index = before.overflow; index != NONE;) {
        const std::uint32_t next = m_slots[index].chained;
        xPutIntoBucket(index);
        index = next;
    }
}

std::uint32_t NetAntiHammerTable::xTakeFreeSlot()
{
    if (m_free == NONE)
        return m_slots.Add();
    const std::uint32_t index = m_free;
    m_free = m_slots[index].newer;
    return index;
}

void NetAntiHammerTable::xAppendToQueue(std::uint32_t index)
{
    SLOT& slot = m_slots[index];
    QUEUE& queue = xQueue(slot.list);
    slot.older = queue.newest;
    slot.newer = NONE;
    (queue.newest == NONE ? queue.oldest : m_slots[queue.newest].newer) = index;
    queue.newest = index;
}

void NetAntiHammerTable::xTakeFromQueue(std::uint32_t index)
{
    const SLOT& slot = m_slots[index];
    QUEUE& queue = xQueue(slot.list);
    (slot.older == NONE ? queue.oldest : m_slots[slot.older].newer) = slot.newer;
    (slot.newer == NONE ? queue.newest : m_slots[slot.newer].older) = slot.older;
}

void NetAntiHammerTable::xErase(std::uint32_t index)
{
    xTakeFromQueue(index);
    xTakeFromBucket(index);
    m_slots[index].newer = m_free;
    m_free = index;
    --m_count;
}

} // namespace kqlib

// NetAntiHammerTable: the addresses of an anti-hammer, found and expired at a cost that does not grow with their number.
#pragma once

#include "common/NetIP.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kqlib {

/// Two lists of addresses with a time each, failed and blocked; an address is in at most one.
///
/// It answers exactly as two plain lists would that are walked whole on every call, erasing each entry whose age, the
/// unsigned 32-bit difference of the ticks, exceeds the life time of its list. Instead of walking, it keeps each list
/// in the order of its entries' ages and removes a few run-out entries per call; those that wait for removal are never
/// answered. Addresses are found by a hash table that grows one bucket at a time, so no single call pays for growing.
///
/// About 50 bytes an entry. Ownership: owns everything. Threads: one at a time. Errors: none.
class NetAntiHammerTable
{
public:
    enum class LIST : std::uint8_t
    {
        FAILED,
        BLOCKED
    };

    struct SLOT
    {
        NetIP ip;
        std::uint32_t time;  ///< tick
        std::uint32_t count; ///< failures; 0 when blocked
        std::uint32_t older; ///< neighbours in the list's order of age; the free list uses newer
        std::uint32_t newer;
        std::uint32_t chained; ///< next slot of the same bucket
        LIST list;
    };

    NetAntiHammerTable();

    /// Sets the time of the calls that follow and expires what is older than its list's life time (milliseconds).
    void Advance(std::uint32_t now, std::uint64_t failedLife, std::uint64_t blockedLife);
    /// Erases everything that had run out at the last Advance under these life times.
    void DropExpired(std::uint64_t failedLife, std::uint64_t blockedLife);
    void Clear();

    /// The entry of an address that has not run out, or null. Valid until the next call that changes the table.
    SLOT* Find(const NetIP& ip);
    /// Appends a new address at the present time; Find must have found none.
    void Add(const NetIP& ip, LIST list, std::uint32_t count);
    /// Moves an entry to the end of a list with the present time.
    void Renew(SLOT& slot, LIST list, std::uint32_t count);
    void Remove(SLOT& slot);

    /// Entries held. While run-out ones wait for removal it may count them, but never reports a number at or above
    /// what stops new entries when the true one is below.
    std::uint32_t GetCount();
    /// Calls visit for each entry that has not run out, list by list, the oldest first.
    void ForEach(const std::function<void(const SLOT&)>& visit) const;

private:
    static constexpr std::uint32_t NONE = 0xFFFFFFFFU;
    static constexpr std::uint32_t CHUNK_SHIFT = 12;
    static constexpr std::uint32_t CHUNK_SIZE = 1U << CHUNK_SHIFT;

    struct QUEUE
    {
        std::uint32_t oldest = NONE;
        std::uint32_t newest = NONE;
        std::uint64_t life = 0; ///< milliseconds
    };

    SLOT& xSlot(std::uint32_t index) { return m_chunks[index >> CHUNK_SHIFT][index & (CHUNK_SIZE - 1)]; }
    const SLOT& xSlot(std::uint32_t index) const { return m_chunks[index >> CHUNK_SHIFT][index & (CHUNK_SIZE - 1)]; }
    QUEUE& xQueue(LIST list) { return m_queues[static_cast<std::size_t>(list)]; }
    std::uint32_t xAge(const SLOT& slot) const { return m_now - slot.time; }
    bool xIsExpired(const SLOT& slot) const
    {
        return xAge(slot) > m_queues[static_cast<std::size_t>(slot.list)].life;
    }

    std::uint32_t xIndexOf(const NetIP& ip) const;
    std::uint32_t xBucketOf(const NetIP& ip) const;
    void xSplitBucket();
    std::uint32_t xTakeFreeSlot();
    void xAppendToQueue(std::uint32_t index);
    void xTakeFromQueue(std::uint32_t index);
    void xErase(std::uint32_t index);
    bool xEraseOldestIfExpired(QUEUE& queue);
    bool xWouldAnAgeWrap(std::uint32_t now) const;
    void xAdvanceOverWrap(std::uint32_t now);

    std::vector<std::unique_ptr<SLOT[]>> m_chunks;
    std::vector<std::uint32_t> m_buckets; ///< first slot of each; their number grows with the entries
    std::uint32_t m_lowMask = 0;          ///< number of buckets of the last full doubling, less one
    std::array<QUEUE, 2> m_queues;
    std::uint32_t m_free = NONE;
    std::uint32_t m_used = 0;  ///< slots ever taken
    std::uint32_t m_count = 0; ///< entries held, those that wait for removal included
    std::uint32_t m_now = 0;
    std::uint64_t m_hashSeed; ///< so that nobody outside can choose addresses that share a bucket
};

} // namespace kqlib

// NetAntiHammerTable: the addresses of an anti-hammer, found and expired at a cost that does not grow with their
// number.
// Inside the library only.
#pragma once

#include "common/NetIP.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kqlib {

/// An array that grows by whole chunks, so that growing moves nothing. Ownership: owns its elements. Threads: one at a
/// time. Errors: an index that was never made is the caller's error.
template <class T, unsigned SHIFT> class NetChunkedArray
{
public:
    /// Elements of one chunk.
    static constexpr std::uint32_t CHUNK_SIZE = 1U << SHIFT;

    /// The element at index, which stays where it is until Clear.
    ///@{
    T& operator[](std::uint32_t index) { return m_chunks[index >> SHIFT][index & (CHUNK_SIZE - 1)]; }
    const T& operator[](std::uint32_t index) const { return m_chunks[index >> SHIFT][index & (CHUNK_SIZE - 1)]; }
    ///@}
    /// Elements made so far.
    std::uint32_t GetCount() const { return m_count; }
    /// Appends a default element and returns its index.
    std::uint32_t Add()
    {
        if (m_count == m_chunks.size() * CHUNK_SIZE)
            m_chunks.push_back(std::make_unique<T[]>(CHUNK_SIZE));
        return m_count++;
    }
    /// Destroys the elements and gives their memory back.
    void Clear()
    {
        m_chunks.clear();
        m_count = 0;
    }

private:
    std::vector<std::unique_ptr<T[]>> m_chunks;
    std::uint32_t m_count = 0;
};

/// Two lists of addresses with a time each, failed and blocked; an address is in at most one.
///
/// It answers exactly as two plain lists would that are walked whole on every call, erasing each entry whose age, the
/// unsigned 32-bit difference of the ticks, exceeds the life time of its list. Instead of walking, it keeps each list
/// in the order of its entries' ages and removes a few run-out entries per call; those that wait for removal are never
/// answered. Addresses are found by a hash table that grows one bucket at a time, so no single call pays for growing;
/// a bucket is one cache line with a part of each entry's hash. Of an address that is not held, nine times in ten not
/// even that line is read: a word for each bucket has a bit set for each of its entries, and all these words together
/// stay in the processor's caches when the buckets, eight times as large, do not.
///
/// About 56 bytes an entry. Ownership: owns everything. Threads: one at a time. Errors: none.
class NetAntiHammerTable
{
public:
    /// Which list an address is in.
    enum class LIST : std::uint8_t
    {
        FAILED, ///< with failures, not blocked
        BLOCKED ///< blocked
    };

    /// An address that is held, at a place of its own. list, older, newer and chained are the table's own to change.
    struct SLOT
    {
        NetIP ip;              ///< of the client
        std::uint32_t time;    ///< tick
        std::uint32_t count;   ///< failures; 0 when blocked
        LIST list;             ///< the list that it is in
        std::uint32_t older;   ///< neighbour in the list's order of age
        std::uint32_t newer;   ///< the other one; the free list uses it, too
        std::uint32_t chained; ///< next slot of those that their bucket had no cell for
    };

    /// The most that any capacity may be.
    static constexpr std::uint32_t MAX_CAPACITY = (1U << 21) - 1;

    /// capacity: IsFull is true while so many entries are held; at most MAX_CAPACITY.
    explicit NetAntiHammerTable(std::uint32_t capacity);
    NetAntiHammerTable(const NetAntiHammerTable&) = delete;
    NetAntiHammerTable& operator=(const NetAntiHammerTable&) = delete;

    /// Sets the time of the calls that follow and expires what is older than its list's life time (milliseconds).
    void Advance(std::uint32_t now, std::uint64_t failedLife, std::uint64_t blockedLife);
    /// Erases everything that had run out at the last Advance, so that a longer life time does not bring it back.
    void DropExpired();
    /// Erases everything.
    void Clear();

    /// The entry of an address that has not run out, or null. Valid until the next call that changes the table.
    SLOT* Find(const NetIP& ip);
    /// Appends a new address at the present time; Find must have found none, and IsFull must be false.
    void Add(const NetIP& ip, LIST list, std::uint32_t count);
    /// Moves an entry to the end of a list with the present time.
    void Renew(SLOT& slot, LIST list, std::uint32_t count);
    /// Erases the entry; slot means nothing afterwards.
    void Remove(SLOT& slot);

    /// True while as many entries as the capacity are held, those that wait for removal not counted.
    bool IsFull();
    /// Calls visit for each entry that has not run out, list by list, the oldest first.
    void ForEach(const std::function<void(const SLOT&)>& visit) const;

private:
    static constexpr std::uint32_t NONE = 0xFFFFFFFFU;
    static constexpr std::size_t CELLS = 15;

    /// One cache line. A cell holds the index of a slot plus one, below a part of its hash; those in use come first.
    struct alignas(64) BUCKET
    {
        std::array<std::uint32_t, CELLS> cells{};
        std::uint32_t overflow = NONE; ///< first slot of those that found no cell
    };

    struct QUEUE
    {
        std::uint32_t oldest = NONE;
        std::uint32_t newest = NONE;
        std::uint64_t life = 0; ///< milliseconds
    };

    QUEUE& xQueue(LIST list) { return m_queues[static_cast<std::size_t>(list)]; }
    bool xIsExpired(const SLOT& slot) const
    {
        return std::uint32_t(m_now - slot.time) > m_queues[static_cast<std::size_t>(slot.list)].life;
    }

    std::uint64_t xHash(const NetIP& ip) const;
    std::uint32_t xBucketOf(std::uint64_t hash) const;
    void xAddBucket();
    std::uint32_t xIndexOf(const NetIP& ip) const;
    void xPutIntoBucket(std::uint32_t index);
    void xTakeFromBucket(std::uint32_t index);
    void xMarkAnew(std::uint32_t number);
    void xSplitBucket();
    std::uint32_t xTakeFreeSlot();
    void xAppendToQueue(std::uint32_t index);
    void xTakeFromQueue(std::uint32_t index);
    void xErase(std::uint32_t index);
    bool xEraseOldestIfExpired(QUEUE& queue);
    void xPassWrap(QUEUE& queue, std::uint64_t passed);

    const std::uint32_t m_capacity;
    NetChunkedArray<SLOT, 10> m_slots;
    NetChunkedArray<BUCKET, 8> m_buckets;       ///< their number grows with the entries
    NetChunkedArray<std::uint64_t, 11> m_marks; ///< of each bucket: the marks of its entries, or more
    std::uint32_t m_lowMask = 0;                ///< number of buckets of the last full doubling, less one
    std::array<QUEUE, 2> m_queues;
    std::uint32_t m_free = NONE;
    std::uint32_t m_count = 0; ///< entries held, those that wait for removal included
    std::uint32_t m_now = 0;
    std::uint64_t m_hashSeed; ///< so that nobody outside can choose addresses that share a bucket
};

} // namespace kqlib

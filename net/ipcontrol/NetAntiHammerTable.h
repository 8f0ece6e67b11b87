// NetAntiHammerTable: the addresses of an anti-hammer, found by address and expired by age.
// Inside the library only.
#pragma once

#include "common/NetIP.h"

#include <tsl/robin_set.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>

namespace kqlib {

/// Two queues of addresses with a time each, failed and blocked; an address is in at most one.
///
/// It answers exactly as two plain lists would that are walked whole on every call, erasing each entry whose age, the
/// unsigned 32-bit difference of the ticks, exceeds the life time of its list. Each queue is in the order of its
/// entries' ages, so only its front has to be looked at. A hash set of places in the queues finds an address.
///
/// About 83 bytes an entry. Ownership: owns everything. Threads: one at a time. Errors: Add alone asks for memory; it
/// throws std::bad_alloc when there is none, and has changed nothing then.
class NetAntiHammerTable
{
public:
    /// An address that is held.
    struct ENTRY
    {
        NetIP ip;            ///< of the client
        std::uint32_t time;  ///< tick
        std::uint32_t count; ///< failures; 0 when blocked

        /// In which of the two queues it is.
        bool IsBlocked() const { return count == 0; }
    };
    using QUEUE = std::list<ENTRY>; ///< the greatest age first
    using PLACE = QUEUE::iterator;  ///< valid until its entry is erased

    /// capacity: IsFull is true while so many entries are held.
    explicit NetAntiHammerTable(std::uint32_t capacity);
    NetAntiHammerTable(const NetAntiHammerTable&) = delete;
    NetAntiHammerTable& operator=(const NetAntiHammerTable&) = delete;

    /// Sets the time of the calls that follow and erases what is older than its queue's life time (milliseconds).
    void Advance(std::uint32_t now, std::uint64_t failedLife, std::uint64_t blockedLife);
    /// Erases everything and gives the memory back.
    void Clear();

    /// The place of an address, if it is held.
    std::optional<PLACE> Find(const NetIP& ip) const;
    /// Appends a new address at the present time, blocked when count is 0. Find must have found none.
    void Add(const NetIP& ip, std::uint32_t count);
    /// Moves an entry to the end of the queue that its new count puts it in, with the present time.
    void Renew(PLACE place, std::uint32_t count);
    /// Erases an entry.
    void Remove(PLACE place);

    /// True while as many entries as the capacity are held.
    bool IsFull() const { return m_places.size() >= m_capacity; }
    /// The entries.
    ///@{
    const QUEUE& GetFailed() const { return m_failed; }
    const QUEUE& GetBlocked() const { return m_blocked; }
    ///@}

private:
    /// Of an address, or of the one at a place. Seeded, so that nobody outside can choose addresses that collide.
    struct HASH
    {
        std::uint64_t seed;

        std::size_t operator()(const NetIP& ip) const noexcept;
        std::size_t operator()(PLACE place) const noexcept { return (*this)(place->ip); }
    };
    struct SAME
    {
        using is_transparent = void;

        bool operator()(PLACE left, PLACE right) const noexcept { return left == right; }
        bool operator()(const NetIP& ip, PLACE place) const noexcept { return ip == place->ip; }
        bool operator()(PLACE place, const NetIP& ip) const noexcept { return place->ip == ip; }
    };
    /// It keeps a part of each hash, so that an entry is hardly ever read in vain.
    using PLACES = tsl::robin_set<PLACE, HASH, SAME, std::allocator<PLACE>, true>;

    QUEUE& xQueueOf(std::uint32_t count) { return count == 0 ? m_blocked : m_failed; }
    static PLACES xsMakePlaces(std::uint64_t seed);
    void xPassWrap(QUEUE& queue, std::uint64_t passed) const;
    void xEraseOlder(QUEUE& queue, std::uint64_t life);

    const std::uint32_t m_capacity;
    std::uint32_t m_now = 0;
    QUEUE m_failed;
    QUEUE m_blocked;
    PLACES m_places; ///< of every entry of both queues
};

} // namespace kqlib

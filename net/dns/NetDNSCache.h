// NetDNSCache: the answers of DNS look-ups, shared by every resolver of a process.
#pragma once

#include "common/ThreadSafe.h"
#include "net/dns/NetDNS.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kqlib {

/// Keeps the answers of look-ups, so that repeated checks of the same names do not go to the network.
///
/// The host makes one cache before everything that resolves names and hands it on by reference. A resolver asks it
/// before each look-up and stores each answer that it receives.
///
/// An answer is never refreshed or replaced while its entry lives. Entries go when a purge finds them expired; that
/// happens at most every 30 seconds, in the list of the type that is searched just then, and puts off the purge of the
/// other lists too (kept on purpose). Until then an expired answer is still given. All ticks are compared as plain
/// unsigned 32-bit numbers.
///
/// Ownership: owns its entries; everything is copied in and out.
///
/// Threads: any thread; each call holds the lock for its whole run. The lock is never held across network work.
///
/// Errors: none. A full cache, or a name that is cached already, drops the new answer silently.
class KQNET_API NetDNSCache : public ThreadSafe
{
public:
    /// A cached A, PTR, TXT or SPF answer.
    struct A_LOOKUP
    {
        String name;               ///< the name that was asked for
        std::uint32_t expiry = 0;  ///< tick in milliseconds
        VectorPtr<String> records; ///< in the order given; none when the answer had none
    };

    /// A cached MX answer.
    struct MX_LOOKUP
    {
        String name;                          ///< as in A_LOOKUP
        std::uint32_t expiry = 0;             ///< as in A_LOOKUP
        VectorPtr<NetDNS::MX_RECORD> records; ///< in the order given
    };

    /// Empty.
    NetDNSCache();
    NetDNSCache(const NetDNSCache&) = delete;
    NetDNSCache& operator=(const NetDNSCache&) = delete;
    /// No resolver may use it any more.
    virtual ~NetDNSCache();

    /// Stores an answer (copies of all records, in order) until the tick expiry, of which the low 32 bits count. An
    /// expiry before now or more than 24 hours ahead becomes 24 hours ahead. Does nothing when the type holds the name
    /// already or the five types together hold 10000 entries.
    ///@{
    void CacheALookup(const String& name, ULONG expiry, const VectorPtr<String>& records);
    void CachePtrLookup(const String& name, ULONG expiry, const VectorPtr<String>& records);
    void CacheMxLookup(const String& name, ULONG expiry, const VectorPtr<NetDNS::MX_RECORD>& records);
    void CacheTxtLookup(const String& name, ULONG expiry, const VectorPtr<String>& records);
    void CacheSpfLookup(const String& name, ULONG expiry, const VectorPtr<String>& records);
    ///@}

    /// True when an answer for the name, without regard to case, is held: copies of its records are appended to
    /// records, which the caller clears first. An answer without records counts. False: records is unchanged.
    ///@{
    bool IsALookupCached(const String& name, VectorPtr<String>& records);
    bool IsPtrLookupCached(const String& name, VectorPtr<String>& records);
    bool IsMxLookupCached(const String& name, VectorPtr<NetDNS::MX_RECORD>& records);
    bool IsTxtLookupCached(const String& name, VectorPtr<String>& records);
    bool IsSpfLookupCached(const String& name, VectorPtr<String>& records);
    ///@}

private:
    /// Finds the places of names in one list. A cell holds the hash and the place of a name but not the name, so that
    /// the cells are few cache lines and a search reads, as a rule, one of them and the entry that it is after.
    class NAME_INDEX
    {
    public:
        /// The place with this hash that isNamed(place) is true for, or 0xFFFFFFFF.
        template <class IS_NAMED> ULONG Find(std::uint32_t hash, IS_NAMED isNamed) const;
        void Add(std::uint32_t hash, std::uint32_t place);
        void Clear();

    private:
        struct CELL
        {
            std::uint32_t hash = 0;
            std::uint32_t number = 0; ///< the place plus one; 0 when the cell is empty
        };

        void xPut(CELL cell);

        std::vector<CELL> m_cells; ///< none or a power of two, at most three quarters in use; probed one after another
        std::size_t m_used = 0;
    };

    // The lock is held by the caller of all of these.
    ULONG xIsALookupCached(const String& name);
    ULONG xIsPtrLookupCached(const String& name);
    ULONG xIsMxLookupCached(const String& name);
    ULONG xIsTxtLookupCached(const String& name);
    ULONG xIsSpfLookupCached(const String& name);
    template <class LOOKUP> ULONG xFind(const String& name, VectorPtr<LOOKUP>& lookups, NAME_INDEX& index);
    template <class LOOKUP> void xPurge(std::uint32_t now, VectorPtr<LOOKUP>& lookups, NAME_INDEX& index);
    template <class LOOKUP, class RECORD>
    void xStore(const String& name, ULONG expiry, const VectorPtr<RECORD>& records, VectorPtr<LOOKUP>& lookups,
                NAME_INDEX& index);
    std::uint32_t xValidateExpiry(std::uint32_t expiry);
    ULONG xGetTotalCacheSize() const;
    std::uint32_t xStampNow();

    // All data is guarded by the lock.
    VectorPtr<A_LOOKUP> m_aLookups;
    VectorPtr<A_LOOKUP> m_ptrLookups;
    VectorPtr<MX_LOOKUP> m_mxLookups;
    VectorPtr<A_LOOKUP> m_txtLookups;
    VectorPtr<A_LOOKUP> m_spfLookups;
    std::uint32_t m_lastTick = 0;
    std::uint32_t m_lastPurge = 0; ///< shared by all five lists, kept on purpose
    NAME_INDEX m_aIndex;
    NAME_INDEX m_ptrIndex;
    NAME_INDEX m_mxIndex;
    NAME_INDEX m_txtIndex;
    NAME_INDEX m_spfIndex;
};

} // namespace kqlib

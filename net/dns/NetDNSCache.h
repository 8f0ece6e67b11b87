// NetDNSCache: the answers of DNS look-ups, shared by every resolver of a process.
#pragma once

#include "common/ThreadSafe.h"
#include "net/dns/NetDNS.h"

#include <cstdint>
#include <memory>

namespace kqlib {

/// Keeps the answers of look-ups, so that repeated checks of the same names do not go to the network.
///
/// The host makes one cache before everything that resolves names and hands it on by reference. A resolver asks it
/// before each look-up and stores each answer that it receives.
///
/// An answer is never refreshed or replaced while its entry lives. Entries go when a purge finds them expired; that
/// happens at most every 30 seconds, in the list of the type that is searched just then, and puts off the purge of the
/// other lists too (kept on purpose). Until then an expired answer is still given, which may be days later when nobody
/// asks for anything of its type. All ticks are compared as plain unsigned 32-bit numbers.
///
/// Ownership: owns its entries; everything is copied in and out.
///
/// Threads: any thread; each call holds the lock for its whole run. The lock is never held across network work.
///
/// Errors: none. A full cache, or a name that is cached already, drops the new answer silently.
///
/// Resolvers with options keep their answers here too, in tables of their own with bounds of their own of the same
/// size; those answers go when their life is over, and a newer one takes the place of an older.
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
    /// already, when the five types together hold 10000 entries, or when they would hold more than 64 MiB with it.
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
    friend class NetDNS;
    struct TABLES;

    // For resolvers with options. Null: nothing that is still alive. The expiry, a tick, is less than 24 days ahead.
    std::shared_ptr<const NetDNSAnswer> xReadChecked(const String& name, NetDNS::RRTYPE type);
    void xStoreChecked(const String& name, NetDNS::RRTYPE type, std::uint32_t expiry,
                       std::shared_ptr<const NetDNSAnswer> answer);

    const std::unique_ptr<TABLES> m_tables; ///< guarded by the lock
};

} // namespace kqlib

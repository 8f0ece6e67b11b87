// NetIPTrack: counts things per address.
#pragma once

#include "common/NetIP.h"
#include "common/ThreadSafe.h"
#include "common/VectorPtr.h"

namespace kqlib {

/// How many things of one kind are open for each address, sessions for instance: a sorted multiset of addresses.
///
/// Ownership: owns its entries. Threads: the operations take no lock themselves, kept on purpose; the owner serialises
/// all calls on one tracker. Errors: none; removing an unknown address does nothing.
class KQNET_API NetIPTrack : public ThreadSafe
{
public:
    /// An address that was added more often than removed.
    struct ENTRY
    {
        NetIP ip;    ///< no other entry has it
        ULONG count; ///< at least 1 while the entry is held
    };

    /// Knows no address.
    NetIPTrack() = default;
    /// Forgets every address.
    virtual ~NetIPTrack();
    NetIPTrack(const NetIPTrack&) = delete;
    NetIPTrack& operator=(const NetIPTrack&) = delete;

    /// One more for this address.
    void Add(NetIP ip);
    /// One less for this address.
    void Remove(NetIP ip);
    /// 0 for an unknown address.
    ULONG GetCount(NetIP ip) const;

private:
    ULONG xLowerBound(const NetIP& ip) const;
    bool xIsAt(ULONG index, const NetIP& ip) const;

    VectorPtr<ENTRY> m_entries; ///< ascending by address, no address twice
};

} // namespace kqlib

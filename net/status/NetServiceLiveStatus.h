// NetServiceLiveStatus: what every session of a service is doing now.
#pragma once

#include "common/VectorTransferablePtr.h"
#include "net/status/NetSessionLiveStatus.h"

namespace kqlib {

/// A list of session entries, held in natural or in reverse order. NetTCPService::GetLiveSessions fills one; as
/// settings it is one unnamed sub-set per entry, in the current order, and "isreversed".
///
/// Ownership: owns its entries; copied deeply. Threads: one at a time; the list belongs to who asked for it.
/// Errors: an index at or past the count is the caller's error (std::out_of_range).
class KQNET_API NetServiceLiveStatus : public SettingsTransferable
{
public:
    /// Empty, in natural order.
    NetServiceLiveStatus() = default;
    NetServiceLiveStatus(const NetServiceLiveStatus&) = default;
    NetServiceLiveStatus& operator=(const NetServiceLiveStatus&) = default;

    /// Destroys every entry; natural order.
    void Reset() override;
    [[nodiscard]] NetServiceLiveStatus* Spawn(bool copy) const override;

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    /// Appends the stored entries and takes over the flag; reorders nothing, for the flag read tells how the entries
    /// were stored.
    bool xReadFrom(const SettingsTransportSet& set) override;
    void xCheckErrors(Messages& messages) const override;
    void xCheckWarnings(Messages& messages) const override;

public:
    bool IsSame(const SettingsTransferable& other) const override;
    /// The same entries in the same order, and the same flag.
    ///@{
    bool IsSame(const NetServiceLiveStatus& other) const;
    friend bool operator==(const NetServiceLiveStatus& left, const NetServiceLiveStatus& right)
    {
        return left.IsSame(right);
    }
    ///@}

    /// Takes ownership and appends, after putting a reversed list back into natural order. Null is ignored.
    void GiveStatus(NetSessionLiveStatus* entry);
    /// Reverses the entries when reversed differs from the order they are held in.
    void ReverseContents(bool reversed);
    /// How many entries there are.
    ULONG GetCount() const { return m_entries.GetCount(); }
    /// The entry at index in the current order; valid until the list changes.
    const NetSessionLiveStatus& GetStatus(unsigned long index) const { return m_entries.Get(index); }

protected:
    /// What Reset does, without a virtual call.
    void xReset();

private:
    VectorTransferablePtr<NetSessionLiveStatus> m_entries;
    bool m_isReversed = false;
};

} // namespace kqlib

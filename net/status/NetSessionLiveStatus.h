// NetSessionLiveStatus: what one session is doing now.
#pragma once

#include "net/status/NetSessionStatus.h"

namespace kqlib {

/// A session's statistics record with a numeric action code and a detail text, for monitoring views and for passing to
/// another process as settings: the record's own keys, then "action" and "detail" in the same set.
///
/// Ownership: a plain value, copied whole. Threads: one at a time. Errors: none.
class KQNET_API NetSessionLiveStatus : public SettingsTransferable
{
public:
    /// The action code after Reset. What the codes mean is the host's affair.
    static constexpr ULONG ACTION_RESET = 89;

    /// An empty record and detail. The action is 0, not ACTION_RESET (kept on purpose): whoever fills an entry sets it.
    NetSessionLiveStatus() = default;
    NetSessionLiveStatus(const NetSessionLiveStatus&) = default;
    NetSessionLiveStatus& operator=(const NetSessionLiveStatus&) = default;

    /// An empty record and detail, the action ACTION_RESET.
    void Reset() override;
    [[nodiscard]] NetSessionLiveStatus* Spawn(bool copy) const override;

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    bool xReadFrom(const SettingsTransportSet& set) override;
    void xCheckErrors(Messages& messages) const override;
    void xCheckWarnings(Messages& messages) const override;

public:
    bool IsSame(const SettingsTransferable& other) const override;
    /// The same record, action and detail.
    ///@{
    bool IsSame(const NetSessionLiveStatus& other) const;
    friend bool operator==(const NetSessionLiveStatus& left, const NetSessionLiveStatus& right)
    {
        return left.IsSame(right);
    }
    ///@}

    /// The session's identity and counters.
    ///@{
    NetSessionStatus& GetStatus() { return m_status; }
    const NetSessionStatus& GetStatus() const { return m_status; }
    ///@}
    /// The host's code for what the session is doing. Setting it keeps the low 32 bits.
    ///@{
    ULONG GetAction() const { return m_action; }
    void SetAction(unsigned long action) { m_action = static_cast<std::uint32_t>(action); }
    ///@}
    /// Free text about the action: a file's name, a command.
    ///@{
    const String& GetDetail() const { return m_detail; }
    void SetDetail(const String& detail) { m_detail = detail; }
    ///@}

protected:
    /// What Reset does, without a virtual call.
    void xReset();

private:
    NetSessionStatus m_status;
    std::uint32_t m_action = 0;
    String m_detail;
};

} // namespace kqlib

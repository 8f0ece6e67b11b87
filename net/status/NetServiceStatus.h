// NetServiceStatus: the running totals of a service.
#pragma once

#include "common/NetIP.h"
#include "common/SettingsTransferable.h"
#include "common/TimePos.h"
#include "common/Vector.h"
#include "net/status/NetCounterAdders.h"
#include "net/status/NetCounterBlock.h"

namespace kqlib {

class NetSessionStatus;

/// When the totals were started, the ports the service listens on, and 22 totals.
///
/// The service keeps one and adds each finished session to it; the host reads a copy through NetTCPService::GetStatus,
/// adds records of several services or periods together, and keeps them as settings under the keys "create", "ports"
/// (one port-binding line) and "data" (22 decimal numbers in one line).
///
/// Ownership: a plain value, copied whole. Threads: one at a time; whoever shares a record guards it.
/// Errors: none; settings that are absent or malformed leave their fields unchanged.
class KQNET_API NetServiceStatus : public SettingsTransferable, public NetCounterAdders<NetServiceStatus>
{
public:
    /// A local end that the service listens on; port in host order.
    struct ACTIVEPORT
    {
        NetIP ip;    ///< 0.0.0.0: every local IPv4 address; with port 0: an IPv6 one
        USHORT port; ///< 0 for an IPv6 address only
    };

    /// As after Reset.
    NetServiceStatus();
    NetServiceStatus(const NetServiceStatus&) = default;
    NetServiceStatus& operator=(const NetServiceStatus&) = default;

    /// No ports, every counter 0, the create time unset.
    void Reset() override;
    [[nodiscard]] NetServiceStatus* Spawn(bool copy) const override;

protected:
    bool xWriteTo(SettingsTransportSet& set) const override;
    /// "ports" appends to the ports that are there. "data" sets all 22 counters, or none when it does not hold exactly
    /// 22 items; both kept on purpose.
    bool xReadFrom(const SettingsTransportSet& set) override;
    void xCheckErrors(Messages& messages) const override;
    void xCheckWarnings(Messages& messages) const override;

public:
    bool IsSame(const SettingsTransferable& other) const override;
    /// Equal create times, the same ports in the same order, equal counters.
    ///@{
    bool IsSame(const NetServiceStatus& other) const;
    friend bool operator==(const NetServiceStatus& left, const NetServiceStatus& right) { return left.IsSame(right); }
    ///@}

    /// Appends the other's ports, duplicates included, and adds every counter, the two current-connection counters
    /// included. The create time stays.
    void AddDataFrom(const NetServiceStatus& other);
    /// Adds the session's counters; ports and create time stay.
    void AddDataFrom(const NetSessionStatus& session);

    /// When the totals were started; unset in a new record.
    ///@{
    const TimePos& GetCreateTime() const { return m_createTime; }
    void SetCreateTime(const TimePos& time) { m_createTime = time; }
    void SetCreateTimeNow() { m_createTime.SetNow(); }
    ///@}

    /// In the order in which they were given or read.
    ///@{
    const Vector<ACTIVEPORT>& GetActivePorts() const { return m_activePorts; }
    void SetActivePorts(const Vector<ACTIVEPORT>& ports) { m_activePorts = ports; }
    ///@}

    /// The totals in their order, each under its name; NetCounterBlock::COUNTER tells what they count. The references
    /// are valid as long as the object.
    ///@{
    const ULONG8& GetCurrentConnectionsIn() const { return m_counters[NetCounterBlock::CURRENT_CONNECTIONS_IN]; }
    void SetCurrentConnectionsIn(const ULONG8& value) { m_counters[NetCounterBlock::CURRENT_CONNECTIONS_IN] = value; }

    const ULONG8& GetCurrentConnectionsOut() const { return m_counters[NetCounterBlock::CURRENT_CONNECTIONS_OUT]; }
    void SetCurrentConnectionsOut(const ULONG8& value) { m_counters[NetCounterBlock::CURRENT_CONNECTIONS_OUT] = value; }

    const ULONG8& GetConnectionsIn() const { return m_counters[NetCounterBlock::CONNECTIONS_IN]; }
    void SetConnectionsIn(const ULONG8& value) { m_counters[NetCounterBlock::CONNECTIONS_IN] = value; }

    const ULONG8& GetConnectionsOutSuccesses() const { return m_counters[NetCounterBlock::CONNECTIONS_OUT_SUCCESSES]; }
    void SetConnectionsOutSuccesses(const ULONG8& value)
    {
        m_counters[NetCounterBlock::CONNECTIONS_OUT_SUCCESSES] = value;
    }

    const ULONG8& GetConnectionsOutFails() const { return m_counters[NetCounterBlock::CONNECTIONS_OUT_FAILS]; }
    void SetConnectionsOutFails(const ULONG8& value) { m_counters[NetCounterBlock::CONNECTIONS_OUT_FAILS] = value; }

    const ULONG8& GetDataInBytes() const { return m_counters[NetCounterBlock::DATA_IN_BYTES]; }
    void SetDataInBytes(const ULONG8& value) { m_counters[NetCounterBlock::DATA_IN_BYTES] = value; }

    const ULONG8& GetDataOutBytes() const { return m_counters[NetCounterBlock::DATA_OUT_BYTES]; }
    void SetDataOutBytes(const ULONG8& value) { m_counters[NetCounterBlock::DATA_OUT_BYTES] = value; }

    const ULONG8& GetCommandsIn() const { return m_counters[NetCounterBlock::COMMANDS_IN]; }
    void SetCommandsIn(const ULONG8& value) { m_counters[NetCounterBlock::COMMANDS_IN] = value; }

    const ULONG8& GetCommandsOut() const { return m_counters[NetCounterBlock::COMMANDS_OUT]; }
    void SetCommandsOut(const ULONG8& value) { m_counters[NetCounterBlock::COMMANDS_OUT] = value; }

    const ULONG8& GetSSLSuccesses() const { return m_counters[NetCounterBlock::SSL_SUCCESSES]; }
    void SetSSLSuccesses(const ULONG8& value) { m_counters[NetCounterBlock::SSL_SUCCESSES] = value; }

    const ULONG8& GetSSLFails() const { return m_counters[NetCounterBlock::SSL_FAILS]; }
    void SetSSLFails(const ULONG8& value) { m_counters[NetCounterBlock::SSL_FAILS] = value; }

    const ULONG8& GetLoginSuccesses() const { return m_counters[NetCounterBlock::LOGIN_SUCCESSES]; }
    void SetLoginSuccesses(const ULONG8& value) { m_counters[NetCounterBlock::LOGIN_SUCCESSES] = value; }

    const ULONG8& GetLoginFails() const { return m_counters[NetCounterBlock::LOGIN_FAILS]; }
    void SetLoginFails(const ULONG8& value) { m_counters[NetCounterBlock::LOGIN_FAILS] = value; }

    const ULONG8& GetDirsCreated() const { return m_counters[NetCounterBlock::DIRS_CREATED]; }
    void SetDirsCreated(const ULONG8& value) { m_counters[NetCounterBlock::DIRS_CREATED] = value; }

    const ULONG8& GetDirsDeleted() const { return m_counters[NetCounterBlock::DIRS_DELETED]; }
    void SetDirsDeleted(const ULONG8& value) { m_counters[NetCounterBlock::DIRS_DELETED] = value; }

    const ULONG8& GetDirsMoved() const { return m_counters[NetCounterBlock::DIRS_MOVED]; }
    void SetDirsMoved(const ULONG8& value) { m_counters[NetCounterBlock::DIRS_MOVED] = value; }

    const ULONG8& GetDirsRead() const { return m_counters[NetCounterBlock::DIRS_READ]; }
    void SetDirsRead(const ULONG8& value) { m_counters[NetCounterBlock::DIRS_READ] = value; }

    const ULONG8& GetFilesCreated() const { return m_counters[NetCounterBlock::FILES_CREATED]; }
    void SetFilesCreated(const ULONG8& value) { m_counters[NetCounterBlock::FILES_CREATED] = value; }

    const ULONG8& GetFilesAppended() const { return m_counters[NetCounterBlock::FILES_APPENDED]; }
    void SetFilesAppended(const ULONG8& value) { m_counters[NetCounterBlock::FILES_APPENDED] = value; }

    const ULONG8& GetFilesDeleted() const { return m_counters[NetCounterBlock::FILES_DELETED]; }
    void SetFilesDeleted(const ULONG8& value) { m_counters[NetCounterBlock::FILES_DELETED] = value; }

    const ULONG8& GetFilesMoved() const { return m_counters[NetCounterBlock::FILES_MOVED]; }
    void SetFilesMoved(const ULONG8& value) { m_counters[NetCounterBlock::FILES_MOVED] = value; }

    const ULONG8& GetFilesRead() const { return m_counters[NetCounterBlock::FILES_READ]; }
    void SetFilesRead(const ULONG8& value) { m_counters[NetCounterBlock::FILES_READ] = value; }
    ///@}

    /// Adds the low 32 bits of the amount to a 64-bit total, which wraps. Not to the two current-connection counters,
    /// which are only set.
    void IncreaseCounter(NetCounterBlock::COUNTER counter, ULONG amount)
    {
        m_counters[counter] += static_cast<std::uint32_t>(amount);
    }

protected:
    /// What Reset does, without a virtual call.
    void xReset();

private:
    void xReadPorts(const SettingsTransportSet& set);
    void xReadCounters(const SettingsTransportSet& set);

    TimePos m_createTime;
    Vector<ACTIVEPORT> m_activePorts;
    // Not std::uint64_t, which is another type on some systems: the getters hand out references.
    ULONG8 m_counters[NetCounterBlock::COUNTER_COUNT] = {};
};

} // namespace kqlib

// NetSessionStatus: who a session is and what it did.
#pragma once

#include "common/DataLogEntryRecord.h"
#include "common/EventLogSessionID.h"
#include "common/NetIP.h"
#include "net/status/NetCounterAccess.h"

namespace kqlib {

/// The record of one session: its identity and its counters. A session counts in one while it runs, the service adds it
/// to its totals and keeps it in the session log.
///
/// Its block is 292 bytes, little-endian and packed; it has no other data. Reserved bytes are zero in a new record,
/// carried by copies and never touched otherwise.
///
///     offset  size  content
///          0    12  session id (EventLogSessionID::DATA)
///         12    20  local address (NetIP)
///         32     2  local port
///         34    20  remote address (NetIP)
///         54     2  remote port
///         56   104  counters (NetCounterBlock)
///        160     4  reserved
///        164    32  user name, zero-terminated, at most 31 characters
///        196    96  reserved
///
/// Ownership: a plain value. Threads: one at a time. Errors: none; a longer user name is cut.
class KQNET_API NetSessionStatus : public DataLogEntryRecord, public NetCounterAccess<NetSessionStatus>
{
public:
    /// Size of the block in bytes; part of the stored format.
    static constexpr ULONG BLOCK_SIZE = 292;
    /// Size of the user field in bytes, the terminator included.
    static constexpr ULONG USER_SIZE = 32;

    /// No identity, all counters 0, the times unset.
    NetSessionStatus();
    /// Reads the record from stored bytes, which are copied; null reads as empty.
    explicit NetSessionStatus(const BinaryStore* store);
    NetSessionStatus(const NetSessionStatus&) = default;
    NetSessionStatus& operator=(const NetSessionStatus&) = default;

    [[nodiscard]] NetSessionStatus* Spawn(bool copy) const override;
    /// The same bytes, times and reserved ones included.
    friend bool operator==(const NetSessionStatus& left, const NetSessionStatus& right) { return left.IsSame(right); }

protected:
    /// The two current-connection counters take the larger value, kept on purpose; all others add. The target gets this
    /// record's user, even an empty one, and keeps its id, addresses and ports.
    void xMergeInto(unsigned char* target) const override;
    /// The same, but every counter adds.
    void xSimpleCombineInto(unsigned char* target) const override;
    ULONG xGetSizeReq() const override;
    void xMakeStringsSafe() override;

public:
    [[nodiscard]] DataLogEntryRecord* SpawnEntry(unsigned long unused, bool copy) const override;

    /// The session's number in its service and the listener's thread id.
    ///@{
    EventLogSessionID GetSessionID() const;
    void SetSessionID(const EventLogSessionID& id);
    ///@}
    /// The service's end of the connection; the port in host order.
    ///@{
    NetIP GetLocalIP() const;
    void SetLocalIP(NetIP ip);
    USHORT GetLocalPort() const;
    void SetLocalPort(unsigned short port);
    ///@}
    /// The peer's end of the connection; the port in host order.
    ///@{
    NetIP GetRemoteIP() const;
    void SetRemoteIP(NetIP ip);
    USHORT GetRemotePort() const;
    void SetRemotePort(unsigned short port);
    ///@}
    /// Empty when nobody has logged in; never longer than the field, whatever bytes were stored.
    String GetUser() const;
    /// Keeps at most the first 31 characters.
    void SetUser(const String& user);

private:
    friend class NetCounterAccess<NetSessionStatus>;
    unsigned char* xGetCounters();
    const unsigned char* xGetCounters() const;
    void xFoldInto(unsigned char* target, NetCounterBlock::FOLD fold) const;
};

} // namespace kqlib

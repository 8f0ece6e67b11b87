// NetCounterAccess: the named operations on the counter block of a binary record.
#pragma once

#include "net/status/NetCounterAdders.h"
#include "net/status/NetCounterBlock.h"

namespace kqlib {

/// Gives RECORD, which derives from it, a getter and a setter for each counter of its block, and the adding operations.
/// It has no data: RECORD offers xGetCounters (const and non-const), the address of its NetCounterBlock bytes.
///
/// Amounts and 32-bit values count with their low 32 bits on every system; a 32-bit counter wraps at 32 bits, a 64-bit
/// one at 64. The two current-connection counters are only set.
///
/// Ownership: none. Threads: as RECORD. Errors: none.
template <class RECORD> class NetCounterAccess : public NetCounterAdders<RECORD>
{
    using enum NetCounterBlock::COUNTER;

public:
    /// The counters in their order, each under its name; NetCounterBlock::COUNTER tells what they count. Get… gives the
    /// value, Set… replaces it.
    ///@{
    ULONG GetCurrentConnectionsIn() const { return xGet(CURRENT_CONNECTIONS_IN); }
    void SetCurrentConnectionsIn(ULONG value) { xSet(CURRENT_CONNECTIONS_IN, value); }

    ULONG GetCurrentConnectionsOut() const { return xGet(CURRENT_CONNECTIONS_OUT); }
    void SetCurrentConnectionsOut(ULONG value) { xSet(CURRENT_CONNECTIONS_OUT, value); }

    ULONG GetConnectionsIn() const { return xGet(CONNECTIONS_IN); }
    void SetConnectionsIn(ULONG value) { xSet(CONNECTIONS_IN, value); }

    ULONG GetConnectionsOutSuccesses() const { return xGet(CONNECTIONS_OUT_SUCCESSES); }
    void SetConnectionsOutSuccesses(ULONG value) { xSet(CONNECTIONS_OUT_SUCCESSES, value); }

    ULONG GetConnectionsOutFails() const { return xGet(CONNECTIONS_OUT_FAILS); }
    void SetConnectionsOutFails(ULONG value) { xSet(CONNECTIONS_OUT_FAILS, value); }

    ULONG8 GetDataInBytes() const { return xGetWide(DATA_IN_BYTES); }
    void SetDataInBytes(const ULONG8& value) { xSet(DATA_IN_BYTES, value); }

    ULONG8 GetDataOutBytes() const { return xGetWide(DATA_OUT_BYTES); }
    void SetDataOutBytes(const ULONG8& value) { xSet(DATA_OUT_BYTES, value); }

    ULONG8 GetCommandsIn() const { return xGetWide(COMMANDS_IN); }
    void SetCommandsIn(const ULONG8& value) { xSet(COMMANDS_IN, value); }

    ULONG8 GetCommandsOut() const { return xGetWide(COMMANDS_OUT); }
    void SetCommandsOut(const ULONG8& value) { xSet(COMMANDS_OUT, value); }

    ULONG GetSSLSuccesses() const { return xGet(SSL_SUCCESSES); }
    void SetSSLSuccesses(ULONG value) { xSet(SSL_SUCCESSES, value); }

    ULONG GetSSLFails() const { return xGet(SSL_FAILS); }
    void SetSSLFails(ULONG value) { xSet(SSL_FAILS, value); }

    ULONG GetLoginSuccesses() const { return xGet(LOGIN_SUCCESSES); }
    void SetLoginSuccesses(ULONG value) { xSet(LOGIN_SUCCESSES, value); }

    ULONG GetLoginFails() const { return xGet(LOGIN_FAILS); }
    void SetLoginFails(ULONG value) { xSet(LOGIN_FAILS, value); }

    ULONG GetDirsCreated() const { return xGet(DIRS_CREATED); }
    void SetDirsCreated(ULONG value) { xSet(DIRS_CREATED, value); }

    ULONG GetDirsDeleted() const { return xGet(DIRS_DELETED); }
    void SetDirsDeleted(ULONG value) { xSet(DIRS_DELETED, value); }

    ULONG GetDirsMoved() const { return xGet(DIRS_MOVED); }
    void SetDirsMoved(ULONG value) { xSet(DIRS_MOVED, value); }

    ULONG GetDirsRead() const { return xGet(DIRS_READ); }
    void SetDirsRead(ULONG value) { xSet(DIRS_READ, value); }

    ULONG GetFilesCreated() const { return xGet(FILES_CREATED); }
    void SetFilesCreated(ULONG value) { xSet(FILES_CREATED, value); }

    ULONG GetFilesAppended() const { return xGet(FILES_APPENDED); }
    void SetFilesAppended(ULONG value) { xSet(FILES_APPENDED, value); }

    ULONG GetFilesDeleted() const { return xGet(FILES_DELETED); }
    void SetFilesDeleted(ULONG value) { xSet(FILES_DELETED, value); }

    ULONG GetFilesMoved() const { return xGet(FILES_MOVED); }
    void SetFilesMoved(ULONG value) { xSet(FILES_MOVED, value); }

    ULONG GetFilesRead() const { return xGet(FILES_READ); }
    void SetFilesRead(ULONG value) { xSet(FILES_READ, value); }
    ///@}

    /// Any counter by its place, for walks over all of them.
    ULONG8 GetCounter(NetCounterBlock::COUNTER counter) const { return xGetWide(counter); }
    /// Adds to any counter but the two current-connection ones, which are only set.
    void IncreaseCounter(NetCounterBlock::COUNTER counter, ULONG amount)
    {
        NetCounterBlock::sIncrease(static_cast<RECORD*>(this)->xGetCounters(), counter,
                                   static_cast<std::uint32_t>(amount));
    }

protected:
    /// For RECORD alone; there is no data.
    NetCounterAccess() = default;
    NetCounterAccess(const NetCounterAccess&) = default;
    NetCounterAccess& operator=(const NetCounterAccess&) = default;
    ~NetCounterAccess() = default;

private:
    ULONG8 xGetWide(NetCounterBlock::COUNTER counter) const
    {
        return NetCounterBlock::sGet(static_cast<const RECORD*>(this)->xGetCounters(), counter);
    }
    ULONG xGet(NetCounterBlock::COUNTER counter) const { return static_cast<ULONG>(xGetWide(counter)); }
    void xSet(NetCounterBlock::COUNTER counter, ULONG8 value)
    {
        NetCounterBlock::sSet(static_cast<RECORD*>(this)->xGetCounters(), counter, value);
    }
};

} // namespace kqlib

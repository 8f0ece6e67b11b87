// NetCounterAccess: the named operations on the counter block of a binary record.
#pragma once

#include "net/status/NetCounterBlock.h"

namespace kqlib {

/// Gives RECORD, which derives from it, a getter, a setter and an adding operation for each counter of its block. It
/// has no data: RECORD offers xGetCounters (const and non-const), the address of its NetCounterBlock bytes.
///
/// Amounts and 32-bit values count with their low 32 bits on every system; a 32-bit counter wraps at 32 bits, a 64-bit
/// one at 64. The two current-connection counters are only set.
///
/// Ownership: none. Threads: as RECORD. Errors: none.
template <class RECORD> class NetCounterAccess
{
    using enum NetCounterBlock::COUNTER;

public:
    /// The counters in their order, each under its name; NetCounterBlock::COUNTER tells what they count. Get… gives the
    /// value, Set… replaces it, Increase… adds to it.
    ///@{
    ULONG GetCurrentConnectionsIn() const { return xGet(CURRENT_CONNECTIONS_IN); }
    void SetCurrentConnectionsIn(ULONG value) { xSet(CURRENT_CONNECTIONS_IN, value); }

    ULONG GetCurrentConnectionsOut() const { return xGet(CURRENT_CONNECTIONS_OUT); }
    void SetCurrentConnectionsOut(ULONG value) { xSet(CURRENT_CONNECTIONS_OUT, value); }

    ULONG GetConnectionsIn() const { return xGet(CONNECTIONS_IN); }
    void SetConnectionsIn(ULONG value) { xSet(CONNECTIONS_IN, value); }
    void IncreaseConnectionsIn(ULONG amount) { xIncrease(CONNECTIONS_IN, amount); }

    ULONG GetConnectionsOutSuccesses() const { return xGet(CONNECTIONS_OUT_SUCCESSES); }
    void SetConnectionsOutSuccesses(ULONG value) { xSet(CONNECTIONS_OUT_SUCCESSES, value); }
    void IncreaseConnectionsOutSuccesses(ULONG amount) { xIncrease(CONNECTIONS_OUT_SUCCESSES, amount); }

    ULONG GetConnectionsOutFails() const { return xGet(CONNECTIONS_OUT_FAILS); }
    void SetConnectionsOutFails(ULONG value) { xSet(CONNECTIONS_OUT_FAILS, value); }
    void IncreaseConnectionsOutFails(ULONG amount) { xIncrease(CONNECTIONS_OUT_FAILS, amount); }

    ULONG8 GetDataInBytes() const { return xGetWide(DATA_IN_BYTES); }
    void SetDataInBytes(const ULONG8& value) { xSet(DATA_IN_BYTES, value); }
    void IncreaseDataInBytes(ULONG amount) { xIncrease(DATA_IN_BYTES, amount); }

    ULONG8 GetDataOutBytes() const { return xGetWide(DATA_OUT_BYTES); }
    void SetDataOutBytes(const ULONG8& value) { xSet(DATA_OUT_BYTES, value); }
    void IncreaseDataOutBytes(ULONG amount) { xIncrease(DATA_OUT_BYTES, amount); }

    ULONG8 GetCommandsIn() const { return xGetWide(COMMANDS_IN); }
    void SetCommandsIn(const ULONG8& value) { xSet(COMMANDS_IN, value); }
    void IncreaseCommandsIn(ULONG amount) { xIncrease(COMMANDS_IN, amount); }

    ULONG8 GetCommandsOut() const { return xGetWide(COMMANDS_OUT); }
    void SetCommandsOut(const ULONG8& value) { xSet(COMMANDS_OUT, value); }
    void IncreaseCommandsOut(ULONG amount) { xIncrease(COMMANDS_OUT, amount); }

    ULONG GetSSLSuccesses() const { return xGet(SSL_SUCCESSES); }
    void SetSSLSuccesses(ULONG value) { xSet(SSL_SUCCESSES, value); }
    void IncreaseSSLSuccesses(ULONG amount) { xIncrease(SSL_SUCCESSES, amount); }

    ULONG GetSSLFails() const { return xGet(SSL_FAILS); }
    void SetSSLFails(ULONG value) { xSet(SSL_FAILS, value); }
    void IncreaseSSLFails(ULONG amount) { xIncrease(SSL_FAILS, amount); }

    ULONG GetLoginSuccesses() const { return xGet(LOGIN_SUCCESSES); }
    void SetLoginSuccesses(ULONG value) { xSet(LOGIN_SUCCESSES, value); }
    void IncreaseLoginSuccesses(ULONG amount) { xIncrease(LOGIN_SUCCESSES, amount); }

    ULONG GetLoginFails() const { return xGet(LOGIN_FAILS); }
    void SetLoginFails(ULONG value) { xSet(LOGIN_FAILS, value); }
    void IncreaseLoginFails(ULONG amount) { xIncrease(LOGIN_FAILS, amount); }

    ULONG GetDirsCreated() const { return xGet(DIRS_CREATED); }
    void SetDirsCreated(ULONG value) { xSet(DIRS_CREATED, value); }
    void IncreaseDirsCreated(ULONG amount) { xIncrease(DIRS_CREATED, amount); }

    ULONG GetDirsDeleted() const { return xGet(DIRS_DELETED); }
    void SetDirsDeleted(ULONG value) { xSet(DIRS_DELETED, value); }
    void IncreaseDirsDeleted(ULONG amount) { xIncrease(DIRS_DELETED, amount); }

    ULONG GetDirsMoved() const { return xGet(DIRS_MOVED); }
    void SetDirsMoved(ULONG value) { xSet(DIRS_MOVED, value); }
    void IncreaseDirsMoved(ULONG amount) { xIncrease(DIRS_MOVED, amount); }

    ULONG GetDirsRead() const { return xGet(DIRS_READ); }
    void SetDirsRead(ULONG value) { xSet(DIRS_READ, value); }
    void IncreaseDirsRead(ULONG amount) { xIncrease(DIRS_READ, amount); }

    ULONG GetFilesCreated() const { return xGet(FILES_CREATED); }
    void SetFilesCreated(ULONG value) { xSet(FILES_CREATED, value); }
    void IncreaseFilesCreated(ULONG amount) { xIncrease(FILES_CREATED, amount); }

    ULONG GetFilesAppended() const { return xGet(FILES_APPENDED); }
    void SetFilesAppended(ULONG value) { xSet(FILES_APPENDED, value); }
    void IncreaseFilesAppended(ULONG amount) { xIncrease(FILES_APPENDED, amount); }

    ULONG GetFilesDeleted() const { return xGet(FILES_DELETED); }
    void SetFilesDeleted(ULONG value) { xSet(FILES_DELETED, value); }
    void IncreaseFilesDeleted(ULONG amount) { xIncrease(FILES_DELETED, amount); }

    ULONG GetFilesMoved() const { return xGet(FILES_MOVED); }
    void SetFilesMoved(ULONG value) { xSet(FILES_MOVED, value); }
    void IncreaseFilesMoved(ULONG amount) { xIncrease(FILES_MOVED, amount); }

    ULONG GetFilesRead() const { return xGet(FILES_READ); }
    void SetFilesRead(ULONG value) { xSet(FILES_READ, value); }
    void IncreaseFilesRead(ULONG amount) { xIncrease(FILES_READ, amount); }
    ///@}

    /// Any counter by its place, for walks over all of them.
    ULONG8 GetCounter(NetCounterBlock::COUNTER counter) const { return xGetWide(counter); }
    /// Adds to any counter but the two current-connection ones, which are only set.
    void IncreaseCounter(NetCounterBlock::COUNTER counter, ULONG amount) { xIncrease(counter, amount); }

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
    void xIncrease(NetCounterBlock::COUNTER counter, ULONG amount)
    {
        NetCounterBlock::sIncrease(static_cast<RECORD*>(this)->xGetCounters(), counter,
                                   static_cast<std::uint32_t>(amount));
    }
};

} // namespace kqlib

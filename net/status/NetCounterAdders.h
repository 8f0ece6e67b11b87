// NetCounterAdders: the adding operations that every statistics record has.
#pragma once

#include "net/status/NetCounterBlock.h"

namespace kqlib {

/// Gives RECORD, which derives from it, an adding operation for each counter but the two current-connection ones, which
/// are only set. It has no data: RECORD offers IncreaseCounter(NetCounterBlock::COUNTER, ULONG), which does the adding.
///
/// Ownership: none. Threads, errors: as RECORD.
template <class RECORD> class NetCounterAdders
{
    using enum NetCounterBlock::COUNTER;

public:
    /// Each adds the low 32 bits of the amount to the counter of its name; NetCounterBlock::COUNTER tells what it
    /// counts.
    ///@{
    void IncreaseConnectionsIn(ULONG amount) { xAdd(CONNECTIONS_IN, amount); }
    void IncreaseConnectionsOutSuccesses(ULONG amount) { xAdd(CONNECTIONS_OUT_SUCCESSES, amount); }
    void IncreaseConnectionsOutFails(ULONG amount) { xAdd(CONNECTIONS_OUT_FAILS, amount); }
    void IncreaseDataInBytes(ULONG amount) { xAdd(DATA_IN_BYTES, amount); }
    void IncreaseDataOutBytes(ULONG amount) { xAdd(DATA_OUT_BYTES, amount); }
    void IncreaseCommandsIn(ULONG amount) { xAdd(COMMANDS_IN, amount); }
    void IncreaseCommandsOut(ULONG amount) { xAdd(COMMANDS_OUT, amount); }
    void IncreaseSSLSuccesses(ULONG amount) { xAdd(SSL_SUCCESSES, amount); }
    void IncreaseSSLFails(ULONG amount) { xAdd(SSL_FAILS, amount); }
    void IncreaseLoginSuccesses(ULONG amount) { xAdd(LOGIN_SUCCESSES, amount); }
    void IncreaseLoginFails(ULONG amount) { xAdd(LOGIN_FAILS, amount); }
    void IncreaseDirsCreated(ULONG amount) { xAdd(DIRS_CREATED, amount); }
    void IncreaseDirsDeleted(ULONG amount) { xAdd(DIRS_DELETED, amount); }
    void IncreaseDirsMoved(ULONG amount) { xAdd(DIRS_MOVED, amount); }
    void IncreaseDirsRead(ULONG amount) { xAdd(DIRS_READ, amount); }
    void IncreaseFilesCreated(ULONG amount) { xAdd(FILES_CREATED, amount); }
    void IncreaseFilesAppended(ULONG amount) { xAdd(FILES_APPENDED, amount); }
    void IncreaseFilesDeleted(ULONG amount) { xAdd(FILES_DELETED, amount); }
    void IncreaseFilesMoved(ULONG amount) { xAdd(FILES_MOVED, amount); }
    void IncreaseFilesRead(ULONG amount) { xAdd(FILES_READ, amount); }
    ///@}

protected:
    /// For RECORD alone; there is no data.
    NetCounterAdders() = default;
    NetCounterAdders(const NetCounterAdders&) = default;
    NetCounterAdders& operator=(const NetCounterAdders&) = default;
    ~NetCounterAdders() = default;

private:
    void xAdd(NetCounterBlock::COUNTER counter, ULONG amount)
    {
        static_cast<RECORD*>(this)->IncreaseCounter(counter, amount);
    }
};

} // namespace kqlib

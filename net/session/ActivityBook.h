// ActivityBook: what a session counts, and when it is written down. Inside the library only.
#pragma once

#include "common/EventLogSessionID.h"
#include "common/ThreadGateway.h"
#include "common/TimePos.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"

#include <cstdint>

namespace kqlib {

class DataLogTime;

/// The books of one session. Each counter goes up twice: in the activity of the current time unit, and in the
/// increments of the session's record. When a unit is over, its activity waits for a random moment of the next unit's
/// first second, so that many sessions do not write at the same moment, and the increments are merged into the record.
///
/// Ownership: borrows the data log and the lock. Threads: the session's own; the record is also for others, under the
/// lock, which the Update functions take. Errors: an entry that cannot be written is lost.
class ActivityBook
{
public:
    /// The session with this id begins now. recordLock guards the record.
    ActivityBook(DataLogTime& log, const ThreadGateway& recordLock, const EventLogSessionID& id);

    /// Seeds the calling thread's generator, which spreads the writes. Two sessions draw unlike numbers although their
    /// threads, their starts or their numbers are neighbours.
    static void sSeedSpread(std::uint32_t threadId, std::uint32_t seconds, std::uint32_t sessionNumber);

    /// One incoming connection, straight into the record: counted with the increments it would show only after the next
    /// merge. Before the thread runs.
    void CountFirstConnection();
    /// Comes before a change of a counter, and is called now and then besides. Writes what is due.
    ///@{
    void Update();
    void Update(const TimePos& now);
    ///@}
    /// One counter more, by amount. Count: the caller has called Update.
    ///@{
    void Count(NetCounterBlock::COUNTER counter, ULONG amount = 1);
    void UpdateAndCount(NetCounterBlock::COUNTER counter, ULONG amount = 1);
    ///@}

    /// At the session's end: writes the last unit's activity, if it still waits, and this one's.
    ///@{
    void StorePending();
    void StoreCurrent();
    ///@}

    /// The record. The lock is held by the caller, as for CloseRecordPreLocked, which makes the record final at the
    /// session's end.
    ///@{
    NetSessionStatus& GetRecordPreLocked() { return m_record; }
    void CloseRecordPreLocked(const String& user);
    ///@}

private:
    void xStore(NetSessionActivity& activity);
    void xMergeIncrementsPreLocked();

    DataLogTime& m_log;
    const ThreadGateway& m_recordLock;
    NetSessionStatus m_record;     // guarded by m_recordLock
    NetSessionStatus m_increments; // counted since the last merge into m_record
    NetSessionActivity m_pending;  // of the last unit; time unit 0: nothing to write
    NetSessionActivity m_current;
    TimePos m_pendingWriteTime;
};

} // namespace kqlib

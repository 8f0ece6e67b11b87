// DataLogPurge: the thread that keeps data logs small.
#pragma once

#include "common/DataLog.h"
#include "common/SingleThreadByPool.h"
#include "common/ThreadEvent.h"
#include "common/ThreadGateway.h"

#include <vector>

namespace kqlib {

/// Looks at each monitored log when it starts and then every purgeSeconds of the log's settings: drops rows older than
/// 400 days and merges old activity as DataLogTime says. InitMonitorLog for each log, Start, Stop.
///
/// One look drops the rows of one day, the oldest that is held: a clock that is far ahead for a while must not cost the
/// whole log. A log that holds more old days, because nobody purged it, takes as many looks.
///
/// It works in short steps, so that those who add entries never wait for long, and an end request is seen between two
/// of them. A step is one transaction: whatever ends the process, no sum changes. Rows are merged as entries of the
/// log's class; a log that has not seen one yet keeps its rows until it has. Ownership: borrows the logs, which must
/// outlive it. Threads: any thread. Errors: Start answers false; what cannot be written is tried again at the next
/// look.
class KQCOMMON_API DataLogPurge : public SingleThreadByPool
{
public:
    /// Borrows the pool, which must outlive this object. Nothing runs yet.
    explicit DataLogPurge(ThreadPool& pool);
    /// As Stop.
    ~DataLogPurge() override;

    /// Adds a log. Borrows it. A thread that runs already takes it up with its next round.
    void InitMonitorLog(DataLog& log);
    /// True when the thread runs, also when it did before.
    bool Start();
    /// Ends the thread, within one step, and waits for it; nothing when it does not run.
    void Stop();

private:
    class Pass;

    void xThread() override;
    std::vector<DataLog*> xGetLogs() const;

    ThreadGateway m_runGateway;   ///< one Start or Stop at a time
    ThreadGateway m_logsGateway;  ///< never held while a log is looked at
    std::vector<DataLog*> m_logs; ///< guarded by m_logsGateway; only grows
    ThreadEvent m_stop;           ///< ends the pause between two rounds
};

} // namespace kqlib

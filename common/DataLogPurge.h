// DataLogPurge: the thread that keeps data logs small.
#pragma once

#include "common/DataLog.h"
#include "common/SingleThreadByPool.h"

#include <vector>

namespace kqlib {

/// Looks at each monitored log every purgeSeconds of its settings. InitMonitorLog for each log, Start, Stop; the logs
/// must outlive it. Threads: Start and Stop one thread at a time. Errors: Start answers false.
class KQCOMMON_API DataLogPurge : public SingleThreadByPool
{
public:
    explicit DataLogPurge(ThreadPool& pool);
    ~DataLogPurge() override;

    /// Before Start. Borrows the log.
    void InitMonitorLog(DataLog& log);
    /// True when the thread runs.
    bool Start();
    /// Ends the thread; nothing when it does not run.
    void Stop();

private:
    void xThread() override;

    std::vector<DataLog*> m_logs;
};

} // namespace kqlib

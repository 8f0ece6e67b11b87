// FtpClient: a session with everything that it needs, and requests with patience.
#pragma once

#include "common/DataLogTime.h"
#include "common/EventLog.h"
#include "common/ThreadPool.h"
#include "hosts/ftpclient/FtpClientSession.h"
#include "net/dns/NetDNSCache.h"

#include <atomic>
#include <functional>
#include <memory>

namespace kqlib {

/// The thread pool, the cache, the logs and the session in the order in which they must come and go. A request whose
/// connection broke is made again, as often as the settings say.
///
/// Ownership: owns everything. Threads: Cancel any thread, the rest one at a time. Errors: as FtpClientSession.
class FtpClient
{
public:
    /// Called every WATCH_MS milliseconds while a request is waited for, on the waiting thread.
    using WATCHER = std::function<void(const FtpClientProgress&)>;
    static constexpr ULONG WATCH_MS = 100;

    explicit FtpClient(const FtpClientSettings& settings);
    ~FtpClient();
    FtpClient(const FtpClient&) = delete;
    FtpClient& operator=(const FtpClient&) = delete;

    void SetWatcher(WATCHER watcher) { m_watcher = std::move(watcher); }

    /// Queues a request; any number may wait.
    ULONG Queue(const FtpClientRequest& request) { return m_session->Queue(request); }
    /// Waits for the request that got this id. It is needed again when it is to be made again.
    FtpClientResult Await(ULONG id, const FtpClientRequest& request);
    FtpClientResult Run(const FtpClientRequest& request) { return Await(Queue(request), request); }

    /// Ends what runs and what waits, and everything that is asked for from here on.
    void Cancel();
    bool IsCancelled() const { return m_isCancelled; }

    FtpClientSession& GetSession() { return *m_session; }

private:
    FtpClientResult xAwaitOnce(ULONG id);

    const FtpClientSettings m_settings; // set once at construction
    ThreadPool m_pool;
    NetDNSCache m_cache;
    EventLog m_eventLog;
    DataLogTime m_activityLog; // stays closed: one session's counters are no history
    WATCHER m_watcher;
    std::atomic<bool> m_isCancelled{false};
    std::unique_ptr<FtpClientSession> m_session;
};

} // namespace kqlib

// FtpLiveBoard: what the service is doing, for sessions that want to show it or to step in.
#pragma once

#include "common/SingleThreadByPool.h"
#include "common/ThreadEvent.h"
#include "net/status/NetServiceLiveStatus.h"
#include "net/status/NetServiceStatus.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace kqlib {

class NetTCPService;

/// Asks the service for its live sessions and totals on a thread of its own. A session must never ask the service
/// itself: whoever closes the sessions holds the service's lock while it waits for that very session.
///
/// Ownership: borrows the service, which owns it and ends it first. Threads: Start and End the service's owner,
/// the others any thread. Errors: a null result.
class FtpLiveBoard : public SingleThreadByPool
{
public:
    struct SNAPSHOT
    {
        NetServiceLiveStatus sessions;
        NetServiceStatus totals;
    };

    FtpLiveBoard(ThreadPool& pool, NetTCPService& service);
    ~FtpLiveBoard() override;

    bool Start();
    void End();

    /// A picture made after the call. goOn is asked every few milliseconds meanwhile; false gives up with null.
    std::shared_ptr<const SNAPSHOT> Take(const std::function<bool()>& goOn);

    /// Asks a session to end, or to stop the transfer that runs. text goes to its client; a session that has ended
    /// meanwhile is passed over. These take no lock that a session could wait for: any thread, sessions included.
    void Disconnect(const EventLogSessionID& id, const String& text);
    void StopTransfer(const EventLogSessionID& id, const String& text);

private:
    void xThread() override;
    void xDraw();

    NetTCPService& m_service;
    ThreadEvent m_wanted;
    std::mutex m_mutex;
    std::uint64_t m_askedCount = 0;            // guarded by m_mutex
    std::uint64_t m_drawnCount = 0;            // guarded by m_mutex: the last question that m_picture answers
    std::shared_ptr<const SNAPSHOT> m_picture; // guarded by m_mutex
};

} // namespace kqlib

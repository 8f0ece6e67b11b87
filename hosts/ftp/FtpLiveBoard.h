// FtpLiveBoard: what the service is doing, for sessions that want to show it.
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
/// Ownership: borrows the service, which owns it and ends it first. Threads: Take any thread, Start and End the
/// service's owner. Errors: a null result.
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

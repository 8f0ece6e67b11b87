// NetTCPSessionControllableSSL: a session driven by requests that other threads queue.
#pragma once

#include "common/ThreadGateway.h"
#include "common/TimedEvent.h"
#include "net/session/NetTCPSessionSSL.h"

#include <cstdint>
#include <deque>

namespace kqlib {

/// Carries out queued requests one at a time instead of reading a protocol by itself; an outgoing client connection
/// behind a user interface, for instance.
///
/// The host derives from it, queues requests (xAddReq between xLockCtrlData and xUnlockCtrlData), carries each out in
/// xHandleCtrlReq on the session thread and keeps what GetState reports true with xUpdateState. Other threads cancel
/// requests and wait for the visible ones. An end request is honoured only when the queue is empty: everything queued
/// is handled, or disposed of as cancelled, first; ForceComplete therefore waits for it all. Control messages are not
/// taken while no handler does so.
/// A request whose handler throws is removed and reported as done. The session then ends; the requests behind it stay
/// in the queue, and nobody handles them.
///
/// Ownership: as NetTCPSession. Threads: the public operations any thread (WaitForAllReqsDone not the session's own:
/// the request that runs there counts); handlers on the session thread, without a lock. Two locks: the session's and
/// this class's control lock. Whoever holds both takes the control lock first. Errors: as NetTCPSession.
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQNET_API NetTCPSessionControllableSSL : public NetTCPSessionSSL
{
public:
    /// The id of no request.
    static constexpr ULONG INVALID_REQID = ALL_BITS_32;

    /// What GetState reports.
    struct STATE
    {
        bool connected;    ///< the socket was, when the state was updated
        bool secured;      ///< connected, and whoever updated the state said so
        NETSTATE netState; ///< the ends of the socket
        ULONG action;      ///< the current action's code
    };

    /// As NetTCPSessionSSL's.
    NetTCPSessionControllableSSL(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activityLog, EventLog& eventLog,
                                 EventLogSessionID id, ULONG timeOutSecs, NetTCPSSL* const connection);

    /// Cancels the running request, or marks the queued one cancelled; an unknown id does nothing.
    void CancelReq(ULONG id);
    /// Cancels the running request and every queued one. The mark of the running one is set even when none runs, kept
    /// on purpose: the next request taken clears it.
    void CancelAllReqs();
    /// The state as of the last xUpdateState; not connected before.
    void GetState(STATE& out) const;
    /// A visible request is queued or running, and the thread runs.
    bool IsHandlingReqs() const;
    /// Waits until IsHandlingReqs is false, looking every 50 ms.
    void WaitForAllReqsDone() const;

private:
    /// The loop over the requests.
    void xHandleSession() override;

protected:
    /// False as soon as the running request is cancelled, so that waits inside it stop.
    bool xWaitingForNetShouldWait() override;

    /// What WaitForAllReqsDone does.
    virtual void xWaitForAllReqsDone() const;
    /// Keeps what GetState reports: connected and addresses from the socket; secured: only if connected too. lock:
    /// false when the caller holds the control lock.
    virtual void xUpdateState(bool lock, NetTCP* const socket, bool secured);
    /// The same with the action, which also becomes the live status' action, with an empty detail.
    virtual void xUpdateState(bool lock, NetTCP* const socket, bool secured, const ULONG& action);
    /// Takes the whole state over; the live status stays.
    virtual void xUpdateState(bool lock, const STATE& state);
    /// Turns the timer for xHandleCtrlTimeOutPrevent on, with its interval in milliseconds, or off. It starts anew
    /// after each request. An interval of 0 triggers in every turn, which then neither pauses nor looks at the
    /// time-out.
    virtual void xSetTimeOutPrevent(bool on, ULONG milliSecs);
    /// Appends a request and returns its id, the first 1. code: the host's meaning. visible: counted, waited for, and
    /// reported when done. Takes no lock, kept on purpose: the caller holds the control lock.
    virtual ULONG xAddReq(ULONG code, bool visible);
    /// Visible requests in the queue, the running one included. Control lock held by the caller.
    virtual ULONG xVisibleReqsCount() const;
    /// Carries out one request. unused: the host's own.
    virtual void xHandleCtrlReq(ULONG id, ULONG code, bool& unused) = 0;
    /// Disposes of a request that was cancelled before it began.
    virtual void xHandleCtrlReqCancelled(ULONG id, ULONG code, bool& unused) = 0;
    /// The session's time-out has passed while no request waits. The session ends unless the time-out is reset here.
    virtual void xHandleCtrlTimedOut() = 0;
    /// After each visible request, cancelled ones included. Base version: nothing.
    virtual void xHandleCtrlReqComplete(ULONG id, ULONG code);
    /// Each time the timer of xSetTimeOutPrevent triggers while no request waits. Base version: nothing.
    virtual void xHandleCtrlTimeOutPrevent();

    /// The control lock; the thread that holds it may take it again.
    ///@{
    void xLockCtrlData() const { m_controlLock.Lock(); }
    void xUnlockCtrlData() const { m_controlLock.Unlock(); }
    ///@}
    /// alreadyLocked: the caller holds the control lock.
    bool xIsCurrentReqCancelled(bool alreadyLocked) const;
    /// Neither the session is to end nor the running request cancelled; and the opposite.
    ///@{
    bool xShouldReqContinue() const { return !xShouldReqEnd(); }
    bool xShouldReqEnd() const;
    ///@}

    /// The session's own operations, as derived classes call them.
    ///@{
    void xSetCurrentAction(const ULONG& action) { NetTCPSession::xSetCurrentAction(action); }
    void xSetCurrentActionDetail(const ULONG& action, const String& detail)
    {
        NetTCPSession::xSetCurrentActionDetail(action, detail);
    }
    void xSetCurrentDetail(const String& detail) { NetTCPSession::xSetCurrentDetail(detail); }
    void xSetCurrentUser(const String& user) { NetTCPSession::xSetCurrentUser(user); }
    bool xShouldSessionContinue() const { return NetTCPSession::xShouldSessionContinue(); }
    bool xShouldSessionEnd() const { return NetTCPSession::xShouldSessionEnd(); }
    ///@}

private:
    struct REQUEST
    {
        std::uint32_t id;
        ULONG code;
        bool visible;
        bool cancelled;
    };

    enum class NEXT : std::uint8_t
    {
        REQUEST, ///< one was taken
        IDLE,
        TICK, ///< the time-out-prevent timer has triggered
        END
    };

    NEXT xTakeRequest(bool end, REQUEST& request);
    void xCarryOut(const REQUEST& request);
    void xRemoveCurrent();
    bool xIdle();

    ThreadGateway m_controlLock; ///< guards everything below
    std::uint32_t m_nextReq = 1;
    std::deque<REQUEST> m_requests; ///< the running one stays in front until it is done
    std::uint32_t m_currentReq = INVALID_REQID;
    bool m_isHandling = false; ///< m_currentReq runs: its id is INVALID_REQID too, once in 2^32 requests
    bool m_currentCancelled = false;
    bool m_timeOutPreventOn = false;
    TimedEvent m_timeOutPrevent;
    STATE m_state{};
};

} // namespace kqlib

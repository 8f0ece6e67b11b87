#include "net/session/NetTCPSessionControllableSSL.h"

#include "platform/Clock.h"

#include "common/RunAllSteps.h"
#include "net/sockets/NetTCPSSL.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetTCPSessionControllableSSL::INVALID_REQID;

namespace {

constexpr std::uint32_t IDLE_PAUSE_MS = 2;
constexpr std::uint32_t WAIT_ALL_PAUSE_MS = 50;

/// A lock that the caller may hold already.
using OptionalGuard = std::optional<ThreadGatewayGuard>;

OptionalGuard LockIf(bool lock, const ThreadGateway& gateway)
{
    return lock ? OptionalGuard(std::in_place, gateway) : OptionalGuard();
}

} // namespace

NetTCPSessionControllableSSL::NetTCPSessionControllableSSL(ThreadPool& pool, NetDNSCache& cache,
                                                           DataLogTime& activityLog, EventLog& eventLog,
                                                           EventLogSessionID id, ULONG timeOutSecs,
                                                           NetTCPSSL* const connection)
    : NetTCPSessionSSL(pool, cache, activityLog, eventLog, id, timeOutSecs, connection)
    , m_timeOutPrevent(TimedEvent::sGetNow(), 0, false)
{
}

void NetTCPSessionControllableSSL::CancelReq(ULONG id)
{
    const ThreadGatewayGuard guard(m_controlLock);
    if (m_isHandling && id == m_currentReq) {
        m_currentCancelled = true;
        return;
    }
    const auto found =
        std::find_if(m_requests.begin(), m_requests.end(), [id](const REQUEST& entry) { return entry.id == id; });
    if (found != m_requests.end())
        found->cancelled = true;
}

void NetTCPSessionControllableSSL::CancelAllReqs()
{
    const ThreadGatewayGuard guard(m_controlLock);
    m_currentCancelled = true;
    for (REQUEST& entry : m_requests)
        entry.cancelled = true;
}

void NetTCPSessionControllableSSL::GetState(STATE& out) const
{
    const ThreadGatewayGuard guard(m_controlLock);
    out = m_state;
}

bool NetTCPSessionControllableSSL::IsHandlingReqs() const
{
    const ThreadGatewayGuard guard(m_controlLock);
    return xVisibleReqsCount() > 0 && xIsThreadRunning();
}

void NetTCPSessionControllableSSL::WaitForAllReqsDone() const
{
    xWaitForAllReqsDone();
}

void NetTCPSessionControllableSSL::xWaitForAllReqsDone() const
{
    while (IsHandlingReqs())
        platform::SleepMs(WAIT_ALL_PAUSE_MS);
}

void NetTCPSessionControllableSSL::xHandleSession()
{
    for (;;) {
        REQUEST request{};
        switch (xTakeRequest(xShouldSessionEnd(), request)) {
        case NEXT::END:
            return;
        case NEXT::TICK:
            xHandleCtrlTimeOutPrevent();
            break;
        case NEXT::IDLE:
            if (!xIdle())
                return;
            break;
        case NEXT::REQUEST:
            xCarryOut(request);
            break;
        }
    }
}

NetTCPSessionControllableSSL::NEXT NetTCPSessionControllableSSL::xTakeRequest(bool end, REQUEST& request)
{
    const ThreadGatewayGuard guard(m_controlLock);
    if (!m_requests.empty()) {
        request = m_requests.front();
        m_currentReq = request.id;
        m_isHandling = true;
        m_currentCancelled = false;
        return NEXT::REQUEST;
    }
    if (end)
        return NEXT::END;
    const ULONG now = TimedEvent::sGetNow();
    if (!m_timeOutPreventOn || !m_timeOutPrevent.IsTriggered(now))
        return NEXT::IDLE;
    m_timeOutPrevent.Restart(now);
    return NEXT::TICK;
}

/// False: the session has timed out and stays so.
bool NetTCPSessionControllableSSL::xIdle()
{
    if (xIsTimedOut()) {
        xHandleCtrlTimedOut();
        if (xIsTimedOut())
            return false;
    }
    platform::SleepMs(IDLE_PAUSE_MS);
    return true;
}

void NetTCPSessionControllableSSL::xCarryOut(const REQUEST& request)
{
    RunAllSteps(
        [&] {
            bool unused = false;
            if (request.cancelled)
                xHandleCtrlReqCancelled(request.id, request.code, unused);
            else
                xHandleCtrlReq(request.id, request.code, unused);
        },
        [this] { xRemoveCurrent(); },
        [&] {
            if (request.visible)
                xHandleCtrlReqComplete(request.id, request.code);
        });
}

void NetTCPSessionControllableSSL::xRemoveCurrent()
{
    const ThreadGatewayGuard guard(m_controlLock);
    m_requests.pop_front();
    m_currentReq = INVALID_REQID;
    m_isHandling = false;
    m_currentCancelled = false;
    if (m_timeOutPreventOn)
        m_timeOutPrevent.Restart(TimedEvent::sGetNow());
}

bool NetTCPSessionControllableSSL::xWaitingForNetShouldWait()
{
    return !xIsCurrentReqCancelled(false);
}

void NetTCPSessionControllableSSL::xUpdateState(bool lock, NetTCP* const socket, bool secured)
{
    const OptionalGuard guard = LockIf(lock, m_controlLock);
    m_state.connected = socket->IsConnected();
    m_state.secured = m_state.connected && secured;
    m_state.netState = xsGetNetState(socket);
}

void NetTCPSessionControllableSSL::xUpdateState(bool lock, NetTCP* const socket, bool secured, const ULONG& action)
{
    {
        const OptionalGuard guard = LockIf(lock, m_controlLock);
        xUpdateState(false, socket, secured);
        m_state.action = action;
    }
    xSetCurrentActionDetail(action, String());
}

void NetTCPSessionControllableSSL::xUpdateState(bool lock, const STATE& state)
{
    const OptionalGuard guard = LockIf(lock, m_controlLock);
    m_state = state;
}

void NetTCPSessionControllableSSL::xSetTimeOutPrevent(bool on, ULONG milliSecs)
{
    const ThreadGatewayGuard guard(m_controlLock);
    m_timeOutPreventOn = on;
    if (!on)
        return;
    m_timeOutPrevent.SetIntervalMS(milliSecs);
    m_timeOutPrevent.Restart(TimedEvent::sGetNow());
}

ULONG NetTCPSessionControllableSSL::xAddReq(ULONG code, bool visible)
{
    const std::uint32_t id = m_nextReq++;
    m_requests.push_back(REQUEST{id, code, visible, false});
    return id;
}

ULONG NetTCPSessionControllableSSL::xVisibleReqsCount() const
{
    return static_cast<ULONG>(
        std::count_if(m_requests.begin(), m_requests.end(), [](const REQUEST& entry) { return entry.visible; }));
}

void NetTCPSessionControllableSSL::xHandleCtrlReqComplete(ULONG, ULONG) {}

void NetTCPSessionControllableSSL::xHandleCtrlTimeOutPrevent() {}

bool NetTCPSessionControllableSSL::xIsCurrentReqCancelled(bool alreadyLocked) const
{
    const OptionalGuard guard = LockIf(!alreadyLocked, m_controlLock);
    return m_currentCancelled;
}

bool NetTCPSessionControllableSSL::xShouldReqEnd() const
{
    return xShouldSessionEnd() || xIsCurrentReqCancelled(false);
}

} // namespace kqlib

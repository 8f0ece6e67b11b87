#include "net/session/NetTCPSession.h"

#include "platform/Clock.h"
#include "platform/Threads.h"

#include "common/CurrentExceptionText.h"
#include "common/EventLog.h"
#include "common/RunAllSteps.h"
#include "net/session/NetTCPSessionParts.h"
#include "net/sockets/SocketHandOver.h"
#include "net/status/NetSessionLiveStatus.h"

#include <utility>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr ULONG NetTCPSession::MSG_DISCONNECT;

namespace {

constexpr ULONG BLOCK_TIME_MS = 2;
constexpr std::size_t MAX_CONTROL_MSGS = 10000;

bool ReadUsePrintDebug(const EventLog& log)
{
    EventLogSettings settings;
    log.GetSettings(settings);
    return settings.GetUsePrintDebug();
}

String AddressText(const String& address, USHORT port)
{
    return address + ":" + String::sToString(port);
}

String LocalAddressText(const NetTCP& socket)
{
    return AddressText(socket.GetLocalIP().GetText(), socket.GetLocalPort());
}

} // namespace

NetTCPSession::PARTS::PARTS(DataLogTime& dataLog, EventLog& log, const EventLogSessionID& id, ULONG timeOutSecs,
                            bool accepted)
    : acceptedAtConstruction(accepted)
    , eventLog(log)
    , printDebug(ReadUsePrintDebug(log))
    , book(dataLog, lock, id)
    , timeOut(timeOutSecs)
{
}

NetTCPSession::NetTCPSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& dataLog, EventLog& eventLog,
                             const EventLogSessionID& id, ULONG timeOutSecs, NetTCP* const socket)
    : SingleThreadByPool(pool)
    , m_mainSocket(socket != nullptr ? socket : new NetTCP(NetIP::LOOKUP_ANY, cache))
    , m_resolver(NetIP::LOOKUP_ANY, cache)
    , m_sessionID(id)
    , m_parts(std::make_unique<PARTS>(dataLog, eventLog, id, timeOutSecs, m_mainSocket->IsConnected()))
{
    SocketHandOver::sTake(*m_mainSocket);
    m_mainSocket->SetBlockTime(BLOCK_TIME_MS);
    if (m_parts->acceptedAtConstruction) {
        m_parts->book.CountFirstConnection();
        xSetPrimaryConnectionStatus(m_mainSocket.get());
        m_mainState = xsGetNetState(m_mainSocket.get());
    }
    xResetTimeOut();
}

NetTCPSession::~NetTCPSession()
{
    xEndThread(); // only for a derived destructor that forgot to
}

// 1. Seed the generator that spreads the writes of many sessions. 2. Log the start. 3. to 5. The host's part. 6. Close
// what is still open. 7. Log the end. 8. Store the records. A part that an exception leaves ends there and the next one
// follows: one session then ends early, and no other is touched.
void NetTCPSession::xThread()
{
    m_parts->hasRun = true;
    xRunPart([this] { xStartAndHandle(); });
    xRunPart([this] { xEventSessionEnd(); });
    xRunPart([this] {
        if (m_mainSocket->IsConnected())
            xShutdownAndClose(m_mainSocket.get());
    });
    xRunPart([this] {
        if (!m_parts->acceptedAtConstruction)
            xPrintLogNormal("Session Ended", "", "");
    });
    xRunPart([this] { m_parts->book.StorePending(); });
    xRunPart([this] { m_parts->book.StoreCurrent(); });
    xRunPart([this] {
        const ThreadGatewayGuard guard(m_parts->lock);
        m_parts->book.CloseRecordPreLocked(m_parts->currentUser);
    });
}

/// Runs a part of the thread's body. No exception leaves it; one is logged with the addresses of the main socket, those
/// it had when it is closed already.
template <class PART> void NetTCPSession::xRunPart(PART&& part)
{
    try {
        std::forward<PART>(part)();
    } catch (...) {
        m_parts->hasFailed = true;
        try {
            const NETSTATE state = m_mainSocket->IsConnected() ? xsGetNetState(m_mainSocket.get()) : m_mainState;
            xPrintLogNormal(state, "Session Failed", "", CurrentExceptionText());
        } catch (...) {
            // No memory for the line, or a log of the host's that throws too: HasFailed tells it.
        }
    }
}

void NetTCPSession::xStartAndHandle()
{
    ActivityBook::sSeedSpread(platform::CurrentThreadId(),
                              static_cast<std::uint32_t>(TimePos::sNow().GetMilliSeconds() / 1000),
                              m_sessionID.GetDataDirect().session);

    if (m_parts->acceptedAtConstruction)
        xPrintLogNormal(m_mainSocket.get(), "Connection Accepted", "", "");
    else
        xPrintLogNormal("Session Started", "", "");

    xEventSessionStart();
    if (xShouldSessionContinue())
        xHandleSession();
}

void NetTCPSession::xHandleSession()
{
    if (m_mainSocket->IsConnected())
        xMonitorNet(m_mainSocket.get());
}

void NetTCPSession::xEventControlMsgDisconnectRecv(const String&) {}

bool NetTCPSession::xWaitingForNetShouldWait()
{
    return true;
}

void NetTCPSession::xEventSessionStart() {}

void NetTCPSession::xEventMonPreReadData(bool, ULONG&) {}

void NetTCPSession::xEventMonDataRecv(const unsigned char*, ULONG&) {}

void NetTCPSession::xEventMonCmdRecv(const String&) {}

void NetTCPSession::xEventMonCmdOverSizeRecv(const String&) {}

void NetTCPSession::xEventMonClosing() {}

void NetTCPSession::xEventMonClosed() {}

void NetTCPSession::xEventMonControlMsgRecv(const CTRLMSG&) {}

void NetTCPSession::xEventSessionEnd() {}

void NetTCPSession::xEventMainNetClosed() {}

bool NetTCPSession::IsComplete() const
{
    return !xIsThreadRunning();
}

bool NetTCPSession::IsBusy() const
{
    return xIsThreadRunning();
}

bool NetTCPSession::HasRun() const
{
    return m_parts->hasRun;
}

bool NetTCPSession::HasFailed() const
{
    return m_parts->hasFailed;
}

void NetTCPSession::ForceComplete()
{
    xEndThread();
}

void NetTCPSession::ForceCompleteAsync()
{
    xEndThreadAsync();
}

void NetTCPSession::GetStatus(NetSessionLiveStatus& out) const
{
    const ThreadGatewayGuard guard(m_parts->lock);
    out.GetStatus() = m_parts->book.GetRecordPreLocked();
    out.GetStatus().SetUser(m_parts->currentUser);
    out.SetAction(m_parts->currentAction);
    out.SetDetail(m_parts->currentDetail);
}

void NetTCPSession::SendControlMsg(ULONG code, const String& text)
{
    const ThreadGatewayGuard guard(m_parts->lock);
    if (m_parts->controlMsgs.size() < MAX_CONTROL_MSGS)
        m_parts->controlMsgs.push_back({code, text});
}

bool NetTCPSession::SendControlMsgIfYourID(const EventLogSessionID& id, ULONG code, const String& text)
{
    const ThreadGatewayGuard guard(m_parts->lock);
    if (!(id == m_sessionID))
        return false;
    m_parts->controlMsgs.push_back({code, text}); // whatever is waiting already: kept on purpose
    return true;
}

bool NetTCPSession::xConstrStartSession()
{
    return xRunThread();
}

void NetTCPSession::xDeconstrEndSession()
{
    ForceComplete();
}

void NetTCPSession::xSetSessionCompleted()
{
    ForceCompleteAsync();
}

bool NetTCPSession::xShouldSessionEnd() const
{
    return xShouldThreadEnd();
}

bool NetTCPSession::xShouldSessionContinue() const
{
    return !xShouldThreadEnd();
}

NetTCPSession::NETSTATE NetTCPSession::xsGetNetState(const NetTCP* const socket)
{
    return {socket->GetLocalIP(), socket->GetLocalPort(), socket->GetRemoteIP(), socket->GetRemotePort()};
}

/// After each attempt to accept, connect or listen on a socket, successful or not, and before it is logged.
void NetTCPSession::xRefreshMainState(const NetTCP* const socket)
{
    if (socket == m_mainSocket.get())
        m_mainState = xsGetNetState(socket);
}

NetTCP* NetTCPSession::xAccept(NetTCP* const listener)
{
    xSendHeldReplies();
    std::unique_ptr<NetTCP> connection(listener->Accept());
    xRefreshMainState(listener);
    if (!connection)
        return nullptr;
    xPrintLogNormal(listener, "Connection Accepted", LocalAddressText(*listener), "");
    m_parts->book.UpdateAndCount(NetCounterBlock::CONNECTIONS_IN);
    return connection.release();
}

bool NetTCPSession::xSelfAccept(NetTCP* const socket)
{
    xSendHeldReplies();
    const String listenerText = LocalAddressText(*socket);
    const bool accepted = socket->SelfAccept();
    xRefreshMainState(socket);
    if (!accepted)
        return false;
    xPrintLogNormal(m_mainState, "Closed Listening Port", listenerText, "");
    xPrintLogNormal(socket, "Connection Accepted", LocalAddressText(*socket), "");
    m_parts->book.UpdateAndCount(NetCounterBlock::CONNECTIONS_IN);
    return true;
}

bool NetTCPSession::xConnect(NetTCP* const socket, const String& host, USHORT port)
{
    return xConnect(socket, host, port, String(), 0);
}

bool NetTCPSession::xConnect(NetTCP* const socket, const String& host, USHORT port, const String& localHost)
{
    return xConnect(socket, host, port, localHost, 0);
}

bool NetTCPSession::xConnect(NetTCP* const socket, const String& host, USHORT port, const String& localHost,
                             USHORT localPort)
{
    xSendHeldReplies(); // of a main socket that is closed already nothing is left for its next connection
    if (socket->IsConnected())
        xClose(socket);
    const bool connected = socket->Connect(host, port, localHost, localPort);
    xRefreshMainState(socket);
    m_parts->book.Update();
    const String detail = AddressText(host, port);
    if (connected) {
        xPrintLogNormal(socket, "Connect Success", detail, "");
        m_parts->book.Count(NetCounterBlock::CONNECTIONS_OUT_SUCCESSES);
    } else {
        xPrintLogNormal(m_mainState, "Connect Fail", detail, "");
        m_parts->book.Count(NetCounterBlock::CONNECTIONS_OUT_FAILS);
    }
    return connected;
}

bool NetTCPSession::xListen(NetTCP* const socket, bool logFailure, USHORT port, const String& address)
{
    const bool listening = socket->ListenSpecific(port, address);
    return xLogListen(socket, listening, logFailure, AddressText(address, port));
}

bool NetTCPSession::xListen(NetTCP* const socket, bool logFailure, USHORT port)
{
    const bool listening = socket->ListenAll(port);
    return xLogListen(socket, listening, logFailure, AddressText(NetIP().GetText(), port));
}

/// Both logs and passes on how listening went.
bool NetTCPSession::xLogListen(NetTCP* const socket, bool listening, bool logFailure, const String& detail)
{
    xRefreshMainState(socket);
    if (listening)
        xPrintLogNormal(m_mainState, "Open Listening Port Success", detail, "");
    else if (logFailure)
        xPrintLogNormal(m_mainState, "Open Listening Port Fail", detail, "");
    return listening;
}

void NetTCPSession::xClose(NetTCP* const socket)
{
    RunAllSteps([&] { xSendHeldBeforeClosing(socket); }, [&] { xLogClosing(socket); }, [&] { socket->Close(); },
                [&] { m_parts->book.Update(); });
}

void NetTCPSession::xShutdownAndClose(NetTCP* const socket)
{
    RunAllSteps([&] { xSendHeldBeforeClosing(socket); }, [&] { xLogClosing(socket); },
                [&] { socket->ShutdownAndClose(); }, [&] { m_parts->book.Update(); });
}

void NetTCPSession::xSendHeldBeforeClosing(const NetTCP* const socket)
{
    if (socket == m_mainSocket.get())
        xSendHeldReplies();
}

/// While the socket still has its addresses.
void NetTCPSession::xLogClosing(NetTCP* const socket)
{
    if (socket->IsConnected())
        RunAllSteps([&] { xTellMainNetClosed(socket); }, [&] { xPrintLogNormal(socket, "Connection Closed", "", ""); });
    if (socket->IsListening())
        xPrintLogNormal(m_mainState, "Closed Listening Port", LocalAddressText(*socket), "");
}

void NetTCPSession::xTellMainNetClosed(const NetTCP* const socket)
{
    if (socket == m_mainSocket.get())
        xEventMainNetClosed();
}

void NetTCPSession::xSetTimeOutSecs(ULONG seconds)
{
    m_parts->timeOut.SetSeconds(seconds);
}

bool NetTCPSession::xIsTimedOut() const
{
    return xIsTimedOut(TimedEvent::sGetNow());
}

bool NetTCPSession::xIsTimedOut(ULONG now) const
{
    return m_parts->timeOut.HasPassed(now);
}

void NetTCPSession::xResetTimeOut()
{
    xResetTimeOut(TimedEvent::sGetNow());
}

void NetTCPSession::xResetTimeOut(ULONG now)
{
    m_parts->timeOut.Restart(now);
}

void NetTCPSession::xSetResetTimeOutOnRecv(bool reset)
{
    m_parts->timeOut.SetRestartOnRecv(reset);
}

void NetTCPSession::xSetResetTimeOutOnSend(bool reset)
{
    m_parts->timeOut.SetRestartOnSend(reset);
}

bool NetTCPSession::xProcessMsgsAndTakeNext(CTRLMSG& msg)
{
    CTRLMSG oldest;
    {
        const ThreadGatewayGuard guard(m_parts->lock);
        if (m_parts->controlMsgs.empty())
            return false;
        oldest = std::move(m_parts->controlMsgs.front());
        m_parts->controlMsgs.pop_front();
    }
    if (oldest.code == MSG_DISCONNECT) {
        m_parts->disconnectPending = true;
        m_parts->disconnectText = std::move(oldest.text);
        return false;
    }
    msg = std::move(oldest);
    return true;
}

bool NetTCPSession::xCheckForDisconnectMsg() const
{
    return m_parts->disconnectPending;
}

void NetTCPSession::xPerformDisconnectMsg()
{
    RunAllSteps([this] { xSendHeldReplies(); }, // while the message still counts as waiting: nothing is waited for
                [this] {
                    // A copy of the handler's own, for it may take the next message, whose text then comes in its
                    // place.
                    const String text = m_parts->disconnectText;
                    xEventControlMsgDisconnectRecv(text);
                },
                [this] {
                    m_parts->disconnectPending = false;
                    m_parts->disconnectText.clear();
                    if (m_mainSocket->IsConnected())
                        xShutdownAndClose(m_mainSocket.get());
                });
}

} // namespace kqlib

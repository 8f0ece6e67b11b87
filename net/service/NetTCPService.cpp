#include "net/service/NetTCPService.h"

#include "platform/Clock.h"
#include "platform/Threads.h"

#include "common/EventLogSettings.h"
#include "common/RunGuarded.h"
#include "net/service/SessionRegistry.h"
#include "net/session/NetTCPSession.h"
#include "net/sockets/NetTCP.h"
#include "net/sockets/SocketHandOver.h"
#include "net/status/NetServiceLiveStatus.h"
#include "net/status/NetSessionStatus.h"

#include <algorithm>

namespace kqlib {

namespace {

constexpr int MESSAGE_START_FAILED = 3;

constexpr ULONG CONTROL_DISCONNECT = 1;
constexpr ULONG CONTROL_STOP_TRANSFER = 2;

constexpr unsigned long PURGE_SECONDS = 3600;

constexpr std::uint32_t IDLE_MS = 2;         // between looks at the hand-over and at the incoming limit
constexpr std::uint32_t ACCEPT_BLOCK_MS = 2; // one wait for a connection
constexpr ULONG ACCEPTED_AT_ONCE = 64;       // connections accepted before sessions are made of them
constexpr std::uint32_t NO_LISTENER_MS = 50; // while no port is open

String EndText(const NetIP& ip, USHORT port)
{
    return ip.GetText() + ":" + String::sToString(port);
}

} // namespace

struct NetTCPService::PORTS
{
    /// A listening socket, and its end as it was opened: a socket that fails forgets it.
    struct LISTENER
    {
        std::unique_ptr<NetTCP> socket;
        NetServiceStatus::ACTIVEPORT end;

        /// Whether it is what a binding of that address and port asks for. One that has failed is closed and is not.
        bool Serves(const WANTED& wanted) const
        {
            return socket->IsListening() && end.ip == wanted.ip && end.port == wanted.port;
        }
    };
    /// A connection that was accepted and has no session yet.
    struct WAITING
    {
        std::unique_ptr<NetTCP> connection;
        const NetTCP* listener; ///< that it came in on
    };

    /// Closes a listening socket, and what waits behind it, as the system does with its own backlog.
    auto Close(std::vector<LISTENER>::iterator listener)
    {
        std::erase_if(waiting, [&](const WAITING& one) { return one.listener == listener->socket.get(); });
        return listeners.erase(listener);
    }

    std::vector<LISTENER> listeners;
    std::vector<WAITING> waiting; ///< oldest first, ACCEPTED_AT_ONCE at most
};

/// What came of one look at every listener.
enum class NetTCPService::ATTEMPT
{
    ACCEPTED,
    NOTHING_CAME,
    NONE_LISTENS
};

struct NetTCPService::THREADSTATE
{
    std::unique_ptr<PORTS> ports; // null: not held
    std::size_t nextListener = 0;
    ULONG incoming = 0; // sessions in this pass
    ULONG outgoing = 0;
    ULONG room = 0; // incoming sessions that may come in this pass
    NetSessionActivity activity;
    TimePos now;
    ULONG timeUnit = 0;
};

/// Takes the listeners from the listener thread; it has them back when the scope is left, however that happens. No lock
/// held by then.
class NetTCPService::ListenerAccess
{
public:
    explicit ListenerAccess(NetTCPService& service)
        : m_service(service)
    {
        m_service.xLockListenerAccess();
    }
    ~ListenerAccess() { m_service.xUnlockListenerAccess(); }
    ListenerAccess(const ListenerAccess&) = delete;
    ListenerAccess& operator=(const ListenerAccess&) = delete;

private:
    NetTCPService& m_service;
};

// ---------------------------------------------------------------------------------------------- life and settings

NetTCPService::NetTCPService(ThreadPool& pool, NetDNSCache& cache)
    : SingleThreadByPool(pool)
    , m_resolver(NetIP::LOOKUP_ANY, cache)
    , m_logPurge(pool)
    , m_eventLog(nullptr)
    , m_ports(std::make_unique<PORTS>())
    , m_sessions(std::make_unique<SessionRegistry>())
{
    m_ownEventLogs.push_back(std::make_unique<EventLog>());
    m_eventLog = m_ownEventLogs.back().get();
    m_logPurge.InitMonitorLog(m_sessionLog);
    m_logPurge.InitMonitorLog(m_activityLog);
}

NetTCPService::~NetTCPService()
{
    xEndThread();
    m_logPurge.Stop();
    xStopListen();
    CloseSessionsAsync();
    CloseSessions();
    static_cast<void>(RunGuarded([this] { GetEventLog().PrintPurge(); })); // nothing may leave a destructor
}

bool NetTCPService::Init(Messages& messages)
{
    const ThreadGatewayGuard alone(m_initGateway);
    if (xIsThreadRunning())
        return true;
    if (xRunThread() && m_logPurge.Start()) {
        const ThreadGatewayGuard guard(m_lock);
        m_status.SetCreateTimeNow();
        return true;
    }
    xEndThread();
    m_logPurge.Stop();
    messages.AddMessage(MESSAGE_START_FAILED);
    return false;
}

void NetTCPService::SetSettings(const NetPortBinds& binds, unsigned long maxIncoming, unsigned long maxOutgoing)
{
    const ThreadGatewayGuard guard(m_lock);
    m_binds = binds;
    m_maxIncoming = static_cast<std::uint32_t>(std::min(maxIncoming, ALL_BITS_32));
    m_maxOutgoing = static_cast<std::uint32_t>(std::min(maxOutgoing, ALL_BITS_32));
}

void NetTCPService::SetOptions(const NetServiceOptions& options)
{
    const ThreadGatewayGuard guard(m_lock);
    m_options = options;
}

void NetTCPService::SetLogModeNormal(const EventLogSettings& settings, bool logEvents)
{
    const ThreadGatewayGuard guard(m_lock);
    if (m_eventLogShared) {
        m_ownEventLogs.push_back(std::make_unique<EventLog>());
        m_eventLog = m_ownEventLogs.back().get();
        m_eventLogShared = false;
    }
    m_logEvents = logEvents;
    GetEventLog().SetSettings(settings);
}

void NetTCPService::SetLogModeShared(EventLog* const eventLog, bool logEvents)
{
    const ThreadGatewayGuard guard(m_lock);
    if (!m_eventLogShared) {
        // Its file is closed, but sessions may still refer to the object: it goes with the service.
        GetEventLog().SetSettings(EventLogSettings());
        m_eventLogShared = true;
    }
    m_logEvents = logEvents;
    m_eventLog = eventLog;
}

void NetTCPService::SetLogLosses(bool logLosses)
{
    const ThreadGatewayGuard guard(m_lock);
    m_logLosses = logLosses;
}

void NetTCPService::SetMonitoringEnabled(const FilePath& folder, const String& prefix, const String& activityName,
                                         const String& sessionName)
{
    m_activityLog.SetSettings(true, PURGE_SECONDS, folder, prefix, activityName);
    m_sessionLog.SetSettings(true, PURGE_SECONDS, folder, prefix, sessionName);
}

void NetTCPService::SetMonitoringDisabled()
{
    m_activityLog.SetSettings(false, PURGE_SECONDS, FilePath(), String(), String());
    m_sessionLog.SetSettings(false, PURGE_SECONDS, FilePath(), String(), String());
}

// ------------------------------------------------------------------------------------------------ listening ports

void NetTCPService::StartListen(NetPortBinds& failed)
{
    const ThreadGatewayGuard alone(m_listenGateway);
    NetPortBinds binds;
    {
        const ThreadGatewayGuard guard(m_lock);
        binds = m_binds;
    }
    if (!xIsThreadRunning()) {
        for (const NetPortBind& bind : binds)
            failed.Add(bind);
        return;
    }
    std::vector<WANTED> wanted;
    xResolveBinds(binds, wanted, failed);

    const ListenerAccess access(*this);
    const ThreadGatewayGuard guard(m_lock);
    xCloseUnwantedPreLocked(wanted);
    for (const WANTED& place : wanted)
        if (!xIsServedPreLocked(place) && !xOpenListenerPreLocked(place))
            failed.Add(*place.bind);
    xPublishPortsPreLocked(*m_ports);
}

void NetTCPService::StopListen()
{
    xStopListen();
}

void NetTCPService::xStopListen()
{
    const ThreadGatewayGuard alone(m_listenGateway);
    const ListenerAccess access(*this);
    const ThreadGatewayGuard guard(m_lock);
    xCloseUnwantedPreLocked({});
    xPublishPortsPreLocked(*m_ports);
}

void NetTCPService::xResolveBinds(const NetPortBinds& binds, std::vector<WANTED>& wanted, NetPortBinds& failed)
{
    for (const NetPortBind& bind : binds) {
        NetIP ip; // stays 0.0.0.0, every address, for a binding without a host
        Messages ignored;
        if (bind.GetHost().empty() || m_resolver.ResolveHost(bind.GetHost(), true, ip, ignored))
            wanted.push_back({ip, bind.GetPort(), &bind});
        else
            failed.Add(bind);
    }
}

void NetTCPService::xCloseUnwantedPreLocked(const std::vector<WANTED>& wanted)
{
    for (auto listener = m_ports->listeners.begin(); listener != m_ports->listeners.end();) {
        if (std::any_of(wanted.begin(), wanted.end(), [&](const WANTED& place) { return listener->Serves(place); })) {
            ++listener;
            continue;
        }
        xLogPortPreLocked("Close Listening Port", listener->socket->GetLocalIP(), listener->socket->GetLocalPort());
        listener = m_ports->Close(listener);
    }
}

bool NetTCPService::xIsServedPreLocked(const WANTED& wanted) const
{
    return std::any_of(m_ports->listeners.begin(), m_ports->listeners.end(),
                       [&](const PORTS::LISTENER& listener) { return listener.Serves(wanted); });
}

bool NetTCPService::xOpenListenerPreLocked(const WANTED& wanted)
{
    NetDNSCache* const cache = m_resolver.GetCache();
    auto listener = cache != nullptr ? std::make_unique<NetTCP>(NetIP::LOOKUP_ANY, *cache)
                                     : std::make_unique<NetTCP>(NetIP::LOOKUP_ANY);
    listener->SetBacklog(m_options.GetBacklog());
    const String ipText = wanted.ip.GetText();
    const bool opened = ipText == NetIP::ANY_IP4.GetText() ? listener->ListenAll(wanted.port)
                                                           : listener->ListenSpecific(wanted.port, ipText);
    if (!opened) {
        xLogPortPreLocked("Open Listening Port Fail", wanted.ip, wanted.port);
        return false;
    }
    const NetServiceStatus::ACTIVEPORT end{listener->GetLocalIP(), listener->GetLocalPort()};
    xLogPortPreLocked("Open Listening Port Success", end.ip, end.port);
    m_ports->listeners.push_back({std::move(listener), end});
    return true;
}

void NetTCPService::xPublishPortsPreLocked(const PORTS& ports)
{
    Vector<NetServiceStatus::ACTIVEPORT> active;
    for (const PORTS::LISTENER& listener : ports.listeners)
        if (listener.socket->IsListening())
            active.Add(listener.end);
    m_status.SetActivePorts(active);
}

void NetTCPService::xLogPortPreLocked(const char* event, const NetIP& ip, USHORT port)
{
    if (m_logEvents)
        xPrintPortPreLocked(event, ip, port);
}

/// A line that cannot be written changes nothing about the ports.
void NetTCPService::xPrintPortPreLocked(const char* event, const NetIP& ip, USHORT port)
{
    static_cast<void>(RunGuarded([&] { GetEventLog().PrintServiceNormal(event, EndText(ip, port), String()); }));
}

// -------------------------------------------------------------------------- the hand-over of the listening sockets

void NetTCPService::xLockListenerAccess()
{
    m_accessRequested = true; // before the lock is had: the listener thread looks at it between two sessions
    m_lock.Lock();
    while (xIsListenerAccessWithThreadPreLocked()) {
        m_lock.Unlock();
        const bool threadRuns = xIsThreadRunning();
        if (threadRuns)
            platform::SleepMs(IDLE_MS);
        m_lock.Lock();
        if (!threadRuns)
            break; // it has put its listeners back, or never had any
    }
    xGiveListenerAccessPreLocked();
    m_lock.Unlock();
}

void NetTCPService::xUnlockListenerAccess()
{
    const ThreadGatewayGuard guard(m_lock);
    m_accessWithThread = true;
}

void NetTCPService::xGiveListenerAccessPreLocked()
{
    m_accessRequested = false;
    m_accessWithThread = false;
}

bool NetTCPService::xIsListenerAccessReqPreLocked() const
{
    return m_accessRequested;
}

bool NetTCPService::xIsListenerAccessWithThreadPreLocked() const
{
    return m_accessWithThread;
}

// --------------------------------------------------------------------------------------------- the listener thread

void NetTCPService::xThread()
{
    {
        const ThreadGatewayGuard guard(m_lock);
        m_listenerThreadId = platform::CurrentThreadId();
    }
    THREADSTATE state;
    while (!xShouldThreadEnd()) {
        // A pass that an exception left, want of memory say, has lost nothing: the next one goes on where it was.
        if (!RunGuarded([this, &state] { xPass(state); }))
            platform::SleepMs(IDLE_MS);
    }
    if (state.ports) {
        // They stay open: whoever asked for them, or the destructor, closes them.
        const ThreadGatewayGuard guard(m_lock);
        m_ports = std::move(state.ports);
    }
}

void NetTCPService::xPass(THREADSTATE& state)
{
    if (xPreparePass(state)) {
        xAcceptWaiting(state);
        xServeWaiting(state);
    } else {
        platform::SleepMs(IDLE_MS);
    }
    xRecordActivity(state);
}

/// Takes or hands back the listeners and retires finished sessions. True when a connection may be accepted.
bool NetTCPService::xPreparePass(THREADSTATE& state)
{
    const ThreadGatewayGuard guard(m_lock);
    if (!state.ports && xIsListenerAccessWithThreadPreLocked())
        state.ports = std::move(m_ports);
    if (state.ports && xIsListenerAccessReqPreLocked()) {
        m_ports = std::move(state.ports);
        xGiveListenerAccessPreLocked();
    }
    xRemoveDone();
    state.incoming = m_sessions->GetIncoming().GetCount();
    state.outgoing = m_sessions->GetOutgoing().GetCount();
    state.room = m_maxIncoming > state.incoming ? m_maxIncoming - state.incoming : 0;
    return state.ports && state.room > 0;
}

/// Accepts what is waiting, before sessions are made of it. The backlog of a port is short, and a system may forget a
/// connection that finds it full although the client takes it for made; so it is emptied before anything that takes
/// longer is done. Waits 2 ms for the first connection, or 50 ms while no port is open.
void NetTCPService::xAcceptWaiting(THREADSTATE& state)
{
    std::vector<PORTS::WAITING>& waiting = state.ports->waiting;
    waiting.reserve(ACCEPTED_AT_ONCE);
    const auto most = static_cast<std::size_t>(std::min(state.room, ACCEPTED_AT_ONCE));
    ATTEMPT last = ATTEMPT::ACCEPTED;
    while (last == ATTEMPT::ACCEPTED && waiting.size() < most)
        last = xAcceptOne(state, waiting.empty() ? ACCEPT_BLOCK_MS : 0);
    if (last == ATTEMPT::NONE_LISTENS && waiting.empty())
        platform::SleepMs(NO_LISTENER_MS);
}

/// Examines each listener once, in turn, until one has a connection. firstBlockMs: how long the first that listens may
/// wait; the others do not.
NetTCPService::ATTEMPT NetTCPService::xAcceptOne(THREADSTATE& state, std::uint32_t firstBlockMs)
{
    PORTS& ports = *state.ports;
    ATTEMPT result = ATTEMPT::NONE_LISTENS;
    for (std::size_t examined = 0; examined < ports.listeners.size(); ++examined) {
        if (state.nextListener >= ports.listeners.size())
            state.nextListener = 0;
        const PORTS::LISTENER& place = ports.listeners[state.nextListener];
        NetTCP& listener = *place.socket;
        ++state.nextListener; // also past one that has a connection, so that the ports are served in turn
        if (!listener.IsListening())
            continue;
        listener.SetBlockTime(result == ATTEMPT::NONE_LISTENS ? firstBlockMs : 0);
        result = ATTEMPT::NOTHING_CAME;
        std::unique_ptr<NetTCP> connection(listener.Accept());
        if (connection) {
            ports.waiting.push_back({std::move(connection), &listener});
            return ATTEMPT::ACCEPTED;
        }
        if (!listener.IsListening()) {
            const ThreadGatewayGuard guard(m_lock);
            xPublishPortsPreLocked(ports);
            xNoteLostListenerPreLocked(place.end);
        }
    }
    return result;
}

/// Makes sessions of the connections that wait, as long as nothing has changed that forbids it. Those that are left
/// wait for the next pass; a port that is closed takes its own with it.
void NetTCPService::xServeWaiting(THREADSTATE& state)
{
    for (bool first = true;; first = false) {
        const ThreadGatewayGuard guard(m_lock);
        if (state.ports->waiting.empty() || (!first && !xMayServePreLocked(state)))
            return;
        xServeNextPreLocked(state);
    }
}

bool NetTCPService::xMayServePreLocked(const THREADSTATE& state) const
{
    return !xShouldThreadEnd() && !xIsListenerAccessReqPreLocked() && state.incoming < m_maxIncoming;
}

void NetTCPService::xServeNextPreLocked(THREADSTATE& state)
{
    m_sessions->Reserve(m_sessions->GetIncoming());
    std::unique_ptr<NetTCP> connection = std::move(state.ports->waiting.front().connection);
    state.ports->waiting.erase(state.ports->waiting.begin());
    NetTCPSession* const session = xMakeSessionPreLocked(std::move(connection));
    if (session == nullptr)
        return;
    m_sessions->Add(m_sessions->GetIncoming(), session);
    ++state.incoming;
}

/// Null: the host wants none, or was left by an exception; the connection is closed then.
NetTCPSession* NetTCPService::xMakeSessionPreLocked(std::unique_ptr<NetTCP> connection)
{
    const EventLogSessionID id = xGenSessionIDPreLocked();
    const NetTCPSession::NETSTATE ends{connection->GetLocalIP(), connection->GetLocalPort(), connection->GetRemoteIP(),
                                       connection->GetRemotePort()};
    NetTCP* const offered = connection.get();
    SocketHandOver handOver(std::move(connection));
    NetTCPSession* session = nullptr;
    String why;
    if (!RunGuarded([&] { session = xCreateSession(offered, id); }, why)) {
        ++m_losses.connectionsRefused;
        GetEventLog().PrintIPNormal(id, ends.remoteIP, ends.remotePort, ends.localIP, ends.localPort,
                                    "Connection Refused", String(), why);
        return nullptr;
    }
    if (session != nullptr)
        handOver.GiveUp();
    return session;
}

/// Writes one sample of the current connections per time unit.
void NetTCPService::xRecordActivity(THREADSTATE& state)
{
    state.now.SetNow();
    const ULONG timeUnit = NetSessionActivity::sConvertToTimeUnit(state.now);
    if (timeUnit == state.timeUnit)
        return;
    state.activity.SetTimeUnit(timeUnit);
    state.activity.SetCurrentConnectionsIn(state.incoming);
    state.activity.SetCurrentConnectionsOut(state.outgoing);
    Messages ignored; // a sample that cannot be written is lost, the next one comes with the next unit
    m_activityLog.AddEntry(state.activity, ignored);
    state.timeUnit = timeUnit;
}

EventLogSessionID NetTCPService::GenSessionID()
{
    const ThreadGatewayGuard guard(m_lock);
    return xGenSessionIDPreLocked();
}

EventLogSessionID NetTCPService::xGenSessionIDPreLocked()
{
    return EventLogSessionID(m_nextSession++, m_listenerThreadId);
}

// ------------------------------------------------------------------------------------------------------- sessions

bool NetTCPService::AddOutgoingConnection(NetTCPSession* session)
{
    if (!xIsThreadRunning())
        return false;
    const ThreadGatewayGuard guard(m_lock);
    SessionRegistry::LIST& outgoing = m_sessions->GetOutgoing();
    if (outgoing.GetCount() < m_maxOutgoing) {
        m_sessions->Reserve(outgoing);
        m_sessions->Add(outgoing, session);
    }
    return true; // also when it was not taken, kept on purpose
}

void NetTCPService::CloseSessions()
{
    const ThreadGatewayGuard guard(m_lock);
    xCloseSessions();
}

void NetTCPService::CloseSessionsAsync()
{
    const ThreadGatewayGuard guard(m_lock);
    xCloseSessionsAsync();
}

unsigned long NetTCPService::xRemoveDone()
{
    return m_sessions->RemoveDone([this](const NetTCPSession& session) { xRetirePreLocked(session); });
}

void NetTCPService::xRetirePreLocked(const NetTCPSession& session)
{
    NetSessionLiveStatus live;
    session.GetStatus(live);
    m_status.AddDataFrom(live.GetStatus());
    Messages ignored; // a record that cannot be written, or no log, does not keep the session
    static_cast<void>(RunWithinMemory([&] { m_sessionLog.AddEntry(live.GetStatus(), ignored); }));
    xNoteLossPreLocked(session, live.GetStatus());
}

void NetTCPService::xNoteLossPreLocked(const NetTCPSession& session, const NetSessionStatus& status)
{
    if (session.HasRun() && !session.HasFailed())
        return;
    ++(session.HasRun() ? m_losses.sessionsFailed : m_losses.sessionsWithoutThread);
    if (!m_logLosses)
        return;
    // A line that cannot be written does not keep the session either.
    static_cast<void>(RunGuarded([&] {
        GetEventLog().PrintIPNormal(status.GetSessionID(), status.GetRemoteIP(), status.GetRemotePort(),
                                    status.GetLocalIP(), status.GetLocalPort(), "Session Lost", String(),
                                    session.HasRun() ? "Failed" : "No Thread");
    }));
}

void NetTCPService::xNoteLostListenerPreLocked(const NetServiceStatus::ACTIVEPORT& end)
{
    ++m_losses.listenersLost;
    if (m_logLosses)
        xPrintPortPreLocked("Listening Port Lost", end.ip, end.port);
}

void NetTCPService::xCloseSessions()
{
    m_sessions->CloseAll([this](const NetTCPSession& session) { xRetirePreLocked(session); });
}

void NetTCPService::xCloseSessionsAsync()
{
    m_sessions->AskAll();
}

// ----------------------------------------------------------------------------------------------- control messages

void NetTCPService::SendControlMsg(const EventLogSessionID& id, unsigned long code, const String& text)
{
    m_sessions->Tell([&](NetTCPSession& session) { session.SendControlMsgIfYourID(id, code, text); });
}

void NetTCPService::SendControlMsgAll(unsigned long code, const String& text)
{
    m_sessions->Tell([&](NetTCPSession& session) { session.SendControlMsg(code, text); });
}

void NetTCPService::SendControlMsgDisconnect(const EventLogSessionID& id, const String& text)
{
    SendControlMsg(id, CONTROL_DISCONNECT, text);
}

void NetTCPService::SendControlMsgDisconnectAll(const String& text)
{
    SendControlMsgAll(CONTROL_DISCONNECT, text);
}

void NetTCPService::SendControlMsgStopTransfer(const EventLogSessionID& id, const String& text)
{
    SendControlMsg(id, CONTROL_STOP_TRANSFER, text);
}

void NetTCPService::SendControlMsgStopTransferAll(const String& text)
{
    SendControlMsgAll(CONTROL_STOP_TRANSFER, text);
}

// ------------------------------------------------------------------------------------------------------ questions

bool NetTCPService::GetIsActive() const
{
    return xIsThreadRunning();
}

bool NetTCPService::GetIsListening() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_status.GetActivePorts().GetCount() > 0;
}

void NetTCPService::GetListeningPorts(Vector<NetServiceStatus::ACTIVEPORT>& ports) const
{
    const ThreadGatewayGuard guard(m_lock);
    ports = m_status.GetActivePorts();
}

bool NetTCPService::GetIsMaxIncomingConnectionsReached() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_sessions->GetIncoming().GetCount() >= m_maxIncoming;
}

bool NetTCPService::GetIsMaxOutgoingConnectionsReached() const
{
    const ThreadGatewayGuard guard(m_lock);
    return m_sessions->GetOutgoing().GetCount() >= m_maxOutgoing;
}

void NetTCPService::GetLiveSessions(NetServiceLiveStatus& out)
{
    const ThreadGatewayGuard guard(m_lock);
    m_sessions->ForEach([&](const NetTCPSession& session) {
        auto live = std::make_unique<NetSessionLiveStatus>();
        session.GetStatus(*live);
        out.GiveStatus(live.release());
    });
}

void NetTCPService::GetStatus(NetServiceStatus& out) const
{
    const ThreadGatewayGuard guard(m_lock);
    out = m_status;
    out.SetCurrentConnectionsIn(m_sessions->GetIncoming().GetCount());
    out.SetCurrentConnectionsOut(m_sessions->GetOutgoing().GetCount());
    m_sessions->ForEach([&](const NetTCPSession& session) {
        NetSessionLiveStatus live;
        session.GetStatus(live);
        out.AddDataFrom(live.GetStatus());
    });
}

void NetTCPService::GetLosses(LOSSES& out) const
{
    const ThreadGatewayGuard guard(m_lock);
    out = m_losses;
}

bool NetTCPService::QueryActivity(const DataLogQuery& query, const ThreadEvent& cancel, DataLogResults& results,
                                  Messages& messages)
{
    return m_activityLog.Query(query, cancel, NetSessionActivity(), results, messages);
}

bool NetTCPService::QueryOldSessions(const DataLogQuery& query, const ThreadEvent& cancel, DataLogResults& results,
                                     Messages& messages)
{
    return m_sessionLog.Query(query, cancel, NetSessionStatus(), results, messages);
}

} // namespace kqlib

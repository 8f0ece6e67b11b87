// NetTCPService: the base of every server.
#pragma once

#include "common/DataLogPurge.h"
#include "common/DataLogRecord.h"
#include "common/DataLogTime.h"
#include "common/EventLog.h"
#include "common/EventLogSessionID.h"
#include "common/SingleThreadByPool.h"
#include "common/ThreadGateway.h"
#include "net/dns/NetDNS.h"
#include "net/ports/NetPortBinds.h"
#include "net/service/NetServiceOptions.h"
#include "net/status/NetServiceStatus.h"
#include "net/status/NetSessionActivity.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace kqlib {

class NetDNSCache;
class NetServiceLiveStatus;
class NetSessionLiveStatus;
class NetTCP;
class NetTCPSession;
class SessionRegistry;
class ThreadPool;

/// Listens on the ports of a NetPortBinds list, accepts on one listener thread and makes one session per connection
/// through xCreateSession of the derived class. It keeps the sessions, retires finished ones into the status and the
/// session log, closes them and passes control messages to them.
/// Calling order: construct; SetLogModeNormal or SetLogModeShared; SetMonitoringEnabled if wanted; SetSettings (nothing
/// is accepted before it, for the incoming limit starts at 0); Init; StartListen, again after every change of the
/// bindings; StopListen; CloseSessions; destroy. The destructor of the most derived class calls xEndThread first: the
/// listener thread must not find xCreateSession gone. When its sessions use members of the derived class it calls
/// CloseSessions next, for the base closes what is left only after those members are gone.
///
/// Ownership: owns its listeners, its sessions and its event log (unless shared); borrows the pool and the cache, which
/// must outlive it, as must a shared event log. GetEventLog is valid until the service ends, also after it was
/// replaced.
///
/// Threads: every public operation any thread, but not StartListen, StopListen and CloseSessions on the listener thread
/// (inside xCreateSession). One lock guards the fields. CloseSessions holds it while it waits for each session, so a
/// session's own thread must not call an operation that takes it; the SendControlMsg… forms, QueryActivity,
/// QueryOldSessions, GetEventLog, GetActivityLog and GetIsActive do not take it.
///
/// Errors: by result; Init adds message code 3. Ports that cannot be opened are logged and handed back by StartListen.
/// No exception of the host's code leaves the listener thread: one out of xCreateSession refuses that connection, and
/// others, out of an event log of the host's say, end no more than what the thread was about. What is lost that way,
/// GetLosses counts. An event log that throws costs its line: ports are opened and closed all the same, and nothing
/// leaves the destructor.
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQNET_API NetTCPService : public SingleThreadByPool
{
public:
    /// What the service has lost since it was made, without anybody having asked for it.
    struct LOSSES
    {
        ULONG8 connectionsRefused = 0;    ///< connections whose xCreateSession an exception left
        ULONG8 sessionsWithoutThread = 0; ///< sessions for which no thread was to be had
        ULONG8 sessionsFailed = 0;        ///< sessions that an exception ended, want of memory included
        ULONG8 listenersLost = 0;         ///< listening sockets that failed; StartListen opens their ports anew
    };

    /// Nothing runs yet and nothing listens.
    NetTCPService(ThreadPool& pool, NetDNSCache& cache);
    /// Ends the thread and the log purger, closes the ports and all sessions (asks all, then waits for each), flushes
    /// the event log.
    ~NetTCPService() override;

private:
    /// The listener thread.
    void xThread() override;

protected:
    /// Makes the session of an accepted connection. Called on the listener thread with the service lock held, once per
    /// connection; it may call operations that take the lock again, such as GenSessionID, but must not wait for a
    /// thread that does. The session returned owns connection, and the service owns the session. Null: the service
    /// deletes connection, which closes it; nothing is logged. An exception, of whatever kind, refuses the connection,
    /// whether a session had taken it over by then or not: "Connection Refused" is logged with what the exception says
    /// as the comment, the connection is closed, and the service goes on.
    virtual NetTCPSession* xCreateSession(NetTCP* const connection, EventLogSessionID id) = 0;

public:
    /// Starts the listener thread and the log purger and stamps the creation time; true at once when the thread runs
    /// already, also while a StartListen resolves names. False: message code 3 was added, nothing runs.
    bool Init(Messages& messages);
    /// The bindings count from the next StartListen, the limits (numbers of sessions) at once. More than 32 bits hold
    /// counts as the largest such number.
    void SetSettings(const NetPortBinds& binds, unsigned long maxIncoming, unsigned long maxOutgoing);

    /// What the service does better than its defaults; without a call the defaults stand. The options are copied. The
    /// backlog counts for ports that are opened from then on.
    void SetOptions(const NetServiceOptions& options);

    /// Opens, keeps and closes listening sockets so that exactly the bindings listen. A binding that could not be
    /// brought up is appended to failed, which is not cleared first; before Init that is every one. A listener whose
    /// address and port are still wanted keeps its socket; one on a random port (0) or an IPv6 address is always opened
    /// anew; kept on purpose. Blocks while host names are resolved, and while the listener thread makes a session.
    void StartListen(NetPortBinds& failed);
    /// Closes all listening ports, and the connections that came in on them and have no session yet. Waits for a
    /// StartListen that is under way.
    void StopListen();

    /// Hands a session that was made for an outgoing connection to the service. False: the thread does not run, the
    /// caller keeps the session. True: the service owns it; but at the outgoing limit it is not taken and still true
    /// comes back, kept on purpose: test GetIsMaxOutgoingConnectionsReached first.
    bool AddOutgoingConnection(NetTCPSession* session);
    /// Ends every session and waits for each; all are counted and logged. Must not run on a session's thread.
    void CloseSessions();
    /// Asks every session to end; the listener thread retires them as they finish.
    void CloseSessionsAsync();

    /// Sends a message to the session of that id; nothing happens when there is none.
    void SendControlMsg(const EventLogSessionID& id, unsigned long code, const String& text);
    /// Sends a message to every session.
    void SendControlMsgAll(unsigned long code, const String& text);
    /// Code 1: end the connection.
    ///@{
    void SendControlMsgDisconnect(const EventLogSessionID& id, const String& text);
    void SendControlMsgDisconnectAll(const String& text);
    ///@}
    /// Code 2: stop the running transfer.
    ///@{
    void SendControlMsgStopTransfer(const EventLogSessionID& id, const String& text);
    void SendControlMsgStopTransferAll(const String& text);
    ///@}

    /// An id that no other session of this service has.
    EventLogSessionID GenSessionID();

    /// Logs into an event log of the service's own, with these settings. logEvents: whether the service writes its own
    /// listening-port events. Before Init.
    void SetLogModeNormal(const EventLogSettings& settings, bool logEvents);
    /// Logs into a log of somebody else, which is borrowed and not null; an own one is closed. Before Init.
    void SetLogModeShared(EventLog* const eventLog, bool logEvents);
    /// Whether losses get a line in the event log; false at first. A session that had no thread, or that an exception
    /// ended: "Session Lost", with its id and addresses and the comment "No Thread" or "Failed", when it is retired. A
    /// listening socket that failed: "Listening Port Lost" with its address and port. They are counted in any case.
    void SetLogLosses(bool logLosses);
    /// The event log in use; never null.
    ///@{
    EventLog& GetEventLog() { return *m_eventLog; }
    const EventLog& GetEventLog() const { return *m_eventLog; }
    ///@}
    /// The activity log, for the sessions, which add to it.
    ///@{
    DataLogTime& GetActivityLog() { return m_activityLog; }
    const DataLogTime& GetActivityLog() const { return m_activityLog; }
    ///@}
    /// Keeps both data logs in files `<folder>/<prefix><name>.db`, looked through for old entries once an hour.
    void SetMonitoringEnabled(const FilePath& folder, const String& prefix, const String& activityName,
                              const String& sessionName);
    /// Closes both data logs.
    void SetMonitoringDisabled();

    /// The listener thread runs.
    bool GetIsActive() const;
    /// At least one port is open.
    bool GetIsListening() const;
    /// Replaces ports by the addresses and ports that listen, as the sockets tell them (an IPv6 one: 0.0.0.0 port 0). A
    /// port whose socket has failed is not among them; StartListen opens it anew.
    void GetListeningPorts(Vector<NetServiceStatus::ACTIVEPORT>& ports) const;
    /// As many sessions as the limit, or more.
    ///@{
    bool GetIsMaxIncomingConnectionsReached() const;
    bool GetIsMaxOutgoingConnectionsReached() const;
    ///@}
    /// Appends one entry per session to out, incoming ones first.
    void GetLiveSessions(NetServiceLiveStatus& out);
    /// Totals of finished sessions and of the running ones so far (these lag by up to one time unit), with the numbers
    /// of current connections.
    void GetStatus(NetServiceStatus& out) const;
    /// What was lost up to now; sessions count when they are retired.
    void GetLosses(LOSSES& out) const;
    /// Entries (NetSessionActivity) of the activity log. False: no log, or cancelled.
    bool QueryActivity(const DataLogQuery& query, const ThreadEvent& cancel, DataLogResults& results,
                       Messages& messages);
    /// Entries (NetSessionStatus) of the session log. False: no log, or cancelled.
    bool QueryOldSessions(const DataLogQuery& query, const ThreadEvent& cancel, DataLogResults& results,
                          Messages& messages);

protected:
    /// The resolver of the bindings' host names, with the cache given at construction. Its cache may be shared with
    /// sessions and sockets; its look-ups belong to StartListen.
    NetDNS& xGetResolver() { return m_resolver; }

private:
    /// A place to listen on, and the binding that asks for it.
    struct WANTED
    {
        NetIP ip;
        USHORT port;
        const NetPortBind* bind;
    };
    /// What the hand-over gives to and fro: the listening sockets, and connections that wait for their session.
    struct PORTS;
    /// What the listener thread keeps to itself.
    struct THREADSTATE;
    enum class ATTEMPT;
    class ListenerAccess;

    // The hand-over of the listeners between the listener thread and StartListen or StopListen.
    /// Asks for the listeners and waits until the thread has put them back into m_ports, or does not run.
    void xLockListenerAccess();
    /// Lets the thread have them again.
    void xUnlockListenerAccess();
    /// Clears both flags: the listeners are the caller's now.
    void xGiveListenerAccessPreLocked();
    bool xIsListenerAccessReqPreLocked() const;
    bool xIsListenerAccessWithThreadPreLocked() const;

    // Listener thread only.
    void xPass(THREADSTATE& state);
    bool xPreparePass(THREADSTATE& state);
    void xAcceptWaiting(THREADSTATE& state);
    ATTEMPT xAcceptOne(THREADSTATE& state, std::uint32_t firstBlockMs);
    void xServeWaiting(THREADSTATE& state);
    bool xMayServePreLocked(const THREADSTATE& state) const;
    void xServeNextPreLocked(THREADSTATE& state);
    NetTCPSession* xMakeSessionPreLocked(std::unique_ptr<NetTCP> connection);
    void xRecordActivity(THREADSTATE& state);

    void xResolveBinds(const NetPortBinds& binds, std::vector<WANTED>& wanted, NetPortBinds& failed);
    void xCloseUnwantedPreLocked(const std::vector<WANTED>& wanted);
    bool xOpenListenerPreLocked(const WANTED& wanted);
    bool xIsServedPreLocked(const WANTED& wanted) const;
    void xPublishPortsPreLocked(const PORTS& ports);
    void xLogPortPreLocked(const char* event, const NetIP& ip, USHORT port);
    void xPrintPortPreLocked(const char* event, const NetIP& ip, USHORT port);
    void xStopListen();

    EventLogSessionID xGenSessionIDPreLocked();
    /// Retires and deletes the sessions that are complete; returns how many. Lock held by the caller.
    unsigned long xRemoveDone();
    /// Counts the finished session in the status and keeps its record in the session log.
    void xRetirePreLocked(const NetTCPSession& session);
    void xNoteLossPreLocked(const NetTCPSession& session, const NetSessionStatus& status);
    void xNoteLostListenerPreLocked(const NetServiceStatus::ACTIVEPORT& end);
    void xCloseSessions();
    void xCloseSessionsAsync();

    // Guarded by m_lock, unless said otherwise.
    NetDNS m_resolver;          // look-ups by the holder of m_listenGateway only
    DataLogPurge m_logPurge;    // locks itself
    DataLogRecord m_sessionLog; // locks itself
    DataLogTime m_activityLog;  // locks itself
    NetServiceStatus m_status;
    std::atomic<EventLog*> m_eventLog; // read without the lock, too
    bool m_logEvents = true;
    bool m_eventLogShared = false;
    std::unique_ptr<PORTS> m_ports; // null while the listener thread has them
    ThreadGateway m_lock;
    std::uint32_t m_listenerThreadId = 0;
    NetPortBinds m_binds;
    std::uint32_t m_maxIncoming = 0;
    std::uint32_t m_maxOutgoing = 0;
    NetServiceOptions m_options;
    std::atomic<bool> m_accessRequested{false}; // set without the lock, which the listener thread may hold for long
    bool m_accessWithThread = true;
    const std::unique_ptr<SessionRegistry> m_sessions; // its walk that tells all sessions needs no lock of ours
    std::uint32_t m_nextSession = 0;
    bool m_logLosses = false;
    LOSSES m_losses;

    // Lock order: m_listenGateway, m_lock, the registry's own. No other is taken under m_initGateway but m_lock.
    ThreadGateway m_initGateway;                           // one Init at a time
    ThreadGateway m_listenGateway;                         // one StartListen or StopListen at a time
    std::vector<std::unique_ptr<EventLog>> m_ownEventLogs; // the one in use last; earlier ones may still be referred to
};

} // namespace kqlib

// NetTCPSession: the base of every connection of a server, with a thread of its own.
#pragma once

#include "common/EventLogSessionID.h"
#include "common/NetIP.h"
#include "common/SingleThreadByPool.h"
#include "common/String.h"
#include "common/ThreadGateway.h"
#include "common/TimePos.h"
#include "common/TimedEvent.h"
#include "net/dns/NetDNS.h"
#include "net/sockets/NetTCP.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>

namespace kqlib {

class DataLogTime;
class EventLog;
class FilePath;
class NetSessionLiveStatus;
class SessionRegistry;

/// One connection: a main socket, a thread that runs the protocol over it, a time-out, a queue of control messages, log
/// lines and statistics. A server derives from it and either overrides xHandleSession or lets the base version run
/// xMonitorNet, which calls the xEventMon… handlers.
/// Calling order: the service's factory makes the object; the constructor of the most derived class calls
/// xConstrStartSession last and its destructor xDeconstrEndSession first. The thread calls xEventSessionStart,
/// xHandleSession, xEventSessionEnd, closes the main socket, stores the last records, and is done: IsComplete turns
/// true and the service deletes the object. An end comes by ForceComplete, by the time-out, by the peer or by a
/// disconnect message; every wait but that of a Force send sees it within milliseconds, the message once the session
/// has taken it (the monitor takes one per periodic interval).
///
/// Ownership: owns the main socket, also the one handed to the constructor; borrows pool, cache and both logs, which
/// must outlive it. Sockets handed to the operations stay the caller's.
///
/// Threads: public operations any thread; everything else, the handlers included, the session's own thread, without
/// locks held (construction and destruction: one thread, while the session's own does not run). One lock guards the
/// control messages, the live status and the session record.
///
/// Errors: network failures are logged and answered by false or null. A failed receive or send has closed the socket.
/// An end request, a time-out or a waiting disconnect only makes an operation return false.
///
/// Exceptions: an operation throws std::bad_alloc when memory is wanting, and passes on what a handler throws. Either
/// way it first finishes what must follow, such as closing a socket. An exception that leaves xHandleSession or another
/// handler ends this session and no other one: "Session Failed" is logged with its text, and the rest of the thread's
/// work is done as always.
///
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQNET_API NetTCPSession : public SingleThreadByPool
{
public:
    /// The two ends of a connection, for log lines. Ports in host order.
    struct NETSTATE
    {
        NetIP localIP;         ///< this end; empty when not connected, or over IPv6
        USHORT localPort = 0;  ///< 0 likewise
        NetIP remoteIP;        ///< the peer's end, likewise
        USHORT remotePort = 0; ///< likewise
    };

    /// A message to the session.
    struct CTRLMSG
    {
        ULONG code = 0; ///< MSG_DISCONNECT, or the host's meaning
        String text;    ///< free text for the handler
    };

    /// The control message that ends the connection; all other codes are the host's.
    static constexpr ULONG MSG_DISCONNECT = 1;

    /// timeOutSecs: seconds without traffic after which the waits give up. socket: the connection, which the session
    /// owns from here on; null makes it an unconnected one, for an outgoing connection. A socket that is connected
    /// counts one incoming connection. Its block time becomes 2 ms. Nothing runs before xConstrStartSession.
    NetTCPSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& dataLog, EventLog& eventLog,
                  const EventLogSessionID& id, ULONG timeOutSecs, NetTCP* const socket);
    /// Ends the thread only for a derived destructor that forgot to; too late for what the thread uses of it. The main
    /// socket is closed.
    ~NetTCPSession() override;

private:
    void xThread() override;

protected:
    /// The protocol. Returns when the connection is done; the thread then closes what is open. The base version
    /// monitors the main socket if that is connected, and connects nothing by itself.
    virtual void xHandleSession();
    /// A disconnect message is being performed; the main socket, if connected, is shut down and closed right after. The
    /// message counts as waiting until this returns: only the Force sends go out, and no command must be received here,
    /// for xRecvCommand would perform it again. Base version: nothing.
    virtual void xEventControlMsgDisconnectRecv(const String& text);

    /// Receives from the socket and calls the xEventMon… handlers until an end request, the time-out, a disconnect
    /// message, or a closed socket that no handler connected again. Each cycle: handlers before the read; one control
    /// message at most per periodic interval (a cycle that has one does not read); one pass in the mode that is set
    /// then. Idle cycles take the socket's block time, or 2 ms with a block time of 0.
    virtual void xMonitorNet(NetTCP* const socket);
    /// One receive in data mode, offered to xEventMonDataRecv until all is consumed, then the send buffer flushed.
    /// continuing: receive at most buffer.length bytes (not 0) instead of buffer.capacity. wait: increased when time
    /// was spent. False: stop monitoring.
    virtual bool xMonitorNetDataPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                                     ULONG& wait);
    /// One receive in command mode, split into commands; each is handed to xEventMonCmdRecv or, as soon as it reaches
    /// the maximum size, line end or not, to xEventMonCmdOverSizeRecv. command: the one being assembled, kept by the
    /// caller between passes. A command ends at CR LF, neither part of it, or see xSetCmdEndIncludesLF. The CR counts
    /// towards the size while it waits for its LF; one that fills the command up stays in it, and its LF then ends an
    /// empty command, kept on purpose. Other arguments and the result as above.
    virtual bool xMonitorNetCmdPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                                    String& command, ULONG& wait);

    /// Asked again and again while a receive or send has to wait, and after each part sent. False: give up. Must return
    /// quickly. Base version: true.
    virtual bool xWaitingForNetShouldWait();

    /// The thread has begun, before anything else of the protocol; called even when the end was asked for already. Base
    /// version: nothing, as of all handlers below.
    virtual void xEventSessionStart();
    /// Before each read of the monitor, and once more with periodic true after each periodic interval. A handler that
    /// did something increases activity: the read then does not wait.
    virtual void xEventMonPreReadData(bool periodic, ULONG& activity);
    /// Bytes in data mode. length: in, bytes offered; out, bytes consumed (untouched: all). The rest is offered again
    /// after 2 ms, until the session is to end, is timed out or xWaitingForNetShouldWait says no: then it is dropped.
    virtual void xEventMonDataRecv(const unsigned char* data, ULONG& length);
    /// A command, without its line end. Replies gathered in the send buffer go out afterwards.
    virtual void xEventMonCmdRecv(const String& command);
    /// The first bytes of a line that has reached the maximum command size; its rest comes as a command of its own.
    virtual void xEventMonCmdOverSizeRecv(const String& command);
    /// The monitored socket was found closed. If the handler connects it again the monitoring goes on.
    virtual void xEventMonClosing();
    /// The monitor has ended, for whatever reason.
    virtual void xEventMonClosed();
    /// A control message other than a disconnect, taken by the monitor.
    virtual void xEventMonControlMsgRecv(const CTRLMSG& msg);
    /// xHandleSession is over or was skipped; the main socket may still be connected.
    virtual void xEventSessionEnd();
    /// The main socket is about to be closed, or has failed and is closed already. Must not close it itself.
    virtual void xEventMainNetClosed();

public:
    // --- for other threads

    /// The thread does not run: before xConstrStartSession and after the end.
    bool IsComplete() const;
    /// The thread runs: the opposite.
    bool IsBusy() const;
    /// The thread has begun. It stays true when the thread has ended. A complete session for which this is false never
    /// had a thread.
    bool HasRun() const { return m_hasRun.load(); }
    /// An exception has ended a part of the thread's work; want of memory is one. It may come from the host's code or
    /// from the library's. The session has ended, or is about to.
    bool HasFailed() const { return m_hasFailed.load(); }
    /// Asks the session to end and waits until it is complete. On the session's own thread it only asks.
    void ForceComplete();
    /// Asks the session to end and returns at once.
    void ForceCompleteAsync();

    /// The record and the live status. The counters of a running session are those up to the end of the last time unit
    /// in which it was active; those of a complete one are final.
    void GetStatus(NetSessionLiveStatus& out) const;

    /// Appends a message to the queue; dropped silently when 10000 are waiting.
    void SendControlMsg(ULONG code, const String& text);
    /// Appends a message if id is this session's, without that limit, kept on purpose. False: another id.
    bool SendControlMsgIfYourID(const EventLogSessionID& id, ULONG code, const String& text);

protected:
    // --- life

    /// Starts the thread. The constructor of the most derived class calls it last. False: no thread could be had; the
    /// session stays complete.
    bool xConstrStartSession();
    /// As ForceComplete. The destructor of the most derived class calls it first.
    void xDeconstrEndSession();
    /// As ForceCompleteAsync.
    void xSetSessionCompleted();
    /// An end was asked for, or not; every loop of the host polls one of them.
    ///@{
    bool xShouldSessionEnd() const;
    bool xShouldSessionContinue() const;
    ///@}

    /// Never null; stays owned by the session.
    NetTCP* xGetMainSocket() const { return m_mainSocket.get(); }
    /// The ends of the main socket as of the last xAccept, xSelfAccept, xConnect or xListen on it, or of construction.
    const NETSTATE& xGetMainNetState() const { return m_mainState; }
    /// The id given at construction, as control messages and logs name the session.
    EventLogSessionID xGetSessionID() const { return m_sessionID; }
    /// A resolver of the session's own over the cache given at construction; session thread only.
    NetDNS& xGetResolver() { return m_resolver; }
    /// The ends of a socket as they are now.
    static NETSTATE xsGetNetState(const NetTCP* const socket);

    // --- connecting and closing; each logs what it did

    /// Accepts one connection from a listening socket within its block time. The caller owns the result; null: nothing
    /// came or the listener failed (its last error tells), nothing is logged.
    [[nodiscard]] NetTCP* xAccept(NetTCP* const listener);
    /// Turns a listening socket into one accepted connection. False: as above.
    bool xSelfAccept(NetTCP* const socket);
    /// Closes a connected socket, then connects it to host:port; localHost and localPort: the end to connect from,
    /// empty and 0 leave the choice to the system. False: closed, its last error tells.
    ///@{
    bool xConnect(NetTCP* const socket, const String& host, USHORT port);
    bool xConnect(NetTCP* const socket, const String& host, USHORT port, const String& localHost);
    bool xConnect(NetTCP* const socket, const String& host, USHORT port, const String& localHost, USHORT localPort);
    ///@}
    /// Listens on one address (or that of a host name), or on all IPv4 addresses. logFailure: whether a failure is
    /// logged. False: closed, its last error tells.
    ///@{
    bool xListen(NetTCP* const socket, bool logFailure, USHORT port, const String& address);
    bool xListen(NetTCP* const socket, bool logFailure, USHORT port);
    ///@}
    /// Closes the socket, whatever its state.
    void xClose(NetTCP* const socket);
    /// The same, a connection being shut down in both directions first.
    void xShutdownAndClose(NetTCP* const socket);

    // --- time-out; ticks are those of TimedEvent::sGetNow

    /// Changes the time without restarting it; 0 has passed at once. Milliseconds are kept in 32 bits.
    void xSetTimeOutSecs(ULONG seconds);
    /// Whether the time has passed. The time-out closes nothing by itself: waits give up, and xHandleSession returns.
    ///@{
    bool xIsTimedOut() const;
    bool xIsTimedOut(ULONG now) const;
    ///@}
    /// Starts the time anew.
    ///@{
    void xResetTimeOut();
    void xResetTimeOut(ULONG now);
    ///@}
    /// Whether received commands and data restart it (xRecvCommand always does), and whether sent bytes do; both true
    /// at first.
    ///@{
    void xSetResetTimeOutOnRecv(bool reset) { m_resetTimeOutOnRecv = reset; }
    void xSetResetTimeOutOnSend(bool reset) { m_resetTimeOutOnSend = reset; }
    ///@}

    // --- exchange

    /// Blocks until one command is read, split as in xMonitorNetCmdPass; bytes behind it stay in buffer for the next
    /// call. buffer: begins with length and position 0. oversized: the command has reached the maximum size, its line
    /// goes on. False: end request, time-out, disconnect message (performed), xWaitingForNetShouldWait says no, or the
    /// connection is gone; what was read of an unfinished command is in command.
    [[nodiscard]] bool xRecvCommand(NetTCP* const socket, const NETSTATE& state, NetTCP::RECVBUF& buffer,
                                    String& command, bool& oversized);
    /// Receives once, waiting at most the block time. length: in, room in data (not 0); out, bytes stored, 0 when
    /// nothing came in time. False: was not connected, or failed and closed, "Connection Closed" logged for state.
    [[nodiscard]] bool xRecvData(NetTCP* const socket, const NETSTATE& state, unsigned char* data, ULONG& length);

    /// Sends text and CR LF. True: all was sent, or is in the send buffer. False: end request, time-out, waiting
    /// disconnect message, xWaitingForNetShouldWait said no (even after the last byte, kept on purpose), or the
    /// connection is gone.
    bool xSendCommand(NetTCP* const socket, const String& text);
    /// The Force forms give up for nothing but a connection that is gone: for last words while the session ends. A peer
    /// that reads nothing holds them for ever.
    bool xSendCommandForce(NetTCP* const socket, const String& text);
    /// Sends bytes; results as above.
    ///@{
    bool xSendAllData(NetTCP* const socket, const unsigned char* data, ULONG length);
    bool xSendAllDataForce(NetTCP* const socket, const unsigned char* data, ULONG length);
    ///@}
    /// Sends what the send buffer holds and empties it, also after a failure. True: nothing to send, or all sent.
    ///@{
    bool xSendPurgeSendBuf(NetTCP* const socket);
    bool xSendPurgeSendBufForce(NetTCP* const socket);
    ///@}

    /// On: makes the send buffer, as large as the system's one of a connected socket but at least 1024 bytes, 8192
    /// without a connection; another size than before discards what it holds. Off: discards what it holds. Neither
    /// touches the flag that xIsBufMode tells and that decides about sending, kept on purpose: that is m_bufferedMode.
    void xSetBufMode(NetTCP* const socket, bool on);
    /// Whether sends are gathered in the buffer, if there is one.
    bool xIsBufMode() const { return m_bufferedMode; }

    /// Chooses the pass of xMonitorNet, from its next cycle on: data or, at first, commands.
    void xSetDataMode(bool on) { m_dataMode = on; }
    /// In bytes; 1024 at first.
    void xSetMaxCmdSize(ULONG size) { m_maxCmdSize = static_cast<std::uint32_t>(size); }
    /// On: a command ends at each LF, a CR before it is not part of it. Off, at first: it ends at CR LF, and an LF
    /// alone is a character like any other.
    void xSetCmdEndIncludesLF(bool on) { m_cmdEndIncludesLF = on; }
    /// The interval of the monitor's periodic work in milliseconds, for the next xMonitorNet; 1000 at first.
    void xSetPeriodicMilliSecs(ULONG milliSecs) { m_periodicMs = static_cast<std::uint32_t>(milliSecs); }

    /// Removes a leading run of the Telnet bytes IAC (255), IP (244) and DM (242) (RFC 854), as an urgent abort sends
    /// them before a command. Later ones stay.
    void xFilterTelnetSpecials(String& text) const;

    /// Takes the oldest control message. True: it is in msg. False: none was waiting, or it was a disconnect, which now
    /// waits to be performed by the next wait or by xPerformDisconnectMsg.
    bool xProcessMsgsAndTakeNext(CTRLMSG& msg);
    /// A disconnect waits to be performed.
    bool xCheckForDisconnectMsg() const { return m_disconnectPending; }
    /// Calls xEventControlMsgDisconnectRecv, whether one waits or not, and shuts down and closes the main socket, if
    /// that is connected. None waits afterwards.
    void xPerformDisconnectMsg();

    // --- log lines; text is the event

    /// A normal line; it also goes to the log that is hooked. Addresses: given, the socket's at the time of the call,
    /// or none.
    ///@{
    void xPrintLogNormal(const NETSTATE& state, const String& text, const String& detail, const String& comment) const;
    void xPrintLogNormal(const NetTCP* const socket, const String& text, const String& detail,
                         const String& comment) const;
    void xPrintLogNormal(const String& text, const String& detail, const String& comment) const;
    ///@}
    /// A debug line, addresses likewise; dropped unless the log takes debug lines.
    ///@{
    void xPrintLogDebug(const NETSTATE& state, const String& text, const String& detail, const String& comment) const;
    void xPrintLogDebug(const NetTCP* const socket, const String& text, const String& detail,
                        const String& comment) const;
    void xPrintLogDebug(const String& text, const String& detail, const String& comment) const;
    ///@}
    /// Bytes: one line for each 76 of them, with "%" and two hexadecimal digits for 8-bit characters, control
    /// characters other than TAB, and "%". No bytes, no line.
    ///@{
    void xPrintLogDebug(const NETSTATE& state, const String& text, const unsigned char* data, ULONG length) const;
    void xPrintLogDebug(const NetTCP* const socket, const String& text, const unsigned char* data, ULONG length) const;
    ///@}

    /// Copies normal lines to a second log from here on; log is borrowed until it is turned off or the session is gone.
    /// The first one hooked in a session receives a line "Connection Accepted" with the socket's addresses; later ones
    /// do not, kept on purpose.
    void xSetLogHookNormalOn(NetTCP* const socket, EventLog& log);
    /// Ends the copying. socket: not used.
    void xSetLogHookNormalOff(NetTCP* const socket);

    // --- what the client did

    /// Logs "first: second"; comment: of a failure. third is not logged, kept on purpose. Failures are counted too.
    void xRecordLoginAttempt(const NETSTATE& state, bool success, const String& first, const String& second,
                             const String& third, const String& comment);
    /// Logs user; counts nothing. second is not logged.
    void xRecordLogout(const NETSTATE& state, const String& user, const String& second);
    /// What the client did with directories and files: one normal log line with the paths, and one more in the counter
    /// of that name when it succeeded. state: the connection that the action belongs to; reason: the comment of a
    /// failure's line, unused for a success. A move to an empty path logs the source alone.
    ///@{
    void xRecordDirCreated(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    void xRecordDirDeleted(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    void xRecordDirMoved(const NETSTATE& state, bool success, const FilePath& from, const FilePath& to,
                         const String& reason);
    /// The same, counted as a directory read, kept on purpose.
    void xRecordDirViewed(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    void xRecordFileAppended(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    void xRecordFileCreated(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    void xRecordFileDeleted(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    /// The same, counted as a file read.
    void xRecordFileDownloaded(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    void xRecordFileMoved(const NETSTATE& state, bool success, const FilePath& from, const FilePath& to,
                          const String& reason);
    void xRecordFileRead(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    /// The same, counted as a file created.
    void xRecordFileUploaded(const NETSTATE& state, bool success, const FilePath& path, const String& reason);
    ///@}
    /// A TLS handshake, of either direction; failures are counted too. detail: of the log line.
    void xRecordSSLHandshake(const NETSTATE& state, bool success, const String& detail);

    // --- live status, as GetStatus gives it to other threads at once

    /// The last one becomes the record's user when the session ends (its first 31 characters).
    void xSetCurrentUser(const String& user);
    /// action: the host's code, low 32 bits.
    void xSetCurrentAction(ULONG action);
    /// detail: free text, a file's name for instance.
    void xSetCurrentDetail(const String& detail);
    /// Both in one step.
    void xSetCurrentActionDetail(ULONG action, const String& detail);
    /// Copies the ends of the main socket into the session's record, whatever socket is given, kept on purpose.
    void xSetPrimaryConnectionStatus(NetTCP* const socket);

private:
    using SENDER = bool (NetTCPSession::*)(NetTCP* const, const unsigned char*, ULONG);
    struct ACTION;
    class ZeroBlockTime;
    enum class SPLIT
    {
        INCOMPLETE,
        COMMAND,
        OVERSIZED
    };
    enum class RECEIVED
    {
        STOP,
        NOTHING,
        BYTES
    };

    friend class SessionRegistry; // has the ends of its sessions counted

    template <class PART> void xRunPart(PART&& part);
    void xStartAndHandle();
    void xStoreFinalRecords();
    void xRefreshMainState(const NetTCP* const socket);
    bool xLogListen(NetTCP* const socket, bool listening, bool logFailure, const String& detail);
    void xLogClosing(NetTCP* const socket);
    void xTellMainNetClosed(const NetTCP* const socket);

    void xMonitorUntilItEnds(NetTCP* const socket, std::unique_ptr<unsigned char[]>& bytes);
    bool xMonitorNetPeriodic(ULONG& wait);
    RECEIVED xReceive(NetTCP* const socket, const NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                      ULONG& wait);
    bool xIsConnectedAgain(NetTCP* const socket);
    bool xGoOnAfterFailure(NetTCP* const socket, ULONG& wait);
    void xOfferData(NetTCP::RECVBUF& buffer, ULONG& wait);
    SPLIT xSplit(NetTCP::RECVBUF& buffer, String& command) const;
    void xPrintLogCommand(const NETSTATE& state, SPLIT split, const String& command) const;
    bool xMustStopWaiting() const;
    void xEndBroken(NetTCP* const socket, const NETSTATE& state);

    bool xSendAllDataNoBuf(NetTCP* const socket, const unsigned char* data, ULONG length);
    bool xSendAllDataForceNoBuf(NetTCP* const socket, const unsigned char* data, ULONG length);
    bool xSendDirect(NetTCP* const socket, const unsigned char* data, ULONG length, bool force);
    bool xSendThrough(SENDER sender, NetTCP* const socket, const unsigned char* data, ULONG length, bool log);
    bool xSendCommandThrough(SENDER sender, NetTCP* const socket, const String& text);
    bool xPurgeSendBufThrough(SENDER sender, NetTCP* const socket);

    void xRecordAction(const ACTION& action, const NETSTATE& state, bool success, const String& detail,
                       const String& reason);
    void xCount(NetCounterBlock::COUNTER counter, ULONG amount = 1);
    void xUpdateAndCount(NetCounterBlock::COUNTER counter, ULONG amount = 1);
    void xUpdateActivityStatus();
    void xUpdateActivityStatus(const TimePos& now);
    void xStoreActivity(NetSessionActivity& activity);
    void xMergeIncrementsPreLocked();

    std::unique_ptr<NetTCP> m_mainSocket; // pointer set once at construction; the socket: session thread only
    NETSTATE m_mainState;                 // session thread only, as all without another mark
    NetDNS m_resolver;
    const EventLogSessionID m_sessionID; // set once at construction, as the next three
    const bool m_acceptedAtConstruction;
    DataLogTime& m_dataLog;
    EventLog& m_eventLog;
    EventLog* m_logHook = nullptr; // borrowed; null: none
    ThreadGateway m_lock;
    NetSessionStatus m_status;            // guarded by m_lock
    String m_currentUser;                 // guarded by m_lock
    std::uint32_t m_currentAction = 0;    // guarded by m_lock
    String m_currentDetail;               // guarded by m_lock
    std::deque<CTRLMSG> m_controlMsgs;    // guarded by m_lock; oldest first
    NetSessionActivity m_pendingActivity; // of the last unit, time unit 0: nothing to write
    NetSessionActivity m_currentActivity;
    NetSessionStatus m_statusIncrements; // counted since the last merge into m_status
    TimePos m_pendingWriteTime;
    bool m_resetTimeOutOnRecv = true;
    bool m_resetTimeOutOnSend = true;
    TimedEvent m_timeOut;
    bool m_dataMode = false;

protected:
    /// Sends are gathered in the send buffer. False until a derived class sets it; with no buffer made (xSetBufMode)
    /// they go out directly all the same. Session thread only.
    bool m_bufferedMode = false;

private:
    std::unique_ptr<unsigned char[]> m_sendBuf;
    ULONG m_sendBufCapacity = 0;
    ULONG m_sendBufFill = 0;
    std::uint32_t m_maxCmdSize = 1024;
    std::uint32_t m_periodicMs = 1000;
    const bool m_printDebug; // set once at construction
    bool m_hookAnnounced = false;
    bool m_cmdEndIncludesLF = false;
    bool m_disconnectPending = false;
    String m_disconnectText;
    std::atomic<bool> m_hasRun{false};    // set by the session's thread, read by any
    std::atomic<bool> m_hasFailed{false}; // likewise
};

} // namespace kqlib

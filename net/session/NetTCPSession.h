// NetTCPSession: the base of every connection of a server, with a thread of its own.
#pragma once

#include "common/EventLogSessionID.h"
#include "common/NetIP.h"
#include "common/SingleThreadByPool.h"
#include "common/String.h"
#include "common/TimePos.h"
#include "common/TimedEvent.h"
#include "net/dns/NetDNS.h"
#include "net/sockets/NetTCP.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"

#include <cstdint>
#include <memory>

namespace kqlib {

class DataLogTime;
class EventLog;
class FilePath;
class NetSessionLiveStatus;
class SessionRegistry;

/// One connection: a main socket, a thread that runs the protocol over it, a time-out, a queue of control messages, log
/// lines and statistics. A server derives from it. It either overrides xHandleSession, or it leaves the base version,
/// which runs xMonitorNet, and overrides the xEventMon… handlers.
///
/// Calling order: the service's factory makes the object. The constructor of the most derived class calls
/// xConstrStartSession last, and its destructor calls xDeconstrEndSession first. The thread calls xEventSessionStart,
/// xHandleSession and xEventSessionEnd. Then it closes the main socket and stores the last records. From then on
/// IsComplete is true, and the service deletes the object.
///
/// A session is ended by ForceComplete, by its time-out, by its peer, or by a disconnect message. Every wait notices
/// this within milliseconds. Two exceptions: a Force send ignores it, and a disconnect message counts from the moment
/// the session takes it from its queue. The monitor takes one message per periodic interval.
///
/// Ownership: it owns the main socket, also one that the constructor is given. It borrows the pool, the cache and both
/// logs, which must outlive it. Sockets that are handed to its operations stay the caller's.
///
/// Threads: any thread may call the public operations. Everything else, the handlers included, runs on the session's
/// own thread, without locks held. Construct and destroy it on one thread, while its own does not run. One lock guards
/// the control messages, the live status and the session's record.
///
/// Errors: network failures are logged, and the operation returns false or null. A failed receive or send has closed
/// the socket. After an end request, a time-out or a waiting disconnect an operation only returns false.
///
/// Exceptions: an operation throws std::bad_alloc when there is no memory, and lets through what a handler throws. It
/// first finishes what must follow, for instance closing a socket. An exception that leaves a handler and then
/// xHandleSession ends this session and no other. "Session Failed" is logged with its text, and the rest of the
/// thread's work is done as always.
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

    /// timeOutSecs: after so many seconds without traffic the waits give up. socket: the connection, which the session
    /// owns from here on. With null it makes an unconnected socket, for an outgoing connection. A connected socket
    /// counts as one incoming connection. Its block time becomes 2 ms. Nothing runs before xConstrStartSession.
    NetTCPSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& dataLog, EventLog& eventLog,
                  const EventLogSessionID& id, ULONG timeOutSecs, NetTCP* const socket);
    /// Closes the main socket. It ends the thread too, but only as a last resort: the derived parts that the thread
    /// uses are gone by then, so the most derived destructor must have ended it.
    ~NetTCPSession() override;

private:
    void xThread() override;

protected:
    /// The protocol. It returns when the connection is done; the thread then closes what is open. The base version
    /// monitors the main socket if that is connected. It connects nothing by itself.
    virtual void xHandleSession();
    /// A disconnect message is being performed. Right after this the main socket, if connected, is shut down and
    /// closed. The message still counts as waiting, so only the Force sends go out. Do not receive a command here:
    /// xRecvCommand would perform the message again. text: the handler's own copy. Base version: nothing.
    virtual void xEventControlMsgDisconnectRecv(const String& text);

    /// Receives from the socket and calls the xEventMon… handlers. It ends by an end request, the time-out, a
    /// disconnect message, or a closed socket that no handler has connected again. However it ends, also by an
    /// exception, it calls xEventMonClosed. Each cycle calls the handlers before the read and then makes one pass in
    /// the mode that is set. Once per periodic interval it takes one control message, and a cycle with a message does
    /// not read. An idle cycle takes the socket's block time, or 2 ms with a block time of 0.
    virtual void xMonitorNet(NetTCP* const socket);
    /// One receive in data mode. The bytes are offered to xEventMonDataRecv until all are consumed; then the send
    /// buffer is sent. continuing: receive at most buffer.length bytes (not 0) instead of buffer.capacity. wait: goes
    /// up when time was spent. False: stop monitoring.
    virtual bool xMonitorNetDataPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                                     ULONG& wait);
    /// One receive in command mode, split into commands. Each goes to xEventMonCmdRecv. One that reaches the maximum
    /// size goes to xEventMonCmdOverSizeRecv at once, whether its line has ended or not. command: the one under way;
    /// the caller keeps it between passes. A command ends at CR LF, of which neither is part of it; see also
    /// xSetCmdEndIncludesLF. A CR counts towards the size while it waits for its LF. If it fills the command up, it
    /// stays in it, and its LF then ends an empty command, kept on purpose. Other arguments and result: as above.
    virtual bool xMonitorNetCmdPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                                    String& command, ULONG& wait);

    /// Asked again and again while a receive or send has to wait, and after each part that was sent. False: give up. It
    /// must return quickly. Base version: true.
    virtual bool xWaitingForNetShouldWait();

    /// The thread has begun. It comes before anything else of the protocol, even when the end was asked for already.
    /// Base version: nothing. So do the base versions of all handlers below.
    virtual void xEventSessionStart();
    /// Before each read of the monitor; after each periodic interval once more, with periodic true. A handler that did
    /// something increases activity, and the read then does not wait.
    virtual void xEventMonPreReadData(bool periodic, ULONG& activity);
    /// Bytes in data mode. length: in, bytes offered; out, bytes consumed. If you leave it, all are consumed. The rest
    /// is offered again every 2 ms. It is dropped when the session is to end, its time is out, a disconnect message
    /// waits, or xWaitingForNetShouldWait says no.
    virtual void xEventMonDataRecv(const unsigned char* data, ULONG& length);
    /// A command, without its line end. Afterwards the replies in the send buffer go out.
    virtual void xEventMonCmdRecv(const String& command);
    /// The first bytes of a line that has reached the maximum command size. Its rest comes as a command of its own.
    virtual void xEventMonCmdOverSizeRecv(const String& command);
    /// The monitored socket was found closed. If the handler connects it again, the monitoring goes on.
    virtual void xEventMonClosing();
    /// The monitor has ended, for whatever reason, an exception included.
    virtual void xEventMonClosed();
    /// A control message other than a disconnect, taken by the monitor.
    virtual void xEventMonControlMsgRecv(const CTRLMSG& msg);
    /// xHandleSession is over, or was skipped. The main socket may still be connected.
    virtual void xEventSessionEnd();
    /// The main socket is about to be closed, or it has failed and is closed already. Do not close it here.
    virtual void xEventMainNetClosed();

public:
    // --- for other threads

    /// The thread does not run: not yet, or not any more.
    bool IsComplete() const;
    /// The thread runs.
    bool IsBusy() const;
    /// The thread has begun. It stays true when the thread has ended. A complete session for which this is false never
    /// had a thread.
    bool HasRun() const;
    /// An exception has ended a part of the thread's work; want of memory is one. It may come from the host's code or
    /// from the library's. The session has ended, or is about to.
    bool HasFailed() const;
    /// Asks the session to end and waits until it is complete. On the session's own thread this only asks.
    void ForceComplete();
    /// Asks the session to end and returns at once.
    void ForceCompleteAsync();

    /// The record and the live status. The counters of a running session lag: they are those of the time units that
    /// are over. The counters of a complete session are final.
    void GetStatus(NetSessionLiveStatus& out) const;

    /// Appends a message to the queue. When 10000 wait already, it is dropped silently.
    void SendControlMsg(ULONG code, const String& text);
    /// Appends a message if id is this session's; that limit does not apply here, kept on purpose. False: another id.
    bool SendControlMsgIfYourID(const EventLogSessionID& id, ULONG code, const String& text);

protected:
    // --- life

    /// Starts the thread. The constructor of the most derived class calls it last. False: there was no thread, and the
    /// session stays complete.
    bool xConstrStartSession();
    /// As ForceComplete. The destructor of the most derived class calls it first.
    void xDeconstrEndSession();
    /// As ForceCompleteAsync.
    void xSetSessionCompleted();
    /// Whether an end was asked for, and the opposite. Every loop of the host asks one of them.
    ///@{
    bool xShouldSessionEnd() const;
    bool xShouldSessionContinue() const;
    ///@}

    /// Never null. It stays the session's.
    NetTCP* xGetMainSocket() const { return m_mainSocket.get(); }
    /// The ends of the main socket. They are read at construction and by xAccept, xSelfAccept, xConnect and xListen on
    /// it.
    const NETSTATE& xGetMainNetState() const { return m_mainState; }
    /// The id given at construction, as control messages and logs name the session.
    EventLogSessionID xGetSessionID() const { return m_sessionID; }
    /// The session's own resolver, over the cache given at construction. Session thread only.
    NetDNS& xGetResolver() { return m_resolver; }
    /// The ends of a socket as they are now.
    static NETSTATE xsGetNetState(const NetTCP* const socket);

    // --- connecting and closing; each logs what it did

    /// Accepts one connection from a listening socket within its block time. The caller owns the result. Null: nothing
    /// came, or the listener failed; its last error tells which. Nothing is logged then.
    [[nodiscard]] NetTCP* xAccept(NetTCP* const listener);
    /// Turns a listening socket into one accepted connection. False: as null above.
    bool xSelfAccept(NetTCP* const socket);
    /// Connects the socket to host:port; a connected one is closed first. localHost and localPort: the end to connect
    /// from; empty and 0 leave the choice to the system. False: it is closed, and its last error tells why.
    ///@{
    bool xConnect(NetTCP* const socket, const String& host, USHORT port);
    bool xConnect(NetTCP* const socket, const String& host, USHORT port, const String& localHost);
    bool xConnect(NetTCP* const socket, const String& host, USHORT port, const String& localHost, USHORT localPort);
    ///@}
    /// Listens on one address, given as such or as a host name, or on all IPv4 addresses. logFailure: whether a failure
    /// is logged. False: the socket is closed, and its last error tells why.
    ///@{
    bool xListen(NetTCP* const socket, bool logFailure, USHORT port, const String& address);
    bool xListen(NetTCP* const socket, bool logFailure, USHORT port);
    ///@}
    /// Closes the socket, whatever its state.
    void xClose(NetTCP* const socket);
    /// The same, but a connection is shut down in both directions first.
    void xShutdownAndClose(NetTCP* const socket);

    // --- time-out; ticks are those of TimedEvent::sGetNow

    /// Changes the time without restarting it. A time of 0 has passed at once. Milliseconds are kept in 32 bits.
    void xSetTimeOutSecs(ULONG seconds);
    /// Whether the time has passed. The time-out closes nothing by itself: the waits give up, so that xHandleSession
    /// returns.
    ///@{
    bool xIsTimedOut() const;
    bool xIsTimedOut(ULONG now) const;
    ///@}
    /// Starts the time anew.
    ///@{
    void xResetTimeOut();
    void xResetTimeOut(ULONG now);
    ///@}
    /// Whether received commands and data restart it, and whether sent bytes do. Both are true at first. xRecvCommand
    /// always restarts it.
    ///@{
    void xSetResetTimeOutOnRecv(bool reset);
    void xSetResetTimeOutOnSend(bool reset);
    ///@}

    // --- exchange

    /// Waits until one command is read, split as in xMonitorNetCmdPass. Bytes behind it stay in buffer for the next
    /// call. buffer: begins with length and position 0. oversized: the command has reached the maximum size, and its
    /// line goes on. False: end request, time-out, disconnect message (performed), xWaitingForNetShouldWait says no, or
    /// the connection is gone. command then holds what was read of an unfinished command.
    [[nodiscard]] bool xRecvCommand(NetTCP* const socket, const NETSTATE& state, NetTCP::RECVBUF& buffer,
                                    String& command, bool& oversized);
    /// Receives once, waiting at most the block time. length: in, room in data (not 0); out, bytes stored, 0 when
    /// nothing came in time. False: it was not connected; or it failed, is closed now, and "Connection Closed" was
    /// logged for state.
    [[nodiscard]] bool xRecvData(NetTCP* const socket, const NETSTATE& state, unsigned char* data, ULONG& length);

    /// Sends text and CR LF. True: all was sent, or is in the send buffer. False: end request, time-out, waiting
    /// disconnect message, the connection is gone, or xWaitingForNetShouldWait said no. That is asked even after the
    /// last byte, kept on purpose.
    bool xSendCommand(NetTCP* const socket, const String& text);
    /// The Force forms are for last words while the session ends. They give up only when the connection is gone. A peer
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

    /// On: makes the send buffer. Its size is that of the system's send buffer, at least 1024 bytes, or 8192 without a
    /// connection. If the size changes, what it holds is discarded. Off: discards what it holds. Whether sends are
    /// gathered is another matter, kept on purpose: set m_bufferedMode for that.
    void xSetBufMode(NetTCP* const socket, bool on);
    /// Whether sends are gathered in the buffer, if there is one.
    bool xIsBufMode() const { return m_bufferedMode; }

    /// On: while further commands that the main socket has received whole wait for their turn, what is sent over it is
    /// held back, and goes out together with the reply to the last of them. A client that sends many commands at once
    /// then costs one send for all their replies, instead of one for each. It holds for the commands of
    /// xMonitorNetCmdPass and of xRecvCommand. Off at first: everything goes out at once. Turned off, it sends what it
    /// holds.
    ///
    /// A reply never waits for a command that has not arrived whole. What is held back goes out, too: before the
    /// session receives, accepts, connects or makes a handshake, whatever the socket; before it sends over another one;
    /// with a Force send; before the main socket is closed; and when 16384 bytes are together. A handler that takes
    /// long, or uses a socket by itself, calls xSendHeldReplies first. What it sends then goes out at once.
    ///
    /// A send that was held back counts as successful. If it fails later, the socket is closed, and the next receive
    /// tells.
    void xSetBatchReplies(bool on);
    /// Sends what is held back. An end request, the time-out and a waiting disconnect message end this only when the
    /// peer takes nothing more; xWaitingForNetShouldWait ends it like any send. True: nothing to send, or all sent.
    bool xSendHeldReplies();

    /// Chooses the pass of xMonitorNet from its next cycle on: data, or commands, as at first.
    void xSetDataMode(bool on);
    /// The size at which a command is oversized, in bytes; 1024 at first.
    void xSetMaxCmdSize(ULONG size);
    /// On: a command ends at each LF, and a CR before it is not part of it. Off, as at first: it ends at CR LF, and an
    /// LF alone is a character like any other.
    void xSetCmdEndIncludesLF(bool on);
    /// The interval of the monitor's periodic work in milliseconds, for the next xMonitorNet; 1000 at first.
    void xSetPeriodicMilliSecs(ULONG milliSecs);

    /// Removes the Telnet bytes IAC (255), IP (244) and DM (242) (RFC 854) from the beginning of the text, where an
    /// urgent abort puts them. Later ones stay.
    void xFilterTelnetSpecials(String& text) const;

    /// Takes the oldest control message. True: it is in msg. False: none waited, or it was a disconnect. The next wait
    /// or xPerformDisconnectMsg then performs that.
    bool xProcessMsgsAndTakeNext(CTRLMSG& msg);
    /// A disconnect waits to be performed.
    bool xCheckForDisconnectMsg() const;
    /// Calls xEventControlMsgDisconnectRecv, whether one waits or not. Then it shuts down and closes the main socket,
    /// if that is connected. None waits afterwards.
    void xPerformDisconnectMsg();

    // --- log lines; text is the event

    /// A normal line. It also goes to the log that is hooked. Its addresses are given, or the socket's at the time of
    /// the call, or none.
    ///@{
    void xPrintLogNormal(const NETSTATE& state, const String& text, const String& detail, const String& comment) const;
    void xPrintLogNormal(const NetTCP* const socket, const String& text, const String& detail,
                         const String& comment) const;
    void xPrintLogNormal(const String& text, const String& detail, const String& comment) const;
    ///@}
    /// A debug line, with addresses likewise. It is dropped unless the log takes debug lines.
    ///@{
    void xPrintLogDebug(const NETSTATE& state, const String& text, const String& detail, const String& comment) const;
    void xPrintLogDebug(const NetTCP* const socket, const String& text, const String& detail,
                        const String& comment) const;
    void xPrintLogDebug(const String& text, const String& detail, const String& comment) const;
    ///@}
    /// Bytes, one line for each 76 of them. 8-bit characters, control characters other than TAB, and "%" are written as
    /// "%" and two hexadecimal digits. Without bytes there is no line.
    ///@{
    void xPrintLogDebug(const NETSTATE& state, const String& text, const unsigned char* data, ULONG length) const;
    void xPrintLogDebug(const NetTCP* const socket, const String& text, const unsigned char* data, ULONG length) const;
    ///@}

    /// Copies normal lines to a second log from here on. The log is borrowed until this is turned off or the session is
    /// gone. The first log that is hooked receives a line "Connection Accepted" with the socket's addresses. Later ones
    /// do not, kept on purpose.
    void xSetLogHookNormalOn(NetTCP* const socket, EventLog& log);
    /// Ends the copying. The socket is not used.
    void xSetLogHookNormalOff(NetTCP* const socket);

    // --- what the client did

    /// Logs "first: second", and for a failure the comment. third is not logged, kept on purpose. Failures are counted
    /// too.
    void xRecordLoginAttempt(const NETSTATE& state, bool success, const String& first, const String& second,
                             const String& third, const String& comment);
    /// Logs the user and counts nothing. second is not logged.
    void xRecordLogout(const NETSTATE& state, const String& user, const String& second);
    /// What the client did with directories and files. Each logs one normal line with the paths, and a success adds one
    /// to the counter of that name. state: the connection that the action belongs to. reason: the comment of a
    /// failure's line; unused for a success. A move to an empty path logs the source alone.
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
    /// A TLS handshake, of either direction. Failures are counted too. detail: of the log line.
    void xRecordSSLHandshake(const NETSTATE& state, bool success, const String& detail);

    // --- live status; GetStatus tells other threads at once

    /// The last user that is set becomes the record's when the session ends; the record takes 31 characters.
    void xSetCurrentUser(const String& user);
    /// action: the host's code; its low 32 bits count. The detail stays.
    void xSetCurrentAction(ULONG action);
    /// detail: free text, a file's name for instance. The action stays.
    void xSetCurrentDetail(const String& detail);
    /// Both in one step.
    void xSetCurrentActionDetail(ULONG action, const String& detail);
    /// Copies the ends of the main socket into the session's record. It does so whatever socket is given, kept on
    /// purpose.
    void xSetPrimaryConnectionStatus(NetTCP* const socket);

    /// Sends are gathered in the send buffer. This is false until a derived class sets it. As long as xSetBufMode has
    /// made no buffer, they go out directly all the same. Session thread only.
    bool m_bufferedMode = false;

private:
    struct PARTS;
    class ZeroBlockTime;
    enum class ACTION : std::uint8_t;
    enum class MANNER : std::uint8_t
    {
        POLITE, ///< gives up for an end request, the time-out, a disconnect message and xWaitingForNetShouldWait
        HELD,   ///< the same, but what was to go out before one of the first three still does, if the peer takes it
        FORCED
    };
    enum class RECEIVED : std::uint8_t
    {
        STOP,
        NOTHING,
        BYTES
    };

    friend class SessionRegistry; // has the ends of its sessions counted

    template <class PART> void xRunPart(PART&& part);
    void xStartAndHandle();
    void xRefreshMainState(const NetTCP* const socket);
    bool xLogListen(NetTCP* const socket, bool listening, bool logFailure, const String& detail);
    void xSendHeldBeforeClosing(const NetTCP* const socket);
    void xLogClosing(NetTCP* const socket);
    void xTellMainNetClosed(const NetTCP* const socket);

    void xMonitorUntilItEnds(NetTCP* const socket, std::unique_ptr<unsigned char[]>& bytes);
    bool xMonitorNetPeriodic(ULONG& wait);
    RECEIVED xReceive(NetTCP* const socket, const NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                      ULONG& wait);
    bool xIsConnectedAgain(NetTCP* const socket);
    bool xGoOnAfterFailure(NetTCP* const socket, ULONG& wait);
    void xOfferData(NetTCP::RECVBUF& buffer, ULONG& wait);
    void xPrintLogCommand(const NETSTATE& state, bool oversized, const String& command) const;
    bool xMustStopWaiting() const;
    void xEndBroken(NetTCP* const socket, const NETSTATE& state);

    bool xSendLine(NetTCP* const socket, const String& text, MANNER manner);
    bool xSendLogged(NetTCP* const socket, const unsigned char* data, ULONG length, MANNER manner);
    bool xSendBytes(NetTCP* const socket, const unsigned char* data, ULONG length, MANNER manner);
    bool xSendGathered(NetTCP* const socket, MANNER manner);
    bool xSendDirect(NetTCP* const socket, const unsigned char* data, ULONG length, MANNER manner);
    bool xSendWithHeld(const unsigned char* data, ULONG length, MANNER manner);
    bool xSendHeld(MANNER manner);
    bool xSendOut(NetTCP* const socket, const unsigned char* data, ULONG length, MANNER manner);
    void xNoteCommandFound(const NetTCP* const socket, const NetTCP::RECVBUF& buffer);

    void xRecordAction(ACTION action, const NETSTATE& state, bool success, const String& detail, const String& reason);

    const std::unique_ptr<NetTCP> m_mainSocket; // the socket: session thread only
    NETSTATE m_mainState;                       // session thread only
    NetDNS m_resolver;                          // session thread only
    const EventLogSessionID m_sessionID;
    const std::unique_ptr<PARTS> m_parts;
};

} // namespace kqlib

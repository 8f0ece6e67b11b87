// TestHostSession: a session whose protected operations tests can call, and which notes every handler call.
#pragma once

#include "net/session/NetTCPSession.h"

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kqlib::test {

/// The operations work without its thread too: a test then calls them on its own.
class TestHostSession : public NetTCPSession
{
public:
    /// What the handlers do besides being noted; each may be empty. Set before the thread runs.
    struct HOOKS
    {
        std::function<void(TestHostSession&)> handle; ///< instead of the base version's monitor
        std::function<void(TestHostSession&)> start, end, closing, closed, mainNetClosed;
        std::function<void(TestHostSession&, const String&)> command, oversized, disconnect;
        std::function<void(TestHostSession&, const std::string&, ULONG&)> data;
        std::function<void(TestHostSession&, bool, ULONG&)> preRead; ///< not noted
        std::function<void(TestHostSession&, const CTRLMSG&)> control;
        std::function<bool(TestHostSession&)> shouldWait; ///< not noted
    };

    TestHostSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& dataLog, EventLog& eventLog,
                    const EventLogSessionID& id, ULONG timeOutSecs, NetTCP* const socket)
        : NetTCPSession(pool, cache, dataLog, eventLog, id, timeOutSecs, socket)
    {
    }
    ~TestHostSession() override { xDeconstrEndSession(); }

    HOOKS hooks;

    /// Handler calls so far, in order: "command:TEXT", "closed" and so on. Any thread.
    std::vector<std::string> GetNotes() const
    {
        const std::lock_guard lock(m_mutex);
        return m_notes;
    }
    void ClearNotes()
    {
        const std::lock_guard lock(m_mutex);
        m_notes.clear();
    }
    /// Capacities of the receive buffers that the monitor's passes were given.
    ULONG GetLastCapacity() const { return m_lastCapacity; }

    using NetTCPSession::m_bufferedMode;
    using NetTCPSession::xAccept;
    using NetTCPSession::xCheckForDisconnectMsg;
    using NetTCPSession::xClose;
    using NetTCPSession::xConnect;
    using NetTCPSession::xConstrStartSession;
    using NetTCPSession::xDeconstrEndSession;
    using NetTCPSession::xFilterTelnetSpecials;
    using NetTCPSession::xGetMainNetState;
    using NetTCPSession::xGetMainSocket;
    using NetTCPSession::xGetResolver;
    using NetTCPSession::xGetSessionID;
    using NetTCPSession::xIsBufMode;
    using NetTCPSession::xIsTimedOut;
    using NetTCPSession::xListen;
    using NetTCPSession::xMonitorNet;
    using NetTCPSession::xPerformDisconnectMsg;
    using NetTCPSession::xPrintLogDebug;
    using NetTCPSession::xPrintLogNormal;
    using NetTCPSession::xProcessMsgsAndTakeNext;
    using NetTCPSession::xRecordDirCreated;
    using NetTCPSession::xRecordDirDeleted;
    using NetTCPSession::xRecordDirMoved;
    using NetTCPSession::xRecordDirViewed;
    using NetTCPSession::xRecordFileAppended;
    using NetTCPSession::xRecordFileCreated;
    using NetTCPSession::xRecordFileDeleted;
    using NetTCPSession::xRecordFileDownloaded;
    using NetTCPSession::xRecordFileMoved;
    using NetTCPSession::xRecordFileRead;
    using NetTCPSession::xRecordFileUploaded;
    using NetTCPSession::xRecordLoginAttempt;
    using NetTCPSession::xRecordLogout;
    using NetTCPSession::xRecordSSLHandshake;
    using NetTCPSession::xRecvCommand;
    using NetTCPSession::xRecvData;
    using NetTCPSession::xResetTimeOut;
    using NetTCPSession::xSelfAccept;
    using NetTCPSession::xSendAllData;
    using NetTCPSession::xSendAllDataForce;
    using NetTCPSession::xSendCommand;
    using NetTCPSession::xSendCommandForce;
    using NetTCPSession::xSendHeldReplies;
    using NetTCPSession::xSendPurgeSendBuf;
    using NetTCPSession::xSendPurgeSendBufForce;
    using NetTCPSession::xSetBatchReplies;
    using NetTCPSession::xSetBufMode;
    using NetTCPSession::xSetCmdEndIncludesLF;
    using NetTCPSession::xSetCurrentAction;
    using NetTCPSession::xSetCurrentActionDetail;
    using NetTCPSession::xSetCurrentDetail;
    using NetTCPSession::xSetCurrentUser;
    using NetTCPSession::xSetDataMode;
    using NetTCPSession::xSetLogHookNormalOff;
    using NetTCPSession::xSetLogHookNormalOn;
    using NetTCPSession::xSetMaxCmdSize;
    using NetTCPSession::xSetPeriodicMilliSecs;
    using NetTCPSession::xSetPrimaryConnectionStatus;
    using NetTCPSession::xSetResetTimeOutOnRecv;
    using NetTCPSession::xSetResetTimeOutOnSend;
    using NetTCPSession::xSetSessionCompleted;
    using NetTCPSession::xSetTimeOutSecs;
    using NetTCPSession::xsGetNetState;
    using NetTCPSession::xShouldSessionContinue;
    using NetTCPSession::xShouldSessionEnd;
    using NetTCPSession::xShutdownAndClose;

    bool xMonitorNetDataPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                             ULONG& wait) override
    {
        m_lastCapacity = buffer.capacity;
        return NetTCPSession::xMonitorNetDataPass(socket, state, buffer, continuing, wait);
    }
    bool xMonitorNetCmdPass(NetTCP* const socket, NETSTATE& state, NetTCP::RECVBUF& buffer, bool continuing,
                            String& command, ULONG& wait) override
    {
        m_lastCapacity = buffer.capacity;
        return NetTCPSession::xMonitorNetCmdPass(socket, state, buffer, continuing, command, wait);
    }

    void Note(const std::string& text)
    {
        const std::lock_guard lock(m_mutex);
        m_notes.push_back(text);
    }

protected:
    void xHandleSession() override
    {
        Note("handle");
        if (hooks.handle)
            hooks.handle(*this);
        else
            NetTCPSession::xHandleSession();
    }
    void xEventControlMsgDisconnectRecv(const String& text) override
    {
        xNoteAndCall("disconnect:" + text.str(), hooks.disconnect, text);
    }
    bool xWaitingForNetShouldWait() override
    {
        return hooks.shouldWait ? hooks.shouldWait(*this) : NetTCPSession::xWaitingForNetShouldWait();
    }
    void xEventSessionStart() override { xNoteAndCall("start", hooks.start); }
    void xEventMonPreReadData(bool periodic, ULONG& activity) override
    {
        if (hooks.preRead)
            hooks.preRead(*this, periodic, activity);
    }
    void xEventMonDataRecv(const unsigned char* data, ULONG& length) override
    {
        const std::string bytes(reinterpret_cast<const char*>(data), length);
        Note("data:" + bytes);
        if (hooks.data)
            hooks.data(*this, bytes, length);
    }
    void xEventMonCmdRecv(const String& command) override
    {
        xNoteAndCall("command:" + command.str(), hooks.command, command);
    }
    void xEventMonCmdOverSizeRecv(const String& command) override
    {
        xNoteAndCall("oversized:" + command.str(), hooks.oversized, command);
    }
    void xEventMonClosing() override { xNoteAndCall("closing", hooks.closing); }
    void xEventMonClosed() override { xNoteAndCall("closed", hooks.closed); }
    void xEventMonControlMsgRecv(const CTRLMSG& msg) override
    {
        xNoteAndCall("control:" + std::to_string(msg.code) + ":" + msg.text.str(), hooks.control, msg);
    }
    void xEventSessionEnd() override { xNoteAndCall("end", hooks.end); }
    void xEventMainNetClosed() override { xNoteAndCall("mainNetClosed", hooks.mainNetClosed); }

private:
    template <class HOOK, class... ARGS> void xNoteAndCall(const std::string& note, const HOOK& hook, ARGS&... args)
    {
        Note(note);
        if (hook)
            hook(*this, args...);
    }

    mutable std::mutex m_mutex; // guards the notes
    std::vector<std::string> m_notes;
    ULONG m_lastCapacity = 0; // thread that runs the passes only
};

} // namespace kqlib::test

// NetTCPSession::PARTS: what a session consists of besides its socket. Inside the library only.
#pragma once

#include "net/session/ActivityBook.h"
#include "net/session/CommandSplitter.h"
#include "net/session/NetTCPSession.h"
#include "net/session/ReplyBatch.h"
#include "net/session/SendBuffer.h"
#include "net/session/SessionTimeOut.h"

#include <atomic>
#include <cstdint>
#include <deque>

namespace kqlib {

/// Used by the session's own thread alone, where nothing else is said.
struct NetTCPSession::PARTS
{
    /// The arguments of the session's constructor. accepted: it was given a connected socket.
    PARTS(DataLogTime& dataLog, EventLog& log, const EventLogSessionID& id, ULONG timeOutSecs, bool accepted);

    const bool acceptedAtConstruction;  ///< the main socket was connected by then
    std::atomic<bool> hasRun{false};    ///< read by any thread
    std::atomic<bool> hasFailed{false}; ///< likewise

    EventLog& eventLog;          ///< borrowed
    EventLog* logHook = nullptr; ///< borrowed; null: none
    bool hookAnnounced = false;  ///< the first hooked log has had its line
    const bool printDebug;       ///< the log takes debug lines, as of construction

    /// What other threads have to do with, guarded by the lock. So is the record in the book.
    ///@{
    ThreadGateway lock;
    String currentUser;
    std::uint32_t currentAction = 0;
    String currentDetail;
    std::deque<CTRLMSG> controlMsgs; ///< oldest first
    ///@}
    ActivityBook book; ///< counters, and when they are written

    SessionTimeOut timeOut;          ///< see xSetTimeOutSecs
    SendBuffer sendBuffer;           ///< see xSetBufMode
    ReplyBatch replies;              ///< of the main socket
    CommandSplitter splitter;        ///< see xSetMaxCmdSize
    bool dataMode = false;           ///< see xSetDataMode
    std::uint32_t periodicMs = 1000; ///< see xSetPeriodicMilliSecs

    bool disconnectPending = false; ///< a disconnect message was taken and is not performed yet
    String disconnectText;          ///< of that message
};

} // namespace kqlib

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
    PARTS(DataLogTime& dataLog, EventLog& log, const EventLogSessionID& id, ULONG timeOutSecs, bool accepted);

    const bool acceptedAtConstruction;
    std::atomic<bool> hasRun{false};    ///< read by any thread
    std::atomic<bool> hasFailed{false}; ///< likewise

    EventLog& eventLog;
    EventLog* logHook = nullptr; ///< borrowed; null: none
    bool hookAnnounced = false;
    const bool printDebug; ///< the log takes debug lines, as of construction

    /// What other threads have to do with, guarded by the lock. So is the record in the book.
    ///@{
    ThreadGateway lock;
    String currentUser;
    std::uint32_t currentAction = 0;
    String currentDetail;
    std::deque<CTRLMSG> controlMsgs; ///< oldest first
    ///@}
    ActivityBook book;

    SessionTimeOut timeOut;
    SendBuffer sendBuffer;
    ReplyBatch replies; ///< of the main socket
    CommandSplitter splitter;
    bool dataMode = false;
    std::uint32_t periodicMs = 1000;

    bool disconnectPending = false;
    String disconnectText;
};

} // namespace kqlib

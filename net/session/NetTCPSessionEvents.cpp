// NetTCPSession, what it reports: log lines, records of what the client did, counters and live status.
#include "net/session/NetTCPSession.h"

#include "platform/Threads.h"

#include "common/DataLogTime.h"
#include "common/EventLog.h"
#include "common/FilePath.h"
#include "common/Messages.h"

#include <algorithm>

namespace kqlib {

namespace {

constexpr ULONG BYTES_PER_LINE = 76;
constexpr std::uint32_t WRITE_SPREAD_MS = 1000; // over which the writes of many sessions are spread
constexpr char FIRST_PRINTABLE = 32;
constexpr char TAB = 9;
constexpr char ESCAPE = '%';

String RenderBytes(const unsigned char* data, ULONG length)
{
    String text;
    text.reserve(length);
    for (ULONG i = 0; i < length; ++i) {
        const char byte = static_cast<char>(data[i]);
        if (!String::sIs8bitChar(byte) && (byte >= FIRST_PRINTABLE || byte == TAB) && byte != ESCAPE) {
            text += byte;
            continue;
        }
        char escaped[] = {ESCAPE, 0, 0};
        String::sToHex(byte, escaped[1], escaped[2]);
        text.append(escaped, sizeof escaped);
    }
    return text;
}

/// Hands one piece after the other to print.
template <class PRINT> void PrintPieces(const unsigned char* data, ULONG length, const PRINT& print)
{
    for (ULONG done = 0; done < length; done += BYTES_PER_LINE)
        print(RenderBytes(data + done, std::min(BYTES_PER_LINE, length - done)));
}

String MoveText(const FilePath& from, const FilePath& to)
{
    if (to.empty())
        return from.GetText();
    return "From=" + from.GetText() + ", To=" + to.GetText();
}

} // namespace

/// An action of the client: its two log texts and its counters.
struct NetTCPSession::ACTION
{
    const char* success;
    const char* fail;
    NetCounterBlock::COUNTER successCounter;
    NetCounterBlock::COUNTER failCounter = NetCounterBlock::COUNTER_COUNT; ///< COUNTER_COUNT: failures do not count
};

void NetTCPSession::xPrintLogNormal(const NETSTATE& state, const String& text, const String& detail,
                                    const String& comment) const
{
    m_eventLog.PrintIPNormal(m_sessionID, state.remoteIP, state.remotePort, state.localIP, state.localPort, text,
                             detail, comment);
    if (m_logHook != nullptr)
        m_logHook->PrintIPNormal(m_sessionID, state.remoteIP, state.remotePort, state.localIP, state.localPort, text,
                                 detail, comment);
}

void NetTCPSession::xPrintLogNormal(const NetTCP* const socket, const String& text, const String& detail,
                                    const String& comment) const
{
    xPrintLogNormal(xsGetNetState(socket), text, detail, comment);
}

void NetTCPSession::xPrintLogNormal(const String& text, const String& detail, const String& comment) const
{
    xPrintLogNormal(NETSTATE(), text, detail, comment);
}

void NetTCPSession::xPrintLogDebug(const NETSTATE& state, const String& text, const String& detail,
                                   const String& comment) const
{
    m_eventLog.PrintIPDebug(m_sessionID, state.remoteIP, state.remotePort, state.localIP, state.localPort, text, detail,
                            comment);
}

void NetTCPSession::xPrintLogDebug(const NetTCP* const socket, const String& text, const String& detail,
                                   const String& comment) const
{
    xPrintLogDebug(xsGetNetState(socket), text, detail, comment);
}

void NetTCPSession::xPrintLogDebug(const String& text, const String& detail, const String& comment) const
{
    xPrintLogDebug(NETSTATE(), text, detail, comment);
}

void NetTCPSession::xPrintLogDebug(const NETSTATE& state, const String& text, const unsigned char* data,
                                   ULONG length) const
{
    PrintPieces(data, length, [&](const String& piece) { xPrintLogDebug(state, text, piece, ""); });
}

void NetTCPSession::xPrintLogDebug(const NetTCP* const socket, const String& text, const unsigned char* data,
                                   ULONG length) const
{
    xPrintLogDebug(xsGetNetState(socket), text, data, length);
}

void NetTCPSession::xSetLogHookNormalOn(NetTCP* const socket, EventLog& log)
{
    m_logHook = &log;
    if (m_hookAnnounced)
        return;
    // So that a log hooked in mid-session still tells where the connection came from.
    m_hookAnnounced = true;
    log.PrintIPNormal(m_sessionID, socket->GetRemoteIP(), socket->GetRemotePort(), socket->GetLocalIP(),
                      socket->GetLocalPort(), "Connection Accepted", "", "");
}

void NetTCPSession::xSetLogHookNormalOff(NetTCP* const)
{
    m_logHook = nullptr;
}

void NetTCPSession::xRecordLoginAttempt(const NETSTATE& state, bool success, const String& first, const String& second,
                                        const String&, const String& comment)
{
    xRecordAction({"Login Success", "Login Fail", NetCounterBlock::LOGIN_SUCCESSES, NetCounterBlock::LOGIN_FAILS},
                  state, success, first + ": " + second, comment);
}

void NetTCPSession::xRecordLogout(const NETSTATE& state, const String& user, const String&)
{
    xUpdateActivityStatus();
    xPrintLogNormal(state, "Logged Out", user, "");
}

void NetTCPSession::xRecordDirCreated(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction({"Directory Create Success", "Directory Create Fail", NetCounterBlock::DIRS_CREATED}, state, success,
                  path.GetText(), reason);
}

void NetTCPSession::xRecordDirDeleted(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction({"Directory Delete Success", "Directory Delete Fail", NetCounterBlock::DIRS_DELETED}, state, success,
                  path.GetText(), reason);
}

void NetTCPSession::xRecordDirMoved(const NETSTATE& state, bool success, const FilePath& from, const FilePath& to,
                                    const String& reason)
{
    xRecordAction({"Directory Move Success", "Directory Move Fail", NetCounterBlock::DIRS_MOVED}, state, success,
                  MoveText(from, to), reason);
}

void NetTCPSession::xRecordDirViewed(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction({"Directory View Success", "Directory View Fail", NetCounterBlock::DIRS_READ}, state, success,
                  path.GetText(), reason);
}

void NetTCPSession::xRecordFileAppended(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction({"File Append Success", "File Append Fail", NetCounterBlock::FILES_APPENDED}, state, success,
                  path.GetText(), reason);
}

void NetTCPSession::xRecordFileCreated(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction({"File Create Success", "File Create Fail", NetCounterBlock::FILES_CREATED}, state, success,
                  path.GetText(), reason);
}

void NetTCPSession::xRecordFileDeleted(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction({"File Delete Success", "File Delete Fail", NetCounterBlock::FILES_DELETED}, state, success,
                  path.GetText(), reason);
}

void NetTCPSession::xRecordFileDownloaded(const NETSTATE& state, bool success, const FilePath& path,
                                          const String& reason)
{
    xRecordAction({"File Download Success", "File Download Fail", NetCounterBlock::FILES_READ}, state, success,
                  path.GetText(), reason);
}

void NetTCPSession::xRecordFileMoved(const NETSTATE& state, bool success, const FilePath& from, const FilePath& to,
                                     const String& reason)
{
    xRecordAction({"File Move Success", "File Move Fail", NetCounterBlock::FILES_MOVED}, state, success,
                  MoveText(from, to), reason);
}

void NetTCPSession::xRecordFileRead(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction({"File Read Success", "File Read Fail", NetCounterBlock::FILES_READ}, state, success, path.GetText(),
                  reason);
}

void NetTCPSession::xRecordFileUploaded(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction({"File Upload Success", "File Upload Fail", NetCounterBlock::FILES_CREATED}, state, success,
                  path.GetText(), reason);
}

void NetTCPSession::xRecordSSLHandshake(const NETSTATE& state, bool success, const String& detail)
{
    xRecordAction(
        {"Connect SSL Success", "Connect SSL Fail", NetCounterBlock::SSL_SUCCESSES, NetCounterBlock::SSL_FAILS}, state,
        success, detail, "");
}

void NetTCPSession::xRecordAction(const ACTION& action, const NETSTATE& state, bool success, const String& detail,
                                  const String& reason)
{
    xUpdateActivityStatus();
    const NetCounterBlock::COUNTER counter = success ? action.successCounter : action.failCounter;
    if (counter != NetCounterBlock::COUNTER_COUNT)
        xCount(counter);
    xPrintLogNormal(state, success ? action.success : action.fail, detail, success ? String() : reason);
}

void NetTCPSession::xSetCurrentUser(const String& user)
{
    const ThreadGatewayGuard guard(m_lock);
    m_currentUser = user;
}

void NetTCPSession::xSetCurrentAction(ULONG action)
{
    const ThreadGatewayGuard guard(m_lock);
    m_currentAction = static_cast<std::uint32_t>(action);
}

void NetTCPSession::xSetCurrentDetail(const String& detail)
{
    const ThreadGatewayGuard guard(m_lock);
    m_currentDetail = detail;
}

void NetTCPSession::xSetCurrentActionDetail(ULONG action, const String& detail)
{
    const ThreadGatewayGuard guard(m_lock);
    m_currentAction = static_cast<std::uint32_t>(action);
    m_currentDetail = detail;
}

void NetTCPSession::xSetPrimaryConnectionStatus(NetTCP* const)
{
    const NETSTATE state = xsGetNetState(m_mainSocket.get());
    const ThreadGatewayGuard guard(m_lock);
    m_status.SetLocalIP(state.localIP);
    m_status.SetLocalPort(state.localPort);
    m_status.SetRemoteIP(state.remoteIP);
    m_status.SetRemotePort(state.remotePort);
}

/// The caller has brought the time unit up to date.
void NetTCPSession::xCount(NetCounterBlock::COUNTER counter, ULONG amount)
{
    m_currentActivity.IncreaseCounter(counter, amount);
    m_statusIncrements.IncreaseCounter(counter, amount);
}

void NetTCPSession::xUpdateAndCount(NetCounterBlock::COUNTER counter, ULONG amount)
{
    xUpdateActivityStatus();
    xCount(counter, amount);
}

void NetTCPSession::xUpdateActivityStatus()
{
    xUpdateActivityStatus(TimePos::sNow());
}

// Runs before every change of a counter. 1. The unit of now. 2. Write the last unit's counters when they are due, or
// when their place is needed. 3. Mostly nothing more. 4. to 6. A new unit: this one's counters wait for their write,
// from 0 they count anew, and what GetStatus tells catches up.
void NetTCPSession::xUpdateActivityStatus(const TimePos& now)
{
    const ULONG unit = DataLogEntryTime::sConvertToTimeUnit(now);
    const bool sameUnit = unit == m_currentActivity.GetTimeUnit();
    if (m_pendingActivity.GetTimeUnit() != 0 && (!sameUnit || now > m_pendingWriteTime))
        xStoreActivity(m_pendingActivity);
    if (sameUnit)
        return;

    Messages messages;
    if (m_pendingActivity.CopyDataFrom(m_currentActivity, messages)) {
        DataLogEntryTime::sConvertToTimePos(unit, m_pendingWriteTime);
        m_pendingWriteTime.OffsetByMilliSeconds(platform::RandNext() % WRITE_SPREAD_MS);
    } else {
        m_pendingWriteTime.Reset();
    }
    m_currentActivity.Reset();
    m_currentActivity.SetTimeUnit(unit);

    const ThreadGatewayGuard guard(m_lock);
    xMergeIncrementsPreLocked();
}

/// Writes a unit's counters to the data log. They are gone afterwards also when that failed: never written twice.
void NetTCPSession::xStoreActivity(NetSessionActivity& activity)
{
    Messages messages;
    m_dataLog.AddEntry(activity, messages);
    activity.Reset();
}

void NetTCPSession::xMergeIncrementsPreLocked()
{
    Messages messages;
    m_statusIncrements.MergeInto(m_status, messages);
    m_statusIncrements.Reset();
}

} // namespace kqlib

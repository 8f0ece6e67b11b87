// NetTCPSession, what it reports: log lines, records of what the client did, counters and live status.
#include "net/session/NetTCPSession.h"

#include "common/EventLog.h"
#include "common/FilePath.h"
#include "net/session/NetTCPSessionParts.h"

#include <algorithm>
#include <iterator>

namespace kqlib {

namespace {

constexpr ULONG BYTES_PER_LINE = 76;
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

/// What is logged and counted of an action.
struct ACTION_INFO
{
    const char* success; ///< log text
    const char* fail;    ///< log text
    NetCounterBlock::COUNTER successCounter;
    NetCounterBlock::COUNTER failCounter = NetCounterBlock::COUNTER_COUNT; ///< COUNTER_COUNT: failures do not count
};

using C = NetCounterBlock;

/// In the order of NetTCPSession::ACTION.
constexpr ACTION_INFO ACTIONS[] = {
    {"Login Success", "Login Fail", C::LOGIN_SUCCESSES, C::LOGIN_FAILS},
    {"Connect SSL Success", "Connect SSL Fail", C::SSL_SUCCESSES, C::SSL_FAILS},
    {"Directory Create Success", "Directory Create Fail", C::DIRS_CREATED},
    {"Directory Delete Success", "Directory Delete Fail", C::DIRS_DELETED},
    {"Directory Move Success", "Directory Move Fail", C::DIRS_MOVED},
    {"Directory View Success", "Directory View Fail", C::DIRS_READ}, // counted with others: kept on purpose
    {"File Append Success", "File Append Fail", C::FILES_APPENDED},
    {"File Create Success", "File Create Fail", C::FILES_CREATED},
    {"File Delete Success", "File Delete Fail", C::FILES_DELETED},
    {"File Download Success", "File Download Fail", C::FILES_READ}, // likewise
    {"File Move Success", "File Move Fail", C::FILES_MOVED},
    {"File Read Success", "File Read Fail", C::FILES_READ},
    {"File Upload Success", "File Upload Fail", C::FILES_CREATED}, // likewise
};

} // namespace

enum class NetTCPSession::ACTION : std::uint8_t
{
    LOGIN,
    SSL_HANDSHAKE,
    DIR_CREATE,
    DIR_DELETE,
    DIR_MOVE,
    DIR_VIEW,
    FILE_APPEND,
    FILE_CREATE,
    FILE_DELETE,
    FILE_DOWNLOAD,
    FILE_MOVE,
    FILE_READ,
    FILE_UPLOAD,
    COUNT
};

void NetTCPSession::xPrintLogNormal(const NETSTATE& state, const String& text, const String& detail,
                                    const String& comment) const
{
    m_parts->eventLog.PrintIPNormal(m_sessionID, state.remoteIP, state.remotePort, state.localIP, state.localPort, text,
                                    detail, comment);
    if (m_parts->logHook != nullptr)
        m_parts->logHook->PrintIPNormal(m_sessionID, state.remoteIP, state.remotePort, state.localIP, state.localPort,
                                        text, detail, comment);
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
    m_parts->eventLog.PrintIPDebug(m_sessionID, state.remoteIP, state.remotePort, state.localIP, state.localPort, text,
                                   detail, comment);
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
    m_parts->logHook = &log;
    if (m_parts->hookAnnounced)
        return;
    // So that a log hooked in mid-session still tells where the connection came from.
    m_parts->hookAnnounced = true;
    log.PrintIPNormal(m_sessionID, socket->GetRemoteIP(), socket->GetRemotePort(), socket->GetLocalIP(),
                      socket->GetLocalPort(), "Connection Accepted", "", "");
}

void NetTCPSession::xSetLogHookNormalOff(NetTCP* const)
{
    m_parts->logHook = nullptr;
}

void NetTCPSession::xRecordLoginAttempt(const NETSTATE& state, bool success, const String& first, const String& second,
                                        const String&, const String& comment)
{
    xRecordAction(ACTION::LOGIN, state, success, first + ": " + second, comment);
}

void NetTCPSession::xRecordLogout(const NETSTATE& state, const String& user, const String&)
{
    m_parts->book.Update();
    xPrintLogNormal(state, "Logged Out", user, "");
}

void NetTCPSession::xRecordDirCreated(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction(ACTION::DIR_CREATE, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordDirDeleted(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction(ACTION::DIR_DELETE, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordDirMoved(const NETSTATE& state, bool success, const FilePath& from, const FilePath& to,
                                    const String& reason)
{
    xRecordAction(ACTION::DIR_MOVE, state, success, MoveText(from, to), reason);
}

void NetTCPSession::xRecordDirViewed(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction(ACTION::DIR_VIEW, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordFileAppended(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction(ACTION::FILE_APPEND, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordFileCreated(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction(ACTION::FILE_CREATE, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordFileDeleted(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction(ACTION::FILE_DELETE, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordFileDownloaded(const NETSTATE& state, bool success, const FilePath& path,
                                          const String& reason)
{
    xRecordAction(ACTION::FILE_DOWNLOAD, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordFileMoved(const NETSTATE& state, bool success, const FilePath& from, const FilePath& to,
                                     const String& reason)
{
    xRecordAction(ACTION::FILE_MOVE, state, success, MoveText(from, to), reason);
}

void NetTCPSession::xRecordFileRead(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction(ACTION::FILE_READ, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordFileUploaded(const NETSTATE& state, bool success, const FilePath& path, const String& reason)
{
    xRecordAction(ACTION::FILE_UPLOAD, state, success, path.GetText(), reason);
}

void NetTCPSession::xRecordSSLHandshake(const NETSTATE& state, bool success, const String& detail)
{
    xRecordAction(ACTION::SSL_HANDSHAKE, state, success, detail, "");
}

void NetTCPSession::xRecordAction(ACTION action, const NETSTATE& state, bool success, const String& detail,
                                  const String& reason)
{
    static_assert(std::size(ACTIONS) == static_cast<std::size_t>(ACTION::COUNT));
    const ACTION_INFO& info = ACTIONS[static_cast<std::size_t>(action)];
    m_parts->book.Update();
    const NetCounterBlock::COUNTER counter = success ? info.successCounter : info.failCounter;
    if (counter != NetCounterBlock::COUNTER_COUNT)
        m_parts->book.Count(counter);
    xPrintLogNormal(state, success ? info.success : info.fail, detail, success ? String() : reason);
}

void NetTCPSession::xSetCurrentUser(const String& user)
{
    const ThreadGatewayGuard guard(m_parts->lock);
    m_parts->currentUser = user;
}

void NetTCPSession::xSetCurrentAction(ULONG action)
{
    const ThreadGatewayGuard guard(m_parts->lock);
    m_parts->currentAction = static_cast<std::uint32_t>(action);
}

void NetTCPSession::xSetCurrentDetail(const String& detail)
{
    const ThreadGatewayGuard guard(m_parts->lock);
    m_parts->currentDetail = detail;
}

void NetTCPSession::xSetCurrentActionDetail(ULONG action, const String& detail)
{
    const ThreadGatewayGuard guard(m_parts->lock);
    m_parts->currentAction = static_cast<std::uint32_t>(action);
    m_parts->currentDetail = detail;
}

void NetTCPSession::xSetPrimaryConnectionStatus(NetTCP* const)
{
    const NETSTATE state = xsGetNetState(m_mainSocket.get());
    const ThreadGatewayGuard guard(m_parts->lock);
    NetSessionStatus& record = m_parts->book.GetRecordPreLocked();
    record.SetLocalIP(state.localIP);
    record.SetLocalPort(state.localPort);
    record.SetRemoteIP(state.remoteIP);
    record.SetRemotePort(state.remotePort);
}

} // namespace kqlib

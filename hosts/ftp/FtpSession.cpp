// FtpSession: the loop over commands, replies, and the watch over the control connection.
#include "hosts/ftp/FtpSession.h"

#include "hosts/ftp/FtpTelnet.h"
#include "hosts/ftpcommon/FtpText.h"

#include "common/TimedEvent.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kqlib {

namespace {

/// What may wait on the control connection while a transfer runs; also the most that one receive of commands takes.
constexpr std::size_t COMMAND_BUFFER_BYTES = 8192;
/// How often a running transfer looks at the control connection and its messages, at most.
constexpr ULONG WATCH_MS = 20;
/// The control message that stops a transfer.
constexpr ULONG MSG_STOP_TRANSFER = 2;

} // namespace

FtpSession::FtpSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activityLog, EventLog& eventLog,
                       const EventLogSessionID& id, FtpSocket* const connection,
                       std::shared_ptr<const FtpConfig> config, FtpGate& gate, FtpUploads& uploads,
                       FtpTransferLog& transferLog, FtpLiveBoard& board)
    : FtpSessionBase(pool, cache, activityLog, eventLog, id, config->settings.GetIdleSecs(), connection)
    , m_cache(cache)
    , m_config(std::move(config))
    , m_gate(gate)
    , m_uploads(uploads)
    , m_transferLog(transferLog)
    , m_board(board)
    , m_commandBytes(COMMAND_BUFFER_BYTES)
    , m_commandBuffer{COMMAND_BUFFER_BYTES, m_commandBytes.data(), 0, 0, false}
{
    xGetMainSocket()->SetBlockTime(m_config->settings.GetBlockTimeMs());
    xSetBatchReplies(true);     // clients that send commands ahead
    xSetCmdEndIncludesLF(true); // people try servers with tools that end lines in LF alone
    xConstrStartSession();
}

FtpSession::~FtpSession()
{
    xDeconstrEndSession();
}

void FtpSession::xHandleSession()
{
    if (!xPassGate())
        return;
    if (m_config->settings.IsTLSPort(xGetMainNetState().localPort) && !xSecureControl())
        return;
    xReply(220, m_config->settings.GetGreeting());
    String command;
    while (!m_isQuitting && xReadCommand(command))
        xExecute(command);
    if (!m_isQuitting)
        xSayWhyEnded();
}

void FtpSession::xEventSessionEnd()
{
    xCloseData(false);
    xLogOut();
    if (m_place)
        m_gate.Leave(*m_place);
    m_place.reset();
}

/// Asks the gate about the client. False: it was told that it is not welcome.
bool FtpSession::xPassGate()
{
    const NETSTATE& state = xGetMainNetState();
    const FtpGate::ENTRY entry = m_gate.Enter(m_config->settings, xGetSessionID(), state.localIP, state.remoteIP);
    m_place = entry.place;
    m_strangerSince = TimedEvent::sGetNow();
    xDisplace(entry.displaced);
    if (!m_place)
        xRefuseClient(entry.verdict);
    return m_place.has_value();
}

/// Asks the session to end whose place somebody got who came later.
void FtpSession::xDisplace(const FtpGate::DISPLACED& session)
{
    if (session)
        m_board.Disconnect(*session, "The server is full, and you have not logged in");
}

/// One line in the log, 421 for the client (RFC 959 section 5.4), and the end of the session.
void FtpSession::xRefuseClient(FtpGate::VERDICT verdict)
{
    const String reason = FtpGate::sDescribe(verdict);
    xPrintLogNormal(xGetMainNetState(), "Connection Refused", reason, String());
    xSayLastWords("421 " + reason);
    m_isQuitting = true;
}

void FtpSession::xEventControlMsgDisconnectRecv(const String& text)
{
    xSayLastWords("421 " + (text.empty() ? String("Disconnected by the administrator") : MakeVisible(text)));
}

/// Reads the next command. An oversized line is answered at once, and everything up to its end is left out. False: the
/// session is to end.
bool FtpSession::xReadCommand(String& command)
{
    for (;;) {
        bool isOversized = false;
        if (!xIsTimedOut()) // a reply that nobody took in time is the end
            xResetTimeOut();
        xSetTimeOutSecs(xGetPatienceSecs());
        if (!xRecvCommand(xGetMainSocket(), xGetMainNetState(), m_commandBuffer, command, isOversized))
            return false;
        const bool wasDiscarding = std::exchange(m_isDiscarding, isOversized);
        if (isOversized && !wasDiscarding)
            xReply(500, "Line too long");
        if (!isOversized && !wasDiscarding)
            return true;
    }
}

/// Seconds in which the next command must come. Whoever has not logged in yet has what is left of the time for that,
/// whatever is said meanwhile.
ULONG FtpSession::xGetPatienceSecs() const
{
    const ULONG idleSecs = m_config->settings.GetIdleSecs();
    if (m_user != nullptr)
        return idleSecs;
    const ULONG limitSecs = m_config->settings.GetLogInSecs();
    const ULONG passedSecs = static_cast<std::uint32_t>(TimedEvent::sGetNow() - m_strangerSince) / 1000;
    return passedSecs < limitSecs ? std::min(idleSecs, limitSecs - passedSecs) : 0;
}

void FtpSession::xExecute(String line)
{
    line = FtpTelnet::sStrip(line);
    xFilterTelnetSpecials(line);
    const String::size_type blank = line.find(' ');
    const String name = line.substr(0, blank);
    const String argument = blank == String::npos ? String() : line.substr(blank + 1);
    const COMMAND* command = xsFindCommand(name);
    if (!name.MatchesI("RNTO"))
        m_renameFrom.clear(); // a rename is two commands in a row
    if (command == nullptr)
        return xReply(500, "Command not understood");
    if (xMayRun(*command, argument))
        (this->*command->run)(argument);
}

/// Replies and answers false when the command cannot be run as it stands.
bool FtpSession::xMayRun(const COMMAND& command, const String& argument)
{
    if (command.run == nullptr)
        xReply(502, "Command not offered");
    else if (command.needsLogin && m_user == nullptr)
        xReply(530, "Log in with USER and PASS first");
    else if (command.argument == ARGUMENT::REQUIRED && argument.empty())
        xReplySyntaxError("An argument is missing");
    else if (command.argument == ARGUMENT::NONE && !argument.empty())
        xReplySyntaxError("No argument is expected");
    else
        return true;
    return false;
}

const FtpSession::COMMAND* FtpSession::xsFindCommand(const String& name)
{
    const auto& commands = xsGetCommands();
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&name](const COMMAND& command) { return name.MatchesI(command.name); });
    return found == commands.end() ? nullptr : &*found;
}

const std::vector<FtpSession::COMMAND>& FtpSession::xsGetCommands()
{
    using S = FtpSession;
    constexpr ARGUMENT NONE = ARGUMENT::NONE;
    constexpr ARGUMENT ALLOWED = ARGUMENT::ALLOWED;
    constexpr ARGUMENT REQUIRED = ARGUMENT::REQUIRED;
    static const std::vector<COMMAND> commands = {
        {"USER", &S::xCmdUser, REQUIRED, false, "USER <name>"},
        {"PASS", &S::xCmdPass, ALLOWED, false, "PASS <password>"},
        {"QUIT", &S::xCmdQuit, NONE, false, "QUIT"},
        {"AUTH", &S::xCmdAuth, REQUIRED, false, "AUTH TLS"},
        {"PBSZ", &S::xCmdPbsz, REQUIRED, false, "PBSZ 0"},
        {"PROT", &S::xCmdProt, REQUIRED, false, "PROT C | PROT P"},
        {"CCC", &S::xCmdCcc, NONE, false, "CCC (is refused)"},
        {"NOOP", &S::xCmdNoop, ALLOWED, false, "NOOP"},
        {"SYST", &S::xCmdSyst, NONE, false, "SYST"},
        {"FEAT", &S::xCmdFeat, NONE, false, "FEAT"},
        {"OPTS", &S::xCmdOpts, REQUIRED, false, "OPTS UTF8 ON | OPTS MLST [<fact>;...] | OPTS HASH [<name>]"},
        {"HELP", &S::xCmdHelp, ALLOWED, false, "HELP [<command>]"},
        {"STAT", &S::xCmdStat, ALLOWED, true, "STAT [<path>]"},
        {"AVBL", &S::xCmdAvbl, ALLOWED, true, "AVBL [<folder>]"},
        {"ALLO", &S::xCmdAllo, REQUIRED, true, "ALLO <bytes> [R <bytes>]"},
        {"SITE", &S::xCmdSite, REQUIRED, true,
         "SITE CHMOD <mode> <path> | UTIME <time> <path> | WHO | STAT | KICK <session> [<text>] | STOP <session> | "
         "HELP"},
        {"TYPE", &S::xCmdType, REQUIRED, true, "TYPE A [N] | TYPE I | TYPE L 8"},
        {"STRU", &S::xCmdStru, REQUIRED, true, "STRU F"},
        {"MODE", &S::xCmdMode, REQUIRED, true, "MODE S"},
        {"PWD", &S::xCmdPwd, NONE, true, "PWD"},
        {"XPWD", &S::xCmdPwd, NONE, true, "XPWD"},
        {"CWD", &S::xCmdCwd, REQUIRED, true, "CWD <folder>"},
        {"XCWD", &S::xCmdCwd, REQUIRED, true, "XCWD <folder>"},
        {"CDUP", &S::xCmdCdup, NONE, true, "CDUP"},
        {"XCUP", &S::xCmdCdup, NONE, true, "XCUP"},
        {"MKD", &S::xCmdMkd, REQUIRED, true, "MKD <folder>"},
        {"XMKD", &S::xCmdMkd, REQUIRED, true, "XMKD <folder>"},
        {"RMD", &S::xCmdRmd, REQUIRED, true, "RMD <folder>"},
        {"XRMD", &S::xCmdRmd, REQUIRED, true, "XRMD <folder>"},
        {"DELE", &S::xCmdDele, REQUIRED, true, "DELE <file>"},
        {"RNFR", &S::xCmdRnfr, REQUIRED, true, "RNFR <old name>"},
        {"RNTO", &S::xCmdRnto, REQUIRED, true, "RNTO <new name>"},
        {"SIZE", &S::xCmdSize, REQUIRED, true, "SIZE <file>"},
        {"MDTM", &S::xCmdMdtm, REQUIRED, true, "MDTM <file>"},
        {"MFMT", &S::xCmdMfmt, REQUIRED, true, "MFMT <YYYYMMDDhhmmss> <file>"},
        {"HASH", &S::xCmdHash, REQUIRED, true, "HASH <file>"},
        {"XMD5", &S::xCmdXmd5, REQUIRED, true, "XMD5 <file>"},
        {"XSHA1", &S::xCmdXsha1, REQUIRED, true, "XSHA1 <file>"},
        {"XSHA256", &S::xCmdXsha256, REQUIRED, true, "XSHA256 <file>"},
        {"XSHA512", &S::xCmdXsha512, REQUIRED, true, "XSHA512 <file>"},
        {"MLST", &S::xCmdMlst, ALLOWED, true, "MLST [<path>]"},
        {"MLSD", &S::xCmdMlsd, ALLOWED, true, "MLSD [<folder>]"},
        {"LIST", &S::xCmdList, ALLOWED, true, "LIST [<path or pattern>]"},
        {"NLST", &S::xCmdNlst, ALLOWED, true, "NLST [<path or pattern>]"},
        {"PASV", &S::xCmdPasv, NONE, true, "PASV"},
        {"EPSV", &S::xCmdEpsv, ALLOWED, true, "EPSV [1 | ALL]"},
        {"PORT", &S::xCmdPort, REQUIRED, true, "PORT <h1,h2,h3,h4,p1,p2>"},
        {"EPRT", &S::xCmdEprt, REQUIRED, true, "EPRT |1|<address>|<port>|"},
        {"REST", &S::xCmdRest, REQUIRED, true, "REST <position>"},
        {"RETR", &S::xCmdRetr, REQUIRED, true, "RETR <file>"},
        {"STOR", &S::xCmdStor, REQUIRED, true, "STOR <file>"},
        {"APPE", &S::xCmdAppe, REQUIRED, true, "APPE <file>"},
        {"STOU", &S::xCmdStou, ALLOWED, true, "STOU [<file>]"},
        {"ABOR", &S::xCmdAbor, NONE, true, "ABOR"},
        {"ACCT", nullptr, ALLOWED, false, "ACCT"},
        {"SMNT", nullptr, ALLOWED, false, "SMNT"},
        {"REIN", nullptr, ALLOWED, false, "REIN"},
        {"ADAT", nullptr, ALLOWED, false, "ADAT"},
    };
    return commands;
}

/// The last reply of a session that ends without QUIT and without the administrator.
void FtpSession::xSayWhyEnded()
{
    if (xShouldSessionEnd())
        xSayLastWords("421 The service is stopping");
    else if (xIsTimedOut())
        xSayLastWords(xGetPatienceSecs() == 0 ? "421 Not logged in in time" : "421 No command for too long");
}

/// Sends a line with a single try. The forced forms of the base go on until everything is sent, which a client that
/// never reads would turn into for ever.
void FtpSession::xSayLastWords(const String& reply)
{
    NetTCP* socket = xGetMainSocket();
    xSendHeldReplies();
    if (!socket->IsConnected())
        return;
    const String line = reply + "\r\n";
    unsigned long length = static_cast<unsigned long>(line.size());
    socket->SetBlockTime(0);
    socket->Send(line.data(), length); // who cannot be told is closed all the same
}

/// False when whatever the session waits for is to be given up.
bool FtpSession::xShouldGoOn()
{
    return !xShouldSessionEnd() && !xIsTimedOut() && !xCheckForDisconnectMsg() && xWaitingForNetShouldWait();
}

// --- replies

void FtpSession::xReply(unsigned code, const String& text)
{
    xSendCommand(xGetMainSocket(), String::sToString(code) + " " + text);
}

void FtpSession::xReplyLines(unsigned code, const String& first, const std::string& body, const String& last)
{
    const String number = String::sToString(code);
    xSendCommand(xGetMainSocket(), number + "-" + first + "\r\n" + String(body) + number + " " + last);
}

void FtpSession::xReplyResult(RESULT result, unsigned code, const String& text, unsigned failCode)
{
    if (result == RESULT::DONE)
        return xReply(code, text);
    xReplyFailure(result, failCode);
}

void FtpSession::xReplyFailure(RESULT result, unsigned failCode)
{
    if (result == RESULT::DISK_FULL)
        failCode = 452;
    xReply(failCode, FtpFileSystem::sDescribe(result));
}

void FtpSession::xReplySyntaxError(const char* text)
{
    xReply(501, text);
}

// --- watching the control connection

bool FtpSession::xWaitingForNetShouldWait()
{
    if (m_isWatching)
        return true; // a reply that is sent from in there
    const ULONG now = TimedEvent::sGetNow();
    if (static_cast<std::uint32_t>(now - m_lastWatchTick) >= WATCH_MS) {
        m_lastWatchTick = now;
        xWatch();
    }
    return m_transfer.stop == END::COMPLETE;
}

/// Looks after everything that may stop a transfer.
void FtpSession::xWatch()
{
    m_isWatching = true;
    xTakeMessages();
    if (m_transfer.isActive) {
        xReadAhead();
        xLookAtQueue();
    }
    m_isWatching = false;
}

/// Takes the control messages that wait. A disconnect is remembered by the base, which every wait then finds.
void FtpSession::xTakeMessages()
{
    CTRLMSG message{};
    while (xProcessMsgsAndTakeNext(message)) {
        if (message.code == MSG_STOP_TRANSFER && m_transfer.isActive)
            m_transfer.stop = END::STOPPED;
    }
}

/// Receives what the client has sent during the transfer, behind the commands that wait already. With no room left it
/// stays in the system, and the client's sending comes to a halt.
void FtpSession::xReadAhead()
{
    NetTCP::RECVBUF& buffer = m_commandBuffer;
    std::memmove(buffer.buffer, buffer.buffer + buffer.position, buffer.length - buffer.position);
    buffer.length -= buffer.position;
    buffer.position = 0;
    ULONG got = buffer.capacity - buffer.length;
    if (got == 0)
        return;
    NetTCP* socket = xGetMainSocket();
    const ULONG blockTime = socket->GetBlockTimeMs();
    socket->SetBlockTime(0);
    const bool isAlive = xRecvData(socket, xGetMainNetState(), buffer.buffer + buffer.length, got);
    socket->SetBlockTime(blockTime);
    if (!isAlive)
        m_transfer.stop = END::HUNG_UP;
    buffer.length += got;
}

/// Looks through the commands that wait. ABOR stops the transfer from any place and stays, to be answered in its turn;
/// STAT is answered at once when nothing waits before it.
void FtpSession::xLookAtQueue()
{
    ULONG position = m_commandBuffer.position;
    String line;
    while (xGetQueuedLine(position, line)) {
        if (line.MatchesI("ABOR"))
            m_transfer.stop = END::ABORTED;
        const bool isFirst = std::memchr(m_commandBuffer.buffer + m_commandBuffer.position, '\n',
                                         position - 1 - m_commandBuffer.position) == nullptr;
        if (isFirst && line.MatchesI("STAT")) {
            m_commandBuffer.position = position;
            xReplyTransferState();
        }
    }
}

/// Gives the complete line at position, without its end and without what Telnet put there; position: behind it then.
bool FtpSession::xGetQueuedLine(ULONG& position, String& line) const
{
    const unsigned char* start = m_commandBuffer.buffer + position;
    const void* end = std::memchr(start, '\n', m_commandBuffer.length - position);
    if (end == nullptr)
        return false;
    const auto length = static_cast<std::size_t>(static_cast<const unsigned char*>(end) - start);
    line = String(start, length);
    if (line.EndsWith("\r"))
        line.pop_back();
    line = FtpTelnet::sStrip(line);
    xFilterTelnetSpecials(line);
    position += static_cast<ULONG>(length) + 1;
    return true;
}

void FtpSession::xReplyTransferState()
{
    xReply(213, String(m_transfer.verb) + " " + MakeVisible(m_transfer.path) + ": " +
                    String::sToString(m_transfer.moved) + " bytes moved");
}

// --- rights and paths

bool FtpSession::xHasRight(FtpUserSettings::RIGHT right) const
{
    return (m_rights & right) != 0;
}

bool FtpSession::xMayName(const String& path) const
{
    return !m_config->refusedNames.Refuses(path);
}

FtpListing::RIGHTS FtpSession::xGetListingRights() const
{
    return {xHasRight(FtpUserSettings::READ), xHasRight(FtpUserSettings::WRITE), xHasRight(FtpUserSettings::REMOVE)};
}

bool FtpSession::xResolve(const String& argument, String& path, unsigned failCode)
{
    if (m_files.Resolve(argument, path) == RESULT::DONE)
        return true;
    xReply(failCode, FtpFileSystem::sDescribe(RESULT::BAD_NAME));
    return false;
}

void FtpSession::xLogOut()
{
    if (m_user == nullptr)
        return;
    xRecordLogout(xGetMainNetState(), m_user->GetName(), String());
    m_gate.LogOut(*m_place);
    m_strangerSince = TimedEvent::sGetNow();
    m_user = nullptr;
    m_rights = 0;
    m_files.Close(); // the user's name stays: the record of the session wants it
}

} // namespace kqlib

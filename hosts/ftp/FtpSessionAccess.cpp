// FtpSession: logging in and out, the parameters of transfers, and questions about the server.
#include "hosts/ftp/FtpSession.h"

#include "common/STRINGS.h"
#include "hosts/ftpcommon/FtpText.h"

namespace kqlib {

namespace {

/// The words of an argument, split at blanks.
STRINGS SplitWords(const String& argument)
{
    STRINGS words;
    words.AddByLine(argument, static_cast<unsigned char>(' '));
    return words;
}

/// What stands behind the first count words, as it stands there.
String TextBehind(const String& argument, unsigned count)
{
    const std::string& text = argument.str();
    std::string::size_type place = text.find_first_not_of(' ');
    for (; count > 0 && place != std::string::npos; --count)
        place = text.find_first_not_of(' ', text.find(' ', place));
    return place == std::string::npos ? String() : String(text.substr(place));
}

const char* DescribeAction(ULONG action)
{
    switch (action) {
    case FtpSession::ACT_LIST:
        return "listing";
    case FtpSession::ACT_DOWNLOAD:
        return "downloading";
    case FtpSession::ACT_UPLOAD:
        return "uploading";
    case FtpSession::ACT_HASH:
        return "hashing";
    default:
        return "idle";
    }
}

String DescribeSession(const NetSessionLiveStatus& live)
{
    const NetSessionStatus& status = live.GetStatus();
    String line = " " + String::sToString(status.GetSessionID().GetSession()) + " ";
    line += status.GetUser().empty() ? String("-") : status.GetUser();
    line += " " + status.GetRemoteIP().GetText() + ":" + String::sToString(status.GetRemotePort());
    line += String(" ") + DescribeAction(live.GetAction());
    if (!live.GetDetail().empty())
        line += " " + live.GetDetail();
    return MakeVisible(line) + "\r\n";
}

} // namespace

// --- logging in

void FtpSession::xCmdUser(const String& name)
{
    if (!xMayLogIn())
        return;
    xLogOut();
    m_userName = name;
    if (m_config->users.IsAnonymous(name))
        xReply(331, "Any password will do, your mail address is welcome");
    else
        xReply(331, "Password needed");
}

void FtpSession::xCmdPass(const String& password)
{
    if (!xMayLogIn())
        return;
    if (m_user != nullptr)
        return xReply(202, "Logged in already");
    if (m_userName.empty())
        return xReply(503, "USER comes first");
    // The address may have been blocked by what its other sessions tried.
    if (m_gate.IsBlocked(xGetMainNetState().localIP, xGetMainNetState().remoteIP))
        return xRefuseClient(FtpGate::VERDICT::BLOCKED);
    const FtpUserSettings* user = m_config->users.LogIn(m_userName, password, [this] { return !xShouldSessionEnd(); });
    if (user == nullptr)
        return xRefuseGuess();
    if (m_files.Open(user->GetHome()) != RESULT::DONE)
        return xRefuseLogin("The home folder cannot be opened");
    xEnter(*user);
}

void FtpSession::xEnter(const FtpUserSettings& user)
{
    FtpGate::DISPLACED displaced;
    const FtpGate::VERDICT verdict = m_gate.LogIn(m_config->settings, *m_place, user, displaced);
    xDisplace(displaced);
    if (verdict != FtpGate::VERDICT::WELCOME) {
        m_files.Close();
        return xRefuseClient(verdict);
    }
    m_user = &user;
    m_rights = user.GetRightBits();
    m_failedLogins = 0;
    xRecordLoginAttempt(xGetMainNetState(), true, "User", user.GetName(), String(), String());
    xSetCurrentUser(user.GetName());
    xReply(230, "Logged in");
}

/// A name and password that do not fit count against the client's address.
void FtpSession::xRefuseGuess()
{
    const NETSTATE& state = xGetMainNetState();
    // A check that was given up because the service ends is no guess.
    const bool isBlocked = !xShouldSessionEnd() && m_gate.ReportFailure(state.localIP, state.remoteIP);
    xRefuseLogin("Unknown name or wrong password", isBlocked);
}

/// The log tells the reason, the client only that it failed. isLast: the session ends whatever the number of attempts.
void FtpSession::xRefuseLogin(const String& reason, bool isLast)
{
    xRecordLoginAttempt(xGetMainNetState(), false, "User", m_userName, String(), reason);
    m_userName.clear();
    if (++m_failedLogins < m_config->settings.GetLoginAttempts() && !isLast)
        return xReply(530, "Login incorrect");
    m_isQuitting = true;
    xReply(421, "Login incorrect, too many attempts");
}

void FtpSession::xCmdQuit(const String&)
{
    m_isQuitting = true;
    xReply(221, "Goodbye");
}

// --- questions

void FtpSession::xCmdNoop(const String&)
{
    xReply(200, "OK");
}

void FtpSession::xCmdSyst(const String&)
{
    xReply(215, "UNIX Type: L8");
}

void FtpSession::xCmdFeat(const String&)
{
    std::string body;
    if (m_config->settings.IsTLSWanted())
        body += " AUTH TLS\r\n PBSZ\r\n PROT\r\n";
    for (const char* feature : {"AVBL", "EPRT", "EPSV"})
        body.append(" ").append(feature).append("\r\n");
    body += " HASH " + FtpHash::sGetNames(m_hash).str() + "\r\n MDTM\r\n MFMT\r\n";
    body += " MLST " + FtpListing::sGetFactNames(m_facts, true).str() + "\r\n";
    for (const char* feature : {"REST STREAM", "SIZE", "TVFS", "UTF8", "XMD5", "XSHA1", "XSHA256", "XSHA512"})
        body.append(" ").append(feature).append("\r\n");
    xReplyLines(211, "Features", body, "End");
}

void FtpSession::xCmdOpts(const String& argument)
{
    const String::size_type blank = argument.find(' ');
    const String option = argument.substr(0, blank);
    const String value = blank == String::npos ? String() : argument.substr(blank + 1);
    if (option.MatchesI("MLST")) {
        m_facts = FtpListing::sParseFactNames(value);
        const String names = FtpListing::sGetFactNames(m_facts, false);
        return xReply(200, names.empty() ? String("MLST OPTS") : "MLST OPTS " + names);
    }
    if (option.MatchesI("HASH")) {
        const String name = value.empty() ? m_hash : FtpHash::sFindName(value);
        if (name.empty())
            return xReply(504, "Only the hashes that FEAT lists are offered");
        m_hash = name;
        return xReply(200, name);
    }
    if (!option.MatchesI("UTF8") && !option.MatchesI("UTF-8"))
        return xReply(501, "Option not understood");
    if (value.empty() || value.MatchesI("ON"))
        return xReply(200, "Names are in UTF-8");
    xReply(504, "Names are always in UTF-8");
}

void FtpSession::xCmdHelp(const String& argument)
{
    if (!argument.empty()) {
        const COMMAND* command = xsFindCommand(argument);
        if (command == nullptr || command->run == nullptr)
            return xReply(502, "No such command");
        return xReply(214, String("Syntax: ") + command->syntax);
    }
    constexpr std::size_t PER_LINE = 8;
    std::string body;
    std::size_t count = 0;
    for (const COMMAND& command : xsGetCommands()) {
        if (command.run == nullptr)
            continue;
        body.append(" ").append(command.name);
        if (++count % PER_LINE == 0)
            body += "\r\n";
    }
    if (count % PER_LINE != 0)
        body += "\r\n";
    xReplyLines(214, "Commands", body, "HELP <command> tells more");
}

void FtpSession::xCmdStat(const String& argument)
{
    if (!argument.empty())
        return xListOnControl(argument);
    std::string body = " Connected from " + xGetMainNetState().remoteIP.GetText().str() + "\r\n";
    body += " Logged in as " + MakeVisible(m_user->GetName()).str() + "\r\n";
    body += std::string(" TYPE: ") + (m_isAscii ? "ASCII" : "Image") + ", STRU: File, MODE: Stream\r\n";
    body += m_dataMode == DATAMODE::NONE ? " No data connection\r\n" : " Data connection prepared\r\n";
    xReplyLines(211, "Server status", body, "End of status");
}

void FtpSession::xCmdAllo(const String& argument)
{
    const STRINGS words = SplitWords(argument);
    const bool isPlain = words.size() == 1 && IsDecimal(words[0]);
    const bool hasRecord = words.size() == 3 && IsDecimal(words[0]) && words[1].MatchesI("R") && IsDecimal(words[2]);
    if (!isPlain && !hasRecord)
        return xReplySyntaxError();
    xReply(202, "No storage needs to be set aside");
}

// --- questions of administrators

void FtpSession::xCmdSite(const String& argument)
{
    const STRINGS words = SplitWords(argument);
    const String name = words.empty() ? String() : words[0];
    const bool isQuestion = words.size() == 1;
    if (isQuestion && name.MatchesI("HELP"))
        return xReplyLines(214, "SITE commands",
                           " CHMOD <mode> <path>\r\n UTIME <time> <path>\r\n HELP\r\n WHO\r\n STAT\r\n KICK <session> "
                           "[<text>]\r\n STOP <session>\r\n",
                           "WHO, STAT, KICK and STOP are for administrators");
    if (name.MatchesI("CHMOD"))
        return xSiteChmod(TextBehind(argument, 1));
    if (name.MatchesI("UTIME"))
        return xSiteUtime(TextBehind(argument, 1));
    const bool isWho = isQuestion && name.MatchesI("WHO");
    const bool isStat = isQuestion && name.MatchesI("STAT");
    const bool isKick = name.MatchesI("KICK");
    if (!isWho && !isStat && !isKick && !name.MatchesI("STOP"))
        return xReply(504, "SITE command not understood");
    if (!xHasRight(FtpUserSettings::ADMIN))
        return xReply(550, FtpFileSystem::sDescribe(RESULT::DENIED));
    if (isWho || isStat)
        return isWho ? xSiteWho() : xSiteStat();
    xSiteStepIn(isKick, argument);
}

/// "KICK <session> [<text>]" and "STOP <session>", by the number that WHO shows.
void FtpSession::xSiteStepIn(bool isKick, const String& argument)
{
    const STRINGS words = SplitWords(argument);
    if (words.size() < 2 || (!isKick && words.size() > 2) || !IsDecimal(words[1], 10))
        return xReplySyntaxError();
    const auto picture = m_board.Take([this] { return xShouldGoOn(); });
    if (!picture)
        return xReply(451, "Not available now");
    for (ULONG i = 0; i < picture->sessions.GetCount(); ++i) {
        const EventLogSessionID id = picture->sessions.GetStatus(i).GetStatus().GetSessionID();
        if (String::sToString(id.GetSession()) != words[1])
            continue;
        if (isKick)
            m_board.Disconnect(id, TextBehind(argument, 2));
        else
            m_board.StopTransfer(id, String());
        return xReply(200, isKick ? "Asked to end" : "Asked to stop its transfer");
    }
    xReply(550, "No such session");
}

void FtpSession::xSiteWho()
{
    const auto picture = m_board.Take([this] { return xShouldGoOn(); });
    if (!picture)
        return xReply(451, "Not available now");
    std::string body;
    for (ULONG i = 0; i < picture->sessions.GetCount(); ++i)
        body += DescribeSession(picture->sessions.GetStatus(i)).str();
    xReplyLines(211, "Sessions: number, user, address, action", body, "End");
}

void FtpSession::xSiteStat()
{
    const auto picture = m_board.Take([this] { return xShouldGoOn(); });
    if (!picture)
        return xReply(451, "Not available now");
    const NetServiceStatus& totals = picture->totals;
    std::string body = " Since: " + totals.GetCreateTime().GetText().str() + " UTC\r\n";
    const auto add = [&body](const char* name, const ULONG8& value) {
        body += std::string(" ") + name + ": " + String::sToString(value).str() + "\r\n";
    };
    add("Sessions now", totals.GetCurrentConnectionsIn());
    add("Connections in", totals.GetConnectionsIn());
    add("Connections out", totals.GetConnectionsOutSuccesses());
    add("Connections out failed", totals.GetConnectionsOutFails());
    add("Bytes in", totals.GetDataInBytes());
    add("Bytes out", totals.GetDataOutBytes());
    add("Commands in", totals.GetCommandsIn());
    add("Replies out", totals.GetCommandsOut());
    add("Logins", totals.GetLoginSuccesses());
    add("Logins failed", totals.GetLoginFails());
    add("Folders made", totals.GetDirsCreated());
    add("Folders deleted", totals.GetDirsDeleted());
    add("Folders moved", totals.GetDirsMoved());
    add("Folders listed", totals.GetDirsRead());
    add("Files uploaded", totals.GetFilesCreated());
    add("Files appended", totals.GetFilesAppended());
    add("Files deleted", totals.GetFilesDeleted());
    add("Files moved", totals.GetFilesMoved());
    add("Files downloaded", totals.GetFilesRead());
    xReplyLines(211, "Totals", body, "End");
}

// --- parameters of transfers (RFC 959, section 5.3.2)

void FtpSession::xCmdType(const String& argument)
{
    const STRINGS words = SplitWords(argument);
    const String type = words.empty() ? String() : words[0];
    const String form = words.size() > 1 ? words[1] : String();
    if (words.empty() || words.size() > 2)
        return xReplySyntaxError();
    const bool isAscii = type.MatchesI("A") && (form.empty() || form.MatchesI("N"));
    const bool isImage = (type.MatchesI("I") && form.empty()) || (type.MatchesI("L") && form == "8");
    if (!isAscii && !isImage)
        return xReply(504, "Only the types A N, I and L 8 are offered");
    m_isAscii = isAscii;
    xReply(200, isAscii ? "Type is ASCII" : "Type is Image");
}

void FtpSession::xCmdStru(const String& argument)
{
    if (argument.MatchesI("F"))
        return xReply(200, "Structure is File");
    xReply(504, "Only the structure F is offered");
}

void FtpSession::xCmdMode(const String& argument)
{
    if (argument.MatchesI("S"))
        return xReply(200, "Mode is Stream");
    xReply(504, "Only the mode S is offered");
}

} // namespace kqlib

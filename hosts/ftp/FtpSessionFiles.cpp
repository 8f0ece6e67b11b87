// FtpSession: folders, names and times.
#include "hosts/ftp/FtpSession.h"

#include "hosts/ftpcommon/FtpText.h"
#include "hosts/ftpcommon/FtpTime.h"

namespace kqlib {

namespace {

/// A path as replies of code 257 show it: in quotes, with quotes in it doubled (RFC 959, appendix II).
String Quote(const String& path)
{
    String quoted = "\"";
    for (const char character : MakeVisible(path)) {
        quoted += character;
        if (character == '"')
            quoted += character;
    }
    return quoted + "\"";
}

/// "YYYYMMDDhhmmss path", the seconds may be missing.
bool ParseShortUtime(const String& argument, String& name, std::int64_t& timeMs)
{
    constexpr std::size_t WITHOUT_SECONDS = 12;
    const String::size_type blank = argument.find(' ');
    if (blank == String::npos || blank + 1 == argument.size())
        return false;
    const String time = argument.substr(0, blank);
    name = argument.substr(blank + 1);
    return FtpTime::sParse(time.size() == WITHOUT_SECONDS ? time + "00" : time, timeMs);
}

/// "path accessed modified made UTC", times as above; only the second one is used.
bool ParseLongUtime(const String& argument, String& name, std::int64_t& timeMs)
{
    constexpr int TIMES = 3;
    constexpr int MODIFIED = 1; // counted from the end
    if (!argument.EndsWith(" UTC"))
        return false;
    String rest = argument.substr(0, argument.size() - 4);
    for (int i = 0; i < TIMES; ++i) {
        const std::string::size_type blank = rest.str().rfind(' ');
        String ignored;
        std::int64_t parsed = 0;
        if (blank == std::string::npos || blank == 0 ||
            !ParseShortUtime(rest.substr(blank + 1) + " x", ignored, parsed))
            return false;
        timeMs = i == MODIFIED ? parsed : timeMs;
        rest = rest.substr(0, blank);
    }
    name = rest;
    return true;
}

/// Three octal digits, maybe with a 0 before them; what else a mode could hold is not for clients.
bool ParseMode(const String& text, std::uint32_t& permissions)
{
    const String digits = text.size() == 4 && text.StartsWith("0") ? text.substr(1) : text;
    permissions = 0;
    for (const char digit : digits) {
        if (digit < '0' || digit > '7')
            return false;
        permissions = permissions * 8 + static_cast<std::uint32_t>(digit - '0');
    }
    return digits.size() == 3;
}

} // namespace

// --- the current folder

void FtpSession::xCmdPwd(const String&)
{
    xReply(257, Quote(m_files.GetFolder()) + " is the current folder");
}

void FtpSession::xCmdCwd(const String& argument)
{
    String path;
    if (xResolve(argument, path))
        xReplyResult(m_files.SetFolder(path), 250, "Folder changed");
}

void FtpSession::xCmdCdup(const String&)
{
    xCmdCwd("..");
}

// --- making, removing, renaming

void FtpSession::xCmdMkd(const String& argument)
{
    String path;
    if (!xResolve(argument, path))
        return;
    RESULT result = xMayName(path) ? RESULT::DENIED : RESULT::BAD_NAME;
    if (result == RESULT::DENIED && xHasRight(FtpUserSettings::WRITE))
        result = m_files.GetRoot().MakeFolder(path.str());
    xRecordDirCreated(xGetMainNetState(), result == RESULT::DONE, m_files.GetRealPath(path),
                      FtpFileSystem::sDescribe(result));
    xReplyResult(result, 257, Quote(path) + " was made");
}

void FtpSession::xCmdRmd(const String& argument)
{
    String path;
    if (!xResolve(argument, path))
        return;
    const RESULT result =
        xHasRight(FtpUserSettings::REMOVE) ? m_files.GetRoot().RemoveFolder(path.str()) : RESULT::DENIED;
    xRecordDirDeleted(xGetMainNetState(), result == RESULT::DONE, m_files.GetRealPath(path),
                      FtpFileSystem::sDescribe(result));
    xReplyResult(result, 250, "Folder deleted");
}

void FtpSession::xCmdDele(const String& argument)
{
    String path;
    if (!xResolve(argument, path))
        return;
    const RESULT result =
        xHasRight(FtpUserSettings::REMOVE) ? m_files.GetRoot().RemoveFile(path.str()) : RESULT::DENIED;
    xRecordFileDeleted(xGetMainNetState(), result == RESULT::DONE, m_files.GetRealPath(path),
                       FtpFileSystem::sDescribe(result));
    xReplyResult(result, 250, "File deleted");
}

void FtpSession::xCmdRnfr(const String& argument)
{
    String path;
    if (!xResolve(argument, path))
        return;
    FtpFileSystem::FACTS facts;
    const RESULT result =
        xHasRight(FtpUserSettings::WRITE) ? m_files.GetRoot().GetOwnFacts(path.str(), facts) : RESULT::DENIED;
    if (result == RESULT::DONE)
        m_renameFrom = path;
    xReplyResult(result, 350, "RNTO comes next");
}

void FtpSession::xCmdRnto(const String& argument)
{
    const String from = std::exchange(m_renameFrom, String());
    if (from.empty())
        return xReply(503, "RNFR comes first");
    String to;
    if (!xResolve(argument, to, 553))
        return;
    FtpFileSystem::FACTS facts;
    const bool isFolder =
        m_files.GetRoot().GetOwnFacts(from.str(), facts) == RESULT::DONE && facts.kind == platform::FileKind::FOLDER;
    const bool mayReplace = xHasRight(FtpUserSettings::REMOVE) && m_user->GetOverwrite();
    const RESULT result = xMayName(to) ? m_files.Rename(from, to, mayReplace) : RESULT::BAD_NAME;
    const bool isDone = result == RESULT::DONE;
    const FilePath realFrom = m_files.GetRealPath(from);
    const FilePath realTo = m_files.GetRealPath(to);
    if (isFolder)
        xRecordDirMoved(xGetMainNetState(), isDone, realFrom, realTo, FtpFileSystem::sDescribe(result));
    else
        xRecordFileMoved(xGetMainNetState(), isDone, realFrom, realTo, FtpFileSystem::sDescribe(result));
    xReplyResult(result, 250, "Renamed", 553);
}

// --- facts (RFC 3659)

void FtpSession::xCmdSize(const String& argument)
{
    String path;
    if (!xResolve(argument, path))
        return;
    if (m_isAscii) // the size on the wire: the whole file would have to be read to know it
        return xReply(550, "Sizes are told for TYPE I only");
    FtpFileSystem::FACTS facts;
    const RESULT result = m_files.GetRoot().GetFacts(path.str(), facts);
    if (result == RESULT::DONE && facts.kind != platform::FileKind::FILE)
        return xReply(550, FtpFileSystem::sDescribe(RESULT::NOT_FILE));
    xReplyResult(result, 213, String::sToString(static_cast<ULONG8>(facts.size)));
}

void FtpSession::xCmdMdtm(const String& argument)
{
    String path;
    if (!xResolve(argument, path))
        return;
    FtpFileSystem::FACTS facts;
    const RESULT result = m_files.GetRoot().GetFacts(path.str(), facts);
    xReplyResult(result, 213, FtpTime::sFormat(facts.modifiedMs));
}

void FtpSession::xCmdMfmt(const String& argument)
{
    const String::size_type blank = argument.find(' ');
    std::int64_t timeMs = 0;
    if (blank == String::npos || blank + 1 == argument.size() || !FtpTime::sParse(argument.substr(0, blank), timeMs))
        return xReplySyntaxError("A time YYYYMMDDhhmmss and a name are expected");
    const String name = argument.substr(blank + 1);
    String path;
    if (!xResolve(name, path))
        return;
    const RESULT result = xSetModified(path, timeMs);
    xReplyResult(result, 213, "Modify=" + FtpTime::sFormat(timeMs) + "; " + MakeVisible(name));
}

FtpSession::RESULT FtpSession::xSetModified(const String& path, std::int64_t timeMs) const
{
    return xHasRight(FtpUserSettings::WRITE) ? m_files.GetRoot().SetModified(path.str(), timeMs) : RESULT::DENIED;
}

/// Two forms are in use: "time path", and "path accessed modified made UTC".
void FtpSession::xSiteUtime(const String& argument)
{
    String name;
    std::int64_t timeMs = 0;
    if (!ParseLongUtime(argument, name, timeMs) && !ParseShortUtime(argument, name, timeMs))
        return xReplySyntaxError("A time YYYYMMDDhhmmss and a name are expected");
    String path;
    if (xResolve(name, path))
        xReplyResult(xSetModified(path, timeMs), 200, "Time of the last change was set");
}

void FtpSession::xSiteChmod(const String& argument)
{
    const String::size_type blank = argument.find(' ');
    std::uint32_t permissions = 0;
    if (blank == String::npos || blank + 1 == argument.size() || !ParseMode(argument.substr(0, blank), permissions))
        return xReplySyntaxError("A mode of three octal digits and a name are expected");
    String path;
    if (!xResolve(argument.substr(blank + 1), path))
        return;
    // The home itself stays as the administrator made it: a user could lock everybody out of it.
    const bool isAllowed = xHasRight(FtpUserSettings::WRITE) && !(path == "/");
    const RESULT result = isAllowed ? m_files.GetRoot().SetPermissions(path.str(), permissions) : RESULT::DENIED;
    xReplyResult(result, 200, "Permissions were set");
}

void FtpSession::xCmdAvbl(const String& argument)
{
    String path;
    if (!xResolve(argument, path))
        return;
    std::uint64_t bytes = 0;
    const RESULT result =
        xHasRight(FtpUserSettings::WRITE) ? m_files.GetRoot().GetFreeBytes(path.str(), bytes) : RESULT::DENIED;
    xReplyResult(result, 213, String::sToString(static_cast<ULONG8>(bytes)));
}

void FtpSession::xCmdMlst(const String& argument)
{
    String path;
    if (!xResolve(argument, path))
        return;
    FtpFileSystem::FACTS facts;
    const RESULT result = xHasRight(FtpUserSettings::READ) ? m_files.GetShownFacts(path, facts) : RESULT::DENIED;
    if (result != RESULT::DONE)
        return xReplyFailure(result);
    std::string line = " ";
    FtpListing::sAddFactLine(line, path, facts, m_facts, xGetListingRights());
    xReplyLines(250, "Listing", line, "End");
}

} // namespace kqlib

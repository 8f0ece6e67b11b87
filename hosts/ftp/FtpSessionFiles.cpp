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
    const RESULT result = xHasRight(FtpUserSettings::WRITE) ? m_files.GetRoot().MakeFolder(path.str()) : RESULT::DENIED;
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
    const RESULT result = m_files.Rename(from, to, xHasRight(FtpUserSettings::REMOVE));
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
    const RESULT result =
        xHasRight(FtpUserSettings::WRITE) ? m_files.GetRoot().SetModified(path.str(), timeMs) : RESULT::DENIED;
    xReplyResult(result, 213, "Modify=" + FtpTime::sFormat(timeMs) + "; " + MakeVisible(name));
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

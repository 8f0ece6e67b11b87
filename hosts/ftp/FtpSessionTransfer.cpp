// FtpSession: files and listings over data connections.
#include "hosts/ftp/FtpSession.h"

#include "common/TimedEvent.h"
#include "hosts/ftp/FtpAscii.h"
#include "hosts/ftpcommon/FtpText.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <random>
#include <utility>

namespace kqlib {

namespace {

/// What is read and sent, or received and written, at a time.
constexpr std::size_t CHUNK_BYTES = 256 * 1024;
/// What a listing gathers before it is sent.
constexpr std::size_t LIST_CHUNK_BYTES = 64 * 1024;
/// Entries of a folder that are kept and sorted at a time.
constexpr std::size_t SORTED_TOGETHER = 100000;
/// Entries between two looks at the control connection.
constexpr std::size_t LOOKS_EVERY = 1000;

/// Names that are tried for a new file.
constexpr int NAME_TRIES = 100;

using BUFFER = std::unique_ptr<unsigned char[]>;

BUFFER MakeBuffer()
{
    return std::make_unique_for_overwrite<unsigned char[]>(CHUNK_BYTES + 1); // one for a CR that waited
}

/// Leaves out what clients put before the path out of habit, "-a" and the like.
String SkipFlags(const String& argument)
{
    String rest = argument;
    while (rest.StartsWith("-")) {
        const String::size_type blank = rest.find(' ');
        rest = blank == String::npos ? String() : rest.substr(blank + 1);
    }
    return rest;
}

} // namespace

// --- around every transfer

void FtpSession::xCmdRest(const String& argument)
{
    ULONG8 position = 0;
    const char* end = argument.data() + argument.size();
    const auto read = std::from_chars(argument.data(), end, position);
    if (read.ec != std::errc() || read.ptr != end)
        return xReplySyntaxError("A position in bytes is expected");
    m_restart = position;
    xReply(350, "The next transfer starts at " + String::sToString(position));
}

void FtpSession::xCmdAbor(const String&)
{
    xCloseData(false);
    xReply(226, "No transfer is running");
}

FtpSession::END FtpSession::xBeginTransfer(const char* verb, const String& path, ACTION action,
                                           const String& announcement)
{
    if (m_dataMode == DATAMODE::NONE)
        return END::NOT_CONNECTED;
    if (m_config->settings.GetRequireTLS() && !m_isDataProtected)
        return END::UNPROTECTED;
    xReply(150, announcement);
    xNoteTransfer(verb, path, action);
    xSetTimeOutSecs(m_config->settings.GetStallSecs());
    xResetTimeOut();
    xWatch(); // what came along with the command itself
    return m_transfer.stop == END::COMPLETE ? xOpenData() : m_transfer.stop;
}

const FtpSession::ENDING& FtpSession::xsDescribeEnd(END end)
{
    static constexpr ENDING ENDINGS[] = {
        {END::COMPLETE, 226, "Transfer complete"},
        {END::NOT_CONNECTED, 425, "No data connection"},
        {END::FOREIGN, 425, "The data connection came from another address"},
        {END::UNPROTECTED, 521, "Data connections must be protected, PBSZ 0 and PROT P come first"},
        {END::NOT_SECURED, 522, "The TLS handshake of the data connection failed"},
        {END::DATA_LOST, 426, "The data connection was lost"},
        {END::NO_FAREWELL, 426, "The data connection ended without the farewell of TLS"},
        {END::ABORTED, 426, "Transfer aborted"},
        {END::STOPPED, 426, "Transfer stopped by the administrator"},
        {END::STALLED, 426, "Nothing moved for too long"},
        {END::HUNG_UP, 426, "The control connection is gone"},
        {END::DISCONNECTED, 426, "Disconnected by the administrator"},
        {END::ENDING, 426, "The service is stopping"},
        {END::NAME_TAKEN, 553, "There is one of that name already"},
        {END::READ_FAILED, 451, "The file cannot be read"},
        {END::WRITE_FAILED, 451, "The file cannot be written"},
        {END::DISK_FULL, 452, "No space left"},
    };
    return *std::find_if(std::begin(ENDINGS), std::end(ENDINGS),
                         [end](const ENDING& candidate) { return candidate.end == end; });
}

/// From now on there is something to be watched, told and stopped.
void FtpSession::xNoteTransfer(const char* verb, const String& path, ACTION action)
{
    m_transfer = TRANSFER();
    m_transfer.isActive = true;
    m_transfer.verb = verb;
    m_transfer.path = path;
    m_transfer.action = action;
    m_transfer.start = TimedEvent::sGetNow();
    xSetCurrentActionDetail(action, path);
}

void FtpSession::xFinishTransfer(END end, const RECORDER& record)
{
    const TRANSFER transfer = std::exchange(m_transfer, TRANSFER());
    xSetCurrentActionDetail(ACT_IDLE, String());
    xSetTimeOutSecs(m_config->settings.GetIdleSecs());
    xResetTimeOut();
    xCloseData(end == END::COMPLETE);
    const ENDING& ending = xsDescribeEnd(end);
    record(end == END::COMPLETE, ending.text);
    xLogTransfer(transfer, end == END::COMPLETE, ending.text);
    xReply(ending.code, ending.text);
}

/// One line for a file that was to be moved. What never began, and what no 150 was said for, is no transfer.
void FtpSession::xLogTransfer(const TRANSFER& transfer, bool isComplete, const String& reason)
{
    if (!transfer.isActive || transfer.action == ACT_LIST)
        return;
    FtpTransferLog::TRANSFER line;
    line.command = transfer.verb;
    line.user = m_user->GetName();
    line.isAnonymous = m_user->GetIsAnonymous();
    line.address = xGetMainNetState().remoteIP;
    line.path = m_files.GetRealPath(transfer.path);
    line.isUpload = transfer.action == ACT_UPLOAD;
    line.isText = m_isAscii;
    line.isSecured = m_isDataProtected;
    line.bytes = transfer.moved;
    line.milliSecs = static_cast<std::uint32_t>(TimedEvent::sGetNow() - transfer.start);
    line.isComplete = isComplete;
    line.reason = reason;
    m_transferLog.Print(line);
}

/// Why the base gave up moving data.
FtpSession::END FtpSession::xWhyStopped() const
{
    if (m_transfer.stop != END::COMPLETE)
        return m_transfer.stop;
    if (xShouldSessionEnd())
        return END::ENDING;
    if (xCheckForDisconnectMsg())
        return END::DISCONNECTED;
    return xIsTimedOut() ? END::STALLED : END::DATA_LOST;
}

// --- downloads

void FtpSession::xCmdRetr(const String& argument)
{
    const ULONG8 from = std::exchange(m_restart, 0);
    String path;
    if (!xResolve(argument, path))
        return;
    const FilePath realPath = m_files.GetRealPath(path);
    FtpFile file;
    const RESULT result = xHasRight(FtpUserSettings::READ)
                              ? file.Open(m_files.GetRoot(), path.str(), platform::FileMode::READ, false)
                              : RESULT::DENIED;
    if (result != RESULT::DONE) {
        xRecordFileDownloaded(xGetMainNetState(), false, realPath, FtpFileSystem::sDescribe(result));
        return xReplyFailure(result);
    }
    const std::uint64_t size = file.GetSize();
    if (from > size || (from != 0 && m_isAscii) || !platform::SeekFile(file.Get(), from)) {
        xRecordFileDownloaded(xGetMainNetState(), false, realPath, "Bad restart position");
        return xReply(554, "The restart position is not possible");
    }
    END end = xBeginTransfer("RETR", path, ACT_DOWNLOAD,
                             "Sending " + String::sToString(static_cast<ULONG8>(size - from)) + " bytes");
    if (end == END::COMPLETE)
        end = m_isAscii ? xSendFileAsText(file.Get()) : xSendFile(file.Get());
    xFinishTransfer(end, [&](bool success, const String& reason) {
        xRecordFileDownloaded(xGetMainNetState(), success, realPath, reason);
    });
}

FtpSession::END FtpSession::xSendFile(platform::FileHandle file)
{
    const BUFFER buffer = MakeBuffer();
    for (;;) {
        std::size_t got = 0;
        if (!platform::ReadFile(file, buffer.get(), CHUNK_BYTES, got))
            return END::READ_FAILED;
        if (got == 0)
            return END::COMPLETE;
        if (!xSendAllData(m_data.get(), buffer.get(), static_cast<ULONG>(got)))
            return xWhyStopped();
        m_transfer.moved += got;
    }
}

FtpSession::END FtpSession::xSendFileAsText(platform::FileHandle file)
{
    const BUFFER buffer = MakeBuffer();
    std::string text;
    for (;;) {
        std::size_t got = 0;
        if (!platform::ReadFile(file, buffer.get(), CHUNK_BYTES, got))
            return END::READ_FAILED;
        if (got == 0)
            return END::COMPLETE;
        text.clear();
        FtpAscii::sToWire(buffer.get(), got, text);
        if (!xSendText(m_data.get(), text))
            return xWhyStopped();
    }
}

bool FtpSession::xSendText(NetTCP* socket, const std::string& text)
{
    m_transfer.moved += text.size();
    return text.empty() ||
           xSendAllData(socket, reinterpret_cast<const unsigned char*>(text.data()), static_cast<ULONG>(text.size()));
}

// --- uploads

void FtpSession::xCmdStor(const String& argument)
{
    xUpload(argument, HOW::STORE);
}

void FtpSession::xCmdAppe(const String& argument)
{
    xUpload(argument, HOW::APPEND);
}

/// The name is told in the form of RFC 1123, section 4.1.2.9. RFC 959 knows no argument; clients that give one mean the
/// name that the file should have if it can.
void FtpSession::xCmdStou(const String& argument)
{
    xUpload(argument, HOW::UNIQUE);
}

/// Data go straight into the file: what has arrived when a transfer breaks off stays, so that it can be resumed. Or, by
/// a setting, they go to a hidden name, and the file appears when it is whole.
void FtpSession::xUpload(const String& argument, HOW how)
{
    const ULONG8 asked = std::exchange(m_restart, 0);
    const ULONG8 from = how == HOW::STORE ? asked : 0; // the others know their place themselves
    UPLOAD upload(m_uploads);
    upload.how = how;
    if (!xResolve(argument, upload.path, 553))
        return;
    const RECORDER record = [&](bool success, const String& reason) {
        const FilePath realPath = m_files.GetRealPath(upload.path);
        if (how == HOW::APPEND)
            xRecordFileAppended(xGetMainNetState(), success, realPath, reason);
        else
            xRecordFileUploaded(xGetMainNetState(), success, realPath, reason);
    };
    FtpFileSystem::FACTS facts;
    RESULT result = how == HOW::UNIQUE ? xOpenUnique(upload, argument) : xOpenUpload(upload, from);
    if (result == RESULT::DONE)
        result = m_files.GetRoot().GetFacts(upload.target.str(), facts);
    if (result != RESULT::DONE) {
        record(false, FtpFileSystem::sDescribe(result));
        return xReplyFailure(result, 553);
    }
    if (!upload.claim.Take(facts)) {
        constexpr const char* BUSY = "Somebody else is uploading this file";
        record(false, BUSY);
        return xReply(450, BUSY);
    }
    if (xWouldOverwrite(upload, from)) {
        record(false, FtpFileSystem::sDescribe(RESULT::EXISTS));
        return xReplyFailure(RESULT::EXISTS, 553);
    }
    if (from > upload.file.GetSize() || (from != 0 && m_isAscii)) {
        record(false, "Bad restart position");
        return xReply(554, "The restart position is not possible");
    }
    const END end = xMoveUpload(upload, from);
    // Whoever has the reply finds everything in the file, and may upload again.
    upload.claim.Release();
    xFinishTransfer(end, record);
}

FtpSession::END FtpSession::xMoveUpload(UPLOAD& upload, ULONG8 from)
{
    constexpr const char* VERBS[] = {"STOR", "APPE", "STOU"};
    FtpFile& file = upload.file;
    const ULONG8 start = upload.how == HOW::APPEND ? file.GetSize() : from;
    END end = xBeginTransfer(VERBS[static_cast<std::size_t>(upload.how)], upload.path, ACT_UPLOAD, upload.announcement);
    bool isUnused = false;
    if (end == END::COMPLETE) {
        // Only now that data can come is the old content given up.
        const bool isReady = platform::SetFileSize(file.Get(), start) && platform::SeekFile(file.Get(), start);
        end = isReady ? xReceiveFile(file.Get()) : END::WRITE_FAILED;
    } else
        isUnused = file.WasMade() && file.GetSize() == 0;
    file.Close();
    if (upload.IsHidden())
        return xShowUpload(upload, end);
    // Nothing was received: an empty file that nobody asked for goes again, and if it cannot, it does no harm.
    if (isUnused)
        static_cast<void>(m_files.GetRoot().RemoveFile(upload.target.str()));
    return end;
}

/// The end of an upload to a hidden name: a whole file gets its own name, anything else goes.
FtpSession::END FtpSession::xShowUpload(const UPLOAD& upload, END end)
{
    const platform::RootFolder& root = m_files.GetRoot();
    RESULT result = RESULT::FAILED;
    if (end == END::COMPLETE)
        result = root.Rename(upload.target.str(), upload.path.str(), m_user->GetOverwrite());
    if (result == RESULT::DONE)
        return end;
    static_cast<void>(root.RemoveFile(upload.target.str())); // if it cannot be removed, it does no harm
    if (result == RESULT::EXISTS)
        return END::NAME_TAKEN;
    return end == END::COMPLETE ? END::WRITE_FAILED : end;
}

/// Whether something that a file holds would be given up for a user who may not do that. What is there may be gone on
/// from: the end of an upload that broke off comes so.
bool FtpSession::xWouldOverwrite(const UPLOAD& upload, ULONG8 from) const
{
    return !m_user->GetOverwrite() && upload.how == HOW::STORE && upload.file.GetSize() > from;
}

FtpSession::RESULT FtpSession::xOpenUpload(UPLOAD& upload, ULONG8 from)
{
    if (!xHasRight(FtpUserSettings::WRITE))
        return RESULT::DENIED;
    if (!xMayName(upload.path))
        return RESULT::BAD_NAME;
    upload.target = upload.path;
    const bool append = upload.how == HOW::APPEND;
    const bool mayMake = append || from == 0; // a restart goes on with what is there
    FtpFileSystem::FACTS facts;
    const bool isLink = m_files.GetRoot().GetOwnFacts(upload.path.str(), facts) == RESULT::DONE &&
                        facts.kind == platform::FileKind::LINK; // which a renaming would replace
    if (m_config->settings.GetHiddenUploads() && !append && from == 0 && !isLink)
        return xOpenHidden(upload);
    return upload.file.Open(m_files.GetRoot(), upload.path.str(), platform::FileMode::WRITE, mayMake);
}

/// Makes a new file of the name that was asked for, or of that name and a number where it is taken. Nobody else knows
/// it before the reply, so it needs no hidden name.
FtpSession::RESULT FtpSession::xOpenUnique(UPLOAD& upload, const String& argument)
{
    if (!xHasRight(FtpUserSettings::WRITE))
        return RESULT::DENIED;
    const platform::RootFolder& root = m_files.GetRoot();
    std::random_device random;
    const bool isNamed = !argument.empty() && !(upload.path == "/");
    const String wanted = isNamed ? upload.path : FtpFileSystem::sJoin(upload.path, "upload");
    upload.path = wanted;
    for (int i = 0; i < NAME_TRIES; ++i) {
        if (i != 0 || !isNamed)
            upload.path = wanted + "." + String::sToString(static_cast<ULONG8>(random()));
        FtpFileSystem::FACTS facts;
        if (!xMayName(upload.path))
            return RESULT::BAD_NAME;
        if (root.GetOwnFacts(upload.path.str(), facts) == RESULT::DONE)
            continue;
        const RESULT result = upload.file.Open(root, upload.path.str(), platform::FileMode::WRITE, true);
        if (result == RESULT::DONE && !upload.file.WasMade())
            continue; // somebody was faster
        upload.target = upload.path;
        const String::size_type slash = upload.path.str().rfind('/');
        const String name = upload.path.substr(slash + 1);
        const bool isHere = FtpFileSystem::sJoin(m_files.GetFolder(), name) == upload.path;
        upload.announcement = "FILE: " + MakeVisible(isHere ? name : upload.path);
        return result;
    }
    return RESULT::EXISTS;
}

/// Opens a new file beside the one that was named. One that may not be written must not be replaced either.
FtpSession::RESULT FtpSession::xOpenHidden(UPLOAD& upload)
{
    const platform::RootFolder& root = m_files.GetRoot();
    const RESULT old = upload.file.Open(root, upload.path.str(), platform::FileMode::WRITE, false);
    if (old != RESULT::DONE && old != RESULT::NOT_FOUND)
        return old;
    if (old == RESULT::DONE && !m_user->GetOverwrite())
        return RESULT::EXISTS;
    const String folder = upload.path.substr(0, upload.path.str().rfind('/') + 1);
    std::random_device random;
    for (int i = 0; i < NAME_TRIES; ++i) {
        upload.target = folder + ".kqftpd-" + String::sToString(static_cast<ULONG8>(random())) + ".part";
        const RESULT result = upload.file.Open(root, upload.target.str(), platform::FileMode::WRITE, true);
        if (result != RESULT::DONE || upload.file.WasMade())
            return result;
    }
    return RESULT::FAILED;
}

FtpSession::END FtpSession::xReceiveFile(platform::FileHandle file)
{
    const BUFFER buffer = MakeBuffer();
    FtpAscii ascii;
    const NETSTATE state = {m_data->GetLocalIP(), m_data->GetLocalPort(), m_data->GetRemoteIP(),
                            m_data->GetRemotePort()};
    for (;;) {
        if (!xShouldGoOn())
            return xWhyStopped();
        ULONG got = CHUNK_BYTES;
        const bool isOpen = xRecvData(m_data.get(), state, buffer.get(), got);
        std::size_t length = got;
        if (isOpen && got != 0) {
            xResetTimeOut();
            m_transfer.moved += got;
            length = m_isAscii ? ascii.FromWire(buffer.get(), got) : got;
        } else if (!isOpen) {
            length = m_isAscii ? ascii.EndFromWire(buffer.get()) : 0;
        }
        bool isDiskFull = false;
        if (length != 0 && !platform::WriteFile(file, buffer.get(), length, &isDiskFull))
            return isDiskFull ? END::DISK_FULL : END::WRITE_FAILED;
        if (!isOpen)
            return xJudgeUploadEnd();
    }
}

/// In stream mode the end of the connection is the end of the file (RFC 959, section 3.4.1), so only a client that ends
/// it in order has sent everything.
FtpSession::END FtpSession::xJudgeUploadEnd() const
{
    switch (m_data->GetPeerEnd()) {
    case NetTCP::PE_IN_ORDER:
        return END::COMPLETE;
    case NetTCP::PE_NO_FAREWELL:
        return m_config->settings.GetRequireTLSFarewell() ? END::NO_FAREWELL : END::COMPLETE;
    case NetTCP::PE_NONE:
    case NetTCP::PE_BROKEN_OFF:
        break;
    }
    return END::DATA_LOST;
}

// --- listings

void FtpSession::xCmdList(const String& argument)
{
    xList("LIST", LISTFORM::LONG, SkipFlags(argument), String());
}

void FtpSession::xCmdNlst(const String& argument)
{
    // Names come in a form that can be given back to RETR as it is (RFC 1123, section 4.1.2.7).
    const String path = SkipFlags(argument);
    xList("NLST", LISTFORM::NAMES, path, path.empty() ? String() : FtpFileSystem::sJoin(path, String()));
}

void FtpSession::xCmdMlsd(const String& argument)
{
    String path;
    if (!xResolve(argument, path, 501))
        return;
    if (xHasRight(FtpUserSettings::READ) && !m_files.IsFolder(path))
        return xReply(501, FtpFileSystem::sDescribe(RESULT::NOT_FOLDER)); // RFC 3659, section 7.2.1
    xList("MLSD", LISTFORM::FACTS, argument, String());
}

/// Gives the folder of "folder/*.txt" and notes the pattern; any other argument comes back as it is, and so does one
/// that names something that is there. Only the last name of a path may have wildcards.
String FtpSession::xTakePattern(const String& argument, LISTING& listing) const
{
    const std::string::size_type slash = argument.str().rfind('/');
    const std::string::size_type start = slash == std::string::npos ? 0 : slash + 1;
    const String name = argument.substr(start);
    String path;
    FtpFileSystem::FACTS facts;
    if (!FtpPattern::sHasWildcards(name) || m_files.Resolve(argument, path) != RESULT::DONE ||
        m_files.GetShownFacts(path, facts) == RESULT::DONE)
        return argument;
    listing.pattern.emplace(name);
    listing.prefix = argument.substr(0, start); // names come in the form that they were asked for in
    return listing.prefix;
}

void FtpSession::xList(const char* verb, LISTFORM form, const String& argument, const String& prefix)
{
    m_restart = 0;
    LISTING listing{form, String(), prefix, TimePos::sNow().GetMilliSeconds()};
    // MLSD knows no wildcards (RFC 3659, section 7.1).
    const String name = form == LISTFORM::FACTS ? argument : xTakePattern(argument, listing);
    if (!xResolve(name, listing.path, 501))
        return;
    const FilePath realPath = m_files.GetRealPath(listing.path);
    platform::FolderReader reader;
    FtpFileSystem::FACTS facts;
    RESULT result = xHasRight(FtpUserSettings::READ) ? m_files.GetShownFacts(listing.path, facts) : RESULT::DENIED;
    if (result == RESULT::DONE && facts.kind == platform::FileKind::FOLDER)
        result = reader.Open(m_files.GetRoot(), listing.path.str());
    else if (result == RESULT::DONE && listing.pattern)
        result = RESULT::NOT_FOLDER;
    if (result != RESULT::DONE) {
        xRecordDirViewed(xGetMainNetState(), false, realPath, FtpFileSystem::sDescribe(result));
        return xReplyFailure(result);
    }
    if (facts.kind != platform::FileKind::FOLDER)
        listing.prefix = argument; // a single entry is shown under the name it was asked for by
    END end = xBeginTransfer(verb, listing.path, ACT_LIST, "Here comes the listing");
    if (end == END::COMPLETE)
        end = xSendListing(m_data.get(), listing, reader);
    xFinishTransfer(end, [&](bool success, const String& reason) {
        xRecordDirViewed(xGetMainNetState(), success, realPath, reason);
    });
}

FtpSession::END FtpSession::xSendListing(NetTCP* socket, const LISTING& listing, platform::FolderReader& reader)
{
    std::string text;
    xAddListedItself(text, listing);
    std::vector<ENTRY> entries;
    for (bool isMore = true; isMore;) {
        isMore = xReadEntries(listing, reader, entries);
        if (m_transfer.isActive && !xShouldGoOn())
            return xWhyStopped();
        for (const ENTRY& entry : entries) {
            xAddEntry(text, listing, String(entry.name), entry.facts);
            if (text.size() < LIST_CHUNK_BYTES)
                continue;
            if (!xSendText(socket, text))
                return xWhyStopped();
            text.clear();
        }
    }
    return xSendText(socket, text) ? END::COMPLETE : xWhyStopped();
}

/// What a listing shows of the listed path itself: everything of a file, and of a folder what MLSD begins with.
void FtpSession::xAddListedItself(std::string& out, const LISTING& listing) const
{
    FtpFileSystem::FACTS facts;
    if (!m_files.IsFolder(listing.path)) {
        if (m_files.GetShownFacts(listing.path, facts) == RESULT::DONE)
            xAddEntry(out, listing, String(), facts);
    } else if (listing.form == LISTFORM::FACTS && m_files.GetRoot().GetFacts(listing.path.str(), facts) == RESULT::DONE)
        FtpListing::sAddFactLine(out, ".", facts, m_facts, xGetListingRights(), "cdir");
}

/// Reads the next entries of a folder that the listing shows and sorts them by the bytes of their names. False: there
/// are no more. A folder has one part, unless it is so large that sorting it as a whole would take much memory.
bool FtpSession::xReadEntries(const LISTING& listing, platform::FolderReader& reader, std::vector<ENTRY>& entries)
{
    entries.clear();
    ENTRY entry;
    bool isMore = true;
    std::size_t seen = 0;
    while (entries.size() < SORTED_TOGETHER && isMore) {
        isMore = reader.Read(entry.name, entry.facts);
        if (isMore && (!listing.pattern || listing.pattern->MatchesListed(String(entry.name))))
            entries.push_back(entry);
        if (m_transfer.isActive && ++seen % LOOKS_EVERY == 0 && !xShouldGoOn())
            return false; // the caller finds out why
    }
    std::sort(entries.begin(), entries.end(),
              [](const ENTRY& left, const ENTRY& right) { return left.name < right.name; });
    return isMore;
}

/// Appends the line of one entry; facts are the entry's own. An empty name: the listed path itself. A link shows what
/// it leads to; one that cannot be followed is left out, as if it were not there: no command takes what lies behind it.
void FtpSession::xAddEntry(std::string& out, const LISTING& listing, const String& name,
                           FtpFileSystem::FACTS facts) const
{
    if (facts.kind == platform::FileKind::LINK &&
        m_files.GetShownFacts(FtpFileSystem::sJoin(listing.path, name), facts) != RESULT::DONE)
        return;
    const String shown = listing.prefix + name;
    if (listing.form == LISTFORM::LONG)
        FtpListing::sAddLongLine(out, shown, facts, listing.nowMs);
    else if (listing.form == LISTFORM::FACTS)
        FtpListing::sAddFactLine(out, shown, facts, m_facts, xGetListingRights());
    else
        out.append(MakeVisible(shown).str()).append("\r\n");
}

/// STAT with a path: the listing as a reply on the control connection. Its lines begin with the letter of a type, so
/// none can be taken for the end of the reply.
void FtpSession::xListOnControl(const String& argument)
{
    const String path = SkipFlags(argument);
    LISTING listing{LISTFORM::LONG, String(), String(), TimePos::sNow().GetMilliSeconds()};
    if (!xResolve(path, listing.path, 501))
        return;
    platform::FolderReader reader;
    FtpFileSystem::FACTS facts;
    RESULT result = xHasRight(FtpUserSettings::READ) ? m_files.GetShownFacts(listing.path, facts) : RESULT::DENIED;
    const bool isFolder = result == RESULT::DONE && facts.kind == platform::FileKind::FOLDER;
    if (isFolder)
        result = reader.Open(m_files.GetRoot(), listing.path.str());
    xRecordDirViewed(xGetMainNetState(), result == RESULT::DONE, m_files.GetRealPath(listing.path),
                     FtpFileSystem::sDescribe(result));
    if (result != RESULT::DONE)
        return xReplyFailure(result);
    if (!isFolder)
        listing.prefix = path;
    const unsigned code = isFolder ? 212U : 213U;
    xSendCommand(xGetMainSocket(), String::sToString(code) + "-Status of " + MakeVisible(listing.path));
    if (xSendListing(xGetMainSocket(), listing, reader) == END::COMPLETE)
        xReply(code, "End of status");
}

} // namespace kqlib

// FtpClientSession: files over data connections.
#include "hosts/ftpclient/FtpClientSession.h"

#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpcommon/FtpText.h"
#include "hosts/ftpcommon/FtpTime.h"

#include <algorithm>

namespace kqlib {

namespace {

using platform::FileMode;
using platform::FileResult;

constexpr unsigned FILE_STATUS = 213;
constexpr std::size_t MAX_SIZE_DIGITS = 19;

const char* Describe(FileResult result)
{
    switch (result) {
    case FileResult::NOT_FOUND:
        return "it is not there";
    case FileResult::IS_FOLDER:
        return "it is a folder";
    case FileResult::DENIED:
        return "it is not allowed";
    case FileResult::ESCAPES:
        return "a link leads out of the folder";
    case FileResult::BAD_NAME:
        return "this system cannot have such a name";
    case FileResult::DISK_FULL:
        return "no space left";
    default:
        return "the system refuses";
    }
}

/// The version of a file that an open handle shows, under the name that the server is to know it by.
bool GetVersion(const platform::RootFolder& root, const String& localName, const String& path, FtpRemoteEntry& version)
{
    platform::FileFacts facts;
    if (root.GetFacts(localName.str(), facts) != FileResult::DONE)
        return false;
    version.name = FtpNames::sNameOf(path);
    version.kind = FtpRemoteEntry::KIND::FILE;
    version.size = facts.size;
    version.modifiedMs = facts.modifiedMs;
    return true;
}

} // namespace

bool FtpClientSession::xFailFile(FileResult result, const String& name)
{
    return xFail(OUTCOME::LOCAL, MakeVisible(name) + ": " + Describe(result));
}

// --- downloads

/// Into a file of another name, which gets its own when it is complete; what is there of the same version already is
/// not asked for again.
bool FtpClientSession::xDownload(const REQUEST& request)
{
    const String path = xFullPath(request.remotePath);
    FtpRemoteEntry version = request.version;
    if (version.name.empty() && !xGetFacts(path, version))
        return false;
    const String part = FtpNames::sJoin(FtpNames::sFolderOf(request.localName), FtpNames::sMakePartName(version));
    platform::RootFolder root;
    FtpFile file;
    FileResult opened = root.Open(request.localFolder.c_str());
    if (opened == FileResult::DONE)
        opened = file.Open(root, part.str(), FileMode::WRITE, true);
    if (opened != FileResult::DONE)
        return xFailFile(opened, request.localName);

    const bool isVersionKnown = version.size && version.modifiedMs;
    const ULONG8 there = isVersionKnown ? file.GetSize() : 0;
    const bool isReceived = xReceiveFile(path, version, file, there <= version.size.value_or(0) ? there : 0);
    const bool isWorthKeeping = isVersionKnown && file.GetSize() != 0 && m_result.outcome != OUTCOME::DIFFERENT;
    file.Close();
    bool isDone = isReceived;
    if (isReceived) {
        // A system that cannot set the time has a copy all the same, which is made anew by the next mirroring.
        if (version.modifiedMs)
            static_cast<void>(root.SetModified(part.str(), *version.modifiedMs));
        const FileResult renamed = root.Rename(part.str(), request.localName.str(), true);
        isDone = renamed == FileResult::DONE || xFailFile(renamed, request.localName);
    }
    if (!isDone && (isReceived || !isWorthKeeping))
        static_cast<void>(root.RemoveFile(part.str())); // if it cannot be removed, it does no harm
    xRecordFileDownloaded(xGetMainNetState(), isDone, path, m_result.text);
    return isDone;
}

bool FtpClientSession::xReceiveFile(const String& path, const FtpRemoteEntry& version, FtpFile& file, ULONG8 from)
{
    const bool isThere = from != 0 && from == version.size.value_or(0);
    if (!isThere && !xBeginTransfer("RETR", path, from))
        return false;
    xBeginProgress(path, from, version.size.value_or(0));
    // Only now that data can come is it known where they begin.
    if (!platform::SetFileSize(file.Get(), from) || !platform::SeekFile(file.Get(), from)) {
        xFail(OUTCOME::LOCAL, "the file cannot be written");
        return !isThere && xEndTransfer(false);
    }
    return isThere || xEndTransfer(xReceiveBytes(file.Get(), from, version));
}

bool FtpClientSession::xReceiveBytes(platform::FileHandle file, ULONG8 moved, const FtpRemoteEntry& version)
{
    for (bool isOpen = true; isOpen;) {
        ULONG got = 0;
        if (!xReceiveData(got, isOpen))
            return false;
        bool isDiskFull = false;
        if (got != 0 && !platform::WriteFile(file, m_chunk.data(), got, &isDiskFull))
            return xFail(OUTCOME::LOCAL, isDiskFull ? "no space left" : "the file cannot be written");
        moved += got;
        xNoteProgress(got);
        if (version.size && moved > *version.size)
            return xFail(OUTCOME::DIFFERENT, "the file has more bytes than the server said");
    }
    // A connection that ends early looks like the end of the file: only the number of bytes tells.
    if (version.size && moved < *version.size)
        return xFail(OUTCOME::LOST, "the data connection was lost");
    return true;
}

// --- uploads

/// As a download, the other way round; in place, straight under the file's name.
bool FtpClientSession::xUpload(const REQUEST& request)
{
    const String path = xFullPath(request.remotePath);
    platform::RootFolder root;
    FtpFile file;
    FtpRemoteEntry version;
    FileResult opened = root.Open(request.localFolder.c_str());
    if (opened == FileResult::DONE)
        opened = file.Open(root, request.localName.str(), FileMode::READ, false);
    if (opened == FileResult::DONE && !GetVersion(root, request.localName, path, version))
        opened = FileResult::FAILED;
    if (opened != FileResult::DONE)
        return xFailFile(opened, request.localName);

    const String target =
        m_settings.isInPlace ? path : FtpNames::sJoin(FtpNames::sFolderOf(path), FtpNames::sMakePartName(version));
    bool isDone = xSendFile(target, version, file, request.mayResume && !m_settings.isInPlace) &&
                  (m_settings.isInPlace || xGiveName(target, path));
    // Without its time the file is there all the same, a little newer.
    if (isDone && m_canSetTimes)
        isDone = xAsk("MFMT", FtpTime::sFormat(*version.modifiedMs) + " " + path);
    xRecordFileUploaded(xGetMainNetState(), isDone, path, m_result.text);
    return isDone;
}

bool FtpClientSession::xSendFile(const String& path, const FtpRemoteEntry& version, FtpFile& file, bool mayResume)
{
    const ULONG8 size = *version.size;
    ULONG8 from = 0;
    if (mayResume && !xAskPartSize(path, size, from))
        return false;
    const ULONG8 wanted = from;
    if (from != 0 && from == size)
        return true; // only its name is missing
    if (!xBeginTransfer("STOR", path, from))
        return false;
    xBeginProgress(path, from, size);
    const bool isReady = platform::SeekFile(file.Get(), from) || xFail(OUTCOME::LOCAL, "the file cannot be read");
    if (!xEndTransfer(isReady && xSendBytes(file.Get(), from, size)))
        return false;
    if (wanted == 0)
        return true;
    // What was put together is looked at, for a server may have understood the position in its own way.
    ULONG8 there = 0;
    if (!xAskPartSize(path, size, there))
        return false;
    return there == size || xFail(OUTCOME::DIFFERENT, "the server has not put the parts together well");
}

bool FtpClientSession::xSendBytes(platform::FileHandle file, ULONG8 moved, ULONG8 size)
{
    while (moved < size) {
        std::size_t got = 0;
        const auto wanted = static_cast<std::size_t>(std::min<ULONG8>(m_chunk.size(), size - moved));
        if (!platform::ReadFile(file, m_chunk.data(), wanted, got))
            return xFail(OUTCOME::LOCAL, "the file cannot be read");
        if (got == 0)
            return xFail(OUTCOME::DIFFERENT, "the file became shorter meanwhile");
        if (!xSendAllData(m_data.get(), m_chunk.data(), static_cast<ULONG>(got))) {
            const bool isBroken = !xShouldReqEnd() && !xIsTimedOut();
            return isBroken ? xFail(OUTCOME::LOST, "the data connection was lost") : xFailBroken();
        }
        moved += got;
        xNoteProgress(got);
    }
    xEndSending();
    return true;
}

/// size: what the server has of the file; 0 when it has none, does not tell, or has more than the limit.
bool FtpClientSession::xAskPartSize(const String& path, ULONG8 limit, ULONG8& size)
{
    size = 0;
    if (!xAsk("SIZE", path))
        return false;
    if (m_reply.GetCode() == FILE_STATUS && IsDecimal(m_reply.GetText(), MAX_SIZE_DIGITS))
        size = m_reply.GetText().ToULONG8();
    if (size > limit)
        size = 0;
    return true;
}

bool FtpClientSession::xGiveName(const String& part, const String& path)
{
    if (xAsk("RNFR", part) && (m_reply.IsIntermediate() || xFailRefused()) && xDemand("RNTO", path))
        return true;
    const FtpClientResult why = m_result;
    if (why.outcome == OUTCOME::REFUSED && xAsk("DELE", part)) // nobody could do anything with it
        m_result = why;
    return false;
}

} // namespace kqlib

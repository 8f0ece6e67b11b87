// FtpMirrorDown: makes a local folder like one of the server.
#include "hosts/ftpclient/FtpMirrorDown.h"

#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "hosts/ftpcommon/FtpTime.h"

namespace kqlib {

namespace {

using KIND = FtpRemoteEntry::KIND;
using platform::FileKind;
using platform::FileResult;

constexpr unsigned MAX_DEPTH = 100; // of folders: a server may show ever new ones

} // namespace

FtpMirrorDown::FtpMirrorDown(FtpClient& client, FtpMirrorReport& report)
    : m_client(client)
    , m_report(report)
{
}

bool FtpMirrorDown::Run(const String& remoteFolder, const FilePath& localFolder)
{
    std::error_code ignored; // opening it tells
    std::filesystem::create_directories(ToStdPath(localFolder), ignored);
    m_rootPath = localFolder;
    if (m_root.Open(localFolder.c_str()) != FileResult::DONE)
        m_report.Note(WHAT::FAILED, localFolder.GetText(), "the folder cannot be made");
    else
        xMirror(remoteFolder, String(), 0);
    return m_report.GetCount(WHAT::FAILED) == 0 && !m_client.IsCancelled();
}

/// 1. List the folder. 2. Sort out what is no business of this mirror. 3. Transfer the files that differ. 4. Remove
/// what earlier runs left unfinished. 5. Go on with the folders beneath.
void FtpMirrorDown::xMirror(const String& remote, const String& local, unsigned depth)
{
    FtpClientRequest request;
    request.code = FtpClientRequest::LIST;
    request.remotePath = remote;
    request.wantsTimes = true;
    const FtpClientResult listed = m_client.Run(request);
    if (!listed.IsDone())
        return m_report.Note(WHAT::FAILED, remote, listed.text);
    if (depth == MAX_DEPTH)
        return m_report.Note(WHAT::FAILED, local, "too many folders in each other");

    std::vector<FtpRemoteEntry> files;
    std::vector<String> folders;
    NAMES seen;
    for (const FtpRemoteEntry& entry : listed.entries) {
        if (!xIsWelcome(entry, local, seen))
            continue;
        if (entry.kind == KIND::FOLDER)
            folders.push_back(entry.name);
        else if (xIsSame(entry, FtpNames::sJoin(local, entry.name)))
            m_report.Note(WHAT::SAME, FtpNames::sJoin(local, entry.name));
        else
            files.push_back(entry);
    }
    xTransfer(remote, local, files);
    for (const String& name : folders) {
        const String below = FtpNames::sJoin(local, name);
        if (m_client.IsCancelled())
            return;
        if (xMakeFolder(below))
            xMirror(FtpNames::sJoin(remote, name), below, depth + 1);
    }
}

bool FtpMirrorDown::xIsWelcome(const FtpRemoteEntry& entry, const String& local, NAMES& seen)
{
    const String path = FtpNames::sJoin(local, entry.name);
    if (!FtpNames::sIsPlain(entry.name))
        m_report.Note(WHAT::FAILED, path, "refused: that is not the name of a file");
    else if (!seen.insert(entry.name).second)
        m_report.Note(WHAT::FAILED, path, "refused: the server has named it before");
    else if (FtpNames::sIsPartName(entry.name))
        m_report.Note(WHAT::LEFT_OUT, path, "an unfinished file");
    else if (entry.kind == KIND::LINK || entry.kind == KIND::OTHER)
        m_report.Note(WHAT::LEFT_OUT, path, "neither a file nor a folder");
    else
        return true;
    return false;
}

bool FtpMirrorDown::xIsSame(const FtpRemoteEntry& entry, const String& local) const
{
    platform::FileFacts facts;
    return entry.size && entry.modifiedMs && m_root.GetOwnFacts(local.str(), facts) == FileResult::DONE &&
           facts.kind == FileKind::FILE && facts.size == *entry.size &&
           FtpTime::sToFullSecond(facts.modifiedMs) == FtpTime::sToFullSecond(*entry.modifiedMs);
}

bool FtpMirrorDown::xMakeFolder(const String& local)
{
    platform::FileFacts facts;
    const FileResult made = m_root.MakeFolder(local.str());
    if (made == FileResult::DONE) {
        m_report.Note(WHAT::MADE_FOLDER, local);
        return true;
    }
    if (made == FileResult::EXISTS && m_root.GetFacts(local.str(), facts) == FileResult::DONE &&
        facts.kind == FileKind::FOLDER)
        return true;
    m_report.Note(WHAT::FAILED, local, "the folder cannot be made");
    return false;
}

void FtpMirrorDown::xTransfer(const String& remote, const String& local, const std::vector<FtpRemoteEntry>& files)
{
    std::vector<JOB> jobs;
    NAMES wanted;
    for (const FtpRemoteEntry& entry : files) {
        FtpClientRequest request;
        request.code = FtpClientRequest::DOWNLOAD;
        request.remotePath = FtpNames::sJoin(remote, entry.name);
        request.localFolder = m_rootPath;
        request.localName = FtpNames::sJoin(local, entry.name);
        request.version = entry;
        wanted.insert(FtpNames::sMakePartName(entry));
        jobs.push_back({m_client.Queue(request), request});
    }
    for (const JOB& job : jobs) {
        const FtpClientResult result = m_client.Await(job.id, job.request);
        m_report.NoteBytes(result.moved);
        m_report.Note(result.IsDone() ? WHAT::MOVED : WHAT::FAILED, job.request.localName, result.text);
    }
    xRemoveLeftovers(local, wanted);
}

/// Parts of versions that the server does not have any more. Those of files that failed now stay for the next run.
void FtpMirrorDown::xRemoveLeftovers(const String& local, const NAMES& wanted)
{
    platform::FolderReader reader;
    if (reader.Open(m_root, local.str()) != FileResult::DONE)
        return;
    std::string name;
    platform::FileFacts facts;
    std::vector<String> leftovers;
    while (reader.Read(name, facts))
        if (facts.kind == FileKind::FILE && FtpNames::sIsPartName(name) && !wanted.contains(String(name)))
            leftovers.emplace_back(name);
    for (const String& leftover : leftovers) // what cannot be removed does no harm
        static_cast<void>(m_root.RemoveFile(FtpNames::sJoin(local, leftover).str()));
}

} // namespace kqlib

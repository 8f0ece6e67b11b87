// FtpMirrorUp: makes a folder of the server like a local one.
#include "hosts/ftpclient/FtpMirrorUp.h"

#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpcommon/FtpTime.h"

namespace kqlib {

namespace {

using KIND = FtpRemoteEntry::KIND;
using platform::FileKind;
using platform::FileResult;

} // namespace

FtpMirrorUp::FtpMirrorUp(FtpClient& client, FtpMirrorReport& report)
    : m_client(client)
    , m_report(report)
{
}

bool FtpMirrorUp::Run(const FilePath& localFolder, const String& remoteFolder)
{
    THERE there;
    m_rootPath = localFolder;
    if (m_root.Open(localFolder.c_str()) != FileResult::DONE)
        m_report.Note(WHAT::FAILED, localFolder.GetText(), "the folder cannot be opened");
    else if (xMakeRoot(remoteFolder, there))
        xMirror(String(), remoteFolder, there);
    return m_report.GetCount(WHAT::FAILED) == 0 && !m_client.IsCancelled();
}

/// 1. Read the local folder. 2. Remove from the server what earlier runs left unfinished and nobody needs any more.
/// 3. Transfer the files that differ. 4. Go on with the folders beneath.
void FtpMirrorUp::xMirror(const String& local, const String& remote, THERE there)
{
    std::vector<FILE> all;
    std::vector<FILE> files;
    std::vector<String> folders;
    if (!xReadLocal(local, all, folders))
        return m_report.Note(WHAT::FAILED, local, "the folder cannot be read");
    THERE wanted;
    for (const FILE& file : all) {
        if (xIsSame(file, there)) {
            m_report.Note(WHAT::SAME, FtpNames::sJoin(local, file.name));
            continue;
        }
        files.push_back(file);
        wanted[FtpNames::sMakePartName(file.version)] = file.version;
    }
    xRemoveLeftovers(remote, there, wanted);
    xTransfer(local, remote, files, there);
    for (const String& name : folders) {
        if (m_client.IsCancelled())
            return;
        const auto found = there.find(name);
        const bool isThere = found != there.end() && found->second.kind == KIND::FOLDER;
        const String below = FtpNames::sJoin(remote, name);
        THERE inside;
        if (xEnter(below, isThere, FtpNames::sJoin(local, name), inside))
            xMirror(FtpNames::sJoin(local, name), below, std::move(inside));
    }
}

bool FtpMirrorUp::xReadLocal(const String& local, std::vector<FILE>& files, std::vector<String>& folders)
{
    platform::FolderReader reader;
    if (reader.Open(m_root, local.str()) != FileResult::DONE)
        return false;
    std::string name;
    platform::FileFacts facts;
    while (reader.Read(name, facts)) {
        if (!xIsWelcome(String(name), facts, FtpNames::sJoin(local, String(name))))
            continue;
        if (facts.kind == FileKind::FOLDER)
            folders.emplace_back(name);
        else
            files.push_back({String(name), {String(name), KIND::FILE, facts.size, facts.modifiedMs}});
    }
    return true;
}

bool FtpMirrorUp::xIsWelcome(const String& name, const platform::FileFacts& facts, const String& path)
{
    if (!FtpNames::sCanBeSent(name))
        m_report.Note(WHAT::FAILED, path, "a name with a line end in it cannot be sent");
    else if (FtpNames::sIsPartName(name))
        m_report.Note(WHAT::LEFT_OUT, path, "an unfinished file");
    else if (facts.kind != FileKind::FILE && facts.kind != FileKind::FOLDER)
        m_report.Note(WHAT::LEFT_OUT, path, "neither a file nor a folder");
    else
        return true;
    return false;
}

bool FtpMirrorUp::xIsSame(const FILE& file, const THERE& there) const
{
    const auto found = there.find(file.name);
    if (found == there.end())
        return false;
    const FtpRemoteEntry& entry = found->second;
    if (entry.kind != KIND::FILE || entry.size != file.version.size || !entry.modifiedMs)
        return false;
    const std::int64_t own = FtpTime::sToFullSecond(*file.version.modifiedMs);
    return *entry.modifiedMs == own || (*entry.modifiedMs > own && !m_client.GetSession().CanSetTimes());
}

FtpClientResult FtpMirrorUp::xList(const String& remote, THERE& there)
{
    FtpClientRequest request;
    request.code = FtpClientRequest::LIST;
    request.remotePath = remote;
    request.wantsTimes = true;
    FtpClientResult result = m_client.Run(request);
    for (FtpRemoteEntry& entry : result.entries)
        there.emplace(entry.name, std::move(entry));
    return result;
}

bool FtpMirrorUp::xEnter(const String& remote, bool isThere, const String& shown, THERE& there)
{
    if (!isThere) {
        const FtpClientResult made = xMakeFolder(remote);
        if (made.IsDone()) {
            m_report.Note(WHAT::MADE_FOLDER, shown);
            return true; // with nothing in it
        }
        m_report.Note(WHAT::FAILED, shown, made.text);
        return false;
    }
    const FtpClientResult listed = xList(remote, there);
    if (!listed.IsDone())
        m_report.Note(WHAT::FAILED, shown, listed.text);
    return listed.IsDone();
}

bool FtpMirrorUp::xMakeRoot(const String& remote, THERE& there)
{
    FtpClientResult listed = xList(remote, there);
    if (listed.outcome == FtpClientResult::OUTCOME::REFUSED) {
        // From the top down; those that are there already are refused, and the last listing tells what came of it.
        for (String::size_type slash = remote.find('/', 1); slash != String::npos; slash = remote.find('/', slash + 1))
            static_cast<void>(xMakeFolder(remote.substr(0, slash)));
        if (xMakeFolder(remote).IsDone())
            m_report.Note(WHAT::MADE_FOLDER, remote);
        listed = xList(remote, there);
    }
    if (!listed.IsDone())
        m_report.Note(WHAT::FAILED, remote, listed.text);
    return listed.IsDone();
}

FtpClientResult FtpMirrorUp::xMakeFolder(const String& remote)
{
    FtpClientRequest request;
    request.code = FtpClientRequest::MAKE_FOLDER;
    request.remotePath = remote;
    return m_client.Run(request);
}

void FtpMirrorUp::xTransfer(const String& local, const String& remote, const std::vector<FILE>& files,
                            const THERE& there)
{
    std::vector<JOB> jobs;
    for (const FILE& file : files) {
        FtpClientRequest request;
        request.code = FtpClientRequest::UPLOAD;
        request.remotePath = FtpNames::sJoin(remote, file.name);
        request.localFolder = m_rootPath;
        request.localName = FtpNames::sJoin(local, file.name);
        request.mayResume = there.contains(FtpNames::sMakePartName(file.version));
        jobs.push_back({m_client.Queue(request), request});
    }
    for (JOB& job : jobs) {
        FtpClientRequest again = job.request;
        again.mayResume = true; // a first try may have left something
        const FtpClientResult result = m_client.Await(job.id, again);
        m_report.NoteBytes(result.moved);
        m_report.Note(result.IsDone() ? WHAT::MOVED : WHAT::FAILED, job.request.localName, result.text);
    }
}

void FtpMirrorUp::xRemoveLeftovers(const String& remote, const THERE& there, const THERE& wanted)
{
    for (const auto& [name, entry] : there) {
        if (!FtpNames::sIsPartName(name) || entry.kind != KIND::FILE || wanted.contains(name))
            continue;
        FtpClientRequest request;
        request.code = FtpClientRequest::REMOVE_FILE;
        request.remotePath = FtpNames::sJoin(remote, name);
        static_cast<void>(m_client.Run(request)); // what cannot be removed does no harm
    }
}

} // namespace kqlib

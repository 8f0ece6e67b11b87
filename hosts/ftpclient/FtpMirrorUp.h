// FtpMirrorUp: makes a folder of the server like a local one.
#pragma once

#include "hosts/ftpclient/FtpClient.h"
#include "hosts/ftpclient/FtpMirrorReport.h"
#include "platform/Folders.h"

#include <map>

namespace kqlib {

/// Uploads a folder with everything beneath it. A file is left alone when the server's has the same size and the same
/// time of last change (in seconds), or, where the server cannot be told that time, a later one. Links are left out;
/// nothing is removed that is not here, unfinished files of earlier runs aside.
///
/// Ownership: borrows client and report. Threads: one at a time. Errors: as FtpMirrorDown.
class FtpMirrorUp
{
public:
    FtpMirrorUp(FtpClient& client, FtpMirrorReport& report);

    /// Makes the server's folder when it is missing, with those above it. False: something failed or was cancelled.
    [[nodiscard]] bool Run(const FilePath& localFolder, const String& remoteFolder);

private:
    using WHAT = FtpMirrorReport::WHAT;
    using THERE = std::map<String, FtpRemoteEntry>; // what the server has, by name

    struct FILE
    {
        String name;
        FtpRemoteEntry version;
    };
    struct JOB
    {
        ULONG id;
        FtpClientRequest request;
    };

    void xMirror(const String& local, const String& remote, THERE there);
    bool xReadLocal(const String& local, std::vector<FILE>& files, std::vector<String>& folders);
    bool xIsWelcome(const String& name, const platform::FileFacts& facts, const String& path);
    bool xIsSame(const FILE& file, const THERE& there) const;
    FtpClientResult xList(const String& remote, THERE& there);
    /// Sees to it that the server has the folder, and reads what is in it.
    bool xEnter(const String& remote, bool isThere, const String& shown, THERE& there);
    bool xMakeRoot(const String& remote, THERE& there);
    FtpClientResult xMakeFolder(const String& remote);
    void xTransfer(const String& local, const String& remote, const std::vector<FILE>& files, const THERE& there);
    void xRemoveLeftovers(const String& remote, const THERE& there, const THERE& wanted);

    FtpClient& m_client;
    FtpMirrorReport& m_report;
    FilePath m_rootPath;
    platform::RootFolder m_root;
};

} // namespace kqlib

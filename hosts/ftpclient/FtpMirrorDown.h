// FtpMirrorDown: makes a local folder like one of the server.
#pragma once

#include "hosts/ftpclient/FtpClient.h"
#include "hosts/ftpclient/FtpMirrorReport.h"
#include "platform/Folders.h"

#include <set>

namespace kqlib {

/// Downloads a folder with everything beneath it. A file is left alone when size and time of last change (in seconds)
/// are those that the server tells. Nothing is removed that the server does not have, unfinished files of earlier runs
/// aside. Nothing is written outside the local folder, whatever the server calls its files.
///
/// Ownership: borrows client and report. Threads: one at a time. Errors: each file that fails is reported, and the rest
/// goes on, until the client is cancelled.
class FtpMirrorDown
{
public:
    FtpMirrorDown(FtpClient& client, FtpMirrorReport& report);

    /// Makes the local folder when it is missing. False: something failed or was cancelled.
    [[nodiscard]] bool Run(const String& remoteFolder, const FilePath& localFolder);

private:
    using WHAT = FtpMirrorReport::WHAT;
    using NAMES = std::set<String>;

    /// A transfer that is queued.
    struct JOB
    {
        ULONG id;
        FtpClientRequest request;
    };

    void xMirror(const String& remote, const String& local, unsigned depth);
    /// Whether the entry can be anything here at all; reports it when not.
    bool xIsWelcome(const FtpRemoteEntry& entry, const String& local, NAMES& seen);
    bool xIsSame(const FtpRemoteEntry& entry, const String& local) const;
    bool xMakeFolder(const String& local);
    void xTransfer(const String& remote, const String& local, const std::vector<FtpRemoteEntry>& files);
    void xRemoveLeftovers(const String& local, const NAMES& wanted);

    FtpClient& m_client;
    FtpMirrorReport& m_report;
    FilePath m_rootPath;
    platform::RootFolder m_root;
};

} // namespace kqlib

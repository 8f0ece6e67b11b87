// Commands: what kqftp does.
#pragma once

#include "hosts/ftpclient/FtpClient.h"
#include "hosts/ftpclient/app/Options.h"
#include "hosts/ftpclient/app/Output.h"

namespace kqlib {

/// Carries out one command. Ownership: borrows everything. Threads: one at a time. Errors: printed, and in the exit
/// code.
class Commands
{
public:
    Commands(FtpClient& client, const Options& options, Output& output);

    /// path: the URL's. The result is the exit code.
    int Run(const String& path);

private:
    int xList(const String& path);
    int xGet(const String& path);
    int xPut(const String& path);
    int xMirrorDown(const String& path);
    int xMirrorUp(const String& path);
    /// A request that is nothing but a code and a path.
    int xSimple(FtpClientRequest::CODE code, const String& path, const char* doneText);
    int xFinish(const FtpClientResult& result);
    int xFinish(const FtpMirrorReport& report);

    FtpClient& m_client;
    const Options& m_options;
    Output& m_output;
};

} // namespace kqlib

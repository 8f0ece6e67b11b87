// Commands: what kqftp does.
#include "hosts/ftpclient/app/Commands.h"

#include "hosts/ftpclient/FtpMirrorDown.h"
#include "hosts/ftpclient/FtpMirrorUp.h"
#include "hosts/ftpclient/FtpNames.h"
#include "hosts/ftpclient/app/ExitCodes.h"
#include "hosts/ftpcommon/FtpPaths.h"

#include <algorithm>

namespace kqlib {

namespace {

namespace fs = std::filesystem;
using OUTCOME = FtpClientResult::OUTCOME;

int ExitCodeOf(OUTCOME outcome)
{
    switch (outcome) {
    case OUTCOME::DONE:
        return EXIT_OK;
    case OUTCOME::CANCELLED:
        return EXIT_CANCELLED;
    case OUTCOME::NO_CONNECTION:
    case OUTCOME::NO_LOGIN:
        return EXIT_NO_SERVER;
    case OUTCOME::NO_TLS:
        return EXIT_NO_TLS;
    default:
        return EXIT_FAILED;
    }
}

/// Of a path whose last name may be missing.
FilePath FolderOf(const fs::path& path)
{
    return path.has_parent_path() ? FromStdPath(path.parent_path()) : FilePath(".");
}

} // namespace

Commands::Commands(FtpClient& client, const Options& options, Output& output)
    : m_client(client)
    , m_options(options)
    , m_output(output)
{
    m_client.SetWatcher([this](const FtpClientProgress& progress) { m_output.ShowProgress(progress); });
}

int Commands::Run(const String& path)
{
    using COMMAND = Options::COMMAND;
    // Whether the server can be had at all is told apart from what it refuses later.
    const FtpClientResult connected = m_client.Run(FtpClientRequest());
    if (!connected.IsDone())
        return xFinish(connected);
    switch (m_options.command) {
    case COMMAND::LIST:
        return xList(path);
    case COMMAND::GET:
        return xGet(path);
    case COMMAND::PUT:
        return xPut(path);
    case COMMAND::MAKE_FOLDER:
        return xSimple(FtpClientRequest::MAKE_FOLDER, path, "made folder ");
    case COMMAND::REMOVE_FILE:
        return xSimple(FtpClientRequest::REMOVE_FILE, path, "deleted ");
    case COMMAND::REMOVE_FOLDER:
        return xSimple(FtpClientRequest::REMOVE_FOLDER, path, "deleted folder ");
    case COMMAND::MIRROR_DOWN:
        return xMirrorDown(path);
    case COMMAND::MIRROR_UP:
        return xMirrorUp(path);
    case COMMAND::NONE:
        break;
    }
    return EXIT_USAGE;
}

int Commands::xList(const String& path)
{
    FtpClientRequest request;
    request.code = FtpClientRequest::LIST;
    request.remotePath = path;
    request.wantsTimes = !m_options.isNamesOnly;
    FtpClientResult result = m_client.Run(request);
    std::sort(result.entries.begin(), result.entries.end(),
              [](const FtpRemoteEntry& left, const FtpRemoteEntry& right) { return left.name < right.name; });
    if (result.IsDone())
        for (const FtpRemoteEntry& entry : result.entries)
            m_output.PrintEntry(entry, m_options.isNamesOnly);
    return xFinish(result);
}

int Commands::xGet(const String& path)
{
    fs::path target = ToStdPath(FilePath(String(m_options.local.empty() ? "." : m_options.local)));
    const String name = FtpNames::sNameOf(path);
    std::error_code ignored;
    if (fs::is_directory(target, ignored)) {
        if (!FtpNames::sIsPlain(name)) {
            m_output.PrintFailure("the URL names no file");
            return EXIT_USAGE;
        }
        target /= ToStdPath(FilePath(name));
    }
    FtpClientRequest request;
    request.code = FtpClientRequest::DOWNLOAD;
    request.remotePath = path;
    request.localFolder = FolderOf(target);
    request.localName = FromStdPath(target.filename()).GetText();
    const FtpClientResult result = m_client.Run(request);
    if (result.IsDone())
        m_output.PrintLine("downloaded " + FromStdPath(target).GetText() + " (" + String::sToString(result.moved) +
                           " bytes)");
    return xFinish(result);
}

int Commands::xPut(const String& path)
{
    const fs::path source = ToStdPath(FilePath(String(m_options.local)));
    FtpClientRequest request;
    request.code = FtpClientRequest::UPLOAD;
    request.localFolder = FolderOf(source);
    request.localName = FromStdPath(source.filename()).GetText();
    request.remotePath = path.empty() || path.EndsWith("/") ? FtpNames::sJoin(path, request.localName) : path;
    const FtpClientResult result = m_client.Run(request);
    if (result.IsDone())
        m_output.PrintLine("uploaded " + request.remotePath + " (" + String::sToString(result.moved) + " bytes)");
    return xFinish(result);
}

int Commands::xMirrorDown(const String& path)
{
    FtpMirrorReport report;
    report.SetListener([this](FtpMirrorReport::WHAT what, const String& name, const String& reason) {
        m_output.PrintMirrored(what, name, reason);
    });
    static_cast<void>(FtpMirrorDown(m_client, report).Run(path, FilePath(String(m_options.local))));
    return xFinish(report);
}

int Commands::xMirrorUp(const String& path)
{
    FtpMirrorReport report;
    report.SetListener([this](FtpMirrorReport::WHAT what, const String& name, const String& reason) {
        m_output.PrintMirrored(what, name, reason);
    });
    static_cast<void>(FtpMirrorUp(m_client, report).Run(FilePath(String(m_options.local)), path));
    return xFinish(report);
}

int Commands::xSimple(FtpClientRequest::CODE code, const String& path, const char* doneText)
{
    FtpClientRequest request;
    request.code = code;
    request.remotePath = path;
    const FtpClientResult result = m_client.Run(request);
    if (result.IsDone())
        m_output.PrintLine(doneText + path);
    return xFinish(result);
}

int Commands::xFinish(const FtpClientResult& result)
{
    if (!result.IsDone())
        m_output.PrintFailure(result.text);
    return ExitCodeOf(result.outcome);
}

int Commands::xFinish(const FtpMirrorReport& report)
{
    m_output.PrintTotals(report);
    if (m_client.IsCancelled())
        return EXIT_CANCELLED;
    return report.GetCount(FtpMirrorReport::WHAT::FAILED) == 0 ? EXIT_OK : EXIT_FAILED;
}

} // namespace kqlib

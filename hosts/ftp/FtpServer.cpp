// FtpServer: a whole kqftpd, from its settings.
#include "hosts/ftp/FtpServer.h"

#include "hosts/ftpcommon/FtpPaths.h"
#include "net/ports/NetPortBinds.h"
#include "net/sockets/NetTCPSSL.h"

namespace kqlib {

namespace {

/// Opens the event log and both data logs in the settings' folder, which is made when it is missing. A folder that
/// cannot be had costs the logs, not the service.
void OpenLogs(FtpService& service, const FtpSettings& settings)
{
    const FilePath& folder = settings.GetLogFolder();
    if (folder.empty())
        return;
    std::error_code ignored;
    std::filesystem::create_directories(ToStdPath(folder), ignored);
    EventLogSettings events;
    events.SetEnabled(true);
    events.SetFolder(folder);
    events.SetFileName("kqftpd.log");
    events.SetUsePrintDebug(settings.GetLogDebug());
    service.SetLogModeNormal(events, true);
    service.SetLogLosses(true);
    service.SetMonitoringEnabled(folder, "kqftpd-", "activity", "sessions");
}

} // namespace

FtpServer::FtpServer()
{
    NetSocket::sStartSockets();
    NetTCPSSL::sStartSSL();
}

FtpServer::~FtpServer()
{
    Stop();
    NetSocket::sEndSockets();
}

bool FtpServer::Start(const FtpSettings& settings, String& error)
{
    Stop();
    Messages messages;
    if (!settings.CheckErrors(messages)) {
        error = FtpSettings::sGetErrorText(messages.Get(0));
        return false;
    }
    const auto config = std::make_shared<const FtpConfig>(settings);
    if (settings.IsTLSWanted() && !config->certificate.Provide(error))
        return false;
    m_service = std::make_unique<FtpService>(m_pool, m_cache, config);
    OpenLogs(*m_service, settings);
    if (!m_service->Start(messages)) {
        error = "the service's threads cannot be started";
        Stop();
        return false;
    }
    if (!xListen(settings, error)) {
        Stop();
        return false;
    }
    return true;
}

bool FtpServer::Reload(const FtpSettings& settings, String& error)
{
    const auto config = std::make_shared<const FtpConfig>(settings);
    if (settings.IsTLSWanted() && !config->certificate.Provide(error))
        return false;
    m_service->SetConfig(config);
    return xListen(settings, error);
}

void FtpServer::Stop()
{
    m_service.reset();
    m_listen.clear();
}

bool FtpServer::xListen(const FtpSettings& settings, String& error)
{
    NetPortBinds binds;
    binds.AddByLine(settings.GetListen());
    binds.AddByLine(settings.GetListenTLS());
    m_service->SetSettings(binds, settings.GetMaxSessions(), 0);
    const String listen = binds.GetLine();
    if (listen == m_listen)
        return true; // starting again would move bindings with port 0 to other ports
    NetPortBinds failed;
    m_service->StartListen(failed);
    m_listen = listen;
    if (failed.GetCount() == 0)
        return true;
    error = "cannot listen on " + failed.GetLine();
    m_listen.clear(); // the next reload tries again
    return false;
}

} // namespace kqlib

// FtpServer: a whole kqftpd, from its settings.
#include "hosts/ftp/FtpServer.h"

#include "hosts/ftp/FtpLogFolder.h"
#include "hosts/ftp/FtpSettingsCheck.h"
#include "net/ports/NetPortBinds.h"
#include "net/sockets/NetTCPSSL.h"

#include <algorithm>

namespace kqlib {

namespace {

/// Sessions that the service may have besides those with a place: they hear why they are refused, or leave.
constexpr ULONG DOORWAY = 256;

/// Of the event log; the transfer log names its file itself.
EventLogSettings MakeLogSettings(const FtpSettings& settings, const FilePath& folder)
{
    constexpr ULONG BYTES_PER_MB = 1024 * 1024;
    EventLogSettings events;
    events.SetEnabled(true);
    events.SetFolder(folder);
    events.SetFileName("kqftpd.log");
    events.SetUsePrintDebug(settings.GetLogDebug());
    events.SetRotateBytes(settings.GetLogRotateMB() * BYTES_PER_MB);
    events.SetRotateDaily(settings.GetLogRotateDaily());
    events.SetOldFiles(settings.GetLogOldFiles());
    events.SetReopenWhenMoved(true);
    return events;
}

String DescribeLostLog(const String& file, const FilePath& folder)
{
    return "log_folder: " + file + " cannot be opened in " + folder.GetText();
}

/// Opens the event log, the transfer log and both data logs in the settings' folder, which is made when it is missing.
/// False: error says why there are no logs.
bool OpenLogs(FtpService& service, const FtpSettings& settings, String& error)
{
    const FilePath& folder = settings.GetLogFolder();
    if (folder.empty())
        return true;
    const bool isUsable = FtpLogFolder::sProvide(folder, error);
    service.SetLogModeNormal(MakeLogSettings(settings, folder), true);
    service.SetLogLosses(true);
    service.SetMonitoringEnabled(folder, "kqftpd-", "activity", "sessions");
    service.GetTransferLog().SetSettings(settings.GetTransferLog(), MakeLogSettings(settings, folder));
    if (!isUsable)
        return false;
    if (!service.GetEventLog().IsOpen())
        error = DescribeLostLog("kqftpd.log", folder);
    else if (!service.GetTransferLog().IsUsable())
        error = DescribeLostLog(FtpTransferLog::sGetFileName(settings.GetTransferLog()), folder);
    return error.empty();
}

/// The ports that a service listens on, with the numbers that the system has given them.
NetPortBinds GetOpenPorts(FtpService& service)
{
    Vector<NetServiceStatus::ACTIVEPORT> ports;
    service.GetListeningPorts(ports);
    NetPortBinds binds;
    for (const NetServiceStatus::ACTIVEPORT& entry : ports)
        binds.Add(NetPortBind(entry.port, entry.ip == NetIP() ? String() : entry.ip.GetText()));
    return binds;
}

/// Whether each of the bindings is to a port that one of the others is to.
bool AreAmong(const NetPortBinds& binds, const NetPortBinds& others)
{
    return std::all_of(binds.begin(), binds.end(), [&others](const NetPortBind& bind) {
        return std::any_of(others.begin(), others.end(),
                           [&bind](const NetPortBind& other) { return other.GetPort() == bind.GetPort(); });
    });
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
    error = settings.FindError();
    if (!error.empty())
        return false;
    const auto config = std::make_shared<const FtpConfig>(settings);
    if (settings.IsTLSWanted() && !config->certificate.Provide(error))
        return false;
    m_service = std::make_unique<FtpService>(m_pool, m_cache, config);
    m_logFolder = settings.GetLogFolder();
    m_transferLogForm = settings.GetTransferLog();
    String logError;
    if (!OpenLogs(*m_service, settings, logError) && settings.GetRequireLogs()) {
        error = logError;
        Stop();
        return false;
    }
    Messages messages;
    if (!m_service->Start(messages)) {
        error = "the service's threads cannot be started";
        Stop();
        return false;
    }
    if (!xListen(settings, error)) {
        Stop();
        return false;
    }
    m_warnings = FtpSettingsCheck::sFindHomeFaults(settings);
    if (!logError.empty())
        m_warnings.push_back(logError);
    return true;
}

bool FtpServer::Reload(const FtpSettings& settings, String& error)
{
    error = settings.FindError();
    if (!error.empty())
        return false;
    const auto config = std::make_shared<const FtpConfig>(settings);
    if (settings.IsTLSWanted() && !config->certificate.Provide(error))
        return false;
    if (!xListen(settings, error))
        return false;
    m_service->SetConfig(config);
    m_warnings = FtpSettingsCheck::sFindHomeFaults(settings);
    xSetLogSettings(settings);
    return true;
}

/// Setting what is set already would close the file for a moment, and try one that cannot be had.
void FtpServer::xSetLogSettings(const FtpSettings& settings)
{
    if (m_logFolder.empty())
        return;
    EventLog& log = m_service->GetEventLog();
    EventLogSettings before;
    log.GetSettings(before);
    const EventLogSettings wanted = MakeLogSettings(settings, m_logFolder);
    if (!(wanted == before))
        log.SetSettings(wanted);
    m_transferLogForm = settings.GetTransferLog();
    m_service->GetTransferLog().SetSettings(m_transferLogForm, wanted);
    if (!m_service->GetTransferLog().IsUsable())
        m_warnings.push_back(DescribeLostLog(FtpTransferLog::sGetFileName(m_transferLogForm), m_logFolder));
}

bool FtpServer::ReopenLog(String& error)
{
    if (m_logFolder.empty())
        return true;
    const bool isTransferLogGood = m_service->GetTransferLog().Reopen();
    if (!m_service->GetEventLog().Reopen())
        error = DescribeLostLog("kqftpd.log", m_logFolder);
    else if (!isTransferLogGood)
        error = DescribeLostLog(FtpTransferLog::sGetFileName(m_transferLogForm), m_logFolder);
    else
        return true;
    return false;
}

void FtpServer::Stop()
{
    m_service.reset();
    m_listen.clear();
    m_limit = 0;
}

bool FtpServer::xListen(const FtpSettings& settings, String& error)
{
    NetPortBinds wanted;
    wanted.AddByLine(settings.GetListen());
    wanted.AddByLine(settings.GetListenTLS());
    // The gate counts the places and says 421 to who gets none; the service itself would let them wait in silence.
    const ULONG8 all = ULONG8{settings.GetMaxSessions()} + settings.GetReservedSessions() + DOORWAY;
    const auto limit = static_cast<ULONG>(std::min<ULONG8>(all, ALL_BITS_32));
    const String listen = wanted.GetLine();
    if (listen == m_listen) // starting again would move bindings with port 0 to other ports
        m_service->SetSettings(wanted, limit, 0);
    else if (!xChangePorts(wanted, limit, error))
        return false;
    m_listen = listen;
    m_limit = limit;
    return true;
}

/// 1. The new ports are opened beside those that are open.
/// 2. When that went well, those that nobody wants any more are closed. So it is tried, too, when a port could not be
///    had only because of another binding of ours to the same one.
/// 3. Otherwise everything becomes as it was.
bool FtpServer::xChangePorts(const NetPortBinds& wanted, ULONG limit, String& error)
{
    const NetPortBinds before = GetOpenPorts(*m_service);
    NetPortBinds both = before;
    for (const NetPortBind& bind : wanted)
        both.Add(bind);
    NetPortBinds failed;
    // At the start there is nothing to keep, and a binding with port 0 is opened once.
    if (before.GetCount() == 0 || xOpen(both, m_limit, failed) || AreAmong(failed, before)) {
        failed.Reset();
        if (xOpen(wanted, limit, failed))
            return true;
    }
    error = "cannot listen on " + failed.GetLine();
    NetPortBinds lost;
    if (!xOpen(before, m_limit, lost)) {
        error += ", nor any more on " + lost.GetLine();
        m_listen.clear(); // the next reload tries them again, whatever it wants
    }
    return false;
}

/// Has the service listen on exactly these. False: on all of them but those in failed.
bool FtpServer::xOpen(const NetPortBinds& binds, ULONG limit, NetPortBinds& failed)
{
    m_service->SetSettings(binds, limit, 0);
    m_service->StartListen(failed);
    return failed.GetCount() == 0;
}

} // namespace kqlib

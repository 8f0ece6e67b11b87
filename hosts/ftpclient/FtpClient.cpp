// FtpClient: a session with everything that it needs, and requests with patience.
#include "hosts/ftpclient/FtpClient.h"

namespace kqlib {

namespace {

using OUTCOME = FtpClientResult::OUTCOME;

FtpClientResult Cancelled()
{
    FtpClientResult result;
    result.outcome = OUTCOME::CANCELLED;
    result.text = "cancelled";
    return result;
}

} // namespace

FtpClient::FtpClient(const FtpClientSettings& settings)
    : m_settings(settings)
{
    NetSocket::sStartSockets();
    NetTCPSSL::sStartSSL();
    if (!settings.logFolder.empty()) {
        EventLogSettings events;
        events.SetEnabled(true);
        events.SetFolder(settings.logFolder);
        events.SetFileName("kqftp.log");
        events.SetUsePrintDebug(settings.isLogDebug);
        m_eventLog.SetSettings(events);
    }
    m_session = std::make_unique<FtpClientSession>(m_pool, m_cache, m_activityLog, m_eventLog, EventLogSessionID(1, 0),
                                                   m_settings);
}

FtpClient::~FtpClient()
{
    m_session.reset();
    m_eventLog.PrintPurge();
    NetSocket::sEndSockets();
}

FtpClientResult FtpClient::Await(ULONG id, const FtpClientRequest& request)
{
    FtpClientResult result = xAwaitOnce(id);
    for (ULONG i = 0; i < m_settings.retries && result.IsWorthAnotherTry() && !IsCancelled(); ++i)
        result = xAwaitOnce(Queue(request));
    return result;
}

FtpClientResult FtpClient::xAwaitOnce(ULONG id)
{
    FtpClientResult result;
    if (IsCancelled())
        m_session->CancelAllReqs(); // this one may have been queued behind the cancelling
    while (!m_session->WaitForResult(id, result, WATCH_MS)) {
        if (m_session->IsComplete() && !m_session->WaitForResult(id, result, 0))
            return Cancelled(); // it never ran: no thread was to be had
        if (m_watcher)
            m_watcher(m_session->GetProgress());
        if (IsCancelled())
            m_session->CancelAllReqs();
    }
    return result;
}

void FtpClient::Cancel()
{
    m_isCancelled = true;
    m_session->CancelAllReqs();
}

} // namespace kqlib

// FtpService: the service of kqftpd.
#include "hosts/ftp/FtpService.h"

#include "hosts/ftp/FtpSession.h"

#include <utility>

namespace kqlib {

namespace {

/// Clients that may wait at a port, for a whole office that comes back after a break of the network.
constexpr ULONG BACKLOG = 128;

} // namespace

FtpService::FtpService(ThreadPool& pool, NetDNSCache& cache, std::shared_ptr<const FtpConfig> config)
    : FtpServiceBase(pool, cache)
    , m_pool(pool)
    , m_cache(cache)
    , m_config(std::move(config))
    , m_gate(cache)
    , m_board(pool, *this)
{
    m_gate.SetSettings(m_config->settings);
    NetServiceOptions options;
    if (options.SetBacklog(BACKLOG))
        SetOptions(options);
}

FtpService::~FtpService()
{
    // 1. Nobody asks for a session any more: xCreateSessionSSL goes with this object.
    StopListen();
    xEndThread();
    // 2. The sessions use the board, so they go before it: first all are asked, then each is waited for.
    CloseSessionsAsync();
    CloseSessions();
    m_board.End();
}

bool FtpService::Start(Messages& messages)
{
    return Init(messages) && m_board.Start();
}

void FtpService::SetConfig(std::shared_ptr<const FtpConfig> config)
{
    m_gate.SetSettings(config->settings);
    const std::lock_guard lock(m_configMutex);
    m_config = std::move(config);
}

NetTCPSession* FtpService::xCreateSessionSSL(FtpSocket* const connection, EventLogSessionID id)
{
    std::shared_ptr<const FtpConfig> config;
    {
        const std::lock_guard lock(m_configMutex);
        config = m_config;
    }
    return new FtpSession(m_pool, m_cache, GetActivityLog(), GetEventLog(), id, connection, std::move(config), m_gate,
                          m_uploads, m_transferLog, m_board);
}

} // namespace kqlib

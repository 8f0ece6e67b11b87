// FtpService: the service of kqftpd.
#pragma once

#include "hosts/ftp/FtpBase.h"
#include "hosts/ftp/FtpConfig.h"
#include "hosts/ftp/FtpGate.h"
#include "hosts/ftp/FtpLiveBoard.h"
#include "hosts/ftp/FtpTransferLog.h"
#include "hosts/ftp/FtpUploads.h"

#include <memory>
#include <mutex>

namespace kqlib {

/// Makes an FtpSession for each connection, with the settings in use at that moment.
///
/// Ownership: borrows pool and cache, which must outlive it; shares its settings with its sessions. Threads, errors: as
/// the base.
class FtpService : public FtpServiceBase
{
public:
    FtpService(ThreadPool& pool, NetDNSCache& cache, std::shared_ptr<const FtpConfig> config);
    ~FtpService() override;

    /// Starts the threads. False: code 3 was added to messages, nothing runs.
    bool Start(Messages& messages);
    /// The settings of the sessions made from now on.
    void SetConfig(std::shared_ptr<const FtpConfig> config);
    /// What the sessions log their transfers in; off at first.
    FtpTransferLog& GetTransferLog() { return m_transferLog; }

protected:
    NetTCPSession* xCreateSessionSSL(FtpSocket* const connection, EventLogSessionID id) override;

private:
    ThreadPool& m_pool;
    NetDNSCache& m_cache;
    std::mutex m_configMutex;
    std::shared_ptr<const FtpConfig> m_config; // guarded by m_configMutex
    FtpGate m_gate;                            // used by the sessions, which go before it
    FtpUploads m_uploads;                      // the same
    FtpTransferLog m_transferLog;              // the same
    FtpLiveBoard m_board;
};

} // namespace kqlib

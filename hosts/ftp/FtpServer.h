// FtpServer: a whole kqftpd, from its settings.
#pragma once

#include "common/STRINGS.h"
#include "common/ThreadPool.h"
#include "hosts/ftp/FtpService.h"
#include "net/dns/NetDNSCache.h"
#include "net/ports/NetPortBinds.h"

#include <memory>

namespace kqlib {

/// The thread pool, the cache, the logs and the service in the order in which they must come and go.
///
/// Start, then any number of Reload, then Stop (or the destructor). Ownership: owns everything. Threads: one at a time.
/// Errors: by result with a sentence.
class FtpServer
{
public:
    FtpServer();
    ~FtpServer();
    FtpServer(const FtpServer&) = delete;
    FtpServer& operator=(const FtpServer&) = delete;

    /// Opens the logs and the ports. False: error says why, nothing runs. GetWarnings tells what is not as it should be
    /// all the same.
    [[nodiscard]] bool Start(const FtpSettings& settings, String& error);
    /// Takes over changed settings: ports, limits, the rotation of the logs and the form of the transfer log at once,
    /// everything else for sessions that begin from now on; the log folder stays. All or nothing: false, when the
    /// settings are wrong or the certificate or a port cannot be had, has changed nothing.
    [[nodiscard]] bool Reload(const FtpSettings& settings, String& error);
    /// Goes on in the files of the event log and the transfer log as the paths name them now, for who has moved the old
    /// ones. False: error says why not; the old file stays in use.
    [[nodiscard]] bool ReopenLog(String& error);
    /// Closes the ports, ends every session, writes the logs out.
    void Stop();

    /// Of the last Start or Reload that succeeded: logs that cannot be had, homes that cannot be entered.
    const STRINGS& GetWarnings() const { return m_warnings; }

    bool IsRunning() const { return m_service != nullptr; }
    /// Only while running.
    FtpService& GetService() { return *m_service; }

private:
    void xSetLogSettings(const FtpSettings& settings);
    bool xListen(const FtpSettings& settings, String& error);
    bool xChangePorts(const NetPortBinds& wanted, ULONG limit, String& error);
    bool xOpen(const NetPortBinds& binds, ULONG limit, NetPortBinds& failed);

    /// Of each thread, in bytes: ten times what sessions were seen to use, TLS handshakes and data logs included.
    static constexpr ULONG STACK_BYTES = 256 * 1024;

    ThreadPool m_pool{0, 0, STACK_BYTES};
    NetDNSCache m_cache;
    std::unique_ptr<FtpService> m_service;
    STRINGS m_warnings;
    FilePath m_logFolder;     // as of the start
    String m_transferLogForm; // in use
    String m_listen;          // the bindings that are open; empty: none, or not those that the settings ask for
    ULONG m_limit = 0;        // of the service's sessions
};

} // namespace kqlib

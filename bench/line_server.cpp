// The smallest host on the library, for measuring: one service, sessions running the command monitor. The line PING is
// answered PONG, "GET n" sends n raw bytes, QUIT closes; nothing is greeted.
//
// usage: line_server [--port N] [--block-ms N] [--tls CERT KEY] [--backlog N] [--batch] [--try-us N] [--stack-kib N]
//   --port: 0 for any port; the one taken is printed
//   --tls: TLS from the first byte, with these PEM files
//   --backlog, --batch, --try-us: what docs/tuning.md tells; without them the library's defaults
//   --stack-kib: of each thread (256); 0 for the system's own size

#include "common/FilePath.h"
#include "common/NetIP.h"
#include "common/ThreadPool.h"
#include "net/dns/NetDNSCache.h"
#include "net/service/NetTCPServiceSSL.h"
#include "net/session/NetTCPSessionSSL.h"
#include "net/sockets/NetTCPSSL.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

using namespace kqlib;

namespace {

constexpr ULONG TIME_OUT_SECS = 600;
constexpr ULONG8 BULK_PIECE = 65536;

struct Options
{
    USHORT port = 0;
    ULONG blockMs = 2;
    ULONG backlog = NetServiceOptions().GetBacklog();
    bool batch = false;
    ULONG tryMicros = 0;
    ULONG stackKiB = 256;
    std::vector<std::string> tls; ///< certificate and key file; empty: plain
};

class LineSession : public NetTCPSessionSSL
{
public:
    LineSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activity, EventLog& events,
                const EventLogSessionID& id, NetTCPSSL* connection, const Options& options)
        : NetTCPSessionSSL(pool, cache, activity, events, id, TIME_OUT_SECS, connection)
        , m_options(options)
    {
        xGetMainSocket()->SetBlockTime(options.blockMs);
        static_cast<void>(xGetMainSocket()->SetTryTime(options.tryMicros)); // checked by main
        xSetBatchReplies(options.batch);
        xConstrStartSession();
    }
    ~LineSession() override { xDeconstrEndSession(); }

protected:
    void xHandleSession() override
    {
        if (m_options.tls.empty() || xAcceptSSL(xGetMainSocketSSL(), xGetMainNetState(), "",
                                                FilePath(m_options.tls[0].c_str()), FilePath(m_options.tls[1].c_str())))
            NetTCPSession::xHandleSession();
    }
    void xEventMonCmdRecv(const String& command) override
    {
        if (command == "PING")
            xSendCommand(xGetMainSocket(), "PONG");
        else if (command.StartsWith("GET "))
            xSendBulk(command.substr(4).ToULONG8());
        else
            xShutdownAndClose(xGetMainSocket());
    }

private:
    void xSendBulk(ULONG8 size)
    {
        static const std::vector<unsigned char> piece(BULK_PIECE, 'x');
        while (size > 0) {
            const ULONG8 part = std::min(size, BULK_PIECE);
            if (!xSendAllData(xGetMainSocket(), piece.data(), static_cast<ULONG>(part)))
                return;
            size -= part;
        }
    }

    const Options& m_options;
};

class LineService : public NetTCPServiceSSL
{
public:
    LineService(ThreadPool& pool, NetDNSCache& cache, const Options& options)
        : NetTCPServiceSSL(pool, cache)
        , m_pool(pool)
        , m_cache(cache)
        , m_options(options)
    {
    }
    ~LineService() override { xEndThread(); }

private:
    NetTCPSession* xCreateSessionSSL(NetTCPSSL* const connection, EventLogSessionID id) override
    {
        return new LineSession(m_pool, m_cache, GetActivityLog(), GetEventLog(), id, connection, m_options);
    }

    ThreadPool& m_pool;
    NetDNSCache& m_cache;
    const Options& m_options;
};

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("The smallest host on the library, for measuring");
    app.add_option("--port", options.port, "port on 127.0.0.1, 0 for any");
    app.add_option("--block-ms", options.blockMs, "block time of the sessions' sockets in milliseconds");
    app.add_option("--tls", options.tls, "certificate and key file (PEM): TLS from the first byte")->expected(2);
    app.add_option("--backlog", options.backlog, "connections that may wait at the port");
    app.add_flag("--batch", options.batch, "replies to commands that came together go out together");
    app.add_option("--try-us", options.tryMicros, "microseconds that a receive tries before it waits")
        ->check(CLI::Range(0UL, NetSocket::MAX_TRY_MICROS));
    app.add_option("--stack-kib", options.stackKiB, "stack of each thread in KiB, 0 for the system's size");
    CLI11_PARSE(app, argc, argv);

    if (!NetSocket::sStartSockets())
        return 1;
    NetTCPSSL::sStartSSL();
    ThreadPool pool(0, 0, options.stackKiB * 1024);
    NetDNSCache cache;
    LineService service(pool, cache, options);
    Messages messages;
    NetServiceOptions serviceOptions;
    if (!serviceOptions.SetBacklog(options.backlog))
        return 1;
    service.SetOptions(serviceOptions);
    service.SetSettings(NetPortBinds(NetPortBind(options.port, "127.0.0.1")), 100000, 0);
    NetPortBinds failed;
    if (!service.Init(messages))
        return 1;
    service.StartListen(failed);
    Vector<NetServiceStatus::ACTIVEPORT> ports;
    service.GetListeningPorts(ports);
    if (ports.GetCount() == 0)
        return 1;
    std::printf("listening on 127.0.0.1:%u\n", static_cast<unsigned>(ports.Get(0).port));
    std::fflush(stdout);
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

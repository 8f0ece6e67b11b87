// The smallest host on the library, for measuring: one service, sessions running the command monitor. The line PING is
// answered PONG, "GET n" sends n raw bytes, QUIT closes; nothing is greeted.
//
// usage: line_server [--port N] [--block-ms N]    (port 0: any port; the one taken is printed)

#include "common/NetIP.h"
#include "common/ThreadPool.h"
#include "net/dns/NetDNSCache.h"
#include "net/service/NetTCPService.h"
#include "net/session/NetTCPSession.h"
#include "net/sockets/NetTCP.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

using namespace kqlib;

namespace {

constexpr ULONG TIME_OUT_SECS = 600;
constexpr ULONG8 BULK_PIECE = 65536;

class LineSession : public NetTCPSession
{
public:
    LineSession(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activity, EventLog& events,
                const EventLogSessionID& id, NetTCP* connection, ULONG blockMs)
        : NetTCPSession(pool, cache, activity, events, id, TIME_OUT_SECS, connection)
    {
        xGetMainSocket()->SetBlockTime(blockMs);
        xConstrStartSession();
    }
    ~LineSession() override { xDeconstrEndSession(); }

protected:
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
};

class LineService : public NetTCPService
{
public:
    LineService(ThreadPool& pool, NetDNSCache& cache, ULONG blockMs)
        : NetTCPService(pool, cache), m_pool(pool), m_cache(cache), m_blockMs(blockMs)
    {
    }
    ~LineService() override { xEndThread(); }

private:
    NetTCPSession* xCreateSession(NetTCP* const connection, EventLogSessionID id) override
    {
        return new LineSession(m_pool, m_cache, GetActivityLog(), GetEventLog(), id, connection, m_blockMs);
    }

    ThreadPool& m_pool;
    NetDNSCache& m_cache;
    ULONG m_blockMs;
};

} // namespace

int main(int argc, char** argv)
{
    USHORT port = 0;
    ULONG blockMs = 2;
    CLI::App app("The smallest host on the library, for measuring");
    app.add_option("--port", port, "port on 127.0.0.1, 0 for any");
    app.add_option("--block-ms", blockMs, "block time of the sessions' sockets in milliseconds");
    CLI11_PARSE(app, argc, argv);

    if (!NetSocket::sStartSockets())
        return 1;
    ThreadPool pool;
    NetDNSCache cache;
    LineService service(pool, cache, blockMs);
    Messages messages;
    service.SetSettings(NetPortBinds(NetPortBind(port, "127.0.0.1")), 100000, 0);
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

// The smallest server: it sends every line back, and closes after QUIT.
#include "common/Messages.h"
#include "common/ThreadPool.h"
#include "net/dns/NetDNSCache.h"
#include "net/service/NetTCPService.h"
#include "net/session/NetTCPSession.h"

#include <iostream>

using namespace kqlib;

class EchoSession : public NetTCPSession {
public:
    EchoSession(ThreadPool& pool, NetDNSCache& cache, NetTCPService& service, EventLogSessionID id, NetTCP* connection)
        : NetTCPSession(pool, cache, service.GetActivityLog(), service.GetEventLog(), id, 300, connection) {
        xConstrStartSession(); // last: from here on the session's thread runs
    }
    ~EchoSession() override { xDeconstrEndSession(); } // first: waits for the thread

protected:
    void xEventMonCmdRecv(const String& line) override {
        if (line == "QUIT")
            xShutdownAndClose(xGetMainSocket());
        else
            xSendCommand(xGetMainSocket(), line);
    }
};

class EchoService : public NetTCPService {
public:
    EchoService(ThreadPool& pool, NetDNSCache& cache) : NetTCPService(pool, cache), m_pool(pool), m_cache(cache) {}
    ~EchoService() override { xEndThread(); }

protected:
    NetTCPSession* xCreateSession(NetTCP* const connection, EventLogSessionID id) override {
        return new EchoSession(m_pool, m_cache, *this, id, connection);
    }

private:
    ThreadPool& m_pool;
    NetDNSCache& m_cache;
};

int main() {
    NetSocket::sStartSockets();
    ThreadPool pool;
    NetDNSCache cache;
    EchoService service(pool, cache);
    Messages messages;
    NetPortBinds failed;
    service.SetSettings(NetPortBinds(NetPortBind(7000, "127.0.0.1")), 100, 0); // at most 100 clients at once
    if (service.Init(messages))
        service.StartListen(failed);
    std::cout << (service.GetIsListening() ? "port 7000; Enter ends" : "cannot listen") << std::endl;
    std::cin.get();
}

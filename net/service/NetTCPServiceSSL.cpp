#include "net/service/NetTCPServiceSSL.h"

#include "common/WithinMemory.h"
#include "net/dns/NetDNS.h"
#include "net/session/NetTCPSession.h"
#include "net/sockets/NetTCPSSL.h"
#include "net/sockets/SocketWatch.h"

#include <memory>

namespace kqlib {

NetTCPServiceSSL::NetTCPServiceSSL(ThreadPool& pool, NetDNSCache& cache)
    : NetTCPService(pool, cache)
{
}

NetTCPSession* NetTCPServiceSSL::xCreateSession(NetTCP* const connection, EventLogSessionID id)
{
    NetDNSCache* const cache = xGetResolver().GetCache();
    auto secured = cache != nullptr ? std::make_unique<NetTCPSSL>(NetIP::LOOKUP_ANY, *cache)
                                    : std::make_unique<NetTCPSSL>(NetIP::LOOKUP_ANY);
    secured->Upgrade(*connection);
    const SocketWatch watch(*secured);
    NetTCPSession* session = nullptr;
    static_cast<void>(RunWithinMemory([&] { session = xCreateSessionSSL(secured.get(), id); }));
    if (!watch.IsAlive())
        static_cast<void>(secured.release()); // a session took it over and down with it
    if (session == nullptr)
        return nullptr; // the base deletes the emptied connection
    // The session owns the new socket now, and nobody needs the emptied one.
    static_cast<void>(secured.release());
    delete connection;
    return session;
}

} // namespace kqlib

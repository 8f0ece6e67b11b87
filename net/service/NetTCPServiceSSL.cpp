#include "net/service/NetTCPServiceSSL.h"

#include "net/dns/NetDNS.h"
#include "net/session/NetTCPSession.h"
#include "net/sockets/NetTCPSSL.h"
#include "net/sockets/SocketHandOver.h"

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
    NetTCPSSL* const offered = secured.get();
    SocketHandOver handOver(std::move(secured));
    NetTCPSession* const session = xCreateSessionSSL(offered, id);
    if (session == nullptr)
        return nullptr; // the base deletes the emptied connection
    // The session owns the new socket now, and nobody needs the emptied one.
    handOver.GiveUp();
    delete connection;
    return session;
}

} // namespace kqlib

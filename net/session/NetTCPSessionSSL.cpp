#include "net/session/NetTCPSessionSSL.h"

#include "common/FilePath.h"
#include "net/sockets/NetTCPSSL.h"

namespace kqlib {

NetTCPSessionSSL::NetTCPSessionSSL(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activityLog, EventLog& eventLog,
                                   EventLogSessionID id, ULONG timeOutSecs, NetTCPSSL* const connection)
    : NetTCPSession(pool, cache, activityLog, eventLog, id, timeOutSecs,
                    connection != nullptr ? connection : new NetTCPSSL(NetIP::LOOKUP_ANY, cache))
{
}

bool NetTCPSessionSSL::xAcceptSSL(NetTCPSSL* const socket, const NETSTATE& state, const String& detail,
                                  const FilePath& certFile, const FilePath& keyFile)
{
    if (!socket->IsConnected())
        return false;
    return xEndHandshake(socket, state, detail, socket->SSLAccept(certFile, keyFile));
}

bool NetTCPSessionSSL::xConnectSSL(NetTCPSSL* socket, const NETSTATE& state, const String& detail)
{
    if (!socket->IsConnected())
        return false;
    return xEndHandshake(socket, state, detail, socket->SSLConnect());
}

bool NetTCPSessionSSL::xEndHandshake(NetTCPSSL* socket, const NETSTATE& state, const String& detail, bool success)
{
    xRecordSSLHandshake(state, success, detail);
    if (success)
        return true;
    // A handshake that failed in its preparation leaves the socket connected, and then xClose logs the closing itself.
    if (!socket->IsConnected())
        xPrintLogNormal(state, "Connection Closed", "", "");
    xClose(socket);
    return false;
}

NetTCPSSL* NetTCPSessionSSL::xGetMainSocketSSL() const
{
    return static_cast<NetTCPSSL*>(xGetMainSocket());
}

} // namespace kqlib

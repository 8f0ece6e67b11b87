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
    return xRecordHandshake(socket, state, detail, socket->SSLAccept(certFile, keyFile));
}

bool NetTCPSessionSSL::xConnectSSL(NetTCPSSL* socket, const NETSTATE& state, const String& detail)
{
    if (!socket->IsConnected())
        return false;
    return xRecordHandshake(socket, state, detail, socket->SSLConnect());
}

bool NetTCPSessionSSL::xRecordHandshake(NetTCPSSL* socket, const NETSTATE& state, const String& detail, bool success)
{
    xRecordSSLHandshake(success);
    if (success) {
        xPrintLogNormal(state, "Connect SSL Success", detail, "");
        return true;
    }
    xPrintLogNormal(state, "Connect SSL Fail", detail, "");
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

#include "net/session/NetTCPSessionSSL.h"

#include "common/FilePath.h"
#include "common/RunAllSteps.h"
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
    xSendHeldReplies(); // in the clear, if it is the main socket that is secured here
    if (!socket->IsConnected())
        return false;
    bool success = false;
    RunAllSteps([&] { success = socket->SSLAccept(certFile, keyFile); },
                [&] { xEndHandshake(socket, state, detail, success); });
    return success;
}

bool NetTCPSessionSSL::xConnectSSL(NetTCPSSL* socket, const NETSTATE& state, const String& detail)
{
    xSendHeldReplies(); // in the clear, if it is the main socket that is secured here
    if (!socket->IsConnected())
        return false;
    bool success = false;
    RunAllSteps([&] { success = socket->SSLConnect(); }, [&] { xEndHandshake(socket, state, detail, success); });
    return success;
}

void NetTCPSessionSSL::xEndHandshake(NetTCPSSL* socket, const NETSTATE& state, const String& detail, bool success)
{
    if (success) {
        xRecordSSLHandshake(state, true, detail);
        return;
    }
    RunAllSteps([&] { xRecordSSLHandshake(state, false, detail); },
                [&] {
                    // One that failed in its preparation leaves the socket connected: xClose then logs the closing.
                    if (!socket->IsConnected())
                        xPrintLogNormal(state, "Connection Closed", "", "");
                },
                [&] { xClose(socket); });
}

NetTCPSSL* NetTCPSessionSSL::xGetMainSocketSSL() const
{
    return static_cast<NetTCPSSL*>(xGetMainSocket());
}

} // namespace kqlib

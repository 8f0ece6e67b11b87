// NetTCPSessionSSL: the session whose connection can be secured with TLS.
#pragma once

#include "net/session/NetTCPSession.h"

namespace kqlib {

class FilePath;
class NetTCPSSL;

/// As NetTCPSession, with the two handshakes, which log their outcome and count it.
///
/// Ownership, threads, errors: as NetTCPSession. The virtual functions are those of NetTCPSession.
class KQNET_API NetTCPSessionSSL : public NetTCPSession
{
public:
    /// As NetTCPSession's. connection may be null: an unconnected NetTCPSSL is made then.
    NetTCPSessionSSL(ThreadPool& pool, NetDNSCache& cache, DataLogTime& activityLog, EventLog& eventLog,
                     EventLogSessionID id, ULONG timeOutSecs, NetTCPSSL* const connection);

protected:
    /// Server-side handshake, up to 30 seconds, with the certificate chain and key of the two files. Logs "Connect SSL
    /// Success" or "Connect SSL Fail" with the detail (both sides log these texts, kept on purpose). False: nothing
    /// happened when the socket was not connected; otherwise it is closed and "Connection Closed" logged, once.
    /// What the peer sent in the clear before stays what it is: commands that came along with the one that asked for
    /// TLS are still delivered by the monitor afterwards, kept on purpose. A host that must drop them (RFC 3207 section
    /// 6) reads with xRecvCommand and empties its buffer.
    bool xAcceptSSL(NetTCPSSL* const socket, const NETSTATE& state, const String& detail, const FilePath& certFile,
                    const FilePath& keyFile);
    /// Client-side handshake; otherwise the same.
    bool xConnectSSL(NetTCPSSL* socket, const NETSTATE& state, const String& detail);

    /// The main socket as what it is here.
    NetTCPSSL* xGetMainSocketSSL() const;

private:
    void xEndHandshake(NetTCPSSL* socket, const NETSTATE& state, const String& detail, bool success);
};

} // namespace kqlib

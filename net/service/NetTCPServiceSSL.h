// NetTCPServiceSSL: the service whose sessions can speak TLS.
#pragma once

#include "net/service/NetTCPService.h"

namespace kqlib {

class NetTCPSSL;

/// As NetTCPService; every accepted connection is moved into a NetTCPSSL, with TLS still off, before the host's own
/// factory sees it. The handshake is the session's business.
///
/// Ownership, threads, errors: as NetTCPService. A derived destructor calls xEndThread first.
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQNET_API NetTCPServiceSSL : public NetTCPService
{
public:
    /// As NetTCPService.
    NetTCPServiceSSL(ThreadPool& pool, NetDNSCache& cache);

protected:
    /// Moves the connection into a new NetTCPSSL and calls xCreateSessionSSL.
    NetTCPSession* xCreateSession(NetTCP* const connection, EventLogSessionID id) final;

    /// Makes the session of one accepted connection. Called on the listener thread with the service lock held; must not
    /// wait. The returned session owns connection. Null: connection is deleted, which closes it; nothing is logged.
    /// An exception, of whatever kind, refuses the connection as it does in xCreateSession.
    virtual NetTCPSession* xCreateSessionSSL(NetTCPSSL* const connection, EventLogSessionID id) = 0;
};

} // namespace kqlib

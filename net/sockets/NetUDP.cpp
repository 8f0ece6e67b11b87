#include "net/sockets/NetUDP.h"

#include "platform/Sockets.h"

#include "net/sockets/SocketEndpoint.h"

namespace kqlib {

NetUDP::NetUDP(NetIP::IPLOOKUPMODE mode)
    : NetSocket(mode)
{
}

NetUDP::NetUDP(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache)
    : NetSocket(mode, cache)
{
}

NetUDP::~NetUDP() = default;

bool NetUDP::OpenClient(const NetIP& remote, unsigned short port, const NetIP& local, unsigned short localPort)
{
    const NetIP::IPTYPE type = remote.GetType();
    if (!xOpenAt(DATAGRAM, type, local, localPort, false))
        return false;
    if (platform::ConnectSocket(xGetHandle(), MakeEndpoint(type, remote, port)) != platform::IoResult::DONE)
        return xFailAndClose(ERR_CONNECT);
    xSetIPData();
    m_state = US_OPEN;
    return true;
}

bool NetUDP::OpenClient(const NetIP& remote, unsigned short port)
{
    return OpenClient(remote, port, NetIP::sGetAnyIP(remote.GetType()));
}

bool NetUDP::OpenClient(const String& host, unsigned short port, const String& localHost, unsigned short localPort)
{
    NetIP remote;
    NetIP local;
    return xResolveEnds(host, localHost, remote, local) && OpenClient(remote, port, local, localPort);
}

bool NetUDP::SendClient(const unsigned char* data, unsigned long& len)
{
    return xIsOpenFor(IsOpen(), len) && xSendOnce(DATAGRAM, data, len);
}

bool NetUDP::RecvClient(unsigned char* buf, unsigned long& len)
{
    bool unused;
    return xIsOpenFor(IsOpen(), len) && xRecvOnce(DATAGRAM, buf, len, unused);
}

void NetUDP::xSetStateClosed()
{
    m_state = US_CLOSED;
}

} // namespace kqlib

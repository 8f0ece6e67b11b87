#include "net/sockets/NetUDP.h"

#include "platform/Sockets.h"

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
    if (!xInitialise(false, type) || !xBind(xsMakeEndpoint(type, local, localPort), false))
        return false;
    if (platform::ConnectSocket(xGetHandle(), xsMakeEndpoint(type, remote, port)) != platform::IoResult::DONE)
        return xFailAndClose(ERR_CONNECT);
    xSetIPData();
    m_state = US_OPEN;
    return true;
}

bool NetUDP::OpenClient(const NetIP& remote, unsigned short port, const NetIP& local)
{
    return OpenClient(remote, port, local, 0);
}

bool NetUDP::OpenClient(const NetIP& remote, unsigned short port)
{
    return OpenClient(remote, port, NetIP::sGetAnyIP(remote.GetType()), 0);
}

bool NetUDP::OpenClient(const String& host, unsigned short port, const String& localHost, unsigned short localPort)
{
    NetIP remote;
    NetIP local;
    return xResolveEnds(host, localHost, remote, local) && OpenClient(remote, port, local, localPort);
}

bool NetUDP::OpenClient(const String& host, unsigned short port, const String& localHost)
{
    return OpenClient(host, port, localHost, 0);
}

bool NetUDP::OpenClient(const String& host, unsigned short port)
{
    return OpenClient(host, port, String());
}

bool NetUDP::SendClient(const unsigned char* data, unsigned long& len)
{
    if (!IsOpen()) {
        len = 0;
        xSetLastError(ERR_NOT_CONNECTED);
        return false;
    }
    return xEndMove(xSendOnce(data, len));
}

bool NetUDP::RecvClient(unsigned char* buf, unsigned long& len)
{
    if (!IsOpen()) {
        len = 0;
        xSetLastError(ERR_NOT_CONNECTED);
        return false;
    }
    return xEndMove(xRecvOnce(buf, len));
}

void NetUDP::xSetStateClosed()
{
    m_state = US_CLOSED;
}

/// Turns the outcome of one send or receive into the result of the operation.
bool NetUDP::xEndMove(platform::IoResult result)
{
    switch (result) {
    case platform::IoResult::DONE:
    case platform::IoResult::WOULD_BLOCK:
        return true;
    case platform::IoResult::REFUSED:
    case platform::IoResult::RESET: // the word of some systems for the same
        return xFailAndClose(ERR_REFUSED);
    default:
        return xFailAndClose(ERR_IO);
    }
}

} // namespace kqlib

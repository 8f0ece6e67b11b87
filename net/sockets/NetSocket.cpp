#include "net/sockets/NetSocket.h"

#include "platform/Sockets.h"

#include "common/Messages.h"
#include "net/sockets/SocketEndpoint.h"
#include "net/sockets/SocketHandOver.h"
#include "net/sockets/TryFor.h"

#include <algorithm>
#include <cstddef>

namespace kqlib {

// What users of the DLL link to when they need its address.
constexpr unsigned long NetSocket::MAX_TRY_MICROS;

namespace {

void FromEndpoint(const platform::Endpoint& from, NetIP& ip, unsigned short& port)
{
    ip.Set(from.family == platform::Family::IP6 ? NetIP::IP_6 : NetIP::IP_4, from.bytes);
    port = from.port;
}

std::uint32_t ClampTo32Bits(unsigned long value)
{
    return static_cast<std::uint32_t>(std::min(value, ALL_BITS_32));
}

} // namespace

bool NetSocket::sStartSockets()
{
    return platform::StartSockets();
}

void NetSocket::sEndSockets()
{
    platform::EndSockets();
}

NetSocket::NetSocket(NetIP::IPLOOKUPMODE mode)
    : m_resolver(mode)
    , m_lookupMode(mode)
    , m_socket(platform::INVALID_SOCKET_HANDLE)
{
}

NetSocket::NetSocket(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache)
    : m_resolver(mode, cache)
    , m_lookupMode(mode)
    , m_socket(platform::INVALID_SOCKET_HANDLE)
{
}

NetSocket::~NetSocket()
{
    SocketHandOver::sTake(*this); // whoever still hands it over must not delete it again
    // Not Close: the derived class, whose state it would clear, is gone already.
    platform::CloseSocket(m_socket);
}

void NetSocket::Close()
{
    if (m_socket != platform::INVALID_SOCKET_HANDLE) {
        platform::CloseSocket(m_socket);
        m_socket = platform::INVALID_SOCKET_HANDLE;
        xSetStateClosed();
    }
    m_recvFlowing = false;
    m_sendFlowing = true;
    m_remoteIP.Reset();
    m_remotePort = 0;
    m_localIP.Reset();
    m_localPort = 0;
}

unsigned int NetSocket::Detach()
{
    const std::uint32_t handle = m_socket;
    m_socket = platform::INVALID_SOCKET_HANDLE;
    Close();
    xSetStateClosed(); // Close does so only when there is a handle to close
    return handle;
}

void NetSocket::SetBlockTime(unsigned long ms) noexcept
{
    m_blockTimeMs = ClampTo32Bits(ms);
}

bool NetSocket::SetTryTime(unsigned long micros) noexcept
{
    if (micros > MAX_TRY_MICROS)
        return false;
    m_tryMicros = static_cast<std::uint32_t>(micros);
    return true;
}

unsigned long NetSocket::GetBufRecvSize() const
{
    return platform::GetRecvBufferSize(m_socket);
}

unsigned long NetSocket::GetBufSendSize() const
{
    return platform::GetSendBufferSize(m_socket);
}

bool NetSocket::xInitialise(bool tcp, NetIP::IPTYPE type)
{
    Close();
    if (type != NetIP::IP_4 && type != NetIP::IP_6)
        return xFailAndClose(ERR_SOCKET);
    m_socket = platform::OpenSocket(tcp, ToFamily(type));
    return m_socket != platform::INVALID_SOCKET_HANDLE || xFailAndClose(ERR_SOCKET);
}

bool NetSocket::xApplyBlockTime(bool forRead, bool& timedOut)
{
    if (m_blockTimeMs == 0) {
        timedOut = false;
        return true;
    }
    const platform::WaitResult result = platform::WaitSocket(m_socket, forRead, m_blockTimeMs);
    if (result == platform::WaitResult::FAILED)
        return false;
    timedOut = result == platform::WaitResult::TIMED_OUT;
    return true;
}

bool NetSocket::xSetSockBufRecvSize(unsigned long bytes)
{
    return m_socket != platform::INVALID_SOCKET_HANDLE && platform::SetRecvBufferSize(m_socket, ClampTo32Bits(bytes));
}

bool NetSocket::xSetSockBufSendSize(unsigned long bytes)
{
    return m_socket != platform::INVALID_SOCKET_HANDLE && platform::SetSendBufferSize(m_socket, ClampTo32Bits(bytes));
}

bool NetSocket::xConvert(NetIP::IPLOOKUPMODE, const String& host, NetIP& out)
{
    Messages messages; // why it failed is not asked for: the code says enough here
    NetIP resolved;
    if (!m_resolver.ResolveHost(host, true, resolved, messages)) {
        xSetLastError(ERR_RESOLVE);
        return false;
    }
    out = resolved;
    return true;
}

void NetSocket::xsConvert(const sockaddr_in& from, NetIP& ip, unsigned short& port)
{
    FromEndpoint(platform::FromNative(from), ip, port);
}

void NetSocket::xsConvert(const sockaddr_in6& from, NetIP& ip, unsigned short& port)
{
    FromEndpoint(platform::FromNative(from), ip, port);
}

void NetSocket::xsConvert(const NetIP& ip, unsigned short port, sockaddr_in& to)
{
    platform::ToNative(MakeEndpoint(NetIP::IP_4, ip, port), to);
}

void NetSocket::xsConvert(const NetIP& ip, unsigned short port, sockaddr_in6& to)
{
    platform::ToNative(MakeEndpoint(NetIP::IP_6, ip, port), to);
}

void NetSocket::xSetIPData()
{
    platform::Endpoint end;
    if (platform::GetRemoteEndpointIP4(m_socket, end))
        FromEndpoint(end, m_remoteIP, m_remotePort);
    if (platform::GetLocalEndpointIP4(m_socket, end))
        FromEndpoint(end, m_localIP, m_localPort);
}

void NetSocket::xCopyIPData(const NetSocket& from)
{
    m_remoteIP = from.m_remoteIP;
    m_remotePort = from.m_remotePort;
    m_localIP = from.m_localIP;
    m_localPort = from.m_localPort;
}

void NetSocket::xIncreaseIn(unsigned long bytes) noexcept
{
    m_bytesIn += static_cast<std::uint32_t>(bytes);
}

void NetSocket::xIncreaseOut(unsigned long bytes) noexcept
{
    m_bytesOut += static_cast<std::uint32_t>(bytes);
}

bool NetSocket::xFailAndClose(int code)
{
    Close();
    xSetLastError(code);
    return false;
}

void NetSocket::xTakeHandle(std::uint32_t handle) noexcept
{
    m_socket = handle;
    m_lastError = ERR_NONE;
    m_recvFlowing = true;
}

bool NetSocket::xOpenAt(TRANSPORT transport, NetIP::IPTYPE type, const NetIP& ip, unsigned short port,
                        bool forListening)
{
    return xInitialise(transport == STREAM, type) &&
           (platform::BindSocket(m_socket, MakeEndpoint(type, ip, port), forListening) || xFailAndClose(ERR_BIND));
}

bool NetSocket::xResolveEnds(const String& host, const String& localHost, NetIP& remote, NetIP& local)
{
    Close();
    if (!xConvert(m_lookupMode, host, remote))
        return false;
    local = NetIP::sGetAnyIP(remote.GetType());
    return localHost.empty() || xConvert(m_lookupMode, localHost, local);
}

bool NetSocket::xIsOpenFor(bool isOpen, unsigned long& len) noexcept
{
    if (isOpen)
        return true;
    len = 0;
    xSetLastError(ERR_NOT_CONNECTED);
    return false;
}

bool NetSocket::xSendOnce(TRANSPORT transport, const unsigned char* data, unsigned long& len)
{
    // The system nearly always has room, so sending is tried first. Right after it took only a part there is none.
    const unsigned long offered = len;
    const bool usable = xMoveWithin(transport, false, m_sendFlowing, len,
                                    [&](std::size_t& size) { return platform::SendSocket(m_socket, data, size); });
    if (!usable)
        return false;
    m_sendFlowing = len == offered;
    xIncreaseOut(len);
    return true;
}

bool NetSocket::xRecvOnce(TRANSPORT transport, unsigned char* buf, unsigned long& len, bool& endedInOrder)
{
    platform::IoResult last = platform::IoResult::FAILED; // so it is when waiting fails
    // More is likely at hand right after something came, but seldom on an idle connection, which only waits.
    const bool usable = xMoveWithin(transport, true, m_recvFlowing, len, [&](std::size_t& size) {
        return last = platform::RecvSocket(m_socket, buf, size);
    });
    endedInOrder = last == platform::IoResult::CLOSED;
    if (!usable)
        return false;
    m_recvFlowing = len > 0;
    xIncreaseIn(len);
    return true;
}

/// Makes one attempt, after waiting at most the block time for readiness. On a stream with tryFirst the wait comes only
/// after a first attempt that would block: the outcome is the same, and a system call is saved when it does not block.
/// A receive goes on with that for the time of trying. With datagrams the outcomes differ, for a wait that fails leaves
/// len as it was.
template <class ATTEMPT>
bool NetSocket::xMoveWithin(TRANSPORT transport, bool forRead, bool tryFirst, unsigned long& len,
                            const ATTEMPT& attempt)
{
    std::size_t size = len;
    platform::IoResult result = platform::IoResult::WOULD_BLOCK;
    if (transport == STREAM && tryFirst && m_blockTimeMs != 0) {
        const auto isDecided = [&] {
            size = len;
            return (result = attempt(size)) != platform::IoResult::WOULD_BLOCK;
        };
        if (!isDecided() && forRead)
            TryFor(m_tryMicros, isDecided);
    }
    if (result == platform::IoResult::WOULD_BLOCK) {
        bool timedOut;
        if (!xApplyBlockTime(forRead, timedOut)) {
            if (transport == STREAM)
                len = 0;
            return xFailAndClose(ERR_IO);
        }
        size = timedOut ? 0 : len;
        if (!timedOut)
            result = attempt(size);
    }
    len = static_cast<unsigned long>(size);
    if (result == platform::IoResult::DONE || result == platform::IoResult::WOULD_BLOCK)
        return true;
    return xFailAndClose(result == platform::IoResult::REFUSED && transport == DATAGRAM ? ERR_REFUSED : ERR_IO);
}

} // namespace kqlib

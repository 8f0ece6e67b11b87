#include "net/sockets/NetTCP.h"

#include "platform/Clock.h"
#include "platform/Sockets.h"

#include "common/WithinMemory.h"
#include "net/sockets/SocketEndpoint.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace kqlib {

namespace {

constexpr std::uint32_t CONNECT_PAUSE_MS = 2;
constexpr char CR = '\r';
constexpr char LF = '\n';

} // namespace

NetTCP::NetTCP(NetIP::IPLOOKUPMODE mode)
    : NetSocket(mode)
{
}

NetTCP::NetTCP(NetIP::IPLOOKUPMODE mode, NetDNSCache& cache)
    : NetSocket(mode, cache)
{
}

NetTCP::~NetTCP() = default;

NetTCP* NetTCP::Accept()
{
    std::uint32_t handle = platform::INVALID_SOCKET_HANDLE;
    if (!xAcceptHandle(handle))
        return nullptr;
    NetDNSCache* const cache = xGetResolver().GetCache();
    std::unique_ptr<NetTCP> connection;
    const bool made = RunWithinMemory([&] {
        connection = cache != nullptr ? std::make_unique<NetTCP>(GetIPLookupMode(), *cache)
                                      : std::make_unique<NetTCP>(GetIPLookupMode());
    });
    if (!made) {
        // As when the system has none: it says nothing about the listener.
        platform::CloseSocket(handle);
        xSetLastError(ERR_NOTHING);
        return nullptr;
    }
    connection->xAttach(handle, TS_CONNECTED);
    return connection.release();
}

bool NetTCP::Recv(unsigned char* buf, unsigned long& len)
{
    if (!xIsOpenFor(IsConnected(), len))
        return false;
    bool endedInOrder;
    const bool usable = xRecvOnce(STREAM, buf, len, endedInOrder);
    if (!usable)
        m_peerEnd = endedInOrder ? PE_IN_ORDER : PE_BROKEN_OFF;
    return usable;
}

bool NetTCP::Recv(char* buf, unsigned long& len)
{
    return Recv(reinterpret_cast<unsigned char*>(buf), len);
}

bool NetTCP::Send(const unsigned char* data, unsigned long& len)
{
    return xIsOpenFor(IsConnected(), len) && xSendOnce(STREAM, data, len);
}

bool NetTCP::Send(const char* data, unsigned long& len)
{
    return Send(reinterpret_cast<const unsigned char*>(data), len);
}

void NetTCP::RecvPrepForFirstCmd(RECVBUF& rb, String& cmd, bool& done)
{
    rb.length = 0;
    rb.position = 0;
    NetTCP::RecvPrepForNextCmd(rb, cmd, done);
}

bool NetTCP::RecvTryGetCmd(bool loneLFEnds, unsigned long maxLen, RECVBUF& rb, String& cmd, bool& tooLong, bool& done)
{
    done = false;
    if (rb.position >= rb.length) {
        rb.length = rb.capacity;
        rb.position = 0;
        if (!Recv(rb.buffer, rb.length)) {
            rb.length = 0; // whatever an override left there: nothing was received
            return false;
        }
    }
    while (rb.position < rb.length) {
        const char byte = static_cast<char>(rb.buffer[rb.position++]);
        if (byte == LF && (rb.lastWasCR || loneLFEnds)) {
            if (rb.lastWasCR && !cmd.empty())
                cmd.pop_back();
            done = true;
            return true;
        }
        cmd += byte;
        rb.lastWasCR = byte == CR;
        if (cmd.size() >= maxLen) {
            tooLong = true;
            done = true;
            return true;
        }
    }
    return true;
}

void NetTCP::RecvPrepForNextCmd(RECVBUF& rb, String& cmd, bool& done)
{
    rb.lastWasCR = false;
    cmd.clear();
    done = false;
}

bool NetTCP::RecvPurgeRemaining(RECVBUF& rb, unsigned char* out, unsigned long& len, bool& more)
{
    const unsigned long remaining = rb.position < rb.length ? rb.length - rb.position : 0;
    more = remaining > len && len > 0;
    len = std::min(len, remaining);
    if (len == 0)
        return true;
    std::memcpy(out, rb.buffer + rb.position, len);
    rb.position += len;
    if (!more) {
        rb.length = 0;
        rb.position = 0;
    }
    return true;
}

void NetTCP::ShutdownAndClose()
{
    if (IsConnected())
        platform::ShutdownSocket(xGetHandle());
    Close();
}

bool NetTCP::Connect(const NetIP& remote, unsigned short port, const NetIP& local, unsigned short localPort)
{
    const NetIP::IPTYPE type = remote.GetType();
    if (!xOpenAt(STREAM, type, local, localPort, false))
        return false;
    platform::IoResult result = platform::ConnectSocket(xGetHandle(), MakeEndpoint(type, remote, port));
    // The number of the block time serves as microseconds here, and there is no deadline: kept on purpose.
    while (result == platform::IoResult::IN_PROGRESS) {
        result = platform::PollConnect(xGetHandle(), static_cast<std::uint32_t>(GetBlockTimeMs()));
        if (result == platform::IoResult::IN_PROGRESS)
            platform::SleepMs(CONNECT_PAUSE_MS);
    }
    if (result != platform::IoResult::DONE)
        return xFailAndClose(ERR_CONNECT);
    xSetIPData();
    m_state = TS_CONNECTED;
    m_peerEnd = PE_NONE;
    return true;
}

bool NetTCP::Connect(const NetIP& remote, unsigned short port)
{
    return Connect(remote, port, NetIP::sGetAnyIP(remote.GetType()));
}

bool NetTCP::Connect(const String& host, unsigned short port, const String& localHost, unsigned short localPort)
{
    NetIP remote;
    NetIP local;
    return xResolveEnds(host, localHost, remote, local) && Connect(remote, port, local, localPort);
}

bool NetTCP::ListenAll(unsigned short port)
{
    return ListenSpecific(port, NetIP::ANY_IP4);
}

bool NetTCP::ListenSpecific(unsigned short port, const NetIP& ip)
{
    if (!xOpenAt(STREAM, ip.GetType(), ip, port, true))
        return false;
    if (!platform::ListenSocket(xGetHandle(), m_backlog))
        return xFailAndClose(ERR_LISTEN);
    xSetIPData();
    m_state = TS_LISTENING;
    return true;
}

bool NetTCP::ListenSpecific(unsigned short port, const String& host)
{
    Close();
    NetIP ip;
    return xConvert(GetIPLookupMode(), host, ip) && ListenSpecific(port, ip);
}

bool NetTCP::SelfAccept()
{
    std::uint32_t handle = platform::INVALID_SOCKET_HANDLE;
    if (!xAcceptHandle(handle))
        return false;
    xAttach(handle, TS_CONNECTED);
    return true;
}

void NetTCP::xSetStateClosed()
{
    m_state = TS_CLOSED;
}

void NetTCP::xAttach(unsigned int handle, TCP_STATE state)
{
    Close();
    xTakeHandle(handle);
    m_state = state;
    m_peerEnd = PE_NONE;
    xSetIPData();
}

void NetTCP::xAttachFrom(NetTCP& other)
{
    Close();
    xCopyIPData(other);
    m_state = other.m_state;
    m_peerEnd = PE_NONE;
    xTakeHandle(other.Detach());
}

/// Takes one waiting connection. False: code 45 (not listening, or failed and closed) or 46 (nothing came in time).
bool NetTCP::xAcceptHandle(std::uint32_t& handle)
{
    if (!IsListening()) {
        xSetLastError(ERR_ACCEPT);
        return false;
    }
    bool timedOut;
    if (!xApplyBlockTime(true, timedOut))
        return xFailAndClose(ERR_ACCEPT);
    const platform::IoResult result =
        timedOut ? platform::IoResult::WOULD_BLOCK : platform::AcceptSocket(xGetHandle(), handle);
    if (result == platform::IoResult::DONE)
        return true;
    if (result != platform::IoResult::WOULD_BLOCK)
        return xFailAndClose(ERR_ACCEPT);
    xSetLastError(ERR_NOTHING);
    return false;
}

} // namespace kqlib

// Plain platform sockets on the loopback for tests: ports, pairs and handles that close themselves.
#pragma once

#include "platform/Sockets.h"
#include "tests/peers/WaitFor.h"

#include <cstdint>
#include <string>
#include <utility>

namespace kqlib::test {

/// A platform handle that is closed with its owner.
class OwnedSocket
{
public:
    using Handle = platform::SocketHandle;

    OwnedSocket() = default;
    explicit OwnedSocket(Handle handle)
        : m_handle(handle)
    {
    }
    OwnedSocket(OwnedSocket&& other) noexcept
        : m_handle(other.Release())
    {
    }
    OwnedSocket& operator=(OwnedSocket&& other) noexcept
    {
        Close();
        m_handle = other.Release();
        return *this;
    }
    ~OwnedSocket() { Close(); }

    Handle Get() const { return m_handle; }
    bool IsOpen() const { return m_handle != platform::INVALID_SOCKET_HANDLE; }
    Handle Release() { return std::exchange(m_handle, platform::INVALID_SOCKET_HANDLE); }
    void Close() { platform::CloseSocket(Release()); }
    /// Closes so that the peer sees a reset.
    void Abort() { platform::AbortSocket(Release()); }

private:
    Handle m_handle = platform::INVALID_SOCKET_HANDLE;
};

/// 127.0.0.1:port, with another last octet 127.0.0.x.
inline platform::Endpoint Loopback(std::uint16_t port, unsigned char lastOctet = 1)
{
    platform::Endpoint end;
    end.bytes[0] = 127;
    end.bytes[3] = lastOctet;
    end.port = port;
    return end;
}

inline std::uint16_t LocalPort(const OwnedSocket& socket)
{
    platform::Endpoint end;
    return platform::GetLocalEndpointIP4(socket.Get(), end) ? end.port : std::uint16_t{0};
}

/// A listener on 127.0.0.1 (port 0: the system chooses); not open when the port cannot be had.
inline OwnedSocket MakeListener(std::uint16_t port = 0, int backlog = 5)
{
    using namespace platform;
    OwnedSocket listener(OpenSocket(true, Family::IP4));
    if (!BindSocket(listener.Get(), Loopback(port), true) || !ListenSocket(listener.Get(), backlog))
        listener.Close();
    return listener;
}

/// A datagram socket on 127.0.0.1.
inline OwnedSocket MakeDatagramSocket()
{
    using namespace platform;
    OwnedSocket socket(OpenSocket(false, Family::IP4));
    // With port 0 the choice may be put off until the peer is fixed: listening asks for it at once.
    if (!BindSocket(socket.Get(), Loopback(0), true))
        socket.Close();
    return socket;
}

/// A port that nobody serves and that the system does not hand out by itself, so that nobody comes to serve it.
inline std::uint16_t UnservedPort(bool stream = true)
{
    using namespace platform;
    static std::uint16_t next = 21000;
    while (next < 32000) {
        const OwnedSocket probe(OpenSocket(stream, Family::IP4));
        if (BindSocket(probe.Get(), Loopback(++next), false))
            return next;
    }
    return 1;
}

/// Connects to a port of 127.0.0.1, within the time of WaitFor; not open when that fails.
inline OwnedSocket ConnectTo(std::uint16_t port)
{
    using namespace platform;
    OwnedSocket client(OpenSocket(true, Family::IP4));
    if (!BindSocket(client.Get(), Loopback(0), false))
        return OwnedSocket();
    IoResult result = ConnectSocket(client.Get(), Loopback(port));
    WaitFor([&] {
        if (result == IoResult::IN_PROGRESS)
            result = PollConnect(client.Get(), 1000);
        return result != IoResult::IN_PROGRESS;
    });
    return result == IoResult::DONE ? std::move(client) : OwnedSocket();
}

/// Takes a connection from a listener, within the time of WaitFor; not open when none came.
inline OwnedSocket AcceptFrom(const OwnedSocket& listener)
{
    using namespace platform;
    SocketHandle handle = INVALID_SOCKET_HANDLE;
    WaitFor([&] { return AcceptSocket(listener.Get(), handle) == IoResult::DONE; });
    return OwnedSocket(handle);
}

/// Sends all bytes, within the time of WaitFor.
inline bool SendAll(const OwnedSocket& socket, const std::string& bytes)
{
    using namespace platform;
    std::size_t sent = 0;
    return WaitFor([&] {
        std::size_t size = bytes.size() - sent;
        SendSocket(socket.Get(), reinterpret_cast<const unsigned char*>(bytes.data()) + sent, size);
        sent += size;
        return sent == bytes.size();
    });
}

/// Receives until count bytes are there (or the time of WaitFor has passed); what has come.
inline std::string ReceiveBytes(const OwnedSocket& socket, std::size_t count)
{
    using namespace platform;
    std::string received;
    WaitFor([&] {
        unsigned char buffer[65536];
        std::size_t size = sizeof(buffer);
        RecvSocket(socket.Get(), buffer, size);
        received.append(reinterpret_cast<const char*>(buffer), size);
        return received.size() >= count;
    });
    return received;
}

} // namespace kqlib::test

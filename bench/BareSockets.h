// Bare loopback sockets for the measuring programs: what a program without the library writes. Linux only.
#pragma once

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

[[noreturn]] inline void Die(const char* what)
{
    std::fprintf(stderr, "%s: %s\n", what, std::strerror(errno));
    std::exit(1);
}

inline sockaddr_in Loopback(std::uint16_t port, std::uint32_t host = 1)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(0x7F000000U + host);
    return address;
}

/// A listening socket on 127.0.0.1; ends the program on failure.
inline int Listen(std::uint16_t port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on); // as the library's sockets have it
    const sockaddr_in address = Loopback(port);
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(socket, 128) != 0)
        Die("listen");
    return socket;
}

inline unsigned PortOf(int socket)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

/// A blocking connection to 127.0.0.1:port, from 127.0.0.<host> so that many measurements in a row do not run out of
/// ports. -1 on failure.
inline int Connect(std::uint16_t port, std::uint32_t host = 1)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(socket, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const sockaddr_in local = Loopback(0, host);
    const sockaddr_in remote = Loopback(port);
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 &&
        ::connect(socket, reinterpret_cast<const sockaddr*>(&remote), sizeof remote) == 0)
        return socket;
    ::close(socket);
    return -1;
}

} // namespace bench

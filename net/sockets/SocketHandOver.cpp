#include "net/sockets/SocketHandOver.h"

#include "net/sockets/NetSocket.h"

#include <atomic>
#include <mutex>

namespace kqlib {

namespace {

/// Guards the two pointers of each hand-over and its socket, for moments.
std::mutex g_links;

} // namespace

SocketHandOver::SocketHandOver(std::unique_ptr<NetSocket> socket)
    : m_socket(socket.release())
{
    std::atomic_ref(m_socket->m_handOver).store(this);
}

SocketHandOver::~SocketHandOver()
{
    delete xUnlink();
}

void SocketHandOver::GiveUp()
{
    xUnlink();
}

/// Gives the socket, unless somebody has taken it, which nobody hands over any more.
NetSocket* SocketHandOver::xUnlink()
{
    const std::lock_guard lock(g_links);
    NetSocket* const socket = m_socket;
    if (socket != nullptr)
        std::atomic_ref(socket->m_handOver).store(nullptr);
    m_socket = nullptr;
    return socket;
}

void SocketHandOver::sTake(NetSocket& socket)
{
    std::atomic_ref handOver(socket.m_handOver);
    if (handOver.load() == nullptr)
        return;
    const std::lock_guard lock(g_links);
    if (SocketHandOver* const own = handOver.exchange(nullptr); own != nullptr)
        own->m_socket = nullptr;
}

} // namespace kqlib

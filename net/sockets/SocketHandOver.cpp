#include "net/sockets/SocketHandOver.h"

#include "net/sockets/NetSocket.h"

namespace kqlib {

SocketHandOver::SocketHandOver(std::unique_ptr<NetSocket> socket)
    : m_socket(socket.release())
{
    m_socket->m_handOver = this;
}

SocketHandOver::~SocketHandOver()
{
    delete m_socket; // which takes itself
}

void SocketHandOver::GiveUp()
{
    if (m_socket != nullptr)
        sTake(*m_socket);
}

void SocketHandOver::sTake(NetSocket& socket)
{
    if (socket.m_handOver == nullptr)
        return;
    socket.m_handOver->m_socket = nullptr;
    socket.m_handOver = nullptr;
}

} // namespace kqlib

#include "net/sockets/SocketWatch.h"

namespace kqlib {

namespace {

thread_local SocketWatch* innermost = nullptr;

} // namespace

SocketWatch::SocketWatch(const NetSocket& socket)
    : m_socket(&socket)
    , m_outer(innermost)
{
    innermost = this;
}

SocketWatch::~SocketWatch()
{
    innermost = m_outer;
}

void SocketWatch::sNoteEnd(const NetSocket& socket)
{
    for (SocketWatch* watch = innermost; watch != nullptr; watch = watch->m_outer)
        if (watch->m_socket == &socket)
            watch->m_socket = nullptr;
}

} // namespace kqlib

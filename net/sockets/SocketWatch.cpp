#include "net/sockets/SocketWatch.h"

namespace kqlib {

namespace {

thread_local SocketWatch* t_innermost = nullptr;

} // namespace

SocketWatch::SocketWatch(const NetSocket& socket)
    : m_socket(&socket)
    , m_outer(t_innermost)
{
    t_innermost = this;
}

SocketWatch::~SocketWatch()
{
    t_innermost = m_outer;
}

void SocketWatch::sNoteEnd(const NetSocket& socket)
{
    for (SocketWatch* watch = t_innermost; watch != nullptr; watch = watch->m_outer)
        if (watch->m_socket == &socket)
            watch->m_socket = nullptr;
}

} // namespace kqlib

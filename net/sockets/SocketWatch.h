// SocketWatch: whether a socket that was handed on still lives. Inside the library only.
#pragma once

namespace kqlib {

class NetSocket;

/// For who hands a socket to code that takes it over when it succeeds, and that may be left by an exception on either
/// side of that. It sees the end of the socket on its own thread; watches end in the opposite order of their beginning.
class SocketWatch
{
public:
    /// Begins to watch a socket that lives.
    explicit SocketWatch(const NetSocket& socket);
    /// Watches no longer.
    ~SocketWatch();
    SocketWatch(const SocketWatch&) = delete;
    SocketWatch& operator=(const SocketWatch&) = delete;

    /// False once the socket was destroyed.
    [[nodiscard]] bool IsAlive() const { return m_socket != nullptr; }

    /// Called by the destructor of every socket.
    static void sNoteEnd(const NetSocket& socket);

private:
    const NetSocket* m_socket;
    SocketWatch* const m_outer; ///< the one that began before it on this thread
};

} // namespace kqlib

// SocketHandOver: a socket on its way to the session that will own it. Inside the library only.
#pragma once

#include <memory>

namespace kqlib {

class NetSocket;

/// Owns a socket while a host's factory makes a session of it. The session takes the socket in its constructor; from
/// then on it is the session's, however the factory ends. What nobody has taken is closed with the hand-over.
///
/// Threads: one; the factory runs on the thread that made the hand-over. A session that keeps the socket in a way of
/// its own may end it on any thread while the hand-over goes. Errors: none.
class SocketHandOver
{
public:
    /// socket: not null, and not handed over by another.
    explicit SocketHandOver(std::unique_ptr<NetSocket> socket);
    /// Deletes the socket unless it was taken, given up, or deleted by the factory.
    ~SocketHandOver();
    SocketHandOver(const SocketHandOver&) = delete;
    SocketHandOver& operator=(const SocketHandOver&) = delete;

    /// The factory has succeeded: the socket is the session's business, in whatever form the session keeps it.
    void GiveUp();

    /// By a session: the socket is its own from here on. Nothing for a socket that nobody hands over. The destructor
    /// of a socket that nobody has taken says the same.
    static void sTake(NetSocket& socket);

private:
    NetSocket* xUnlink();

    NetSocket* m_socket; ///< null: somebody else's, or gone
};

} // namespace kqlib

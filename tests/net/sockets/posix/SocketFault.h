// SocketFault: makes a socket call of the system fail, for failures that no test can bring about otherwise.
#pragma once

namespace kqlib::test {

/// While it lives, the next calls of one function of the system fail with an error number, in any thread; the test
/// program holds functions of the same names, which go before the system's. One per function at a time.
class SocketFault
{
public:
    enum FUNCTION
    {
        SOCKET,
        LISTEN,
        ACCEPT,
        CONNECT, ///< the attempt is made all the same, as after a signal; only what is told of it fails
        WAIT,
        SEND,
        RECEIVE,
        COUNT
    };

    /// times: how many calls fail.
    SocketFault(FUNCTION function, int error, int times = 1);
    ~SocketFault();
    SocketFault(const SocketFault&) = delete;
    SocketFault& operator=(const SocketFault&) = delete;

    /// The backlog that the last successful or failed listen of the program asked for.
    static int sGetLastBacklog();
    /// All the calls asked for have failed.
    bool IsUsedUp() const;

private:
    const FUNCTION m_function;
};

} // namespace kqlib::test

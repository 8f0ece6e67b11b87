// FtpTestClient: a client that says exactly what a test tells it to.
#pragma once

#include "platform/Sockets.h"
#include "tests/peers/WaitFor.h"

#include <cstdint>
#include <string>

namespace kqlib::test {

/// A blocking socket on 127.0.0.0/8 with a limit on every wait. Ownership: owns its handle. Threads: one at a time.
class FtpTestSocket
{
public:
    FtpTestSocket() = default;
    ~FtpTestSocket() { Close(); }
    FtpTestSocket(FtpTestSocket&& other) noexcept;
    FtpTestSocket& operator=(FtpTestSocket&& other) noexcept;

    /// Connects to a port of 127.0.0.1 from the address 127.0.0.lastByte.
    bool Connect(std::uint16_t port, unsigned char lastByte = 1);
    /// Listens on a port of 127.0.0.1 that the system chooses; 0 on failure.
    std::uint16_t Listen();
    /// Takes the connection that waits as this socket.
    bool Accept(unsigned ms = waitForMs);
    void Close();
    /// Breaks the connection off: the other end sees a reset.
    void Reset();
    bool IsOpen() const { return m_handle != platform::INVALID_SOCKET_HANDLE; }

    bool Send(const std::string& bytes, unsigned ms = waitForMs);
    /// Sends until the other end takes no more for a while; returns how many bytes went out.
    std::size_t SendUntilStuck(const std::string& bytes);
    /// Appends what comes next. False: nothing in time, or the end.
    bool Receive(std::string& bytes, unsigned ms = waitForMs);
    /// Everything up to the end of the connection.
    std::string ReceiveAll(unsigned ms = waitForMs);
    /// True when the other end closes within ms; what came before is thrown away.
    bool WaitClosed(unsigned ms = waitForMs);
    bool IsEnded() const { return m_isEnded; }

private:
    platform::SocketHandle m_handle = platform::INVALID_SOCKET_HANDLE;
    bool m_isEnded = false; // the other end has closed
};

/// The control connection and helpers for data connections.
class FtpTestClient
{
public:
    /// Connects from the address 127.0.0.lastByte and reads the greeting.
    bool Connect(std::uint16_t port, unsigned char lastByte = 1);
    /// Connects, and logs in. False: no 230.
    bool LogIn(std::uint16_t port, const std::string& user, const std::string& password, unsigned char lastByte = 1);

    void Send(const std::string& bytes) { m_socket.Send(bytes); }
    /// The next whole reply, its lines ending in "\n"; empty: none came.
    std::string ReadReply(unsigned ms = waitForMs);
    int ReadCode(unsigned ms = waitForMs);
    /// Sends a line and reads its reply.
    std::string Ask(const std::string& line);
    int Code(const std::string& line);

    /// Prepares a data connection with EPSV and connects it.
    bool OpenPassive(FtpTestSocket& data);
    /// The port in a reply to EPSV; 0: none.
    static std::uint16_t PortOfEpsv(const std::string& reply);

    /// Transfers whole files; the result is the code at the end (of the refusal, if there is one).
    int Download(const std::string& command, std::string& bytes);
    int Upload(const std::string& command, const std::string& bytes);

    FtpTestSocket& GetSocket() { return m_socket; }
    void Close() { m_socket.Close(); }

private:
    FtpTestSocket m_socket;
    std::string m_received;
};

} // namespace kqlib::test

// FtpTLSTestClient: a client that can speak TLS, on the library's own socket.
#pragma once

#include "net/sockets/NetTCPSSL.h"

#include <cstdint>
#include <string>

namespace kqlib::test {

/// The control connection, plain until Secure, and whole transfers over protected or clear data connections.
/// Every wait has a limit. Ownership: owns its connections. Threads: one at a time.
class FtpTLSTestClient
{
public:
    FtpTLSTestClient();

    /// Connects to a port of 127.0.0.1; the greeting is still to come.
    bool Connect(std::uint16_t port);
    /// The handshake on the control connection.
    bool Secure() { return m_control.SSLConnect(); }
    /// Connects, AUTH TLS, the handshake, and logs in as "admin".
    bool LogIn(std::uint16_t port);
    /// PBSZ 0 and PROT P.
    bool Protect() { return Code("PBSZ 0") == 200 && Code("PROT P") == 200; }

    void Send(const std::string& bytes) { sSend(m_control, bytes); }
    /// The next whole reply, its lines ending in "\n"; empty: none came.
    std::string ReadReply();
    int ReadCode();
    std::string Ask(const std::string& line);
    int Code(const std::string& line) { return ToCode(Ask(line)); }
    /// True when the other end closes within the limit.
    bool WaitClosed();

    enum MODE
    {
        PASSIVE,
        ACTIVE
    };
    /// Transfers whole files; the result is the code at the end (of the refusal, if there is one).
    int Download(const std::string& command, std::string& bytes, MODE mode = PASSIVE, bool isProtected = true);
    int Upload(const std::string& command, const std::string& bytes, MODE mode = PASSIVE, bool isProtected = true);

    /// Prepares a data connection; on PASSIVE it is connected, on ACTIVE it listens.
    bool Prepare(NetTCPSSL& data, MODE mode);
    /// Gives the command and has the data connection stand, plain. The result is the code of the reply, 150 if all is
    /// well.
    int Begin(NetTCPSSL& data, const std::string& command, MODE mode);

    NetTCPSSL& GetControl() { return m_control; }
    static bool sSend(NetTCP& socket, const std::string& bytes);
    /// Appends what comes within the limit. False: the connection has ended, or nothing came.
    static bool sReceive(NetTCP& socket, std::string& bytes);

private:
    static int ToCode(const std::string& reply) { return reply.empty() ? 0 : std::stoi(reply.substr(0, 3)); }

    NetTCPSSL m_control;
    std::string m_received;
};

} // namespace kqlib::test

// The fixture of the TLS socket tests: both ends of a connection, certificates, and the handshake on a second thread.
#pragma once

#include "net/sockets/NetTCPSSL.h"
#include "tests/peers/HalfTLSPeer.h"
#include "tests/peers/TLSFiles.h"
#include "tests/peers/WaitFor.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace kqlib::test {

/// A NetTCPSSL whose protected operations tests may call.
class TestTCPSSL : public NetTCPSSL
{
public:
    TestTCPSSL()
        : NetTCPSSL(NetIP::LOOKUP_ANY)
    {
    }

    using NetTCPSSL::WAIT_STATE;
    using NetTCPSSL::WS_NONE;
    using NetTCPSSL::WS_WANTS_READ;
    using NetTCPSSL::WS_WANTS_WRITE;
    using NetTCPSSL::xFreeSSLData;
    using NetTCPSSL::xGetHandle;
    using NetTCPSSL::xGetWaitState;
    using NetTCPSSL::xSetSockBufSendSize;
};

class TLSFixture : public testing::Test
{
protected:
    static void SetUpTestSuite() { NetTCPSSL::sStartSSL(); }
    void SetUp() override
    {
        ASSERT_TRUE(NetSocket::sStartSockets());
        ASSERT_TRUE(m_listener.ListenSpecific(0, LOOPBACK()));
        m_listener.SetBlockTime(5000);
        Connect();
    }
    void TearDown() override
    {
        m_server.Close();
        m_client.Close();
        m_listener.Close();
        NetSocket::sEndSockets();
    }

    static NetIP LOOPBACK() { return NetIP(String("127.0.0.1")); }

    /// Makes server and client a new plain connection.
    void Connect()
    {
        ASSERT_TRUE(m_client.Connect(LOOPBACK(), m_listener.GetLocalPort()));
        const std::unique_ptr<NetTCP> accepted(m_listener.Accept());
        ASSERT_NE(accepted, nullptr);
        m_server.Upgrade(*accepted);
        ASSERT_TRUE(m_server.IsConnected());
    }
    /// The server's handshake on a thread of its own.
    std::future<bool> StartAccept()
    {
        return std::async(std::launch::async,
                          [this] { return m_server.SSLAccept(m_files.GetCert(), m_files.GetKey()); });
    }
    /// Turns TLS on at both ends.
    void Secure()
    {
        std::future<bool> accepted = StartAccept();
        EXPECT_TRUE(m_client.SSLConnect());
        ASSERT_TRUE(accepted.get());
    }
    /// Turns TLS on, with a scripted end in the client's place, whose bytes go through m_client.
    void SecureWith(HalfTLSPeer& client)
    {
        std::future<bool> accepted = StartAccept();
        EXPECT_TRUE(client.HandshakeOver(m_client));
        ASSERT_TRUE(accepted.get());
    }
    /// The same with the library's class as the client and a scripted end in the server's place.
    void SecureClientWith(HalfTLSPeer& server)
    {
        std::future<bool> connected = std::async(std::launch::async, [this] { return m_client.SSLConnect(); });
        EXPECT_TRUE(server.HandshakeOver(m_server));
        ASSERT_TRUE(connected.get());
    }

    /// Sends all of text, within the time of WaitFor.
    static bool SendAll(NetTCP& socket, const std::string& text) { return HalfTLSPeer::sSendAll(socket, text); }
    /// Receives until count bytes are there, the connection ends or the time of WaitFor has passed; size bytes at a time.
    static std::string Receive(NetTCP& socket, std::size_t count, unsigned long size = 4096)
    {
        std::string received;
        std::string buffer(size, '\0');
        WaitFor([&] {
            unsigned long len = size;
            if (!socket.Recv(buffer.data(), len))
                return true;
            received.append(buffer.data(), len);
            return received.size() >= count;
        });
        return received;
    }
    /// Waits until receiving fails.
    static bool ReceiveEnd(NetTCP& socket)
    {
        Receive(socket, std::string::npos);
        return !socket.IsConnected();
    }
    /// Bytes get from one end to the other, both ways.
    static void ExpectTalk(NetTCP& one, NetTCP& other)
    {
        EXPECT_TRUE(SendAll(one, "there"));
        EXPECT_EQ(Receive(other, 5), "there");
        EXPECT_TRUE(SendAll(other, "and back"));
        EXPECT_EQ(Receive(one, 8), "and back");
    }
    static void ExpectClosed(const NetTCPSSL& socket, int code)
    {
        EXPECT_FALSE(socket.IsActive());
        EXPECT_FALSE(socket.IsSSLOn());
        EXPECT_EQ(socket.GetLastError(), code);
    }
    /// Bytes that do not repeat.
    static std::string Pattern(std::size_t size)
    {
        std::string text(size, '\0');
        std::uint32_t state = 1;
        for (char& byte : text) {
            state = state * 1664525U + 1013904223U;
            byte = static_cast<char>(state >> 24);
        }
        return text;
    }
    template <class F> static long long MillisecondsOf(const F& step)
    {
        const auto start = std::chrono::steady_clock::now();
        step();
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    }

    const TLSFiles& m_files = TLSFiles::sGet();
    NetTCP m_listener{NetIP::LOOKUP_ANY};
    TestTCPSSL m_server;
    TestTCPSSL m_client;
};

} // namespace kqlib::test

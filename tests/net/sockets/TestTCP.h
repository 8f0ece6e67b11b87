// TestTCP: a NetTCP whose protected operations tests may call, and the fixture that starts the socket library.
#pragma once

#include "net/sockets/NetTCP.h"
#include "platform/Clock.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace kqlib::test {

class TestTCP : public NetTCP
{
public:
    TestTCP()
        : NetTCP(NetIP::LOOKUP_ANY)
    {
    }

    using NetTCP::xApplyBlockTime;
    using NetTCP::xAttach;
    using NetTCP::xConvert;
    using NetTCP::xGetHandle;
    using NetTCP::xIncreaseIn;
    using NetTCP::xIncreaseOut;
    using NetTCP::xInitialise;
    using NetTCP::xsConvert;
    using NetTCP::xSetIPData;
    using NetTCP::xSetLastError;
    using NetTCP::xSetSockBufRecvSize;
    using NetTCP::xSetSockBufSendSize;
};

/// Starts the socket library around each test; a connection of two ends in this process.
class NetSocketFixture : public testing::Test
{
protected:
    static constexpr std::uint32_t CLOCK_GRAIN_MS = 20; // how much earlier than asked a coarse clock may end a wait
    static constexpr std::uint32_t SLACK_MS = 10000;    // how much later on a busy machine

    void SetUp() override { ASSERT_TRUE(NetSocket::sStartSockets()); }
    void TearDown() override
    {
        server.reset();
        NetSocket::sEndSockets();
    }

    /// Makes listener, client and server a connection over 127.0.0.1.
    void Connect()
    {
        ASSERT_TRUE(listener.ListenSpecific(0, NetIP("127.0.0.1")));
        ASSERT_TRUE(client.Connect(NetIP("127.0.0.1"), listener.GetLocalPort()));
        server = Accept(listener);
        ASSERT_NE(server, nullptr);
    }

    /// The next connection of a listener, within the time of WaitFor; null when none came.
    static std::unique_ptr<NetTCP> Accept(NetTCP& from)
    {
        std::unique_ptr<NetTCP> connection;
        WaitFor([&] {
            connection.reset(from.Accept());
            return connection != nullptr || !from.IsListening();
        });
        return connection;
    }

    /// Sends all of text, within the time of WaitFor.
    static bool SendAll(NetTCP& socket, const std::string& text)
    {
        std::size_t sent = 0;
        return WaitFor([&] {
                   unsigned long len = text.size() - sent;
                   if (len > 0 && !socket.Send(text.data() + sent, len))
                       return true;
                   sent += len;
                   return sent == text.size();
               }) &&
               sent == text.size();
    }

    /// Receives until count bytes are there, the connection ends or twenty seconds have passed.
    static std::string Receive(NetTCP& socket, std::size_t count)
    {
        std::string received;
        std::vector<char> buffer(65536);
        WaitFor(
            [&] {
                unsigned long len;
                do {
                    len = buffer.size();
                    if (!socket.Recv(buffer.data(), len))
                        return true;
                    received.append(buffer.data(), len);
                } while (len > 0 && received.size() < count);
                return received.size() >= count;
            },
            20000);
        return received;
    }

    /// Waits until the socket has seen the end of its connection.
    static bool ReceiveEnd(NetTCP& socket)
    {
        return WaitFor([&] {
            char byte;
            unsigned long len = 1;
            return !socket.Recv(&byte, len);
        });
    }

    TestTCP listener, client;
    std::unique_ptr<NetTCP> server;
};

} // namespace kqlib::test

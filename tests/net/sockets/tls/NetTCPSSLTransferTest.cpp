// Tests of receiving and sending over TLS.
#include "tests/net/sockets/tls/TLSFixture.h"

#include "platform/Sockets.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <openssl/err.h>
#include <vector>

namespace kqlib::test {
namespace {

constexpr long long GRAIN_MS = 20; // how much earlier than asked a coarse clock may end a wait

class NetTCPSSLTransfer : public TLSFixture
{
protected:
    /// Sends until there is no more room; what went out. The last Send, of the piece that begins there, gave len 0.
    static std::size_t SendUntilFull(TestTCPSSL& socket, const std::string& text)
    {
        std::size_t sent = 0;
        // The system may move some to the other end yet, which makes room again: full is what stays full.
        for (int refused = 0; refused < 4;) {
            unsigned long len = text.size() - sent;
            EXPECT_GT(len, 0U) << "never full";
            EXPECT_TRUE(socket.Send(text.data() + sent, len));
            EXPECT_EQ(socket.xGetWaitState(), len > 0 ? TestTCPSSL::WS_NONE : TestTCPSSL::WS_WANTS_WRITE)
                << "a part that was taken leaves no wait behind";
            sent += len;
            refused = len == 0 ? refused + 1 : 0;
            if (len == 0)
                platform::WaitSocket(socket.xGetHandle(), false, 100);
        }
        return sent;
    }
    /// Fills the system's buffers of the connection behind the back of TLS; bytes written.
    static std::size_t FillRaw(const TestTCPSSL& socket)
    {
        const std::vector<unsigned char> noise(65536, 'n');
        std::size_t total = 0;
        for (int idle = 0; idle < 5;) {
            std::size_t size = noise.size();
            if (platform::SendSocket(socket.xGetHandle(), noise.data(), size) == platform::IoResult::DONE) {
                total += size;
                idle = 0;
                continue;
            }
            // The system may move some to the other end yet.
            platform::WaitSocket(socket.xGetHandle(), false, 20);
            ++idle;
        }
        return total;
    }
    /// Takes that many bytes from the connection, below TLS.
    static void DrainRaw(const TestTCPSSL& socket, std::size_t count)
    {
        std::vector<unsigned char> buffer(65536);
        ASSERT_TRUE(WaitFor([&] {
            std::size_t size = std::min(buffer.size(), count);
            if (platform::RecvSocket(socket.xGetHandle(), buffer.data(), size) == platform::IoResult::DONE)
                count -= size;
            return count == 0;
        }));
    }
    static bool RecvNothing(NetTCP& socket)
    {
        char byte;
        unsigned long len = 1;
        return socket.Recv(&byte, len) && len == 0;
    }

    static inline const std::string m_big = Pattern(32 << 20); // more than the system's buffers ever hold
};

TEST_F(NetTCPSSLTransfer, NotConnected_47)
{
    Secure();
    m_server.Close();
    char byte = 'x';
    unsigned long len = 1;
    EXPECT_FALSE(m_server.Recv(&byte, len));
    EXPECT_EQ(len, 0U);
    EXPECT_EQ(m_server.GetLastError(), NetSocket::ERR_NOT_CONNECTED);
    len = 1;
    EXPECT_FALSE(m_server.Send(&byte, len));
    EXPECT_EQ(len, 0U);
}

TEST_F(NetTCPSSLTransfer, Recv_NothingThere_TrueWithLen0AfterTheBlockTime)
{
    Secure();
    for (const unsigned long blockMs : {0UL, 2UL, 500UL}) {
        m_server.SetBlockTime(blockMs);
        // The first call may meet what the peer's TLS sent on its own account.
        EXPECT_TRUE(RecvNothing(m_server));
        const long long took = MillisecondsOf([&] { EXPECT_TRUE(RecvNothing(m_server)); });
        EXPECT_GE(took, static_cast<long long>(blockMs) - GRAIN_MS);
        EXPECT_LT(took, static_cast<long long>(blockMs) + 3000);
        EXPECT_EQ(m_server.xGetWaitState(), TestTCPSSL::WS_WANTS_READ);
    }
}

TEST_F(NetTCPSSLTransfer, Recv_TicketsOnly_TrueWithLen0)
{
    // The server's TLS 1.3 tickets make the client's socket readable, and there are no bytes for it.
    HalfTLSPeer peer(HalfTLSPeer::SERVER, HalfTLSPeer::TLS_1_3);
    SecureClientWith(peer);
    m_client.SetBlockTime(50);
    EXPECT_TRUE(RecvNothing(m_client));
    EXPECT_TRUE(RecvNothing(m_client));
    EXPECT_EQ(m_client.xGetWaitState(), TestTCPSSL::WS_WANTS_READ);
    EXPECT_EQ(m_client.GetInDataBytes(), 0U);
}

TEST_F(NetTCPSSLTransfer, Recv_LargeRecordInSmallPieces_NoPieceWaits)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    const std::string text = Pattern(16384);
    EXPECT_TRUE(SendAll(m_client, peer.Encrypt(text)));
    m_server.SetBlockTime(500);
    std::string received;
    const long long took = MillisecondsOf([&] { received = Receive(m_server, text.size(), 100); });
    EXPECT_EQ(received, text);
    EXPECT_LT(took, 2000) << "164 pieces, each of which would wait 500 ms";
}

TEST_F(NetTCPSSLTransfer, RecvTryGetCmd_ManyCommandsInOneRecord_NoneWaits)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    std::string text;
    for (int number = 0; number < 1000; ++number)
        text += "NOOP " + std::to_string(number) + "\r\n";
    EXPECT_TRUE(SendAll(m_client, peer.Encrypt(text)));
    m_server.SetBlockTime(500);
    unsigned char bytes[16];
    NetTCP::RECVBUF buffer{sizeof(bytes), bytes, 0, 0, false};
    String command;
    bool done = false;
    bool tooLong = false;
    m_server.RecvPrepForFirstCmd(buffer, command, done);
    const long long took = MillisecondsOf([&] {
        for (int number = 0; number < 1000; ++number) {
            while (!done)
                ASSERT_TRUE(m_server.RecvTryGetCmd(false, 512, buffer, command, tooLong, done));
            EXPECT_EQ(command.str(), "NOOP " + std::to_string(number));
            m_server.RecvPrepForNextCmd(buffer, command, done);
        }
    });
    EXPECT_LT(took, 5000);
}

TEST_F(NetTCPSSLTransfer, Recv_EachByteOfItsOwnRecord_All)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    const std::string text = Pattern(500);
    std::string records;
    for (const char byte : text)
        records += peer.Encrypt(std::string(1, byte));
    EXPECT_TRUE(SendAll(m_client, records));
    EXPECT_EQ(Receive(m_server, text.size()), text);
    EXPECT_EQ(m_server.GetInDataBytes(), 500U);
}

TEST_F(NetTCPSSLTransfer, Recv_HalfARecord_WaitsWithoutSpinningAndGoesOn)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    const std::string text = Pattern(1000);
    const std::string record = peer.Encrypt(text);
    for (const std::size_t part : {std::size_t{1}, std::size_t{4}, std::size_t{5}, std::size_t{6}, record.size() - 1}) {
        SCOPED_TRACE(part);
        Connect();
        HalfTLSPeer half(HalfTLSPeer::CLIENT);
        SecureWith(half);
        const std::string bytes = half.Encrypt(text);
        EXPECT_TRUE(SendAll(m_client, bytes.substr(0, part)));
        m_server.SetBlockTime(60);
        EXPECT_TRUE(RecvNothing(m_server)); // meets the part
        int calls = 0;
        const long long took = MillisecondsOf([&] {
            for (; calls < 4; ++calls)
                EXPECT_TRUE(RecvNothing(m_server));
        });
        EXPECT_GE(took, 4 * (60 - GRAIN_MS)) << "each call waits its block time, or the caller would spin";
        EXPECT_EQ(m_server.xGetWaitState(), TestTCPSSL::WS_WANTS_READ);
        EXPECT_TRUE(SendAll(m_client, bytes.substr(part)));
        EXPECT_EQ(Receive(m_server, text.size()), text);
    }
}

TEST_F(NetTCPSSLTransfer, Recv_PeerClosesWithoutFarewell_48)
{
    Secure();
    m_client.Close();
    EXPECT_TRUE(ReceiveEnd(m_server));
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLTransfer, Recv_PeerClosesInsideARecord_48)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    const std::string bytes = peer.Encrypt("cut short");
    EXPECT_TRUE(SendAll(m_client, bytes.substr(0, bytes.size() / 2)));
    m_client.ShutdownAndClose();
    EXPECT_EQ(Receive(m_server, std::string::npos), "");
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLTransfer, GetPeerEnd_EachWayOfEnding_Told)
{
    struct WAY
    {
        const char* name;
        std::function<void(HalfTLSPeer&)> end;
        NetTCP::PEER_END expected;
    };
    const auto endInside = [this](HalfTLSPeer& peer, std::size_t size) {
        std::string wire = peer.Encrypt("a whole one");
        wire += peer.Encrypt("cut short").substr(0, size); // after it: records are numbered
        EXPECT_TRUE(SendAll(m_client, wire));
        m_client.Close();
    };
    const WAY ways[] = {
        {"farewell, and open",
         [this](HalfTLSPeer& peer) { EXPECT_TRUE(SendAll(m_client, peer.Encrypt("x") + peer.SayFarewell())); },
         NetTCP::PE_IN_ORDER},
        {"farewell and reset",
         [this](HalfTLSPeer& peer) {
             EXPECT_TRUE(SendAll(m_client, peer.SayFarewell()));
             EXPECT_TRUE(ReceiveEnd(m_server)); // the answer to it may then find nobody
             platform::AbortSocket(m_client.Detach());
         },
         NetTCP::PE_IN_ORDER},
        {"end below TLS", [this](HalfTLSPeer&) { m_client.Close(); }, NetTCP::PE_NO_FAREWELL},
        {"end behind a record",
         [this](HalfTLSPeer& peer) {
             EXPECT_TRUE(SendAll(m_client, peer.Encrypt("a whole one")));
             m_client.Close();
         },
         NetTCP::PE_NO_FAREWELL},
        {"end inside a header", [&](HalfTLSPeer& peer) { endInside(peer, 3); }, NetTCP::PE_BROKEN_OFF},
        {"end behind a header", [&](HalfTLSPeer& peer) { endInside(peer, 5); }, NetTCP::PE_BROKEN_OFF},
        {"end inside a record", [&](HalfTLSPeer& peer) { endInside(peer, 12); }, NetTCP::PE_BROKEN_OFF},
        {"reset", [this](HalfTLSPeer&) { platform::AbortSocket(m_client.Detach()); }, NetTCP::PE_BROKEN_OFF},
        {"no TLS at all", [this](HalfTLSPeer&) { EXPECT_TRUE(SendAll(m_client, "QUIT\r\n")); }, NetTCP::PE_BROKEN_OFF},
    };
    for (const unsigned long blockTime : {0UL, 5UL}) {
        for (const WAY& way : ways) {
            Connect();
            m_server.SetBlockTime(blockTime);
            HalfTLSPeer peer(HalfTLSPeer::CLIENT);
            SecureWith(peer);
            EXPECT_EQ(m_server.GetPeerEnd(), NetTCP::PE_NONE) << way.name;
            way.end(peer);
            Receive(m_server, std::string::npos);
            EXPECT_EQ(m_server.GetPeerEnd(), way.expected) << way.name << ", block time " << blockTime;
            m_client.Close();
        }
    }
}

TEST_F(NetTCPSSLTransfer, Recv_DamagedRecord_48)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    std::string bytes = peer.Encrypt("changed on the way");
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    EXPECT_TRUE(SendAll(m_client, bytes));
    EXPECT_TRUE(ReceiveEnd(m_server));
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLTransfer, Recv_PlainBytesInsideTLS_48)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    EXPECT_TRUE(SendAll(m_client, "QUIT\r\n"));
    EXPECT_TRUE(ReceiveEnd(m_server));
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLTransfer, Recv_NewKeysDemanded_GoesOn)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT, HalfTLSPeer::TLS_1_3);
    SecureWith(peer);
    for (int turn = 0; turn < 5; ++turn) {
        std::string bytes = peer.DemandNewKeys();
        bytes += peer.Encrypt("new");
        EXPECT_TRUE(SendAll(m_client, bytes));
        EXPECT_EQ(Receive(m_server, 3), "new");
        EXPECT_TRUE(SendAll(m_server, "old"));
    }
    EXPECT_TRUE(WaitFor([&] { return peer.ReceiveFrom(m_client) == "oldoldoldoldold"; }));
}

TEST_F(NetTCPSSLTransfer, Send_SeveralRecordsPerCall_AtMost131072Bytes)
{
    Secure();
    for (const unsigned long size : {1UL, 16383UL, 16384UL, 16385UL, 131072UL, 131073UL, 400000UL}) {
        unsigned long len = size;
        EXPECT_TRUE(m_server.Send(m_big.data(), len));
        EXPECT_EQ(len, std::min(size, 131072UL));
        EXPECT_TRUE(Receive(m_client, len) == m_big.substr(0, len));
    }
}

TEST_F(NetTCPSSLTransfer, Send_NoBytes_Nothing)
{
    Secure();
    unsigned long len = 0;
    EXPECT_TRUE(m_server.Send("", len));
    EXPECT_EQ(len, 0U);
}

TEST_F(NetTCPSSLTransfer, Send_PeerDoesNotRead_TrueWithLen0AfterTheBlockTime)
{
    Secure();
    m_server.SetBlockTime(0);
    const std::size_t sent = SendUntilFull(m_server, m_big);
    EXPECT_EQ(m_server.xGetWaitState(), TestTCPSSL::WS_WANTS_WRITE);
    for (const unsigned long blockMs : {0UL, 2UL, 500UL}) {
        m_server.SetBlockTime(blockMs);
        unsigned long len = m_big.size() - sent;
        const long long took = MillisecondsOf([&] { EXPECT_TRUE(m_server.Send(m_big.data() + sent, len)); });
        EXPECT_GE(took, static_cast<long long>(blockMs) - GRAIN_MS);
        EXPECT_EQ(len, 0U);
    }
}

TEST_F(NetTCPSSLTransfer, Send_RetryAfterLen0FromAnotherPlace_ArrivesExactly)
{
    Secure();
    m_server.SetBlockTime(0);
    const std::size_t first = SendUntilFull(m_server, m_big);
    const std::string copy = m_big.substr(first, 1 << 20); // the same bytes elsewhere, and fewer of them
    std::future<std::string> received =
        std::async(std::launch::async, [&] { return Receive(m_client, first + copy.size(), 65536); });
    m_server.SetBlockTime(100);
    EXPECT_TRUE(SendAll(m_server, copy));
    EXPECT_TRUE(received.get() == m_big.substr(0, first + copy.size()));
    EXPECT_EQ(m_server.GetOutDataBytes(), first + copy.size());
}

TEST_F(NetTCPSSLTransfer, Send_GivenUpAndOtherBytesOffered_BegunRecordFirstThenThose)
{
    Secure();
    m_server.SetBlockTime(0);
    const std::size_t first = SendUntilFull(m_server, m_big);
    std::future<std::string> received =
        std::async(std::launch::async, [&] { return Receive(m_client, first + 16384 + 10, 65536); });
    m_server.SetBlockTime(100);
    EXPECT_TRUE(SendAll(m_server, "last words"));
    const std::string text = received.get();
    EXPECT_TRUE(text == m_big.substr(0, first + 16384) + "last words");
    EXPECT_EQ(m_server.GetOutDataBytes(), text.size());
    ExpectTalk(m_client, m_server);
}

// Pieces that were shorter than the begun record once arrived twice, as the record and by themselves.
TEST_F(NetTCPSSLTransfer, Send_ShorterPiecesThatRepeatTheBegunRecord_ArriveOnce)
{
    Secure();
    m_server.SetBlockTime(0);
    const std::size_t first = SendUntilFull(m_server, m_big);
    const std::size_t all = first + 16384 + 5000;
    std::future<std::string> received = std::async(std::launch::async, [&] { return Receive(m_client, all, 65536); });
    m_server.SetBlockTime(100);
    for (std::size_t sent = first; sent < all;) {
        unsigned long len = std::min<std::size_t>(sent % 1000 + 1, all - sent);
        ASSERT_TRUE(m_server.Send(m_big.data() + sent, len));
        sent += len;
    }
    EXPECT_TRUE(received.get() == m_big.substr(0, all));
    EXPECT_EQ(m_server.GetOutDataBytes(), all);
    ExpectTalk(m_client, m_server);
}

// 1,064,960 bytes once came for 1,048,576: a piece that was not taken was offered again by halves.
TEST_F(NetTCPSSLTransfer, Send_HalfAsMuchAfterEachRefusal_ArrivesExactly)
{
    Secure();
    const std::string text = m_big.substr(0, 1 << 20);
    m_server.SetBlockTime(0);
    m_server.xSetSockBufSendSize(20000);
    std::future<std::string> received =
        std::async(std::launch::async, [&] { return Receive(m_client, text.size() + 1, 3000); });
    unsigned long piece = 60000;
    for (std::size_t sent = 0; sent < text.size();) {
        unsigned long len = std::min<std::size_t>(piece, text.size() - sent);
        ASSERT_TRUE(m_server.Send(text.data() + sent, len));
        sent += len;
        piece = len == 0 ? std::max(piece / 2, 1UL) : 60000;
        if (len == 0 && piece == 1)
            platform::WaitSocket(m_server.xGetHandle(), false, 100);
    }
    m_server.ShutdownAndClose();
    EXPECT_TRUE(received.get() == text);
}

TEST_F(NetTCPSSLTransfer, SSLEndSending_RecordBegun_FinishedBeforeTheFarewell)
{
    HalfTLSPeer peer(HalfTLSPeer::SERVER);
    SecureClientWith(peer);
    m_client.SetBlockTime(0);
    const std::size_t first = SendUntilFull(m_client, m_big);
    std::future<bool> ended = std::async(std::launch::async, [this] { return m_client.SSLEndSending(); });
    EXPECT_TRUE(WaitFor([&] {
        peer.ReceiveFrom(m_server);
        return peer.HasFarewell() || peer.HasFailed();
    }));
    EXPECT_TRUE(ended.get());
    EXPECT_TRUE(peer.ReceiveFrom(m_server) == m_big.substr(0, first + 16384));
    EXPECT_EQ(m_client.GetOutDataBytes(), first + 16384);
    EXPECT_TRUE(m_client.IsSSLOn());
}

TEST_F(NetTCPSSLTransfer, EveryOperation_DoneOrFailed_LeavesNoErrorOfOpenSSL)
{
    // Errors of something else on the thread go too: nothing that comes later may take them for its own.
    const auto expectNone = [](const char* name, const auto& operation) {
        ERR_clear_error();
        ERR_raise(ERR_LIB_USER, 1);
        operation();
        EXPECT_EQ(ERR_peek_error(), 0UL) << name;
    };
    char bytes[100] = {};
    unsigned long len = 0;
    const auto secureWith = [&](std::unique_ptr<HalfTLSPeer>& peer) {
        Connect();
        peer = std::make_unique<HalfTLSPeer>(HalfTLSPeer::CLIENT);
        SecureWith(*peer);
        m_server.SetBlockTime(1000);
    };
    std::unique_ptr<HalfTLSPeer> peer;

    secureWith(peer);
    EXPECT_TRUE(SendAll(m_client, peer->Encrypt("good")));
    expectNone("Recv", [&] { EXPECT_TRUE(m_server.Recv(bytes, len = sizeof(bytes))); });
    expectNone("Send", [&] { EXPECT_TRUE(m_server.Send("bytes", len = 5)); });
    std::string damaged = peer->Encrypt("damaged");
    damaged.back() = static_cast<char>(damaged.back() ^ 1);
    EXPECT_TRUE(SendAll(m_client, damaged));
    expectNone("Recv that fails", [&] { EXPECT_FALSE(m_server.Recv(bytes, len = sizeof(bytes))); });

    secureWith(peer);
    expectNone("SSLEndSending", [&] { EXPECT_TRUE(m_server.SSLEndSending()); });

    secureWith(peer);
    platform::AbortSocket(m_client.Detach());
    ASSERT_EQ(platform::WaitSocket(m_server.xGetHandle(), true, 20000), platform::WaitResult::READY);
    expectNone("Send that fails", [&] { EXPECT_FALSE(m_server.Send("to nobody", len = 9)); });
    expectNone("SSLEndSending without TLS", [&] { EXPECT_FALSE(m_server.SSLEndSending()); });

    for (const bool inOrder : {true, false}) {
        secureWith(peer);
        m_server.SetBlockTime(0);
        SendUntilFull(m_server, m_big);
        expectNone("the end with a begun record", [&] { inOrder ? m_server.ShutdownAndClose() : m_server.Close(); });
    }
}

TEST_F(NetTCPSSLTransfer, Handshake_ThatFails_LeavesNoErrorOfOpenSSL)
{
    m_client.SetBlockTime(1000);
    std::future<unsigned long> left = std::async(std::launch::async, [this] {
        EXPECT_FALSE(m_server.SSLAccept(m_files.GetCert(), m_files.GetKey()));
        return ERR_peek_error();
    });
    EXPECT_TRUE(SendAll(m_client, "no TLS at all, and that for more than five bytes\r\n"));
    EXPECT_EQ(left.get(), 0UL);
    Connect();
    left = std::async(std::launch::async, [this] {
        EXPECT_FALSE(m_client.SSLConnect());
        return ERR_peek_error();
    });
    EXPECT_TRUE(SendAll(m_server, "no TLS at all, and that for more than five bytes\r\n"));
    EXPECT_EQ(left.get(), 0UL);
}

TEST_F(NetTCPSSLTransfer, Recv_WhileARecordIsBegun_BothDirectionsGoOn)
{
    Secure();
    m_server.SetBlockTime(0);
    const std::size_t first = SendUntilFull(m_server, m_big);
    m_server.SetBlockTime(20);
    EXPECT_TRUE(SendAll(m_client, "meanwhile"));
    EXPECT_EQ(Receive(m_server, 9), "meanwhile");
    std::future<std::string> received =
        std::async(std::launch::async, [&] { return Receive(m_client, first + 100000, 65536); });
    EXPECT_TRUE(SendAll(m_server, m_big.substr(first, 100000)));
    EXPECT_TRUE(received.get() == m_big.substr(0, first + 100000));
}

TEST_F(NetTCPSSLTransfer, Send_PeerClosed_48SoonerOrLater)
{
    Secure();
    m_client.Close();
    EXPECT_FALSE(SendAll(m_server, m_big));
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLTransfer, ShutdownAndClose_PeerDoesNotRead_FarewellGivenUpAtOnceWhenARecordIsBegun)
{
    Secure();
    m_server.SetBlockTime(0);
    SendUntilFull(m_server, m_big);
    EXPECT_LT(MillisecondsOf([&] { m_server.ShutdownAndClose(); }), 5000);
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLTransfer, Recv_TLSNeedsToWriteFirst_WaitState2AndGoesOnWhenThereIsRoom)
{
    HalfTLSPeer peer(HalfTLSPeer::SERVER, HalfTLSPeer::TLS_1_2);
    SecureClientWith(peer);
    const std::size_t noise = FillRaw(m_client);
    m_client.SetBlockTime(50);
    EXPECT_TRUE(SendAll(m_server, peer.Renegotiate())); // the client is asked for another handshake
    EXPECT_TRUE(RecvNothing(m_client));
    EXPECT_EQ(m_client.xGetWaitState(), TestTCPSSL::WS_WANTS_WRITE);
    EXPECT_GE(MillisecondsOf([&] { EXPECT_TRUE(RecvNothing(m_client)); }), 50 - GRAIN_MS);
    EXPECT_EQ(m_client.xGetWaitState(), TestTCPSSL::WS_WANTS_WRITE);

    // There is room again, and nothing to read: the reply goes out all the same.
    std::future<void> drained = std::async(std::launch::async, [&] { DrainRaw(m_server, noise); });
    EXPECT_TRUE(WaitFor([&] {
        EXPECT_TRUE(RecvNothing(m_client));
        return m_client.xGetWaitState() == TestTCPSSL::WS_WANTS_READ;
    }));
    drained.get();
}

TEST_F(NetTCPSSLTransfer, Send_TLSNeedsToReadFirst_WaitState1AndWaitsForThat)
{
    HalfTLSPeer peer(HalfTLSPeer::SERVER, HalfTLSPeer::TLS_1_2);
    SecureClientWith(peer);
    m_client.SetBlockTime(50);
    EXPECT_TRUE(SendAll(m_server, peer.Renegotiate()));
    EXPECT_TRUE(WaitFor([&] { // the demand has come and is being answered
        EXPECT_TRUE(RecvNothing(m_client));
        unsigned long len = 1;
        EXPECT_TRUE(m_client.Send("x", len));
        return len == 0;
    }));
    EXPECT_EQ(m_client.xGetWaitState(), TestTCPSSL::WS_WANTS_READ);
    unsigned long len = 1;
    EXPECT_GE(MillisecondsOf([&] { EXPECT_TRUE(m_client.Send("x", len)); }), 50 - GRAIN_MS)
        << "the socket can be written, which is not what TLS waits for";
    EXPECT_EQ(len, 0U);
}

TEST_F(NetTCPSSLTransfer, BothDirectionsAtOnce_Megabytes_Exact)
{
    Secure();
    const std::string up = m_big.substr(0, 8 << 20);
    const std::string down = m_big.substr(3, 8 << 20);
    m_server.SetBlockTime(2);
    m_client.SetBlockTime(2);
    // One thread per end: each sends a record and receives what there is, in turns.
    const auto exchange = [](NetTCP& socket, const std::string& out, std::size_t expected) {
        std::string in;
        std::string buffer(65536, '\0');
        std::size_t sent = 0;
        while (sent < out.size() || in.size() < expected) {
            unsigned long len = out.size() - sent;
            if (len > 0 && !socket.Send(out.data() + sent, len))
                break;
            sent += len;
            len = buffer.size();
            if (!socket.Recv(buffer.data(), len))
                break;
            in.append(buffer, 0, len);
        }
        return in;
    };
    std::future<std::string> atServer =
        std::async(std::launch::async, [&] { return exchange(m_server, down, up.size()); });
    EXPECT_TRUE(exchange(m_client, up, down.size()) == down);
    EXPECT_TRUE(atServer.get() == up);
}

} // namespace
} // namespace kqlib::test

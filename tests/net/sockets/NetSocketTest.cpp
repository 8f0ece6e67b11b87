#include "net/sockets/NetSocket.h"

#include "net/sockets/NetUDP.h"
#include "platform/Sockets.h"
#include "tests/net/sockets/TestTCP.h"
#include "tests/peers/Missing.h"
#include "tests/peers/Sockets.h"

#include <cstring>
#include <limits>
#include <type_traits>

using namespace kqlib;
using namespace kqlib::test;

namespace {

using NetSocketTest = NetSocketFixture;

const NetIP LOOPBACK("127.0.0.1");

/// An address whose type is none of the two.
NetIP MakeAddressOfNoType()
{
    NetIP ip;
    const std::uint32_t noType = 7;
    std::memcpy(static_cast<void*>(&ip), &noType, sizeof(noType));
    return ip;
}

/// Counts how often its state was cleared.
class StateCounter : public NetTCP
{
public:
    StateCounter()
        : NetTCP(NetIP::LOOKUP_ANY)
    {
    }

    int count = 0;

protected:
    void xSetStateClosed() override
    {
        ++count;
        NetTCP::xSetStateClosed();
    }
};

void ExpectNoAddresses(const NetSocket& socket)
{
    EXPECT_EQ(socket.GetLocalIP(), NetIP());
    EXPECT_EQ(socket.GetRemoteIP(), NetIP());
    EXPECT_EQ(socket.GetLocalPort(), 0);
    EXPECT_EQ(socket.GetRemotePort(), 0);
}

} // namespace

static_assert(!std::is_copy_constructible_v<NetTCP> && !std::is_copy_assignable_v<NetTCP>);
static_assert(std::has_virtual_destructor_v<NetSocket>);
static_assert(std::is_abstract_v<NetSocket>);

TEST_F(NetSocketTest, Construct_EverythingIsEmpty)
{
    const TestTCP socket;
    ExpectNoAddresses(socket);
    EXPECT_EQ(socket.GetLastError(), 0);
    EXPECT_EQ(socket.GetInDataBytes(), 0U);
    EXPECT_EQ(socket.GetOutDataBytes(), 0U);
    EXPECT_EQ(socket.GetBlockTimeMs(), 0U);
    EXPECT_EQ(socket.GetIPLookupMode(), NetIP::LOOKUP_ANY);
    EXPECT_EQ(socket.xGetHandle(), 0xFFFFFFFFU);
    EXPECT_EQ(socket.GetBufRecvSize(), 0U);
    EXPECT_EQ(socket.GetBufSendSize(), 0U);
}

TEST_F(NetSocketTest, StartSockets_Again_StillUsable)
{
    EXPECT_TRUE(NetSocket::sStartSockets());
    NetSocket::sEndSockets();
    Connect();
    EXPECT_TRUE(SendAll(client, "x"));
}

TEST_F(NetSocketTest, Close_NeverOpened_OnlyClearsAddresses)
{
    TestTCP socket;
    socket.xSetLastError(48);
    socket.Close();
    socket.Close();
    ExpectNoAddresses(socket);
    EXPECT_EQ(socket.GetLastError(), 48);
}

TEST_F(NetSocketTest, Close_WithAndWithoutAHandle_StateClearedOnlyForTheHandle)
{
    StateCounter socket;
    socket.Close();
    EXPECT_EQ(socket.count, 0);
    ASSERT_TRUE(socket.ListenSpecific(0, LOOPBACK));
    socket.Close();
    EXPECT_EQ(socket.count, 1);
    socket.Close();
    EXPECT_EQ(socket.count, 1);
}

TEST_F(NetSocketTest, Close_Connected_KeepsErrorCountersAndBlockTime)
{
    Connect();
    ASSERT_TRUE(SendAll(client, "four"));
    EXPECT_EQ(Receive(*server, 4), "four");
    ASSERT_TRUE(SendAll(*server, "back!"));
    EXPECT_EQ(Receive(client, 5), "back!");
    client.SetBlockTime(7);
    client.xSetLastError(46);
    client.Close();
    client.Close();
    ExpectNoAddresses(client);
    EXPECT_FALSE(client.IsActive());
    EXPECT_EQ(client.xGetHandle(), 0xFFFFFFFFU);
    EXPECT_EQ(client.GetLastError(), 46);
    EXPECT_EQ(client.GetBlockTimeMs(), 7U);
    EXPECT_EQ(client.GetOutDataBytes(), 4U);
    EXPECT_EQ(client.GetInDataBytes(), 5U);
    EXPECT_TRUE(ReceiveEnd(*server));
}

TEST_F(NetSocketTest, Counters_OverTwoConnections_CountOn)
{
    Connect();
    ASSERT_TRUE(SendAll(client, "one"));
    Connect();
    ASSERT_TRUE(SendAll(client, "two!"));
    EXPECT_EQ(client.GetOutDataBytes(), 7U);
}

TEST_F(NetSocketTest, Counters_Beyond32Bits_Wrap)
{
    Connect();
    client.xIncreaseOut(0xFFFFFFFEU);
    ASSERT_TRUE(SendAll(client, "12345"));
    EXPECT_EQ(client.GetOutDataBytes(), 3U);
    client.xIncreaseIn(0xFFFFFFFFU);
    EXPECT_EQ(client.GetInDataBytes(), 0xFFFFFFFFU);
    ASSERT_TRUE(SendAll(*server, "x"));
    EXPECT_EQ(Receive(client, 1), "x");
    EXPECT_EQ(client.GetInDataBytes(), 0U);
}

TEST_F(NetSocketTest, Detach_Connected_CallerOwnsALivingHandle)
{
    Connect();
    ASSERT_TRUE(SendAll(client, "abc"));
    const unsigned int handle = client.Detach();
    ASSERT_NE(handle, 0xFFFFFFFFU);
    EXPECT_EQ(client.GetState(), NetTCP::TS_CLOSED);
    EXPECT_EQ(client.xGetHandle(), 0xFFFFFFFFU);
    ExpectNoAddresses(client);
    EXPECT_EQ(client.GetOutDataBytes(), 3U);

    TestTCP heir;
    heir.xSetLastError(42);
    heir.xAttach(handle, NetTCP::TS_CONNECTED);
    EXPECT_EQ(heir.GetLastError(), 0);
    EXPECT_EQ(heir.GetRemotePort(), listener.GetLocalPort());
    EXPECT_EQ(heir.GetOutDataBytes(), 0U);
    ASSERT_TRUE(SendAll(heir, "def"));
    EXPECT_EQ(Receive(*server, 6), "abcdef");
}

TEST_F(NetSocketTest, Detach_NeverOpened_NoHandle)
{
    TestTCP socket;
    EXPECT_EQ(socket.Detach(), 0xFFFFFFFFU);
    EXPECT_EQ(socket.GetState(), NetTCP::TS_CLOSED);
    NetUDP datagrams(NetIP::LOOKUP_ANY);
    EXPECT_EQ(datagrams.Detach(), 0xFFFFFFFFU);
}

TEST_F(NetSocketTest, Attach_OverAnOpenSocket_ClosesTheOldOne)
{
    Connect();
    TestTCP other;
    ASSERT_TRUE(other.Connect(LOOPBACK, listener.GetLocalPort()));
    const auto otherServer = Accept(listener);
    client.xAttach(other.Detach(), NetTCP::TS_CONNECTED);
    EXPECT_TRUE(ReceiveEnd(*server));
    ASSERT_TRUE(SendAll(client, "new"));
    EXPECT_EQ(Receive(*otherServer, 3), "new");
}

TEST_F(NetSocketTest, Destructor_OpenSocket_ClosesIt)
{
    Connect();
    server.reset();
    EXPECT_TRUE(ReceiveEnd(client));
}

TEST_F(NetSocketTest, Initialise_AddressOfNoType_Error40)
{
    TestTCP socket;
    EXPECT_FALSE(socket.xInitialise(true, static_cast<NetIP::IPTYPE>(7)));
    EXPECT_EQ(socket.GetLastError(), 40);
    EXPECT_FALSE(socket.Connect(MakeAddressOfNoType(), 80));
    EXPECT_EQ(socket.GetLastError(), 40);
    EXPECT_FALSE(socket.ListenSpecific(0, MakeAddressOfNoType()));
    EXPECT_EQ(socket.GetLastError(), 40);
}

TEST_F(NetSocketTest, Initialise_OpenSocket_ClosesTheOldOne)
{
    Connect();
    EXPECT_TRUE(client.xInitialise(true, NetIP::IP_4));
    EXPECT_NE(client.xGetHandle(), 0xFFFFFFFFU);
    EXPECT_FALSE(client.IsConnected());
    EXPECT_TRUE(ReceiveEnd(*server));
}

// --- block time

TEST_F(NetSocketTest, BlockTime_Zero_NeverWaits)
{
    Connect();
    bool timedOut = true;
    EXPECT_TRUE(server->GetBlockTimeMs() == 0 && client.xApplyBlockTime(true, timedOut));
    EXPECT_FALSE(timedOut);
    const std::uint32_t start = platform::TickMs();
    for (int i = 0; i < 100; i++) {
        char byte;
        unsigned long len = 1;
        ASSERT_TRUE(client.Recv(&byte, len));
        ASSERT_EQ(len, 0U);
    }
    EXPECT_LT(platform::TickMs() - start, SLACK_MS);
}

TEST_F(NetSocketTest, BlockTime_2500_RecvWaitsTwoAndAHalfSeconds)
{
    Connect();
    client.SetBlockTime(2500);
    const std::uint32_t start = platform::TickMs();
    char byte;
    unsigned long len = 1;
    EXPECT_TRUE(client.Recv(&byte, len));
    EXPECT_EQ(len, 0U);
    const std::uint32_t passed = platform::TickMs() - start;
    EXPECT_GE(passed + CLOCK_GRAIN_MS, 2500U);
    EXPECT_LT(passed, 2500U + SLACK_MS);
}

TEST_F(NetSocketTest, BlockTime_RightAfterReceivedBytes_StillWaitsTheWholeTime)
{
    Connect();
    client.SetBlockTime(100);
    ASSERT_TRUE(SendAll(*server, "x"));
    char byte;
    unsigned long len = 1;
    ASSERT_TRUE(client.Recv(&byte, len));
    ASSERT_EQ(len, 1U);
    const std::uint32_t start = platform::TickMs();
    EXPECT_TRUE(client.Recv(&byte, len));
    EXPECT_EQ(len, 0U);
    EXPECT_GE(platform::TickMs() - start + CLOCK_GRAIN_MS, 100U);
}

TEST_F(NetSocketTest, BlockTime_MoreThan32Bits_LargestValue)
{
    TestTCP socket;
    socket.SetBlockTime(std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(socket.GetBlockTimeMs(), 0xFFFFFFFFU);
}

TEST_F(NetSocketTest, TryTime_UpToAMillisecond_IsTakenAndMoreRefused)
{
    TestTCP socket;
    EXPECT_EQ(socket.GetTryTimeMicros(), 0U);
    for (const unsigned long micros : {50UL, 1000UL, 0UL, 1UL}) {
        EXPECT_TRUE(socket.SetTryTime(micros));
        EXPECT_EQ(socket.GetTryTimeMicros(), micros);
    }
    for (const unsigned long micros : {1001UL, std::numeric_limits<unsigned long>::max()}) {
        EXPECT_FALSE(socket.SetTryTime(micros));
        EXPECT_EQ(socket.GetTryTimeMicros(), 1U);
    }
}

TEST_F(NetSocketTest, TryTime_NothingComes_StillWaitsTheWholeBlockTime)
{
    Connect();
    client.SetBlockTime(100);
    ASSERT_TRUE(client.SetTryTime(NetSocket::MAX_TRY_MICROS));
    const std::uint32_t start = platform::TickMs();
    char byte;
    unsigned long len = 1;
    EXPECT_TRUE(client.Recv(&byte, len));
    EXPECT_EQ(len, 0U);
    EXPECT_GE(platform::TickMs() - start + CLOCK_GRAIN_MS, 100U);
}

TEST_F(NetSocketTest, ApplyBlockTime_NothingToRead_TimedOut)
{
    Connect();
    client.SetBlockTime(5);
    bool timedOut = false;
    EXPECT_TRUE(client.xApplyBlockTime(true, timedOut));
    EXPECT_TRUE(timedOut);
    EXPECT_TRUE(client.xApplyBlockTime(false, timedOut));
    EXPECT_FALSE(timedOut);
}

TEST_F(NetSocketTest, ApplyBlockTime_NoHandle_FalseAtOnce)
{
    TestTCP socket;
    socket.SetBlockTime(60000);
    const std::uint32_t start = platform::TickMs();
    for (const bool forRead : {true, false}) {
        bool timedOut = false;
        EXPECT_FALSE(socket.xApplyBlockTime(forRead, timedOut));
    }
    EXPECT_LT(std::uint32_t(platform::TickMs() - start), 30000U);
}

TEST_F(NetSocketTest, ApplyBlockTime_NoHandleAndBlockTimeZero_TrueAsAlwaysKeptOnPurpose)
{
    TestTCP socket;
    bool timedOut = true;
    EXPECT_TRUE(socket.xApplyBlockTime(true, timedOut));
    EXPECT_FALSE(timedOut);
}

TEST_F(NetSocketTest, ApplyBlockTime_HandleGone_False)
{
    Connect();
    client.SetBlockTime(5);
    platform::CloseSocket(client.xGetHandle());
    bool timedOut = false;
    EXPECT_FALSE(client.xApplyBlockTime(true, timedOut));
    client.SetBlockTime(0);
    EXPECT_TRUE(client.xApplyBlockTime(true, timedOut));
    EXPECT_FALSE(timedOut);
    client.Detach();
}

// --- addresses

TEST_F(NetSocketTest, Addresses_Connected_BothEndsKnown)
{
    Connect();
    EXPECT_EQ(client.GetRemoteIP(), LOOPBACK);
    EXPECT_EQ(client.GetLocalIP(), LOOPBACK);
    EXPECT_EQ(client.GetRemotePort(), listener.GetLocalPort());
    EXPECT_EQ(server->GetRemotePort(), client.GetLocalPort());
    EXPECT_EQ(server->GetLocalPort(), client.GetRemotePort());
    EXPECT_EQ(listener.GetRemotePort(), 0);
    EXPECT_EQ(listener.GetRemoteIP(), NetIP());
}

TEST_F(NetSocketTest, Addresses_OverIP6_StayEmpty_KeptOnPurpose)
{
    const NetIP loopback6("::1");
    const std::uint16_t port = UnservedPort();
    if (!listener.ListenSpecific(port, loopback6))
        KQ_MISSING("this machine has no ::1");
    EXPECT_TRUE(listener.IsListening());
    ExpectNoAddresses(listener);
    ASSERT_TRUE(client.Connect(loopback6, port));
    server = Accept(listener);
    ASSERT_NE(server, nullptr);
    ExpectNoAddresses(client);
    ExpectNoAddresses(*server);
    EXPECT_TRUE(client.IsLocalConnection());
    ASSERT_TRUE(SendAll(client, "six"));
    EXPECT_EQ(Receive(*server, 3), "six");
}

TEST_F(NetSocketTest, SetIPData_EndsNotKnown_LeavesWhatWasThere_KeptOnPurpose)
{
    Connect();
    const unsigned short port = client.GetLocalPort();
    platform::CloseSocket(client.xGetHandle());
    client.xSetIPData();
    EXPECT_EQ(client.GetLocalPort(), port);
    EXPECT_EQ(client.GetRemoteIP(), LOOPBACK);
    client.Detach();
}

TEST_F(NetSocketTest, IsLocalConnection_SameAddress_True)
{
    Connect();
    EXPECT_TRUE(client.IsLocalConnection());
    EXPECT_TRUE(server->IsLocalConnection());
}

TEST_F(NetSocketTest, IsLocalConnection_TwoAddressesOfTheLoopback_FalseKeptOnPurpose)
{
    const NetIP other("127.0.0.2");
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    ASSERT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort(), other));
    server = Accept(listener);
    ASSERT_NE(server, nullptr);
    EXPECT_EQ(server->GetRemoteIP(), other);
    EXPECT_FALSE(server->IsLocalConnection());
    EXPECT_FALSE(client.IsLocalConnection());
}

TEST_F(NetSocketTest, IsLocalConnection_Closed_TrueKeptOnPurpose)
{
    EXPECT_TRUE(client.IsLocalConnection());
}

TEST_F(NetSocketTest, Convert_IP4_FieldsInTheSystemsPlaces)
{
    alignas(8) unsigned char bytes[16];
    std::memset(bytes, 0xEE, sizeof(bytes));
    auto& native = *reinterpret_cast<sockaddr_in*>(bytes);
    TestTCP::xsConvert(NetIP("1.2.3.4"), 0x1502, native);
    const unsigned char expected[12] = {0x15, 0x02, 1, 2, 3, 4};
    EXPECT_EQ(std::memcmp(bytes + 2, expected, sizeof(expected)), 0); // after the 2 bytes of the family
    NetIP ip;
    unsigned short port = 0;
    TestTCP::xsConvert(native, ip, port);
    EXPECT_EQ(ip, NetIP("1.2.3.4"));
    EXPECT_EQ(port, 0x1502);
}

TEST_F(NetSocketTest, Convert_IP6_FieldsInTheSystemsPlaces)
{
    alignas(8) unsigned char bytes[28];
    std::memset(bytes, 0xEE, sizeof(bytes));
    auto& native = *reinterpret_cast<sockaddr_in6*>(bytes);
    const NetIP address("2001:db8::a:b");
    TestTCP::xsConvert(address, 0x00FF, native);
    unsigned char expected[26] = {0x00, 0xFF}; // port, flow information 0, address, scope 0
    std::memcpy(expected + 6, address.GetBytes(), 16);
    EXPECT_EQ(std::memcmp(bytes + 2, expected, sizeof(expected)), 0);
    NetIP ip;
    unsigned short port = 0;
    TestTCP::xsConvert(native, ip, port);
    EXPECT_EQ(ip, address);
    EXPECT_EQ(port, 0x00FF);
}

// --- names

TEST_F(NetSocketTest, Convert_AddressText_TakenWhateverTheMode)
{
    TestTCP socket;
    NetIP ip;
    for (const auto mode : {NetIP::LOOKUP_IP4, NetIP::LOOKUP_IP6, static_cast<NetIP::IPLOOKUPMODE>(99)}) {
        EXPECT_TRUE(socket.xConvert(mode, "10.1.2.3", ip));
        EXPECT_EQ(ip, NetIP("10.1.2.3"));
    }
    EXPECT_TRUE(socket.xConvert(NetIP::LOOKUP_IP4, "::1", ip));
    EXPECT_FALSE(ip.IsIP4());
}

TEST_F(NetSocketTest, Convert_NotAName_Error41AndOutUntouched)
{
    TestTCP socket;
    NetIP ip("10.1.2.3");
    EXPECT_FALSE(socket.xConvert(NetIP::LOOKUP_ANY, "", ip));
    EXPECT_EQ(socket.GetLastError(), 41);
    EXPECT_EQ(ip, NetIP("10.1.2.3"));
}

TEST_F(NetSocketTest, SetIPLookupMode_AnyValue_IsKept)
{
    TestTCP socket;
    socket.SetIPLookupMode(static_cast<NetIP::IPLOOKUPMODE>(99));
    EXPECT_EQ(socket.GetIPLookupMode(), static_cast<NetIP::IPLOOKUPMODE>(99));
}

// --- buffers of the system

TEST_F(NetSocketTest, SetSockBuf_Open_ReportedSizeIsAtLeastThat)
{
    Connect();
    EXPECT_TRUE(client.xSetSockBufRecvSize(8192));
    EXPECT_TRUE(client.xSetSockBufSendSize(8192));
    EXPECT_GE(client.GetBufRecvSize(), 8192U);
    EXPECT_GE(client.GetBufSendSize(), 8192U);
}

TEST_F(NetSocketTest, SetSockBuf_Closed_False)
{
    EXPECT_FALSE(client.xSetSockBufRecvSize(8192));
    EXPECT_FALSE(client.xSetSockBufSendSize(8192));
}

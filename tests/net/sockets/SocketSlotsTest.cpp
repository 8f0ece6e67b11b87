// The virtual functions of the sockets stand in a fixed order, and the interface has fixed types and values: hosts that
// were built against an older library go on working.
#include "net/sockets/NetTCPSSL.h"
#include "net/sockets/NetUDP.h"

#include "tests/peers/VirtualSlot.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace kqlib::test {
namespace {

/// The protected functions of SOCKET can only be named in a class that derives from it.
template <class SOCKET> class SlotsOf : public SOCKET
{
public:
    using T = SlotsOf;

    static SLOTS OfAll() { return {VirtualSlot(&T::Close), VirtualSlot(&T::Detach), VirtualSlot(&T::xSetStateClosed)}; }
    static SLOTS OfTCP()
    {
        bool (T::*const recvBytes)(unsigned char*, unsigned long&) = &T::Recv;
        bool (T::*const recvText)(char*, unsigned long&) = &T::Recv;
        bool (T::*const sendBytes)(const unsigned char*, unsigned long&) = &T::Send;
        bool (T::*const sendText)(const char*, unsigned long&) = &T::Send;
        return {VirtualSlot(&T::Accept),
                VirtualSlot(recvBytes),
                VirtualSlot(recvText),
                VirtualSlot(sendBytes),
                VirtualSlot(sendText),
                VirtualSlot(&T::RecvPrepForFirstCmd),
                VirtualSlot(&T::RecvTryGetCmd),
                VirtualSlot(&T::RecvPrepForNextCmd),
                VirtualSlot(&T::RecvPurgeRemaining),
                VirtualSlot(&T::ShutdownAndClose)};
    }
};

using T = NetTCP;
using S = NetTCPSSL;

static_assert(std::is_same_v<decltype(&NetSocket::Detach), unsigned int (NetSocket::*)()>);
static_assert(std::is_same_v<decltype(&NetSocket::GetBufSendSize), unsigned long (NetSocket::*)() const>);
static_assert(std::is_same_v<decltype(&T::Accept), NetTCP* (T::*)()>);
static_assert(std::is_same_v<decltype(&T::SelfAccept), bool (T::*)()>);
static_assert(std::is_same_v<decltype(&T::ListenAll), bool (T::*)(unsigned short)>);
static_assert(
    std::is_same_v<decltype(&T::RecvTryGetCmd), bool (T::*)(bool, unsigned long, T::RECVBUF&, String&, bool&, bool&)>);
static_assert(
    std::is_same_v<decltype(&T::RecvPurgeRemaining), bool (T::*)(T::RECVBUF&, unsigned char*, unsigned long&, bool&)>);
static_assert(std::is_same_v<decltype(&S::SSLAccept), bool (S::*)(const FilePath&, const FilePath&)>);
static_assert(std::is_same_v<decltype(&S::SSLConnect), bool (S::*)()>);
static_assert(std::is_same_v<decltype(&S::Upgrade), void (S::*)(NetTCP&)>);
static_assert(std::is_same_v<decltype(&NetUDP::SendClient), bool (NetUDP::*)(const unsigned char*, unsigned long&)>);
static_assert(std::is_same_v<decltype(&NetUDP::RecvClient), bool (NetUDP::*)(unsigned char*, unsigned long&)>);
static_assert(std::is_constructible_v<S, NetIP::IPLOOKUPMODE> &&
              std::is_constructible_v<S, NetIP::IPLOOKUPMODE, NetDNSCache&>);
static_assert(T::TS_CLOSED == 0 && T::TS_CONNECTED == 1 && T::TS_LISTENING == 2);
static_assert(NetUDP::US_CLOSED == 0 && NetUDP::US_OPEN == 1);
static_assert(std::is_aggregate_v<T::RECVBUF>);

TEST(SocketSlots, VirtualFunctions_AllSockets_StandInTheFixedOrder)
{
    EXPECT_EQ(SlotsOf<NetSocket>::OfAll(), SlotRange(2, 4));
    EXPECT_EQ(SlotsOf<NetUDP>::OfAll(), SlotRange(2, 4));
    EXPECT_EQ(SlotsOf<NetTCP>::OfAll(), SlotRange(2, 4));
    EXPECT_EQ(SlotsOf<NetTCPSSL>::OfAll(), SlotRange(2, 4));
    EXPECT_EQ(SlotsOf<NetTCP>::OfTCP(), SlotRange(5, 14));
    EXPECT_EQ(SlotsOf<NetTCPSSL>::OfTCP(), SlotRange(5, 14));
}

TEST(SocketSlots, ReceiveBuffer_FieldsInOrder_WrittenAsAList)
{
    unsigned char byte = 0;
    const NetTCP::RECVBUF buffer = {1, &byte, 2, 3, true};
    EXPECT_EQ(buffer.capacity, 1U);
    EXPECT_EQ(buffer.buffer, &byte);
    EXPECT_EQ(buffer.length, 2U);
    EXPECT_EQ(buffer.position, 3U);
    EXPECT_TRUE(buffer.lastWasCR);
}

} // namespace
} // namespace kqlib::test

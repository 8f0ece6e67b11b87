// The virtual functions of the services stand in a fixed order, and the interface has fixed types:
// hosts that were built against an older library go on working.
#include "net/service/NetTCPServiceSSL.h"

#include "net/session/NetTCPSession.h"
#include "net/sockets/NetTCPSSL.h"
#include "tests/peers/VirtualSlot.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace kqlib::test {
namespace {

/// The protected functions of SERVICE can only be named in a class that derives from it.
template <class SERVICE> class SlotsOf : public SERVICE
{
public:
    using T = SlotsOf;

    static std::size_t OfFactory() { return VirtualSlot(&T::xCreateSession); }
    static std::size_t OfTLSFactory() { return VirtualSlot(&T::xCreateSessionSSL); }
    static constexpr bool FACTORY_TYPE =
        std::is_same_v<decltype(&T::xCreateSession), NetTCPSession* (SERVICE::*)(NetTCP*, EventLogSessionID)>;
};

using S = NetTCPService;
using ID = const EventLogSessionID&;

static_assert(SlotsOf<NetTCPService>::FACTORY_TYPE && SlotsOf<NetTCPServiceSSL>::FACTORY_TYPE);
static_assert(std::is_same_v<decltype(&S::Init), bool (S::*)(Messages&)>);
static_assert(
    std::is_same_v<decltype(&S::SetSettings), void (S::*)(const NetPortBinds&, unsigned long, unsigned long)>);
static_assert(std::is_same_v<decltype(&S::StartListen), void (S::*)(NetPortBinds&)>);
static_assert(std::is_same_v<decltype(&S::StopListen), void (S::*)()>);
static_assert(std::is_same_v<decltype(&S::GenSessionID), EventLogSessionID (S::*)()>);
static_assert(std::is_same_v<decltype(&S::SetLogModeNormal), void (S::*)(const EventLogSettings&, bool)>);
static_assert(std::is_same_v<decltype(&S::SetLogModeShared), void (S::*)(EventLog*, bool)>);
static_assert(std::is_same_v<decltype(&S::SetMonitoringEnabled),
                             void (S::*)(const FilePath&, const String&, const String&, const String&)>);
static_assert(std::is_same_v<decltype(&S::GetIsActive), bool (S::*)() const>);
static_assert(std::is_same_v<decltype(&S::GetIsListening), bool (S::*)() const>);
static_assert(
    std::is_same_v<decltype(&S::GetListeningPorts), void (S::*)(Vector<NetServiceStatus::ACTIVEPORT>&) const>);
static_assert(std::is_same_v<decltype(&S::AddOutgoingConnection), bool (S::*)(NetTCPSession*)>);
static_assert(std::is_same_v<decltype(&S::SendControlMsg), void (S::*)(ID, unsigned long, const String&)>);
static_assert(std::is_same_v<decltype(&S::SendControlMsgAll), void (S::*)(unsigned long, const String&)>);
static_assert(std::is_same_v<decltype(&S::SendControlMsgDisconnect), void (S::*)(ID, const String&)>);
static_assert(std::is_same_v<decltype(&S::SendControlMsgStopTransferAll), void (S::*)(const String&)>);
static_assert(std::is_same_v<decltype(&S::GetLiveSessions), void (S::*)(NetServiceLiveStatus&)>);
static_assert(std::is_same_v<decltype(&S::GetStatus), void (S::*)(NetServiceStatus&) const>);
static_assert(std::is_same_v<decltype(&S::QueryOldSessions),
                             bool (S::*)(const DataLogQuery&, const ThreadEvent&, DataLogResults&, Messages&)>);
static_assert(std::is_base_of_v<SingleThreadByPool, S> && std::is_base_of_v<S, NetTCPServiceSSL>);
static_assert(sizeof(NetTCPServiceSSL) == sizeof(S) && !std::is_copy_constructible_v<S>);

TEST(ServiceSlots, VirtualFunctions_Services_StandInTheFixedOrder)
{
    EXPECT_EQ(SlotsOf<NetTCPService>::OfFactory(), 3U) << "behind the destructor and xThread";
    EXPECT_EQ(SlotsOf<NetTCPServiceSSL>::OfFactory(), 3U);
    EXPECT_EQ(SlotsOf<NetTCPServiceSSL>::OfTLSFactory(), 4U);
}

} // namespace
} // namespace kqlib::test

// The virtual functions of the sessions stand in a fixed order, and the interface has fixed types: hosts that were
// built against an older library go on working.
#include "net/session/NetTCPSession.h"
#include "net/session/NetTCPSessionControllableSSL.h"
#include "net/session/NetTCPSessionSSL.h"

#include "tests/peers/VirtualSlot.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace kqlib::test {
namespace {

/// The protected functions of SESSION can only be named in a class that derives from it.
template <class SESSION> class SlotsOf : public SESSION
{
public:
    using T = SlotsOf;

    /// From the third slot on; the second one, xThread, is private.
    static SLOTS Common()
    {
        return {VirtualSlot(&T::xHandleSession),
                VirtualSlot(&T::xEventControlMsgDisconnectRecv),
                VirtualSlot(&T::xMonitorNet),
                VirtualSlot(&T::xMonitorNetDataPass),
                VirtualSlot(&T::xMonitorNetCmdPass),
                VirtualSlot(&T::xWaitingForNetShouldWait),
                VirtualSlot(&T::xEventSessionStart),
                VirtualSlot(&T::xEventMonPreReadData),
                VirtualSlot(&T::xEventMonDataRecv),
                VirtualSlot(&T::xEventMonCmdRecv),
                VirtualSlot(&T::xEventMonCmdOverSizeRecv),
                VirtualSlot(&T::xEventMonClosing),
                VirtualSlot(&T::xEventMonClosed),
                VirtualSlot(&T::xEventMonControlMsgRecv),
                VirtualSlot(&T::xEventSessionEnd),
                VirtualSlot(&T::xEventMainNetClosed)};
    }
    static SLOTS OfRequests()
    {
        using STATE = NetTCPSessionControllableSSL::STATE;
        void (T::*const update)(bool, NetTCP*, bool) = &T::xUpdateState;
        void (T::*const updateWithAction)(bool, NetTCP*, bool, const ULONG&) = &T::xUpdateState;
        void (T::*const updateWhole)(bool, const STATE&) = &T::xUpdateState;
        return {VirtualSlot(&T::xWaitForAllReqsDone),
                VirtualSlot(update),
                VirtualSlot(updateWithAction),
                VirtualSlot(updateWhole),
                VirtualSlot(&T::xSetTimeOutPrevent),
                VirtualSlot(&T::xAddReq),
                VirtualSlot(&T::xVisibleReqsCount),
                VirtualSlot(&T::xHandleCtrlReq),
                VirtualSlot(&T::xHandleCtrlReqCancelled),
                VirtualSlot(&T::xHandleCtrlTimedOut),
                VirtualSlot(&T::xHandleCtrlReqComplete),
                VirtualSlot(&T::xHandleCtrlTimeOutPrevent)};
    }

protected:
    // Private where the base overrides it: the slot is the same.
    void xHandleSession() override {}
};

using C = NetTCPSessionControllableSSL;
using S = NetTCPSession;

static_assert(std::is_base_of_v<SingleThreadByPool, S> && std::is_base_of_v<S, NetTCPSessionSSL>);
static_assert(std::is_base_of_v<NetTCPSessionSSL, C> && sizeof(NetTCPSessionSSL) == sizeof(S));
static_assert(std::is_same_v<decltype(&S::IsComplete), bool (S::*)() const>);
static_assert(std::is_same_v<decltype(&S::IsBusy), bool (S::*)() const>);
static_assert(std::is_same_v<decltype(&S::ForceComplete), void (S::*)()>);
static_assert(std::is_same_v<decltype(&S::ForceCompleteAsync), void (S::*)()>);
static_assert(std::is_same_v<decltype(&S::GetStatus), void (S::*)(NetSessionLiveStatus&) const>);
static_assert(std::is_same_v<decltype(&S::SendControlMsg), void (S::*)(ULONG, const String&)>);
static_assert(
    std::is_same_v<decltype(&S::SendControlMsgIfYourID), bool (S::*)(const EventLogSessionID&, ULONG, const String&)>);
static_assert(std::is_constructible_v<S, ThreadPool&, NetDNSCache&, DataLogTime&, EventLog&, const EventLogSessionID&,
                                      ULONG, NetTCP*>);
static_assert(std::is_constructible_v<NetTCPSessionSSL, ThreadPool&, NetDNSCache&, DataLogTime&, EventLog&,
                                      EventLogSessionID, ULONG, NetTCPSSL*>);
static_assert(!std::is_copy_constructible_v<S> && !std::is_copy_assignable_v<S> && std::is_abstract_v<C>);
static_assert(std::is_same_v<decltype(&C::CancelReq), void (C::*)(ULONG)>);
static_assert(std::is_same_v<decltype(&C::CancelAllReqs), void (C::*)()>);
static_assert(std::is_same_v<decltype(&C::GetState), void (C::*)(C::STATE&) const>);
static_assert(std::is_same_v<decltype(&C::IsHandlingReqs), bool (C::*)() const>);
static_assert(std::is_same_v<decltype(&C::WaitForAllReqsDone), void (C::*)() const>);
static_assert(std::is_aggregate_v<S::NETSTATE> && std::is_aggregate_v<S::CTRLMSG> && std::is_aggregate_v<C::STATE>);
static_assert(C::INVALID_REQID == 0xFFFFFFFFUL);

TEST(NetTCPSessionSlots, VirtualFunctions_AllSessions_StandInTheFixedOrder)
{
    EXPECT_EQ(SlotsOf<NetTCPSession>::Common(), SlotRange(3, 18));
    EXPECT_EQ(SlotsOf<NetTCPSessionSSL>::Common(), SlotRange(3, 18));
    EXPECT_EQ(SlotsOf<NetTCPSessionControllableSSL>::Common(), SlotRange(3, 18));
    EXPECT_EQ(SlotsOf<NetTCPSessionControllableSSL>::OfRequests(), SlotRange(19, 30));
}

} // namespace
} // namespace kqlib::test

// The virtual functions of the statistics records stand in a fixed order: hosts that were built against an older
// library go on working.
#include "net/status/NetServiceLiveStatus.h"
#include "net/status/NetServiceStatus.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionLiveStatus.h"
#include "net/status/NetSessionStatus.h"

#include "tests/peers/VirtualSlot.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace kqlib::test {
namespace {

/// The protected functions of RECORD can only be named in a class that derives from it.
template <class RECORD> class SlotsOf : public RECORD
{
public:
    using T = SlotsOf;

    static SLOTS OfSettings()
    {
        bool (RECORD::*const isSame)(const SettingsTransferable&) const = &RECORD::IsSame;
        return {VirtualSlot(&T::Reset),          VirtualSlot(&T::Spawn),       VirtualSlot(&T::WriteTo),
                VirtualSlot(&T::ReadFrom),       VirtualSlot(&T::CheckErrors), VirtualSlot(&T::CheckWarnings),
                VirtualSlot(&T::xWriteTo),       VirtualSlot(&T::xReadFrom),   VirtualSlot(&T::xCheckErrors),
                VirtualSlot(&T::xCheckWarnings), VirtualSlot(isSame)};
    }
    static SLOTS OfLogEntries()
    {
        return {VirtualSlot(&T::ResetKeepMemory), VirtualSlot(&T::ResetDestroySelf),
                VirtualSlot(&T::xMergeInto),      VirtualSlot(&T::xSimpleCombineInto),
                VirtualSlot(&T::xGetSizeReq),     VirtualSlot(&T::xMakeStringsSafe),
                VirtualSlot(&T::SpawnEntry)};
    }
};

const SLOTS SETTINGS = SlotRange(2, 12);
const SLOTS LOG_ENTRIES = SlotRange(13, 19);

static_assert(std::is_same_v<decltype(&NetSessionStatus::SpawnEntry),
                             DataLogEntryRecord* (NetSessionStatus::*)(unsigned long, bool) const>);
static_assert(std::is_same_v<decltype(&NetSessionActivity::SpawnEntry),
                             DataLogEntryTime* (NetSessionActivity::*)(unsigned long, bool) const>);
static_assert(std::is_same_v<decltype(&NetSessionStatus::SetLocalIP), void (NetSessionStatus::*)(NetIP)>);
static_assert(std::is_same_v<decltype(&NetSessionStatus::SetRemotePort), void (NetSessionStatus::*)(unsigned short)>);
static_assert(std::is_same_v<decltype(&NetServiceStatus::GetDataInBytes),
                             const unsigned long long& (NetServiceStatus::*)() const>);
static_assert(
    std::is_same_v<decltype(&NetServiceStatus::SetFilesRead), void (NetServiceStatus::*)(const unsigned long long&)>);
static_assert(
    std::is_same_v<decltype(&NetSessionLiveStatus::SetAction), void (NetSessionLiveStatus::*)(unsigned long)>);
static_assert(std::is_aggregate_v<NetServiceStatus::ACTIVEPORT>);

TEST(NetStatusSlots, VirtualFunctions_AllRecords_StandInTheFixedOrder)
{
    EXPECT_EQ(SlotsOf<NetServiceStatus>::OfSettings(), SETTINGS);
    EXPECT_EQ(SlotsOf<NetSessionLiveStatus>::OfSettings(), SETTINGS);
    EXPECT_EQ(SlotsOf<NetServiceLiveStatus>::OfSettings(), SETTINGS);
    EXPECT_EQ(SlotsOf<NetSessionStatus>::OfSettings(), SETTINGS);
    EXPECT_EQ(SlotsOf<NetSessionActivity>::OfSettings(), SETTINGS);
    EXPECT_EQ(SlotsOf<NetSessionStatus>::OfLogEntries(), LOG_ENTRIES);
    EXPECT_EQ(SlotsOf<NetSessionActivity>::OfLogEntries(), LOG_ENTRIES);
}

} // namespace
} // namespace kqlib::test

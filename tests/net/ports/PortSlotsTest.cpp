// The virtual functions of a port binding stand in a fixed order: hosts that were built against an older library go on
// working. So do those that include the headers from where they have always been.
#include "net/service/NetPortBind.h"
#include "net/service/NetPortBinds.h"

#include "tests/peers/VirtualSlot.h"

#include <gtest/gtest.h>

namespace kqlib::test {
namespace {

class BindSlots : public NetPortBind
{
public:
    using T = BindSlots;

    static SLOTS Get()
    {
        bool (T::*const isSame)(const SettingsTransferable&) const = &T::IsSame;
        return {VirtualSlot(&T::Reset),          VirtualSlot(&T::Spawn),       VirtualSlot(&T::WriteTo),
                VirtualSlot(&T::ReadFrom),       VirtualSlot(&T::CheckErrors), VirtualSlot(&T::CheckWarnings),
                VirtualSlot(&T::xWriteTo),       VirtualSlot(&T::xReadFrom),   VirtualSlot(&T::xCheckErrors),
                VirtualSlot(&T::xCheckWarnings), VirtualSlot(isSame)};
    }
};

TEST(PortSlots, VirtualFunctions_Binding_StandInTheFixedOrder)
{
    EXPECT_EQ(BindSlots::Get(), SlotRange(2, 12));
}

} // namespace
} // namespace kqlib::test

// Live status: one session's entry and a service's list of them.
#include "common/SettingsTransportSet.h"
#include "net/status/NetServiceLiveStatus.h"

#include <gtest/gtest.h>

#include <memory>

namespace kqlib::test {
namespace {

NetSessionLiveStatus* MakeEntry(ULONG action)
{
    auto entry = std::make_unique<NetSessionLiveStatus>();
    entry->SetAction(action);
    entry->SetDetail(String("detail ") + String::sToString(action));
    entry->GetStatus().SetUser("user");
    entry->GetStatus().SetCommandsIn(action);
    return entry.release();
}

/// A list of the actions 1, 2, 3 in natural order.
NetServiceLiveStatus MakeList()
{
    NetServiceLiveStatus list;
    for (ULONG action = 1; action <= 3; ++action)
        list.GiveStatus(MakeEntry(action));
    return list;
}

std::vector<ULONG> Actions(const NetServiceLiveStatus& list)
{
    std::vector<ULONG> actions;
    for (ULONG index = 0; index < list.GetCount(); ++index)
        actions.push_back(list.GetStatus(index).GetAction());
    return actions;
}

bool IsReversed(const NetServiceLiveStatus& list)
{
    SettingsTransportSet set;
    EXPECT_TRUE(list.WriteTo(set));
    bool reversed = false;
    EXPECT_TRUE(set.GetBool("isreversed", reversed));
    return reversed;
}

using ACTIONS = std::vector<ULONG>;

TEST(NetSessionLiveStatusTest, Reset_Filled_Action89AndEmptyOnPurpose)
{
    const std::unique_ptr<NetSessionLiveStatus> entry(MakeEntry(5));
    entry->Reset();
    EXPECT_EQ(entry->GetAction(), 89U);
    EXPECT_TRUE(entry->GetDetail().empty());
    EXPECT_TRUE(entry->GetStatus() == NetSessionStatus());
}

TEST(NetSessionLiveStatusTest, Construct_Default_ActionIsNotTheResetOneOnPurpose)
{
    EXPECT_EQ(NetSessionLiveStatus().GetAction(), 0U);
}

TEST(NetSessionLiveStatusTest, IsSame_EachField_Compared)
{
    const std::unique_ptr<NetSessionLiveStatus> entry(MakeEntry(5));
    const std::unique_ptr<NetSessionLiveStatus> other(entry->Spawn(true));
    EXPECT_TRUE(*entry == *other);
    other->SetAction(6);
    EXPECT_FALSE(*entry == *other);
    *other = *entry;
    other->SetDetail("x");
    EXPECT_FALSE(*entry == *other);
    *other = *entry;
    other->GetStatus().IncreaseFilesRead(1);
    EXPECT_FALSE(*entry == *other);
    EXPECT_FALSE(entry->IsSame(static_cast<const SettingsTransferable&>(NetServiceLiveStatus())));
    const std::unique_ptr<NetSessionLiveStatus> empty(entry->Spawn(false));
    EXPECT_TRUE(*empty == NetSessionLiveStatus());
}

TEST(NetSessionLiveStatusTest, Settings_WrittenAndRead_SameAndInOneSet)
{
    const std::unique_ptr<NetSessionLiveStatus> entry(MakeEntry(4294967295UL));
    SettingsTransportSet set;
    ASSERT_TRUE(entry->WriteTo(set));
    EXPECT_EQ(set.GetSetCount(), 0U);
    ULONG action = 0;
    String detail;
    ASSERT_TRUE(set.GetULONG("action", action));
    ASSERT_TRUE(set.GetString("detail", detail));
    EXPECT_EQ(action, 4294967295UL);
    EXPECT_EQ(detail, String("detail 4294967295"));
    EXPECT_EQ(set.GetDataKey(set.GetDataCount() - 1), String("detail")) << "the record's own keys come first";
    NetSessionLiveStatus read;
    ASSERT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == *entry);
}

TEST(NetSessionLiveStatusTest, ReadFrom_NoKeys_NothingChanges)
{
    const std::unique_ptr<NetSessionLiveStatus> entry(MakeEntry(5));
    const NetSessionLiveStatus before(*entry);
    entry->ReadFrom(SettingsTransportSet());
    EXPECT_TRUE(*entry == before);
}

TEST(NetServiceLiveStatusTest, ReverseContents_TrueTwice_ReversesOnceFalseRestores)
{
    NetServiceLiveStatus list = MakeList();
    list.ReverseContents(false);
    EXPECT_EQ(Actions(list), (ACTIONS{1, 2, 3}));
    list.ReverseContents(true);
    list.ReverseContents(true);
    EXPECT_EQ(Actions(list), (ACTIONS{3, 2, 1}));
    EXPECT_TRUE(IsReversed(list));
    list.ReverseContents(false);
    EXPECT_EQ(Actions(list), (ACTIONS{1, 2, 3}));
    EXPECT_FALSE(IsReversed(list));
}

TEST(NetServiceLiveStatusTest, GiveStatus_ReversedList_NaturalOrderNewOneLast)
{
    NetServiceLiveStatus list = MakeList();
    list.ReverseContents(true);
    list.GiveStatus(MakeEntry(4));
    EXPECT_EQ(Actions(list), (ACTIONS{1, 2, 3, 4}));
    EXPECT_FALSE(IsReversed(list));
}

TEST(NetServiceLiveStatusTest, GiveStatus_Null_Ignored)
{
    NetServiceLiveStatus list = MakeList();
    list.ReverseContents(true);
    list.GiveStatus(nullptr);
    EXPECT_EQ(Actions(list), (ACTIONS{3, 2, 1}));
}

TEST(NetServiceLiveStatusTest, Copy_Deep_SameEntriesAndFlag)
{
    NetServiceLiveStatus list = MakeList();
    list.ReverseContents(true);
    const NetServiceLiveStatus copy(list);
    EXPECT_TRUE(copy == list);
    EXPECT_NE(&copy.GetStatus(0), &list.GetStatus(0));
    list.Reset();
    EXPECT_EQ(Actions(copy), (ACTIONS{3, 2, 1}));
    EXPECT_EQ(list.GetCount(), 0U);
    EXPECT_FALSE(IsReversed(list));

    NetServiceLiveStatus assigned;
    assigned.GiveStatus(MakeEntry(9));
    assigned = copy;
    EXPECT_TRUE(assigned == copy);
    const NetServiceLiveStatus& itself = assigned;
    assigned = itself;
    EXPECT_TRUE(assigned == copy);

    const std::unique_ptr<NetServiceLiveStatus> spawned(copy.Spawn(true));
    const std::unique_ptr<NetServiceLiveStatus> empty(copy.Spawn(false));
    EXPECT_TRUE(*spawned == copy);
    EXPECT_TRUE(*empty == NetServiceLiveStatus());
}

TEST(NetServiceLiveStatusTest, IsSame_FlagAlone_Differs)
{
    NetServiceLiveStatus natural;
    NetServiceLiveStatus reversed;
    reversed.ReverseContents(true);
    EXPECT_FALSE(natural == reversed);
    EXPECT_FALSE(natural.IsSame(static_cast<const SettingsTransferable&>(NetSessionLiveStatus())));
}

TEST(NetServiceLiveStatusTest, Settings_WrittenAndRead_SameOrderAndFlag)
{
    for (const bool reversed : {false, true}) {
        NetServiceLiveStatus list = MakeList();
        list.ReverseContents(reversed);
        SettingsTransportSet set;
        ASSERT_TRUE(list.WriteTo(set));
        ASSERT_EQ(set.GetSetCount(), 3U);
        EXPECT_TRUE(set.GetSetKey(0).empty());
        SettingsTransportSet loaded;
        ASSERT_TRUE(loaded.FromJson(set.ToJson()));
        NetServiceLiveStatus read;
        ASSERT_TRUE(read.ReadFrom(loaded));
        EXPECT_TRUE(read == list);
    }
}

TEST(NetServiceLiveStatusTest, ReadFrom_ListNotEmpty_AppendsAndReordersNothingOnPurpose)
{
    NetServiceLiveStatus stored = MakeList();
    stored.ReverseContents(true);
    SettingsTransportSet set;
    ASSERT_TRUE(stored.WriteTo(set));
    NetServiceLiveStatus list;
    list.GiveStatus(MakeEntry(7));
    ASSERT_TRUE(list.ReadFrom(set));
    EXPECT_EQ(Actions(list), (ACTIONS{7, 3, 2, 1}));
    EXPECT_TRUE(IsReversed(list));
}

TEST(NetServiceLiveStatusTest, ReadFrom_FlagMissing_FlagKept)
{
    NetServiceLiveStatus list = MakeList();
    list.ReverseContents(true);
    ASSERT_TRUE(list.ReadFrom(SettingsTransportSet()));
    EXPECT_TRUE(IsReversed(list));
    EXPECT_EQ(Actions(list), (ACTIONS{3, 2, 1}));
}

TEST(NetServiceLiveStatusTest, CheckErrors_Always_NothingAdded)
{
    Messages messages;
    EXPECT_TRUE(MakeList().CheckErrors(messages));
    EXPECT_TRUE(MakeList().CheckWarnings(messages));
    EXPECT_TRUE(NetSessionLiveStatus().CheckErrors(messages));
    EXPECT_TRUE(NetSessionLiveStatus().CheckWarnings(messages));
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

} // namespace
} // namespace kqlib::test

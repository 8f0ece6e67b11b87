#include "net/ipcontrol/NetIPControl.h"
#include "common/SettingsTransportSet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using testing::ElementsAre;

NetIPControlEntry Rule(const std::string& text)
{
    NetIPControlEntry rule;
    EXPECT_TRUE(rule.SetByString(String(text))) << text;
    return rule;
}

/// Rules for the host names given, one letter each.
NetIPControl List(const std::string& letters)
{
    NetIPControl list;
    for (const char letter : letters)
        list.Add(Rule(std::string("+host=") + letter));
    return list;
}

std::string Letters(const NetIPControl& list)
{
    std::string letters;
    for (ULONG i = 0; i < list.GetCount(); ++i)
        letters += list.Get(i).GetHost().str();
    return letters;
}

std::vector<std::string> Texts(const NetIPControl& list)
{
    std::vector<std::string> texts;
    for (ULONG i = 0; i < list.GetCount(); ++i)
        texts.push_back(list.Get(i).GetAsString().str());
    return texts;
}

TEST(NetIPControl, AddRemoveUpdate_Order_Kept)
{
    NetIPControl list = List("abc");
    list.Remove(1);
    EXPECT_EQ(Letters(list), "ac");
    list.Update(0, Rule("-host=z"));
    EXPECT_EQ(Letters(list), "zc");
    EXPECT_FALSE(list.Get(0).GetAllow());
    list.Add(list.Get(0)); // its own rule
    EXPECT_EQ(Letters(list), "zcz");
    list.Update(1, list.Get(0));
    EXPECT_EQ(Letters(list), "zzz");
    list.Reset();
    EXPECT_EQ(list.GetCount(), 0U);
}

TEST(NetIPControl, Append_OtherAndItself_InOrder)
{
    NetIPControl list = List("ab");
    list.Append(List("cd"));
    EXPECT_EQ(Letters(list), "abcd");
    list.Append(list);
    EXPECT_EQ(Letters(list), "abcdabcd");
    list.Append(NetIPControl());
    EXPECT_EQ(list.GetCount(), 8U);
}

TEST(NetIPControl, MoveUp_FirstStays_OthersSwap)
{
    NetIPControl list = List("abc");
    EXPECT_EQ(list.MoveUp(0), 0U);
    EXPECT_EQ(Letters(list), "abc");
    EXPECT_EQ(list.MoveUp(2), 1U);
    EXPECT_EQ(Letters(list), "acb");
    EXPECT_EQ(list.MoveUp(1), 0U);
    EXPECT_EQ(Letters(list), "cab");
}

TEST(NetIPControl, MoveDown_LastStays_OthersSwap)
{
    NetIPControl list = List("abc");
    EXPECT_EQ(list.MoveDown(2), 2U);
    EXPECT_EQ(Letters(list), "abc");
    EXPECT_EQ(list.MoveDown(0), 1U);
    EXPECT_EQ(Letters(list), "bac");
    EXPECT_EQ(list.MoveDown(1), 2U);
    EXPECT_EQ(Letters(list), "bca");
}

TEST(NetIPControl, MoveTop_FourthOfFive_OthersMoveDown)
{
    NetIPControl list = List("abcde");
    EXPECT_EQ(list.MoveTop(3), 0U);
    EXPECT_EQ(Letters(list), "dabce");
    EXPECT_EQ(list.MoveTop(0), 0U);
    EXPECT_EQ(Letters(list), "dabce");
}

TEST(NetIPControl, MoveBottom_SecondOfFive_OthersMoveUp)
{
    NetIPControl list = List("abcde");
    EXPECT_EQ(list.MoveBottom(1), 4U);
    EXPECT_EQ(Letters(list), "acdeb");
    EXPECT_EQ(list.MoveBottom(4), 4U);
    EXPECT_EQ(Letters(list), "acdeb");
}

TEST(NetIPControl, Moves_OnlyRule_Nothing)
{
    NetIPControl list = List("a");
    EXPECT_EQ(list.MoveUp(0), 0U);
    EXPECT_EQ(list.MoveDown(0), 0U);
    EXPECT_EQ(list.MoveTop(0), 0U);
    EXPECT_EQ(list.MoveBottom(0), 0U);
    EXPECT_EQ(Letters(list), "a");
}

/// Each operation that takes an index, for one that is not there. What a debug build answers is an assertion.
void ExpectRefused(NetIPControl& list, ULONG index)
{
#ifdef NDEBUG
    const NetIPControl before(list);
    const NetIPControlEntry rule = Rule("-host=z");
    EXPECT_THROW(list.Get(index), std::out_of_range) << index;
    EXPECT_THROW(list.Update(index, rule), std::out_of_range) << index;
    EXPECT_THROW(list.Remove(index), std::out_of_range) << index;
    EXPECT_THROW(list.MoveUp(index), std::out_of_range) << index;
    EXPECT_THROW(list.MoveDown(index), std::out_of_range) << index;
    EXPECT_THROW(list.MoveTop(index), std::out_of_range) << index;
    EXPECT_THROW(list.MoveBottom(index), std::out_of_range) << index;
    EXPECT_TRUE(list == before);
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(list.Get(index), "index");
    EXPECT_DEATH(list.Update(index, Rule("-host=z")), "index");
    EXPECT_DEATH(list.Remove(index), "index");
    EXPECT_DEATH(list.MoveUp(index), "index");
    EXPECT_DEATH(list.MoveDown(index), "index");
    EXPECT_DEATH(list.MoveTop(index), "index");
    EXPECT_DEATH(list.MoveBottom(index), "index");
#endif
}

// Once Get and Update threw, the others reached behind the last rule, and MoveUp(0) and MoveTop(0) of none answered 0.
TEST(NetIPControl, IndexAtOrPastTheCount_AllOperations_AnsweredAlike)
{
    NetIPControl none;
    ExpectRefused(none, 0);
    NetIPControl list = List("abc");
    ExpectRefused(list, 3);
    ExpectRefused(list, ~ULONG{0});
}

TEST(NetIPControl, CopySpawnIsSame_ByRuleAndOrder)
{
    const NetIPControl list = List("ab");
    const NetIPControl copy(list);
    NetIPControl assigned;
    assigned = list;
    EXPECT_TRUE(copy == list);
    EXPECT_TRUE(assigned == list);
    EXPECT_FALSE(List("ba") == list);
    EXPECT_FALSE(List("abc") == list);
    EXPECT_FALSE(List("aB") == list);
    const std::unique_ptr<SettingsTransferable> spawned(list.Spawn(true));
    EXPECT_TRUE(spawned->IsSame(list));
    const std::unique_ptr<SettingsTransferable> empty(list.Spawn(false));
    EXPECT_TRUE(empty->IsSame(NetIPControl()));
    EXPECT_FALSE(list.IsSame(static_cast<const SettingsTransferable&>(Rule("+host=a"))));
}

TEST(NetIPControl, Settings_UnnamedTextForms_InOrder)
{
    NetIPControl list;
    for (const char* text : {"+ip=1.2.3.4", "-host=mailhost", "+ip=1.2.3.4", "-ipmask=0.0.0.0/0.0.0.0"})
        list.Add(Rule(text));
    SettingsTransportSet set;
    EXPECT_TRUE(list.WriteTo(set));
    ASSERT_EQ(set.GetDataCount(), 4U);
    for (ULONG index = 0; index < 4; ++index)
        EXPECT_EQ(set.GetDataKey(index), "") << index;
    String text;
    EXPECT_TRUE(set.GetDataAsString(1, text));
    EXPECT_EQ(text, "-host=mailhost");
    NetIPControl read;
    EXPECT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == list);
}

TEST(NetIPControl, ReadFrom_Garbage_DroppedWithoutAMessage)
{
    SettingsTransportSet set;
    set.AddString(SettingsTransportSet::UNNAMED, "+ip=1.2.3.4");
    set.AddString(SettingsTransportSet::UNNAMED, "garbage");
    set.AddString(SettingsTransportSet::UNNAMED, "-host=mailhost");
    NetIPControl list;
    EXPECT_TRUE(list.ReadFrom(set));
    EXPECT_THAT(Texts(list), ElementsAre("+ip=1.2.3.4", "-host=mailhost"));
}

TEST(NetIPControl, ReadFrom_FilledList_Appends_KeptOnPurpose)
{
    SettingsTransportSet set;
    List("b").WriteTo(set);
    NetIPControl list = List("a");
    EXPECT_TRUE(list.ReadFrom(set));
    EXPECT_TRUE(list.ReadFrom(set));
    EXPECT_EQ(Letters(list), "abb");
}

TEST(NetIPControl, ReadFrom_HalfParsedRuleBeforeAnother_LeavesNothingBehind)
{
    SettingsTransportSet set;
    set.AddString(SettingsTransportSet::UNNAMED, "-ipmask=10.0.0.0/8");
    set.AddString(SettingsTransportSet::UNNAMED, "+host=a");
    NetIPControl list;
    list.ReadFrom(set);
    ASSERT_EQ(list.GetCount(), 1U);
    EXPECT_TRUE(list.Get(0) == Rule("+host=a"));
}

TEST(NetIPControl, CheckErrorsAndWarnings_BadRules_NothingReported_KeptOnPurpose)
{
    NetIPControl list;
    list.Add(Rule("+iprange=10.0.0.9-10.0.0.1"));
    Messages messages;
    EXPECT_TRUE(list.CheckErrors(messages));
    EXPECT_TRUE(list.CheckWarnings(messages));
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

} // namespace

#include "common/SettingsTransportSet.h"

#include "tests/common/values/TestItem.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace kqlib {
namespace {

SettingsTransportSet MakeSet()
{
    SettingsTransportSet set;
    set.AddUSHORT("port", 21);
    set.AddULONG("limit", 0xFFFFFFFFUL);
    set.AddBool("on", true);
    set.AddString("host", "example.com");
    set.AddTimePos("since", TimePos(-5));
    set.AddBinaryStore("data", BinaryStore("\x00\xFF", 2));
    return set;
}

/// A variable of each type, and which of them a set has a value for under one key.
struct VARIABLES
{
    USHORT port = 7;
    ULONG limit = 8;
    bool on = false;
    String host{"old"};
    TimePos since{9};
    BinaryStore data{"x", 1};

    std::vector<bool> Get(const SettingsTransportSet& set, const String& key)
    {
        return {set.GetUSHORT(key, port), set.GetULONG(key, limit),   set.GetBool(key, on),
                set.GetString(key, host), set.GetTimePos(key, since), set.GetBinaryStore(key, data)};
    }
    friend bool operator==(const VARIABLES&, const VARIABLES&) = default;
};

TEST(SettingsTransportSetTest, Get_EachType_WhatWasAdded)
{
    const SettingsTransportSet set = MakeSet();
    VARIABLES got;
    for (ULONG index = 0; index < set.GetDataCount(); ++index)
        got.Get(set, set.GetDataKey(index));
    EXPECT_EQ(got.port, 21);
    EXPECT_EQ(got.limit, 0xFFFFFFFFUL);
    EXPECT_TRUE(got.on);
    EXPECT_EQ(got.host, "example.com");
    EXPECT_EQ(got.since, TimePos(-5));
    EXPECT_TRUE(got.data == BinaryStore("\x00\xFF", 2));
}

TEST(SettingsTransportSetTest, Get_KeyAbsent_FalseAndVariableUntouched)
{
    VARIABLES got;
    EXPECT_EQ(got.Get(MakeSet(), "none"), std::vector<bool>(6, false));
    EXPECT_TRUE(got == VARIABLES());
}

TEST(SettingsTransportSetTest, Get_ValueOfAnotherType_CountsAsAbsent)
{
    const SettingsTransportSet set = MakeSet();
    for (ULONG index = 0; index < set.GetDataCount(); ++index) {
        std::vector<bool> wanted(6, false);
        wanted[index] = true;
        VARIABLES got;
        EXPECT_EQ(got.Get(set, set.GetDataKey(index)), wanted) << index;
    }
}

TEST(SettingsTransportSetTest, Get_KeyRepeated_FirstOfThatType)
{
    SettingsTransportSet set;
    set.AddString("key", "first");
    set.AddUSHORT("key", 1);
    set.AddUSHORT("key", 2);
    USHORT number = 0;
    String text;
    EXPECT_TRUE(set.GetUSHORT("key", number) && number == 1);
    EXPECT_TRUE(set.GetString("key", text) && text == "first");
    EXPECT_EQ(set.GetDataCount(), 3U);
}

TEST(SettingsTransportSetTest, Get_KeysDifferInCase_AreTwo)
{
    SettingsTransportSet set;
    set.AddUSHORT("Key", 1);
    USHORT number = 0;
    EXPECT_FALSE(set.GetUSHORT("key", number));
    EXPECT_TRUE(set.GetUSHORT("Key", number));
}

TEST(SettingsTransportSetTest, AddULONG_WiderNumber_LowBitsCount)
{
    SettingsTransportSet set;
    const ULONG8 wide = 0x100000007ULL;
    set.AddULONG("key", static_cast<ULONG>(wide));
    ULONG number = 0;
    EXPECT_TRUE(set.GetULONG("key", number));
    EXPECT_EQ(number, 7U);
}

TEST(SettingsTransportSetTest, GetDataAsString_EachType_ItsText)
{
    const SettingsTransportSet set = MakeSet();
    const char* const wanted[] = {"21", "4294967295", "1", "example.com", "-5", "00FF"};
    ASSERT_EQ(set.GetDataCount(), 6U);
    for (ULONG index = 0; index < 6; ++index) {
        String text;
        EXPECT_TRUE(set.GetDataAsString(index, text));
        EXPECT_EQ(text, wanted[index]);
    }
    String text("old");
    EXPECT_FALSE(set.GetDataAsString(6, text));
    EXPECT_EQ(text, "old");
    EXPECT_THROW(static_cast<void>(set.GetDataKey(6)), std::out_of_range);
}

TEST(SettingsTransportSetTest, AddSet_OrderAndRepeats_Kept)
{
    SettingsTransportSet set;
    for (const char* key : {"b", "", "a", ""})
        ASSERT_NE(set.AddSet(key), nullptr);
    ASSERT_EQ(set.GetSetCount(), 4U);
    EXPECT_EQ(set.GetSetKey(0), "b");
    EXPECT_EQ(set.GetSetKey(1), SettingsTransportSet::UNNAMED);
    EXPECT_EQ(set.GetSetKey(2), "a");
    EXPECT_THROW(static_cast<void>(set.GetSet(4)), std::out_of_range);
    EXPECT_EQ(set.GetDataCount(), 0U);
}

TEST(SettingsTransportSetTest, AddSet_ManyMore_EarlierOnesStayValid)
{
    SettingsTransportSet set;
    SettingsTransportSet* const first = set.AddSet("first");
    for (int i = 0; i < 100; i++)
        set.AddSet("");
    first->AddUSHORT("number", 5);
    USHORT number = 0;
    EXPECT_TRUE(set.GetSet(0).GetUSHORT("number", number));
}

TEST(SettingsTransportSetTest, FindSet_FirstOfThatKey)
{
    SettingsTransportSet set;
    set.AddSet("a")->AddUSHORT("number", 1);
    set.AddSet("a")->AddUSHORT("number", 2);
    const SettingsTransportSet* const found = set.FindSet("a");
    ASSERT_NE(found, nullptr);
    USHORT number = 0;
    EXPECT_TRUE(found->GetUSHORT("number", number) && number == 1);
    EXPECT_EQ(set.FindSet("b"), nullptr);
}

TEST(SettingsTransportSetTest, AddSettings_ThenGetSettings_SameObject)
{
    SettingsTransportSet set;
    EXPECT_TRUE(set.AddSettings("item", TestItem("a", 5)));
    ASSERT_NE(set.FindSet("item"), nullptr);
    TestItem read;
    EXPECT_TRUE(set.FindSet("item")->GetSettings(read));
    EXPECT_TRUE(read.IsSame(TestItem("a", 5)));
}

TEST(SettingsTransportSetTest, Copy_IsDeep)
{
    SettingsTransportSet set = MakeSet();
    SettingsTransportSet* const sub = set.AddSet("sub");
    sub->AddUSHORT("number", 1);
    const SettingsTransportSet copy(set);
    EXPECT_TRUE(copy == set);
    sub->AddUSHORT("number", 2);
    EXPECT_FALSE(copy == set);
    EXPECT_EQ(copy.GetSet(0).GetDataCount(), 1U);
}

TEST(SettingsTransportSetTest, Assign_ItselfOrOneOfItsOwnSubSets_WholeContent)
{
    SettingsTransportSet set;
    set.AddSet("sub")->AddUSHORT("number", 1);
    const SettingsTransportSet& same = set;
    set = same;
    EXPECT_EQ(set.GetSetCount(), 1U);
    set = set.GetSet(0);
    EXPECT_EQ(set.GetSetCount(), 0U);
    EXPECT_EQ(set.GetDataCount(), 1U);
}

TEST(SettingsTransportSetTest, Move_HandsTheContentOver)
{
    SettingsTransportSet set = MakeSet();
    set.AddSet("sub");
    SettingsTransportSet moved(std::move(set));
    EXPECT_EQ(moved.GetDataCount(), 6U);
    SettingsTransportSet assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned.GetSetCount(), 1U);
}

TEST(SettingsTransportSetTest, Reset_Empty)
{
    SettingsTransportSet set = MakeSet();
    set.AddSet("sub");
    set.Reset();
    EXPECT_TRUE(set == SettingsTransportSet());
}

TEST(SettingsTransportSetTest, Equal_OrderTypeKeyAndValue)
{
    SettingsTransportSet numbers;
    numbers.AddUSHORT("a", 1);
    numbers.AddUSHORT("b", 2);
    SettingsTransportSet swapped;
    swapped.AddUSHORT("b", 2);
    swapped.AddUSHORT("a", 1);
    SettingsTransportSet wider;
    wider.AddULONG("a", 1);
    wider.AddULONG("b", 2);
    EXPECT_FALSE(numbers == swapped);
    EXPECT_FALSE(numbers == wider);
    SettingsTransportSet left;
    SettingsTransportSet right;
    left.AddSet("a");
    right.AddSet("b");
    EXPECT_FALSE(left == right);
}

} // namespace
} // namespace kqlib

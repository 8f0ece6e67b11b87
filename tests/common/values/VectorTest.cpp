#include "common/Vector.h"

#include "common/String.h"
#include "tests/peers/VirtualSlot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace kqlib {
namespace {

using ::testing::ElementsAre;

std::vector<String> Items(const Vector<String>& list)
{
    return {list.begin(), list.end()};
}

TEST(VectorTest, Construct_EachForm_ItsElements)
{
    EXPECT_EQ(Vector<String>().GetCount(), 0U);
    EXPECT_THAT(Items(Vector<String>(2)), ElementsAre("", ""));
    EXPECT_THAT(Items(Vector<String>(2, "x")), ElementsAre("x", "x"));
    const Vector<String> copy(Vector<String>(1, "y"));
    EXPECT_THAT(Items(copy), ElementsAre("y"));
}

TEST(VectorTest, VirtualFunctions_StandInTheFixedOrder)
{
    using V = Vector<String>;
    const String& (V::*const getConst)(ULONG) const = &V::Get;
    String& (V::*const get)(ULONG) = &V::Get;
    const test::SLOTS slots = {test::VirtualSlot(&V::Reset), test::VirtualSlot(&V::GetCount),
                               test::VirtualSlot(getConst),  test::VirtualSlot(get),
                               test::VirtualSlot(&V::Add),   test::VirtualSlot(&V::Delete),
                               test::VirtualSlot(&V::Append)};
    EXPECT_EQ(slots, test::SlotRange(0, 6));
}

TEST(VectorTest, Add_AppendsACopy)
{
    Vector<String> list;
    String text("a");
    list.Add(text);
    text = "b";
    list.Add(text);
    EXPECT_THAT(Items(list), ElementsAre("a", "b"));
    list.Get(0) = "c";
    EXPECT_THAT(Items(list), ElementsAre("c", "b"));
}

TEST(VectorTest, Add_AnElementOfItsOwn_AtEverySize)
{
    Vector<String> list(1, "a text too long for the object itself");
    for (int i = 0; i < 100; i++)
        list.Add(list.Get(0));
    ASSERT_EQ(list.GetCount(), 101U);
    EXPECT_EQ(list.Get(100), list.Get(0));
}

TEST(VectorTest, Delete_OneElement_LaterOnesMoveDown)
{
    Vector<String> list;
    const String items[] = {"a", "b", "c"};
    list.Append(items, 3);
    list.Delete(1);
    EXPECT_THAT(Items(list), ElementsAre("a", "c"));
    list.Delete(1);
    list.Delete(0);
    EXPECT_EQ(list.GetCount(), 0U);
}

TEST(VectorTest, Append_CopiesInOrder_ZeroDoesNothing)
{
    Vector<String> list(1, "x");
    const String items[] = {"a", "b"};
    list.Append(items, 2);
    list.Append(items, 0);
    list.Append(nullptr, 0);
    EXPECT_THAT(Items(list), ElementsAre("x", "a", "b"));
}

TEST(VectorTest, Append_ItemsOfItsOwn_Doubled)
{
    Vector<String> list;
    list.Add("a text too long for the object itself");
    list.Add("b");
    list.Append(&list.Get(0), list.GetCount());
    EXPECT_THAT(Items(list), ElementsAre("a text too long for the object itself", "b",
                                         "a text too long for the object itself", "b"));
}

TEST(VectorTest, Reset_Empty)
{
    Vector<String> list(3, "x");
    list.Reset();
    EXPECT_EQ(list.GetCount(), 0U);
}

TEST(VectorTest, Get_AtOrPastTheCount_OutOfRange)
{
    Vector<String> list(1);
    const Vector<String>& constant = list;
    EXPECT_THROW(static_cast<void>(list.Get(1)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(constant.Get(0xFFFFFFFFUL)), std::out_of_range);
}

TEST(VectorTest, Copy_IsIndependent)
{
    Vector<String> list(1, "a");
    Vector<String> copy;
    copy = list;
    copy.Add("b");
    EXPECT_THAT(Items(list), ElementsAre("a"));
    EXPECT_THAT(Items(copy), ElementsAre("a", "b"));
}

} // namespace
} // namespace kqlib

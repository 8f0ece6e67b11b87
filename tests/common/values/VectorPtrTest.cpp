#include "common/VectorPtr.h"
#include "common/VectorPtrCopyByValue.h"

#include "tests/common/values/TestItem.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <type_traits>

namespace kqlib {
namespace {

static_assert(!std::is_copy_constructible_v<VectorPtr<TestItem>>, "a copy would delete the elements twice");
static_assert(!std::is_copy_assignable_v<VectorPtr<TestItem>>);

/// Every test leaves as many items alive as it found.
class VectorPtrTest : public ::testing::Test
{
protected:
    ~VectorPtrTest() override { EXPECT_EQ(TestItem::sGetLiving(), m_living); }

    int CountLiving() const { return TestItem::sGetLiving() - m_living; }

    template <class LIST> static String Names(const LIST& list)
    {
        String names;
        for (ULONG index = 0; index < list.GetCount(); ++index)
            names += list.Get(index).GetName();
        return names;
    }

    template <class LIST> static void Fill(LIST& list, const char* names)
    {
        for (; *names != '\0'; ++names)
            list.Give(new TestItem(String(1, *names), 0));
    }

private:
    const int m_living = TestItem::sGetLiving();
};

TEST_F(VectorPtrTest, Give_TakesTheObjectItself)
{
    VectorPtr<TestItem> list;
    auto* const item = new TestItem("a", 1);
    list.Give(item);
    list.Give(nullptr);
    ASSERT_EQ(list.GetCount(), 1U);
    EXPECT_EQ(&list.Get(0), item);
    list.Get(0).SetName("b");
    EXPECT_EQ(Names(list), "b");
}

TEST_F(VectorPtrTest, GiveAt_BeforeTheElementAtIndex)
{
    VectorPtr<TestItem> list;
    Fill(list, "bd");
    list.GiveAt(0, new TestItem("a", 0));
    list.GiveAt(2, new TestItem("c", 0));
    list.GiveAt(4, new TestItem("e", 0));
    EXPECT_EQ(Names(list), "abcde");
}

TEST_F(VectorPtrTest, Remove_HandsTheObjectOver)
{
    VectorPtr<TestItem> list;
    Fill(list, "abc");
    const std::unique_ptr<TestItem> item(list.Remove(1));
    EXPECT_EQ(item->GetName(), "b");
    EXPECT_EQ(Names(list), "ac");
    EXPECT_EQ(CountLiving(), 3);
}

TEST_F(VectorPtrTest, Delete_DestroysAndClosesTheGap)
{
    VectorPtr<TestItem> list;
    Fill(list, "abc");
    list.Delete(0);
    EXPECT_EQ(Names(list), "bc");
    EXPECT_EQ(CountLiving(), 2);
}

TEST_F(VectorPtrTest, Reset_DestroysAll)
{
    VectorPtr<TestItem> list;
    Fill(list, "abc");
    list.Reset();
    EXPECT_EQ(list.GetCount(), 0U);
    EXPECT_EQ(CountLiving(), 0);
}

TEST_F(VectorPtrTest, AnyIndexAtOrPastTheCount_OutOfRange)
{
    VectorPtr<TestItem> list;
    Fill(list, "a");
    EXPECT_THROW(static_cast<void>(list.Get(1)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(list.Remove(1)), std::out_of_range);
    EXPECT_THROW(list.Delete(1), std::out_of_range);
    EXPECT_EQ(Names(list), "a");
}

TEST_F(VectorPtrTest, TakeAll_InOrderBehindItsOwn)
{
    VectorPtr<TestItem> list;
    VectorPtr<TestItem> other;
    Fill(list, "ab");
    Fill(other, "cd");
    list.TakeAll(other);
    EXPECT_EQ(Names(list), "abcd");
    EXPECT_EQ(other.GetCount(), 0U);
    EXPECT_EQ(CountLiving(), 4);
}

TEST_F(VectorPtrTest, Move_HandsTheElementsOver)
{
    VectorPtr<TestItem> list;
    Fill(list, "ab");
    const TestItem* const first = &list.Get(0);
    const VectorPtr<TestItem> moved(std::move(list));
    EXPECT_EQ(Names(moved), "ab");
    EXPECT_EQ(&moved.Get(0), first);
}

TEST_F(VectorPtrTest, CopyByValue_Copy_MakesNewObjects)
{
    VectorPtrCopyByValue<TestItem> list;
    Fill(list, "ab");
    VectorPtrCopyByValue<TestItem> copy(list);
    EXPECT_NE(&copy.Get(0), &list.Get(0));
    copy.Get(0).SetName("x");
    EXPECT_EQ(Names(list), "ab");
    EXPECT_EQ(Names(copy), "xb");
    EXPECT_EQ(CountLiving(), 4);
}

TEST_F(VectorPtrTest, CopyByValue_Assign_ReplacesTheElements)
{
    VectorPtrCopyByValue<TestItem> list;
    VectorPtrCopyByValue<TestItem> other;
    Fill(list, "abc");
    Fill(other, "d");
    list = other;
    EXPECT_EQ(Names(list), "d");
    EXPECT_EQ(CountLiving(), 2);
    const VectorPtrCopyByValue<TestItem>& same = list;
    list = same;
    EXPECT_EQ(Names(list), "d");
}

TEST_F(VectorPtrTest, CopyByValue_AddAndAppend_TakeCopies)
{
    VectorPtrCopyByValue<TestItem> list;
    const TestItem items[] = {TestItem("b", 0), TestItem("c", 0)};
    list.Add(TestItem("a", 0));
    list.Append(items, 2);
    list.Append(items, 0);
    list.Append(nullptr, 0);
    list.Add(list.Get(0));
    EXPECT_EQ(Names(list), "abca");
    list.Delete(1);
    EXPECT_EQ(Names(list), "aca");
}

TEST_F(VectorPtrTest, CopyByValue_Reverse_InPlace)
{
    VectorPtrCopyByValue<TestItem> list;
    Fill(list, "abc");
    const TestItem* const first = &list.Get(0);
    list.Reverse();
    EXPECT_EQ(Names(list), "cba");
    EXPECT_EQ(&list.Get(2), first);
}

} // namespace
} // namespace kqlib

#include "common/VectorTransferable.h"
#include "common/VectorTransferablePtr.h"

#include "tests/common/values/TestItem.h"

#include <gtest/gtest.h>

#include <memory>

namespace kqlib {
namespace {

/// Both list templates; what differs between them has tests of its own below.
template <class LIST> class VectorTransferableTest : public ::testing::Test
{
protected:
    static LIST Make()
    {
        LIST list;
        list.Add(TestItem("a", 1));
        list.Add(TestItem("b", 2));
        list.Add(TestItem("a", 1));
        return list;
    }
};

using LISTS = ::testing::Types<VectorTransferable<TestItem>, VectorTransferablePtr<TestItem>>;
TYPED_TEST_SUITE(VectorTransferableTest, LISTS);

TYPED_TEST(VectorTransferableTest, WriteTo_OneUnnamedSubSetPerElementInOrder)
{
    SettingsTransportSet set;
    EXPECT_TRUE(this->Make().WriteTo(set));
    EXPECT_EQ(set.GetDataCount(), 0U);
    ASSERT_EQ(set.GetSetCount(), 3U);
    const char* const names[] = {"a", "b", "a"};
    for (ULONG index = 0; index < 3; ++index) {
        String name;
        EXPECT_EQ(set.GetSetKey(index), SettingsTransportSet::UNNAMED);
        EXPECT_TRUE(set.GetSet(index).GetString("name", name));
        EXPECT_EQ(name, names[index]);
    }
}

TYPED_TEST(VectorTransferableTest, WriteTo_ThenReadFrom_Same)
{
    SettingsTransportSet set;
    this->Make().WriteTo(set);
    TypeParam read;
    EXPECT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == this->Make());
}

TYPED_TEST(VectorTransferableTest, ReadFrom_ListNotEmpty_AppendsKeptOnPurpose)
{
    SettingsTransportSet set;
    this->Make().WriteTo(set);
    TypeParam list = this->Make();
    EXPECT_TRUE(list.ReadFrom(set));
    ASSERT_EQ(list.GetCount(), 6U);
    EXPECT_EQ(list.Get(4).GetName(), "b");
}

TYPED_TEST(VectorTransferableTest, ReadFrom_NoSubSets_NothingAdded)
{
    SettingsTransportSet set;
    set.AddString("name", "x");
    TypeParam list;
    EXPECT_TRUE(list.ReadFrom(set));
    EXPECT_EQ(list.GetCount(), 0U);
}

TYPED_TEST(VectorTransferableTest, ReadFrom_NamedSubSets_AreElementsToo)
{
    SettingsTransportSet set;
    TestItem("x", 5).WriteTo(*set.AddSet("named"));
    TypeParam list;
    list.ReadFrom(set);
    ASSERT_EQ(list.GetCount(), 1U);
    EXPECT_EQ(list.Get(0).GetName(), "x");
}

TYPED_TEST(VectorTransferableTest, IsSame_CountAndEveryElement)
{
    const TypeParam list = this->Make();
    TypeParam other = this->Make();
    EXPECT_TRUE(list.IsSame(other));
    other.Add(TestItem("c", 3));
    EXPECT_FALSE(list.IsSame(other));
    other.Delete(3);
    EXPECT_TRUE(list == other);
    other.Get(1).SetName("x");
    EXPECT_FALSE(list == other);
}

TYPED_TEST(VectorTransferableTest, IsSame_EmptyLists_True)
{
    EXPECT_TRUE(TypeParam().IsSame(TypeParam()));
}

TYPED_TEST(VectorTransferableTest, IsSame_ThroughTheBase_OtherClassIsFalse)
{
    const TypeParam list = this->Make();
    const TypeParam equal = this->Make();
    const SettingsTransferable& base = list;
    EXPECT_TRUE(base.IsSame(equal));
    EXPECT_FALSE(base.IsSame(TestItem()));
}

TYPED_TEST(VectorTransferableTest, CheckErrorsAndWarnings_EachElementInOrder)
{
    TypeParam list;
    Messages messages;
    EXPECT_TRUE(list.CheckErrors(messages));
    list.Add(TestItem("", 0));
    list.Add(TestItem("a", 0));
    list.Add(TestItem("", 1));
    messages.AddMessage(1);
    EXPECT_FALSE(list.CheckErrors(messages));
    EXPECT_EQ(messages.GetMessageCount(), 3U);
    EXPECT_EQ(messages.Get(0), 1);
    EXPECT_EQ(messages.Get(1), 901);
    EXPECT_FALSE(list.CheckWarnings(messages));
    EXPECT_EQ(messages.GetMessageCount(), 5U);
    EXPECT_EQ(messages.Get(4), 902);
}

TYPED_TEST(VectorTransferableTest, Spawn_CopyOrEmpty)
{
    const TypeParam list = this->Make();
    const std::unique_ptr<SettingsTransferable> copy(list.Spawn(true));
    const std::unique_ptr<SettingsTransferable> empty(list.Spawn(false));
    EXPECT_TRUE(copy->IsSame(list));
    EXPECT_TRUE(empty->IsSame(TypeParam()));
}

TYPED_TEST(VectorTransferableTest, Reset_ThroughTheSettingsBase_EmptiesTheArray)
{
    TypeParam list = this->Make();
    static_cast<SettingsTransferable&>(list).Reset();
    EXPECT_EQ(list.GetCount(), 0U);
}

TYPED_TEST(VectorTransferableTest, Destroyed_NoElementLives)
{
    const int living = TestItem::sGetLiving();
    {
        TypeParam list = this->Make();
        TypeParam copy(list);
        copy = list;
        copy.Delete(0);
    }
    EXPECT_EQ(TestItem::sGetLiving(), living);
}

SettingsTransportSet MakeSetWithGaps()
{
    SettingsTransportSet set;
    set.AddSet(SettingsTransportSet::UNNAMED)->AddUSHORT("number", 5);
    TestItem("a", 1).WriteTo(*set.AddSet(SettingsTransportSet::UNNAMED));
    set.AddSet(SettingsTransportSet::UNNAMED)->AddUSHORT("number", 7);
    set.AddSet(SettingsTransportSet::UNNAMED);
    return set;
}

TEST(VectorTransferableValueTest, ReadFrom_SubSetLacksAKey_InheritsThePreviousElementsValueKeptOnPurpose)
{
    VectorTransferable<TestItem> list;
    list.ReadFrom(MakeSetWithGaps());
    ASSERT_EQ(list.GetCount(), 4U);
    EXPECT_EQ(list.Get(0).GetName(), "");
    EXPECT_TRUE(list.Get(2).IsSame(TestItem("a", 7)));
    EXPECT_TRUE(list.Get(3).IsSame(TestItem("a", 7)));
}

TEST(VectorTransferableValueTest, ReadFrom_ListNotEmpty_FirstElementStartsFromTheDefault)
{
    VectorTransferable<TestItem> list;
    list.Add(TestItem("old", 9));
    list.ReadFrom(MakeSetWithGaps());
    ASSERT_EQ(list.GetCount(), 5U);
    EXPECT_TRUE(list.Get(1).IsSame(TestItem("", 5)));
}

TEST(VectorTransferableValueTest, Construct_CountForms)
{
    EXPECT_EQ(VectorTransferable<TestItem>(2).GetCount(), 2U);
    const VectorTransferable<TestItem> list(2, TestItem("a", 1));
    ASSERT_EQ(list.GetCount(), 2U);
    EXPECT_EQ(list.Get(1).GetName(), "a");
}

TEST(VectorTransferableValueTest, Reset_ThroughTheVectorBase_SameFunction)
{
    VectorTransferable<TestItem> list(2);
    static_cast<Vector<TestItem>&>(list).Reset();
    EXPECT_EQ(list.GetCount(), 0U);
}

TEST(VectorTransferablePtrTest, ReadFrom_SubSetLacksAKey_DefaultValue)
{
    VectorTransferablePtr<TestItem> list;
    list.ReadFrom(MakeSetWithGaps());
    ASSERT_EQ(list.GetCount(), 4U);
    EXPECT_TRUE(list.Get(2).IsSame(TestItem("", 7)));
    EXPECT_TRUE(list.Get(3).IsSame(TestItem()));
}

TEST(VectorTransferablePtrTest, Give_TakesTheObjectItself)
{
    VectorTransferablePtr<TestItem> list;
    auto* const item = new TestItem("a", 1);
    list.Give(item);
    EXPECT_EQ(&list.Get(0), item);
}

} // namespace
} // namespace kqlib

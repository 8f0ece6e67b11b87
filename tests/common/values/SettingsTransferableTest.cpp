#include "common/SettingsTransferable.h"

#include "tests/common/values/TestItem.h"

#include <gtest/gtest.h>

#include <memory>

namespace kqlib {
namespace {

/// Has nothing to store and nothing to check.
class Bare : public SettingsTransferable
{
public:
    void Reset() override {}
    [[nodiscard]] SettingsTransferable* Spawn(bool) const override { return new Bare(); }
    bool IsSame(const SettingsTransferable& other) const override
    {
        return dynamic_cast<const Bare*>(&other) != nullptr;
    }
};

/// Fails to write and to read.
class Failing : public Bare
{
protected:
    bool xWriteTo(SettingsTransportSet&) const override { return false; }
    bool xReadFrom(const SettingsTransportSet&) override { return false; }
};

TEST(SettingsTransferableTest, BaseForms_DoNothingAndSucceed)
{
    Bare bare;
    SettingsTransportSet set;
    Messages messages;
    EXPECT_TRUE(bare.WriteTo(set));
    EXPECT_TRUE(bare.ReadFrom(set));
    EXPECT_TRUE(bare.CheckErrors(messages));
    EXPECT_TRUE(bare.CheckWarnings(messages));
    EXPECT_TRUE(set == SettingsTransportSet());
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

TEST(SettingsTransferableTest, WriteAndRead_AnswerOfTheDerivedForm_HandedOn)
{
    Failing failing;
    SettingsTransportSet set;
    EXPECT_FALSE(failing.WriteTo(set));
    EXPECT_FALSE(failing.ReadFrom(set));
    EXPECT_FALSE(set.AddSettings("key", failing));
    EXPECT_FALSE(set.GetSettings(failing));
}

TEST(SettingsTransferableTest, CheckErrors_MessagesAlreadyThere_OnlyNewOnesCount)
{
    Messages messages;
    messages.AddMessage(5);
    EXPECT_TRUE(TestItem("a", 1).CheckErrors(messages));
    EXPECT_TRUE(TestItem("a", 1).CheckWarnings(messages));
    EXPECT_FALSE(TestItem("", 1).CheckErrors(messages));
    EXPECT_FALSE(TestItem("a", 0).CheckWarnings(messages));
    ASSERT_EQ(messages.GetMessageCount(), 3U);
    EXPECT_EQ(messages.Get(1), 901);
    EXPECT_EQ(messages.Get(2), 902);
}

TEST(SettingsTransferableTest, ReadFrom_AbsentKeys_FieldsUnchanged)
{
    TestItem item("a", 1);
    SettingsTransportSet set;
    set.AddUSHORT("number", 9);
    EXPECT_TRUE(item.ReadFrom(set));
    EXPECT_TRUE(item.IsSame(TestItem("a", 9)));
}

TEST(SettingsTransferableTest, Spawn_ThroughTheBase_DeletedThroughTheBase)
{
    const int living = TestItem::sGetLiving();
    {
        const std::unique_ptr<SettingsTransferable> item(new TestItem("a", 1));
        const std::unique_ptr<SettingsTransferable> copy(item->Spawn(true));
        const std::unique_ptr<SettingsTransferable> fresh(item->Spawn(false));
        EXPECT_TRUE(copy->IsSame(*item));
        EXPECT_TRUE(fresh->IsSame(TestItem()));
    }
    EXPECT_EQ(TestItem::sGetLiving(), living);
}

} // namespace
} // namespace kqlib

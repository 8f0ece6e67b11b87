#include "common/Messages.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace kqlib {
namespace {

TEST(MessagesTest, AddMessage_OrderAndRepeats_Kept)
{
    Messages messages;
    for (const int code : {84, 3, 84, -1, std::numeric_limits<int>::max()})
        messages.AddMessage(code);
    ASSERT_EQ(messages.GetMessageCount(), 5U);
    EXPECT_EQ(messages.Get(0), 84);
    EXPECT_EQ(messages.Get(1), 3);
    EXPECT_EQ(messages.Get(2), 84);
    EXPECT_EQ(messages.Get(3), -1);
    EXPECT_EQ(messages.Get(4), std::numeric_limits<int>::max());
}

TEST(MessagesTest, Reset_Empty)
{
    Messages messages;
    messages.AddMessage(1);
    messages.Reset();
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

TEST(MessagesTest, Get_PastTheEnd_OutOfRange)
{
    EXPECT_THROW(static_cast<void>(Messages().Get(0)), std::out_of_range);
}

} // namespace
} // namespace kqlib

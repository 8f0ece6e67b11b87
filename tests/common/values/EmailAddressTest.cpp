#include "common/EmailAddress.h"

#include <gtest/gtest.h>

namespace kqlib {
namespace {

TEST(EmailAddressTest, IsAddressValid_GoodForms_True)
{
    for (const char* text : {"a@b", "user@example.com", "USER.name+tag@EXAMPLE.com", "a@1.2.3.4", "a@x-y.z",
                             "a@[1.2.3.4]", "a@[::1]", "\"a\"@b", "!#$%&'/=^_`{|}~@b", "a..b@c", "\xE4@b", "a@0"})
        EXPECT_TRUE(EmailAddress(String(text)).IsAddressValid()) << text;
}

TEST(EmailAddressTest, IsAddressValid_BadLocalPart_False)
{
    for (const char* text : {"", "@", "@b", "a", "a b@c", " a@b", "a\t@b", "a\r\n@b", "a\x7F@b", "*@b", "a?@b", "<a@b",
                             "a>@b", "a,b@c", "a;b@c", "a@b@c", "a@@b"})
        EXPECT_FALSE(EmailAddress(String(text)).IsAddressValid()) << text;
    EXPECT_FALSE(EmailAddress(String("a\0@b", 4)).IsAddressValid());
}

TEST(EmailAddressTest, IsAddressValid_BadDomain_False)
{
    for (const char* text :
         {"a@",     "a@.",       "a@.b",       "a@b.",       "a@b..c",   "a@-b",         "a@b-", "a@b.-c",
          "a@b-.c", "a@b_c",     "a@b c",      "a@b ",       "a@b*",     "a@\xE4",       "a@[]", "a@[",
          "a@]",    "a@[1.2.3]", "a@[1.2.3.4", "a@1.2.3.4]", "a@[host]", "a@[1.2.3.4]x", "a@b>"})
        EXPECT_FALSE(EmailAddress(String(text)).IsAddressValid()) << text;
    EXPECT_FALSE(EmailAddress(String("a@b\0c", 5)).IsAddressValid());
}

TEST(EmailAddressTest, GetAddress_ValidOrNot_TheTextGiven)
{
    EXPECT_EQ(EmailAddress(String("no address")).GetAddress(), "no address");
    EXPECT_TRUE(EmailAddress().GetAddress().empty());
    EXPECT_FALSE(EmailAddress().IsAddressValid());
}

TEST(EmailAddressTest, Addresses_Add_KeepsOrderAndRepeats)
{
    ADDRESSES list;
    for (const char* text : {"b@x", "a@x", "b@x"})
        list.Add(EmailAddress(String(text)));
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0].GetAddress(), "b@x");
    EXPECT_EQ(list[1].GetAddress(), "a@x");
    EXPECT_EQ(list[2].GetAddress(), "b@x");
}

} // namespace
} // namespace kqlib

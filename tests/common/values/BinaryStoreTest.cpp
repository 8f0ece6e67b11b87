#include "common/BinaryStore.h"

#include <gtest/gtest.h>

#include <string>

namespace kqlib {
namespace {

std::string Text(const BinaryStore& store)
{
    return {store.GetData(), store.GetData() + store.GetSize()};
}

TEST(BinaryStoreTest, New_Empty)
{
    EXPECT_EQ(BinaryStore().GetSize(), 0U);
    EXPECT_EQ(BinaryStore(nullptr, 0).GetSize(), 0U);
}

TEST(BinaryStoreTest, Set_ReplacesTheContent)
{
    BinaryStore store("a\0b", 3);
    EXPECT_EQ(Text(store), std::string("a\0b", 3));
    store.Set("xy", 2);
    EXPECT_EQ(Text(store), "xy");
    store.Set(nullptr, 0);
    EXPECT_EQ(store.GetSize(), 0U);
}

TEST(BinaryStoreTest, SetZeros_ReplacesTheContent)
{
    BinaryStore store("abc", 3);
    store.SetZeros(2);
    EXPECT_EQ(Text(store), std::string(2, '\0'));
    store.SetZeros(5);
    EXPECT_EQ(Text(store), std::string(5, '\0'));
    store.SetZeros(0);
    EXPECT_EQ(store.GetSize(), 0U);
}

TEST(BinaryStoreTest, Append_AddsBehind)
{
    BinaryStore store("ab", 2);
    store.Append("cd", 2);
    store.Append(nullptr, 0);
    EXPECT_EQ(Text(store), "abcd");
}

TEST(BinaryStoreTest, SetAndAppend_ItsOwnBytes_AsIfTheyWereOthers)
{
    BinaryStore store("abcd", 4);
    store.Append(store.GetData(), store.GetSize());
    EXPECT_EQ(Text(store), "abcdabcd");
    store.Set(store.GetData() + 2, 3);
    EXPECT_EQ(Text(store), "cda");
}

TEST(BinaryStoreTest, Copy_IsIndependent)
{
    const BinaryStore store("ab", 2);
    BinaryStore copy(store);
    EXPECT_TRUE(copy == store);
    copy.GetData()[0] = 'x';
    EXPECT_EQ(Text(store), "ab");
    EXPECT_FALSE(copy == store);
}

TEST(BinaryStoreTest, Equal_SizeAndBytes)
{
    EXPECT_TRUE(BinaryStore() == BinaryStore("", 0));
    EXPECT_FALSE(BinaryStore("a", 1) == BinaryStore("ab", 2));
    EXPECT_FALSE(BinaryStore("a\0", 2) == BinaryStore("a", 1));
}

TEST(BinaryStoreTest, ResetDeleteMemory_EmptyAndUsable)
{
    BinaryStore store("ab", 2);
    store.ResetDeleteMemory();
    EXPECT_EQ(store.GetSize(), 0U);
    store.Append("c", 1);
    EXPECT_EQ(Text(store), "c");
}

} // namespace
} // namespace kqlib

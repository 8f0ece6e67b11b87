#include "common/FilePath.h"

#include "platform/Files.h"

#include <gtest/gtest.h>

namespace kqlib {
namespace {

String WithSeparator(const char* text)
{
    return String(text) + platform::PathSeparator();
}

TEST(FilePathTest, Construct_TextForms_SameText)
{
    EXPECT_EQ(FilePath("a/b").GetText(), "a/b");
    EXPECT_EQ(FilePath(String("a/b")), FilePath("a/b"));
    EXPECT_STREQ(FilePath("a/b").c_str(), "a/b");
    EXPECT_TRUE(FilePath().empty());
    EXPECT_FALSE(FilePath("a").empty());
}

TEST(FilePathTest, Append_TextOnly_NoSeparatorAdded)
{
    FilePath path("a");
    path += "b";
    path += ".txt";
    EXPECT_EQ(path.GetText(), "ab.txt");
}

TEST(FilePathTest, MakeSafeForFileAppend_Folder_OneSeparatorAtTheEnd)
{
    FilePath path("a/b");
    path.MakeSafeForFileAppend(true);
    EXPECT_EQ(path.GetText(), WithSeparator("a/b"));
    path.MakeSafeForFileAppend(true);
    EXPECT_EQ(path.GetText(), WithSeparator("a/b"));
}

TEST(FilePathTest, MakeSafeForFileAppend_SlashAtTheEnd_AcceptedOnEverySystem)
{
    FilePath path("a/");
    path.MakeSafeForFileAppend(true);
    EXPECT_EQ(path.GetText(), "a/");
    FilePath root("/");
    root.MakeSafeForFileAppend(true);
    EXPECT_EQ(root.GetText(), "/");
}

TEST(FilePathTest, MakeSafeForFileAppend_EmptyPath_StaysEmpty)
{
    FilePath path;
    path.MakeSafeForFileAppend(true);
    EXPECT_TRUE(path.empty());
}

TEST(FilePathTest, MakeSafeForFileAppend_NotAFolder_Unchanged)
{
    FilePath path("a");
    path.MakeSafeForFileAppend(false);
    EXPECT_EQ(path.GetText(), "a");
}

} // namespace
} // namespace kqlib

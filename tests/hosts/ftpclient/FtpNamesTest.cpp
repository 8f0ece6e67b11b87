// Tests of names and paths.
#include "hosts/ftpclient/FtpNames.h"

#include <gtest/gtest.h>
#include <set>

namespace kqlib {
namespace {

TEST(FtpNames, IsPlain_NamesOfOneFile_Only)
{
    for (const char* name : {"a", "...", ".hidden", "a b", "..a", "a..", "\\", "-rf", "\xC3\xBC"})
        EXPECT_TRUE(FtpNames::sIsPlain(name)) << name;
    for (const char* name : {"", ".", "..", "/", "a/b", "../a", "/etc/passwd", "a/"})
        EXPECT_FALSE(FtpNames::sIsPlain(name)) << name;
    EXPECT_FALSE(FtpNames::sIsPlain(String("a\0b", 3)));
}

TEST(FtpNames, CanBeSent_NoLineEndsAndNoZeroByte)
{
    EXPECT_TRUE(FtpNames::sCanBeSent("a name\t\x7F\xFF"));
    EXPECT_FALSE(FtpNames::sCanBeSent("a\r\nDELE b"));
    EXPECT_FALSE(FtpNames::sCanBeSent("a\n"));
    EXPECT_FALSE(FtpNames::sCanBeSent("a\r"));
    EXPECT_FALSE(FtpNames::sCanBeSent(String("a\0", 2)));
}

TEST(FtpNames, Paths_JoinedAndTakenApart)
{
    EXPECT_EQ(FtpNames::sJoin("a", "b"), "a/b");
    EXPECT_EQ(FtpNames::sJoin("/", "b"), "/b");
    EXPECT_EQ(FtpNames::sJoin("", "b"), "b");
    EXPECT_EQ(FtpNames::sJoin("a/", "b"), "a/b");
    EXPECT_EQ(FtpNames::sJoin("a", ""), "a");
    EXPECT_EQ(FtpNames::sFolderOf("/a/b"), "/a");
    EXPECT_EQ(FtpNames::sFolderOf("/a"), "/");
    EXPECT_EQ(FtpNames::sFolderOf("a"), "");
    EXPECT_EQ(FtpNames::sNameOf("/a/b"), "b");
    EXPECT_EQ(FtpNames::sNameOf("a"), "a");
    EXPECT_EQ(FtpNames::sNameOf("a/"), "");
}

TEST(FtpNames, MakePartName_EveryVersion_ItsOwn)
{
    using KIND = FtpRemoteEntry::KIND;
    const FtpRemoteEntry versions[] = {{"a", KIND::FILE, 1U, 1000},           {"b", KIND::FILE, 1U, 1000},
                                       {"a", KIND::FILE, 2U, 1000},           {"a", KIND::FILE, 1U, 2000},
                                       {"a", KIND::FILE, std::nullopt, 1000}, {"a", KIND::FILE, 1U, std::nullopt},
                                       {"a1", KIND::FILE, std::nullopt, 1000}};
    std::set<String> names;
    for (const FtpRemoteEntry& version : versions) {
        const String name = FtpNames::sMakePartName(version);
        EXPECT_TRUE(FtpNames::sIsPartName(name)) << name.c_str();
        EXPECT_TRUE(FtpNames::sIsPlain(name));
        EXPECT_EQ(name, FtpNames::sMakePartName(version));
        EXPECT_TRUE(names.insert(name).second);
    }
    EXPECT_FALSE(FtpNames::sIsPartName("a.part"));
    EXPECT_FALSE(FtpNames::sIsPartName(".kqftp-.part"));
}

TEST(FtpNames, Unquote_DoubledQuotes_OnePath)
{
    String path;
    ASSERT_TRUE(FtpNames::sUnquote("\"/a \"\"b\"\" c\" is the current folder", path));
    EXPECT_EQ(path, "/a \"b\" c");
    ASSERT_TRUE(FtpNames::sUnquote("\"/\"", path));
    EXPECT_EQ(path, "/");
    ASSERT_TRUE(FtpNames::sUnquote("\"/a\"\"\"", path));
    EXPECT_EQ(path, "/a\"");
    for (const char* text : {"", "/a", "\"/a", "\"", "\"\"", "\"/a\"\""})
        EXPECT_FALSE(FtpNames::sUnquote(text, path)) << text;
}

} // namespace
} // namespace kqlib

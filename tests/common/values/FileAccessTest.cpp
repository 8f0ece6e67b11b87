#include "common/FileAccess.h"
#include "common/FileAccessBuf.h"

#include "tests/peers/FileRights.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kqlib {
namespace {

class FileAccessTest : public ::testing::Test
{
protected:
    FilePath GetPath(const std::string& name) const { return (m_folder / name).string().c_str(); }

    void Write(const std::string& name, const std::string& bytes) const
    {
        FileAccess file;
        ASSERT_TRUE(file.Open(GetPath(name), FileAccess::AM_WRITE, true, true));
        ASSERT_TRUE(
            file.WriteAll(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<ULONG>(bytes.size())));
    }

    std::string Read(const std::string& name) const
    {
        FileAccess file;
        EXPECT_TRUE(file.Open(GetPath(name), FileAccess::AM_READ, false, false));
        std::string bytes;
        unsigned char buffer[7];
        for (ULONG size = sizeof(buffer); file.Read(buffer, size) && size != 0; size = sizeof(buffer))
            bytes.append(buffer, buffer + size);
        return bytes;
    }

    std::vector<std::string> ReadLines(const std::string& name) const
    {
        FileAccessBuf file;
        EXPECT_TRUE(file.Open(GetPath(name), FileAccess::AM_READ, false));
        std::vector<std::string> lines;
        String line;
        while (file.ReadLine(line))
            lines.push_back(line.str());
        EXPECT_TRUE(line.empty());
        EXPECT_FALSE(file.ReadLine(line));
        return lines;
    }

    test::TempFolder m_folder;
};

using LINES = std::vector<std::string>;

TEST_F(FileAccessTest, New_NotOpen_EverythingFails)
{
    FileAccess file;
    unsigned char byte = 'x';
    ULONG size = 1;
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(file.Read(&byte, size));
    EXPECT_EQ(size, 0U);
    EXPECT_FALSE(file.WriteAll(&byte, 1));
    EXPECT_FALSE(file.Seek(0));
    EXPECT_FALSE(file.SetSize(0));
    EXPECT_FALSE(file.Flush());
    EXPECT_EQ(file.GetSize(), 0U);
    EXPECT_EQ(file.GetSizeULONG(), 0U);
    file.Close();
}

TEST_F(FileAccessTest, WriteAll_ThenRead_SameBytes)
{
    const std::string bytes("a\0\r\n\xFF"
                            "0123456789",
                            15);
    Write("a", bytes);
    EXPECT_EQ(Read("a"), bytes);
}

TEST_F(FileAccessTest, Open_MissingWithoutCreate_FalseAndClosed)
{
    FileAccess file;
    EXPECT_FALSE(file.Open(GetPath("none"), FileAccess::AM_READ, false, false));
    EXPECT_FALSE(file.Open(GetPath("none/none"), FileAccess::AM_WRITE, true, false));
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(FileAccessTest, Open_SecondFileFails_FirstIsClosed)
{
    FileAccess file;
    ASSERT_TRUE(file.Open(GetPath("a"), FileAccess::AM_WRITE, true, false));
    EXPECT_FALSE(file.Open(GetPath("none"), FileAccess::AM_READ, false, false));
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(FileAccessTest, Open_TruncateForReading_Empty)
{
    Write("a", "12345");
    FileAccess file;
    ASSERT_TRUE(file.Open(GetPath("a"), FileAccess::AM_READ, false, true));
    EXPECT_EQ(file.GetSize(), 0U);
}

TEST_F(FileAccessTest, Open_ReadWriteWithoutTruncate_WritesOverTheStart)
{
    Write("a", "12345");
    FileAccess file;
    ASSERT_TRUE(file.Open(GetPath("a"), FileAccess::AM_READWRITE, true, false));
    EXPECT_TRUE(file.WriteAll(reinterpret_cast<const unsigned char*>("ab"), 2));
    EXPECT_TRUE(file.Seek(4));
    EXPECT_TRUE(file.WriteAll(reinterpret_cast<const unsigned char*>("cd"), 2));
    EXPECT_EQ(file.GetSize(), 6U);
    EXPECT_TRUE(file.SetSize(5));
    EXPECT_TRUE(file.Flush());
    file.Close();
    EXPECT_EQ(Read("a"), "ab34c");
}

TEST_F(FileAccessTest, WriteAll_OpenForReading_False)
{
    Write("a", "1");
    FileAccess file;
    ASSERT_TRUE(file.Open(GetPath("a"), FileAccess::AM_READ, false, false));
    EXPECT_FALSE(file.WriteAll(reinterpret_cast<const unsigned char*>("x"), 1));
}

TEST_F(FileAccessTest, GetSizeULONG_PastFourGigabytes_Zero)
{
    FileAccess file;
    ASSERT_TRUE(file.Open(GetPath("sparse"), FileAccess::AM_READWRITE, true, true));
    ASSERT_TRUE(file.SetSize(0xFFFFFFFFULL));
    EXPECT_EQ(file.GetSizeULONG(), 0xFFFFFFFFUL);
    ASSERT_TRUE(file.SetSize(0x100000001ULL));
    EXPECT_EQ(file.GetSize(), 0x100000001ULL);
    EXPECT_EQ(file.GetSizeULONG(), 0U);
}

TEST_F(FileAccessTest, OpenOwnerOnly_NewFile_OthersHaveNoRights)
{
    FileAccess file;
    ASSERT_TRUE(file.OpenOwnerOnly(GetPath("key"), FileAccess::AM_WRITE, true, true));
    EXPECT_TRUE(file.WriteAll(reinterpret_cast<const unsigned char*>("s"), 1));
    file.Close();
    EXPECT_EQ(Read("key"), "s");
    test::ExpectOwnerOnly(m_folder / "key");
}

TEST_F(FileAccessTest, SDelete_ExistingFile_TrueOnce)
{
    Write("a", "1");
    EXPECT_TRUE(FileAccess::sDelete(GetPath("a")));
    EXPECT_FALSE(FileAccess::sDelete(GetPath("a")));
}

TEST_F(FileAccessTest, ReadLine_LfAndCrLf_Stripped)
{
    Write("a", "one\r\ntwo\n\n\r\nfive\n");
    EXPECT_EQ(ReadLines("a"), (LINES{"one", "two", "", "", "five"}));
}

TEST_F(FileAccessTest, ReadLine_LastLineWithoutLf_StillDelivered)
{
    Write("a", "one\ntwo");
    EXPECT_EQ(ReadLines("a"), (LINES{"one", "two"}));
}

TEST_F(FileAccessTest, ReadLine_EmptyFile_NoLine)
{
    Write("a", "");
    EXPECT_EQ(ReadLines("a"), LINES());
}

TEST_F(FileAccessTest, ReadLine_CrWithinALineAndAtTheEndOfTheFile_Kept)
{
    Write("a", "o\rne\r\r\n\rtwo\r");
    EXPECT_EQ(ReadLines("a"), (LINES{"o\rne\r", "\rtwo\r"}));
}

TEST_F(FileAccessTest, ReadLine_ZeroBytes_Kept)
{
    Write("a", std::string("a\0b\nc", 5));
    EXPECT_EQ(ReadLines("a"), (LINES{std::string("a\0b", 3), "c"}));
}

TEST_F(FileAccessTest, ReadLine_LineEndsAroundTheBufferBorder_SameLines)
{
    // CR and LF may come from two fillings of the buffer.
    for (const std::size_t length : {16381U, 16382U, 16383U, 16384U, 16385U, 32766U, 32767U, 32768U, 100000U}) {
        const std::string first(length, 'x');
        Write("a", first + "\r\nnext\r\n");
        EXPECT_EQ(ReadLines("a"), (LINES{first, "next"})) << length;
    }
}

TEST_F(FileAccessTest, ReadLine_NotOpenOrClosed_False)
{
    FileAccessBuf file;
    String line("old");
    EXPECT_FALSE(file.ReadLine(line));
    EXPECT_TRUE(line.empty());
    Write("a", "one\ntwo\n");
    ASSERT_TRUE(file.Open(GetPath("a"), FileAccess::AM_READ, false));
    EXPECT_TRUE(file.ReadLine(line));
    file.Close();
    EXPECT_FALSE(file.ReadLine(line));
}

TEST_F(FileAccessTest, OpenBuffered_SecondFile_StartsAtItsFirstLine)
{
    Write("a", "a1\na2\n");
    Write("b", "b1\n");
    FileAccessBuf file;
    String line;
    ASSERT_TRUE(file.Open(GetPath("a"), FileAccess::AM_READ, false));
    EXPECT_TRUE(file.ReadLine(line) && line == "a1");
    ASSERT_TRUE(file.Open(GetPath("b"), FileAccess::AM_READ, false));
    EXPECT_TRUE(file.ReadLine(line) && line == "b1");
    EXPECT_FALSE(file.ReadLine(line));
    EXPECT_FALSE(file.Open(GetPath("none"), FileAccess::AM_READ, false));
    EXPECT_FALSE(file.ReadLine(line));
}

} // namespace
} // namespace kqlib

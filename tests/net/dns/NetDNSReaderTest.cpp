#include "net/dns/NetDNSReader.h"
#include "net/dns/NetDNSWriter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace kqlib;
using Bytes = std::vector<BYTE>;

NetDNSReader ReaderOf(const Bytes& bytes)
{
    return NetDNSReader(bytes.data(), static_cast<ULONG>(bytes.size()));
}

/// Decodes the name at the offset: "false", or the name and the position behind it.
std::string Decode(const Bytes& bytes, ULONG offset = 0)
{
    NetDNSReader reader = ReaderOf(bytes);
    String name;
    if (!reader.Seek(offset) || !reader.ReadName(name))
        return "false";
    return name.str() + " @" + std::to_string(reader.GetPosition());
}

void AppendLabels(Bytes& bytes, int count)
{
    for (int i = 0; i < count; ++i)
        bytes.insert(bytes.end(), {1, 'x'});
}

TEST(NetDNSReader, Read_NumbersInNetworkOrder_Values)
{
    const Bytes bytes{1, 2, 3, 4, 5, 6, 7};
    NetDNSReader reader = ReaderOf(bytes);
    std::uint8_t one = 0;
    std::uint16_t two = 0;
    std::uint32_t four = 0;
    EXPECT_TRUE(reader.Read8(one) && reader.Read16(two) && reader.Read32(four));
    EXPECT_EQ(one, 1);
    EXPECT_EQ(two, 0x0203);
    EXPECT_EQ(four, 0x04050607U);
    EXPECT_EQ(reader.GetRemaining(), 0U);
}

TEST(NetDNSReader, Read_PastTheEnd_FalseAndUnchanged)
{
    const Bytes bytes{1, 2, 3};
    for (ULONG start = 0; start <= 3; ++start) {
        NetDNSReader reader = ReaderOf(bytes);
        ASSERT_TRUE(reader.Seek(start));
        std::uint32_t four = 77;
        String text("kept");
        EXPECT_FALSE(reader.Read32(four));
        EXPECT_FALSE(reader.ReadText(4 - start, text));
        EXPECT_FALSE(reader.Skip(4 - start));
        EXPECT_FALSE(reader.Skip(0xFFFFFFFFUL));
        EXPECT_FALSE(reader.Seek(4));
        EXPECT_EQ(four, 77U);
        EXPECT_EQ(text, "kept");
        EXPECT_EQ(reader.GetPosition(), start);
    }
}

TEST(NetDNSReader, Read_EmptyMessage_False)
{
    NetDNSReader reader(nullptr, 0);
    std::uint8_t one = 0;
    std::uint16_t two = 0;
    String text;
    EXPECT_FALSE(reader.Read8(one));
    EXPECT_FALSE(reader.Read16(two));
    EXPECT_TRUE(reader.ReadText(0, text));
    EXPECT_FALSE(reader.ReadName(text));
}

TEST(NetDNSReader, ReadName_PlainLabels_JoinedByDots)
{
    EXPECT_EQ(Decode({3, 'w', 'w', 'w', 2, 'k', 'q', 0, 99}), "www.kq @8");
}

TEST(NetDNSReader, ReadName_BehindText_Appends)
{
    const Bytes bytes{1, 'b', 0};
    NetDNSReader reader = ReaderOf(bytes);
    String name("a");
    EXPECT_TRUE(reader.ReadName(name));
    EXPECT_EQ(name, "ab");
}

TEST(NetDNSReader, ReadName_LabelsThenPointer_PositionBehindThePointer)
{
    EXPECT_EQ(Decode({2, 'k', 'q', 0, 1, 'a', 0xC0, 0, 9, 9}, 4), "a.kq @8");
}

TEST(NetDNSReader, ReadName_PointerForward_Followed)
{
    EXPECT_EQ(Decode({0xC0, 3, 9, 2, 'k', 'q', 0}), "kq @2");
}

TEST(NetDNSReader, ReadName_PointerToItself_False)
{
    EXPECT_EQ(Decode({0xC0, 0}), "false");
}

TEST(NetDNSReader, ReadName_TwoPointersInARing_False)
{
    EXPECT_EQ(Decode({0xC0, 2, 0xC0, 0}), "false");
}

TEST(NetDNSReader, ReadName_LabelAndPointerBackToIt_False)
{
    EXPECT_EQ(Decode({1, 'a', 0xC0, 0}), "false");
}

TEST(NetDNSReader, ReadName_PointerOutsideTheMessage_False)
{
    EXPECT_EQ(Decode({0xC0, 2}), "false");
    EXPECT_EQ(Decode({0xFF, 0xFF, 1, 'a', 0}), "false");
}

TEST(NetDNSReader, ReadName_PointerToTheLastByte_FalseForTwoBytesAreNeeded)
{
    EXPECT_EQ(Decode({0xC0, 2, 0}), "false");
}

TEST(NetDNSReader, ReadName_HalfAPointer_False)
{
    EXPECT_EQ(Decode({1, 'a', 0xC0}), "false");
}

TEST(NetDNSReader, ReadName_FewerThanTwoBytes_False)
{
    EXPECT_EQ(Decode({0}), "false");
    EXPECT_EQ(Decode({}), "false");
}

TEST(NetDNSReader, ReadName_TruncatedAtEveryLength_False)
{
    const Bytes whole{3, 'w', 'w', 'w', 2, 'k', 'q', 0};
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_EQ(Decode(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))), "false") << size;
}

TEST(NetDNSReader, ReadName_RootName_NeedsAByteBehindItAndTakesAZeroThere_KeptOnPurpose)
{
    EXPECT_EQ(Decode({0, 0, 7}), " @2");
    EXPECT_EQ(Decode({0, 1, 'a', 0}), ".a @4");
}

TEST(NetDNSReader, ReadName_LabelLengthOf64To191_TakenAsALength_KeptOnPurpose)
{
    for (const int length : {64, 128, 191}) {
        Bytes bytes{static_cast<BYTE>(length)};
        bytes.insert(bytes.end(), static_cast<std::size_t>(length), 'l');
        bytes.push_back(0);
        EXPECT_EQ(Decode(bytes),
                  std::string(static_cast<std::size_t>(length), 'l') + " @" + std::to_string(length + 2));
    }
}

TEST(NetDNSReader, ReadName_200Labels_TrueAnd201False)
{
    for (const int count : {199, 200, 201, 300}) {
        Bytes bytes;
        AppendLabels(bytes, count);
        bytes.push_back(0);
        EXPECT_EQ(Decode(bytes) != "false", count <= 200) << count;
    }
}

TEST(NetDNSReader, ReadName_ChainOfPointers_EachCountsAsOne)
{
    // n pointers, each to the next, in front of a name of one label: the name is read at depth n and counts once more.
    for (const int pointers : {198, 199, 200, 201}) {
        Bytes bytes;
        for (int i = 1; i <= pointers; ++i) {
            const int target = 2 * i;
            bytes.insert(bytes.end(), {static_cast<BYTE>(0xC0 | target >> 8), static_cast<BYTE>(target & 0xFF)});
        }
        bytes.insert(bytes.end(), {1, 'z', 0});
        EXPECT_EQ(Decode(bytes) != "false", pointers <= 199) << pointers;
    }
}

TEST(NetDNSReader, ReadName_PointerTo200Labels_FailsForThePointerCounts)
{
    Bytes bytes;
    AppendLabels(bytes, 200);
    bytes.push_back(0);
    const auto end = static_cast<ULONG>(bytes.size());
    bytes.insert(bytes.end(), {0xC0, 0, 0xC0, 2});
    EXPECT_EQ(Decode(bytes, end), "false");
    EXPECT_NE(Decode(bytes, end + 2), "false");
}

/// Labels of 191 bytes each; the second run ends in a pointer to the first, whose labels count anew.
Bytes TwoRuns(int first, int second)
{
    Bytes bytes;
    const auto append = [&bytes](int count) {
        for (int i = 0; i < count; ++i) {
            bytes.push_back(191);
            bytes.insert(bytes.end(), 191, 'x');
        }
    };
    append(first);
    bytes.push_back(0);
    append(second);
    bytes.insert(bytes.end(), {0xC0, 0});
    return bytes;
}

TEST(NetDNSReader, ReadName_UnfoldingTo64KiB_ReadAndMoreIsFalse)
{
    constexpr int FIRST = 190;
    // Each label takes 192 bytes of text, with its dot; the last one has none.
    for (const int second : {100, 151, 152, 190}) {
        const auto start = static_cast<ULONG>(FIRST * 192 + 1);
        const std::size_t text = static_cast<std::size_t>(FIRST + second) * 192 - 1;
        EXPECT_EQ(Decode(TwoRuns(FIRST, second), start) != "false", text <= 65536) << second;
    }
}

TEST(NetDNSWriter, Write_NumbersAndText_NetworkOrder)
{
    NetDNSWriter writer;
    EXPECT_EQ(writer.GetLength(), 0U);
    writer.Write8(7);
    writer.Write16(0x1234);
    writer.WriteText(String("a\0b", 3));
    // and a name:
    EXPECT_FALSE(NetDNSWriter().WriteName("a.toolong", 6));
    EXPECT_FALSE(NetDNSWriter().WriteName("", 63) || NetDNSWriter().WriteName("a.", 63) ||
                 NetDNSWriter().WriteName(".a", 63) || NetDNSWriter().WriteName("a..b", 63));
    NetDNSWriter name;
    EXPECT_TRUE(name.WriteName("ab.c", 2));
    const Bytes encoded{2, 'a', 'b', 1, 'c', 0};
    EXPECT_EQ(Bytes(name.GetData(), name.GetData() + name.GetLength()), encoded);
    const Bytes expected{7, 0x12, 0x34, 'a', 0, 'b'};
    EXPECT_EQ(Bytes(writer.GetData(), writer.GetData() + writer.GetLength()), expected);
}

} // namespace

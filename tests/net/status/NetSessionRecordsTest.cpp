// What the session record and the activity record have beside their counters.
#include "common/LittleEndian.h"
#include "common/SettingsTransportSet.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace kqlib::test {
namespace {

static_assert(sizeof(EventLogSessionID::DATA) == 12);
static_assert(sizeof(NetIP) == 20);
static_assert(NetCounterBlock::SIZE == 104);
static_assert(NetSessionActivity::BLOCK_SIZE == 136);
static_assert(NetSessionStatus::BLOCK_SIZE == 292);
// The records have no members of their own, whatever they inherit.
static_assert(sizeof(NetSessionStatus) == sizeof(DataLogEntryRecord));
static_assert(sizeof(NetSessionActivity) == sizeof(DataLogEntryTime));

/// The raw bytes of a record's own block.
const unsigned char* Block(const NetSessionStatus& record)
{
    return record.GetRawData() + DataLogEntryRecord::OWN_SIZE;
}

NetIP IP(const char* text)
{
    return NetIP(String(text));
}

TEST(NetSessionStatusTest, GetRawSize_BothRecords_BasePlusBlock)
{
    EXPECT_EQ(NetSessionStatus().GetRawSize(), 16U + 292U);
    EXPECT_EQ(NetSessionActivity().GetRawSize(), 4U + 136U);
}

/// A record whose protected size can be asked for.
template <class RECORD> struct Sized : RECORD
{
    using RECORD::xGetSizeReq;
};

TEST(NetSessionStatusTest, GetSizeReq_BothRecords_BasePlusBlock)
{
    EXPECT_EQ(Sized<NetSessionStatus>().xGetSizeReq(), 16U + 292U);
    EXPECT_EQ(Sized<NetSessionActivity>().xGetSizeReq(), 4U + 136U);
}

TEST(NetSessionStatusTest, Identity_SetAll_ReadBackAndAtTheirOffsets)
{
    NetSessionStatus record;
    record.SetSessionID(EventLogSessionID(0xFFFFFFFF, 0x01020304));
    record.SetLocalIP(IP("10.1.2.3"));
    record.SetLocalPort(65535);
    record.SetRemoteIP(IP("2001:db8::7"));
    record.SetRemotePort(0x1234);
    record.SetUser("someone");

    EXPECT_TRUE(record.GetSessionID() == EventLogSessionID(0xFFFFFFFF, 0x01020304));
    EXPECT_TRUE(record.GetLocalIP() == IP("10.1.2.3"));
    EXPECT_EQ(record.GetLocalPort(), 65535);
    EXPECT_TRUE(record.GetRemoteIP() == IP("2001:db8::7"));
    EXPECT_EQ(record.GetRemotePort(), 0x1234);
    EXPECT_EQ(record.GetUser(), String("someone"));

    const unsigned char* block = Block(record);
    EXPECT_EQ(LoadLittleEndian<std::uint32_t>(block), 0xFFFFFFFFU);
    EXPECT_EQ(LoadLittleEndian<std::uint32_t>(block + 4), 0x01020304U);
    EXPECT_EQ(LoadLittleEndian<std::uint32_t>(block + 8), 0U);
    EXPECT_EQ(LoadLittleEndian<std::uint32_t>(block + 12), 0U) << "IPv4";
    EXPECT_EQ(std::memcmp(block + 16, "\x0A\x01\x02\x03", 4), 0);
    EXPECT_EQ(LoadLittleEndian<std::uint16_t>(block + 32), 65535U);
    EXPECT_EQ(LoadLittleEndian<std::uint32_t>(block + 34), 1U) << "IPv6";
    EXPECT_EQ(block[38], 0x20);
    EXPECT_EQ(LoadLittleEndian<std::uint16_t>(block + 54), 0x1234U);
    EXPECT_STREQ(reinterpret_cast<const char*>(block + 164), "someone");
}

TEST(NetSessionStatusTest, Reserved_FreshRecordFilled_StaysZero)
{
    NetSessionStatus record;
    record.SetSessionID(EventLogSessionID(1, 2));
    record.SetLocalIP(IP("1.2.3.4"));
    record.SetRemoteIP(IP("5.6.7.8"));
    record.SetFilesRead(0xFFFFFFFF);
    record.SetUser(String(60, 'x'));
    const unsigned char* block = Block(record);
    EXPECT_TRUE(std::all_of(block + 160, block + 164, [](unsigned char byte) { return byte == 0; }));
    EXPECT_TRUE(std::all_of(block + 196, block + 292, [](unsigned char byte) { return byte == 0; }));
}

TEST(NetSessionStatusTest, SetUser_40Characters_First31AndTerminator)
{
    NetSessionStatus record;
    record.SetUser(String("abcdefghijklmnopqrstuvwxyz0123456789ABCD"));
    EXPECT_EQ(record.GetUser(), String("abcdefghijklmnopqrstuvwxyz01234"));
    EXPECT_EQ(Block(record)[164 + 31], 0);
}

TEST(NetSessionStatusTest, SetUser_31And32Characters_BothLeave31)
{
    NetSessionStatus record;
    record.SetUser(String(31, 'a'));
    EXPECT_EQ(record.GetUser().size(), 31U);
    record.SetUser(String(32, 'b'));
    EXPECT_EQ(record.GetUser(), String(31, 'b'));
    record.SetUser("");
    EXPECT_TRUE(record.GetUser().empty());
}

TEST(NetSessionStatusTest, SetUser_ShorterThanBefore_NothingStaysOfTheLongerOne)
{
    NetSessionStatus longer;
    longer.SetUser("a.user.with.a.long.name");
    longer.SetUser("b");
    NetSessionStatus fresh;
    fresh.SetUser("b");
    EXPECT_TRUE(longer.IsSame(fresh));
    // A merge takes the user over, in the same way.
    NetSessionStatus target;
    target.SetUser("a.user.with.a.long.name");
    Messages messages;
    EXPECT_TRUE(fresh.MergeInto(target, messages));
    EXPECT_TRUE(target.IsSame(fresh));
}

TEST(NetSessionStatusTest, GetUser_StoredBytesWithoutTerminator_BoundedByTheField)
{
    NetSessionStatus record;
    std::vector<unsigned char> bytes(record.GetRawSize(), 0);
    std::fill_n(bytes.begin() + 16 + 164, 32 + 96, 'u');
    const BinaryStore store(bytes.data(), static_cast<ULONG>(bytes.size()));
    EXPECT_EQ(NetSessionStatus(&store).GetUser().size(), 32U);
}

TEST(NetSessionStatusTest, SetRawData_UserWithoutTerminator_MadeSafe)
{
    NetSessionStatus record;
    std::vector<unsigned char> bytes(record.GetRawSize(), 0);
    std::fill_n(bytes.begin() + 16 + 164, 32, 'u');
    ASSERT_TRUE(record.SetRawData(bytes.data(), static_cast<ULONG>(bytes.size())));
    EXPECT_EQ(record.GetUser(), String(31, 'u'));
}

TEST(NetSessionStatusTest, MergeInto_Target_KeepsIdentityTakesUser)
{
    for (const bool combine : {false, true}) {
        NetSessionStatus source;
        source.SetSessionID(EventLogSessionID(1, 1));
        source.SetLocalIP(IP("1.1.1.1"));
        source.SetLocalPort(11);
        source.SetRemoteIP(IP("1.1.1.2"));
        source.SetRemotePort(12);
        source.SetUser("new");
        source.IncreaseFilesCreated(4);
        NetSessionStatus target;
        target.SetSessionID(EventLogSessionID(2, 2));
        target.SetLocalIP(IP("2.2.2.1"));
        target.SetLocalPort(21);
        target.SetRemoteIP(IP("2.2.2.2"));
        target.SetRemotePort(22);
        target.SetUser("old");
        target.IncreaseFilesCreated(3);

        Messages messages;
        ASSERT_TRUE(combine ? source.SimpleCombineInto(target, messages) : source.MergeInto(target, messages));
        EXPECT_TRUE(target.GetSessionID() == EventLogSessionID(2, 2));
        EXPECT_TRUE(target.GetLocalIP() == IP("2.2.2.1"));
        EXPECT_EQ(target.GetLocalPort(), 21);
        EXPECT_TRUE(target.GetRemoteIP() == IP("2.2.2.2"));
        EXPECT_EQ(target.GetRemotePort(), 22);
        EXPECT_EQ(target.GetUser(), String("new"));
        EXPECT_EQ(target.GetFilesCreated(), 7U);
    }
}

TEST(NetSessionStatusTest, MergeInto_EmptyUser_ReplacesTheTargetsOnPurpose)
{
    const NetSessionStatus source;
    NetSessionStatus target;
    target.SetUser("old");
    Messages messages;
    ASSERT_TRUE(source.MergeInto(target, messages));
    EXPECT_TRUE(target.GetUser().empty());
}

TEST(NetSessionStatusTest, MergeInto_ReservedBytesOfBoth_Untouched)
{
    NetSessionStatus source;
    std::vector<unsigned char> bytes(source.GetRawSize(), 0);
    std::fill_n(bytes.begin() + 16 + 160, 4, 0xAA);
    std::fill_n(bytes.begin() + 16 + 196, 96, 0xAA);
    ASSERT_TRUE(source.SetRawData(bytes.data(), static_cast<ULONG>(bytes.size())));
    NetSessionStatus target;
    std::fill_n(bytes.begin() + 16 + 160, 4, 0xBB);
    std::fill_n(bytes.begin() + 16 + 196, 96, 0xBB);
    ASSERT_TRUE(target.SetRawData(bytes.data(), static_cast<ULONG>(bytes.size())));

    Messages messages;
    ASSERT_TRUE(source.MergeInto(target, messages));
    EXPECT_EQ(std::memcmp(target.GetRawData() + 16, bytes.data() + 16, 292), 0);
    EXPECT_EQ(Block(NetSessionStatus(source))[196], 0xAA) << "carried by copies";
}

TEST(NetSessionStatusTest, MergeInto_UnsetTimes_TargetKeepsItsOwn)
{
    const NetSessionStatus source;
    NetSessionStatus target;
    target.SetStartTime(TimePos(1000));
    target.SetEndTime(TimePos(2000));
    Messages messages;
    ASSERT_TRUE(source.MergeInto(target, messages));
    EXPECT_EQ(target.GetStartTime(), TimePos(1000));
    EXPECT_EQ(target.GetEndTime(), TimePos(2000));
}

TEST(NetSessionStatusTest, Settings_WrittenAndRead_Same)
{
    NetSessionStatus record;
    record.SetSessionID(EventLogSessionID(4294967295UL, 7));
    record.SetRemoteIP(IP("192.168.0.1"));
    record.SetUser("u");
    record.SetDataInBytes(0xFFFFFFFFFFFFFFFFULL);
    record.SetStartTime(TimePos(123456789012345));
    SettingsTransportSet set;
    ASSERT_TRUE(record.WriteTo(set));
    SettingsTransportSet loaded;
    ASSERT_TRUE(loaded.FromJson(set.ToJson()));
    NetSessionStatus read;
    ASSERT_TRUE(read.ReadFrom(loaded));
    EXPECT_TRUE(read == record);
}

TEST(NetSessionActivityTest, MergeInto_ReservedBytes_UntouchedAndUnitKept)
{
    NetSessionActivity source;
    source.SetTimeUnit(10);
    source.IncreaseCommandsIn(1);
    NetSessionActivity target;
    target.SetTimeUnit(20);
    std::vector<unsigned char> bytes(target.GetRawData(), target.GetRawData() + target.GetRawSize());
    std::fill_n(bytes.begin() + 4 + 104, 32, 0xCC);
    ASSERT_TRUE(target.SetRawData(bytes.data(), static_cast<ULONG>(bytes.size())));

    Messages messages;
    ASSERT_TRUE(source.MergeInto(target, messages));
    EXPECT_EQ(target.GetTimeUnit(), 20U);
    EXPECT_EQ(target.GetCommandsIn(), 1U);
    EXPECT_EQ(std::memcmp(target.GetRawData() + 4 + 104, bytes.data() + 4 + 104, 32), 0);
}

} // namespace
} // namespace kqlib::test

#include "net/status/NetServiceStatus.h"

#include "common/STRINGS.h"
#include "common/SettingsTransportSet.h"
#include "net/status/NetSessionStatus.h"

#include "tests/net/status/CounterTable.h"

#include <gtest/gtest.h>

#include <memory>

namespace kqlib::test {
namespace {

using ACTIVEPORT = NetServiceStatus::ACTIVEPORT;

constexpr ULONG8 MAX_32 = 0xFFFFFFFFULL;
constexpr ULONG8 MAX_64 = 0xFFFFFFFFFFFFFFFFULL;

const std::vector<COUNTER_OPS<NetServiceStatus>> COUNTERS = AllCounters<NetServiceStatus>();

/// Ports 21 on every address and 990 on 10.0.0.1, a create time, counters 1000, 1001, ….
NetServiceStatus MakeFilled()
{
    NetServiceStatus status;
    status.SetCreateTime(TimePos(1234567890123));
    Vector<ACTIVEPORT> ports;
    ports.Add({NetIP(), 21});
    ports.Add({NetIP(String("10.0.0.1")), 990});
    status.SetActivePorts(ports);
    ULONG8 value = 1000;
    for (const auto& counter : COUNTERS)
        counter.set(status, value++);
    return status;
}

/// The text of a data line with count numbers, all of them 7.
String MakeLine(int count)
{
    STRINGS items;
    for (int index = 0; index < count; ++index)
        items.push_back("7");
    return items.GetLine();
}

NetServiceStatus ReadData(const NetServiceStatus& start, const String& line)
{
    SettingsTransportSet set;
    set.AddString("data", line);
    NetServiceStatus status(start);
    EXPECT_TRUE(status.ReadFrom(set));
    return status;
}

TEST(NetServiceStatusTest, Construct_Default_Empty)
{
    const NetServiceStatus status;
    EXPECT_FALSE(status.GetCreateTime().IsSet());
    EXPECT_EQ(status.GetActivePorts().GetCount(), 0U);
    for (const auto& counter : COUNTERS)
        EXPECT_EQ(counter.get(status), 0U) << counter.name;
}

TEST(NetServiceStatusTest, Set_EachCounter_AloneAndWith64Bits)
{
    for (const auto& counter : COUNTERS) {
        NetServiceStatus status;
        counter.set(status, MAX_64);
        for (const auto& other : COUNTERS)
            EXPECT_EQ(other.get(status), &other == &counter ? MAX_64 : 0) << counter.name << " " << other.name;
    }
}

TEST(NetServiceStatusTest, Getters_References_SeeLaterChanges)
{
    NetServiceStatus status;
    const unsigned long long& bytes = status.GetDataInBytes();
    status.SetDataInBytes(5);
    EXPECT_EQ(bytes, 5U);
}

TEST(NetServiceStatusTest, Increase_Twice4294967295_CarryReachesTheHighHalf)
{
    for (const auto& counter : COUNTERS) {
        if (!counter.increase)
            continue;
        NetServiceStatus status;
        counter.increase(status, static_cast<ULONG>(MAX_32));
        counter.increase(status, static_cast<ULONG>(MAX_32));
        EXPECT_EQ(counter.get(status), 8589934590ULL) << counter.name;
    }
}

TEST(NetServiceStatusTest, Increase_At64Bits_WrapsWithoutSaturation)
{
    NetServiceStatus status;
    status.SetFilesRead(MAX_64);
    status.IncreaseFilesRead(2);
    EXPECT_EQ(status.GetFilesRead(), 1U);
}

TEST(NetServiceStatusTest, SetActivePorts_OwnList_Unchanged)
{
    NetServiceStatus status = MakeFilled();
    status.SetActivePorts(status.GetActivePorts());
    EXPECT_TRUE(status == MakeFilled());
}

TEST(NetServiceStatusTest, IsSame_EachDifference_Found)
{
    const NetServiceStatus status = MakeFilled();
    EXPECT_TRUE(status == MakeFilled());
    for (const auto& counter : COUNTERS) {
        NetServiceStatus other(status);
        counter.set(other, counter.get(status) + 1);
        EXPECT_FALSE(status == other) << counter.name;
    }
    NetServiceStatus time(status);
    time.SetCreateTime(TimePos(1234567890124));
    EXPECT_FALSE(status == time);

    NetServiceStatus fewer(status);
    Vector<ACTIVEPORT> ports;
    ports.Add(status.GetActivePorts().Get(0));
    fewer.SetActivePorts(ports);
    EXPECT_FALSE(status == fewer);

    NetServiceStatus order(status);
    ports.Reset();
    ports.Add(status.GetActivePorts().Get(1));
    ports.Add(status.GetActivePorts().Get(0));
    order.SetActivePorts(ports);
    EXPECT_FALSE(status == order);

    EXPECT_FALSE(status.IsSame(static_cast<const SettingsTransferable&>(NetSessionStatus())));
    EXPECT_TRUE(status.IsSame(static_cast<const SettingsTransferable&>(NetServiceStatus(status))));
}

TEST(NetServiceStatusTest, CopyAssignSpawnReset_Whole_AsExpected)
{
    const NetServiceStatus status = MakeFilled();
    NetServiceStatus assigned;
    assigned = status;
    EXPECT_TRUE(assigned == status);
    const std::unique_ptr<NetServiceStatus> copy(status.Spawn(true));
    const std::unique_ptr<NetServiceStatus> empty(status.Spawn(false));
    EXPECT_TRUE(*copy == status);
    EXPECT_TRUE(*empty == NetServiceStatus());
    assigned.Reset();
    EXPECT_TRUE(assigned == NetServiceStatus());
}

TEST(NetServiceStatusTest, Settings_WrittenAndReadThroughAFileForm_Same)
{
    SettingsTransportSet set;
    ASSERT_TRUE(MakeFilled().WriteTo(set));
    SettingsTransportSet loaded;
    ASSERT_TRUE(loaded.FromJson(set.ToJson()));
    NetServiceStatus read;
    ASSERT_TRUE(read.ReadFrom(loaded));
    EXPECT_TRUE(read == MakeFilled());
}

TEST(NetServiceStatusTest, Settings_Keys_InOrderAndText)
{
    SettingsTransportSet set;
    ASSERT_TRUE(MakeFilled().WriteTo(set));
    ASSERT_EQ(set.GetDataCount(), 3U);
    EXPECT_EQ(set.GetDataKey(0), String("create"));
    EXPECT_EQ(set.GetDataKey(1), String("ports"));
    EXPECT_EQ(set.GetDataKey(2), String("data"));
    String text;
    ASSERT_TRUE(set.GetString("ports", text));
    EXPECT_EQ(text, String("0.0.0.0:21,10.0.0.1:990"));
    ASSERT_TRUE(set.GetString("data", text));
    EXPECT_EQ(text, String("1000,1001,1002,1003,1004,1005,1006,1007,1008,1009,1010,1011,1012,1013,1014,1015,1016,1017,"
                           "1018,1019,1020,1021"));
}

TEST(NetServiceStatusTest, Settings_EmptyRecord_PortsKeyIsThereAndEmpty)
{
    SettingsTransportSet set;
    ASSERT_TRUE(NetServiceStatus().WriteTo(set));
    String text("unset");
    ASSERT_TRUE(set.GetString("ports", text));
    EXPECT_TRUE(text.empty());
    NetServiceStatus read;
    ASSERT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read == NetServiceStatus());
}

TEST(NetServiceStatusTest, ReadFrom_NoKeys_NothingChanges)
{
    NetServiceStatus status = MakeFilled();
    EXPECT_TRUE(status.ReadFrom(SettingsTransportSet()));
    EXPECT_TRUE(status == MakeFilled());
}

TEST(NetServiceStatusTest, ReadFrom_PortsThereAlready_AppendedOnPurpose)
{
    SettingsTransportSet set;
    set.AddString("ports", "1.2.3.4:80,443");
    NetServiceStatus status = MakeFilled();
    ASSERT_TRUE(status.ReadFrom(set));
    const Vector<ACTIVEPORT>& ports = status.GetActivePorts();
    ASSERT_EQ(ports.GetCount(), 4U);
    EXPECT_EQ(ports.Get(1).port, 990);
    EXPECT_TRUE(ports.Get(2).ip == NetIP(String("1.2.3.4")));
    EXPECT_EQ(ports.Get(2).port, 80);
    EXPECT_TRUE(ports.Get(3).ip == NetIP());
    EXPECT_EQ(ports.Get(3).port, 443);
}

TEST(NetServiceStatusTest, ReadFrom_21Or23Numbers_AllCountersKeptOnPurpose)
{
    for (const int count : {0, 1, 21, 23, 44})
        EXPECT_TRUE(ReadData(MakeFilled(), MakeLine(count)) == MakeFilled()) << count;
}

TEST(NetServiceStatusTest, ReadFrom_22Numbers_AllCountersSet)
{
    const NetServiceStatus status = ReadData(MakeFilled(), MakeLine(22));
    for (const auto& counter : COUNTERS)
        EXPECT_EQ(counter.get(status), 7U) << counter.name;
}

TEST(NetServiceStatusTest, ReadFrom_LargestAndMalformedNumbers_MaximumAndZero)
{
    String line("18446744073709551615,18446744073709551616,x,-1");
    line += String(",") + MakeLine(18);
    const NetServiceStatus status = ReadData(MakeFilled(), line);
    EXPECT_EQ(status.GetCurrentConnectionsIn(), MAX_64);
    EXPECT_EQ(status.GetCurrentConnectionsOut(), 0U);
    EXPECT_EQ(status.GetConnectionsIn(), 0U);
    EXPECT_EQ(status.GetConnectionsOutSuccesses(), 0U);
    EXPECT_EQ(status.GetFilesRead(), 7U);
}

TEST(NetServiceStatusTest, AddDataFrom_Service_AllCountersAddedPortsAppendedOnPurpose)
{
    NetServiceStatus sum = MakeFilled();
    NetServiceStatus other = MakeFilled();
    other.SetCreateTime(TimePos(5));
    sum.AddDataFrom(other);
    EXPECT_EQ(sum.GetCreateTime(), MakeFilled().GetCreateTime());
    ASSERT_EQ(sum.GetActivePorts().GetCount(), 4U) << "duplicates stay";
    EXPECT_EQ(sum.GetActivePorts().Get(2).port, 21);
    ULONG8 value = 1000;
    for (const auto& counter : COUNTERS)
        EXPECT_EQ(counter.get(sum), 2 * value++) << counter.name;
}

TEST(NetServiceStatusTest, AddDataFrom_Itself_DoublesOnce)
{
    NetServiceStatus sum = MakeFilled();
    sum.AddDataFrom(sum);
    EXPECT_EQ(sum.GetActivePorts().GetCount(), 4U);
    EXPECT_EQ(sum.GetFilesRead(), 2042U);
}

TEST(NetServiceStatusTest, AddDataFrom_Session_EachCounterWidened)
{
    NetServiceStatus sum = MakeFilled();
    NetSessionStatus session;
    for (const auto& counter : AllCounters<NetSessionStatus>())
        counter.set(session, counter.wide ? MAX_64 - 10 : MAX_32);
    sum.AddDataFrom(session);
    ULONG8 value = 1000;
    const auto sessionCounters = AllCounters<NetSessionStatus>();
    for (std::size_t index = 0; index < COUNTERS.size(); ++index, ++value)
        EXPECT_EQ(COUNTERS[index].get(sum), value + (sessionCounters[index].wide ? MAX_64 - 10 : MAX_32))
            << COUNTERS[index].name;
    EXPECT_EQ(sum.GetActivePorts().GetCount(), 2U);
    EXPECT_EQ(sum.GetCreateTime(), MakeFilled().GetCreateTime());
}

TEST(NetServiceStatusTest, CheckErrors_Always_NothingAdded)
{
    Messages messages;
    EXPECT_TRUE(MakeFilled().CheckErrors(messages));
    EXPECT_TRUE(MakeFilled().CheckWarnings(messages));
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

} // namespace
} // namespace kqlib::test

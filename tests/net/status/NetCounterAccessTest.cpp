// The counters of the two binary records: bytes, widths, wraps, folding.
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"

#include "tests/net/status/CounterTable.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace kqlib::test {
namespace {

constexpr ULONG8 MAX_32 = 0xFFFFFFFFULL;
constexpr ULONG8 MAX_64 = 0xFFFFFFFFFFFFFFFFULL;

/// Where the counters begin in the whole buffer of a record: the base's own bytes, then the class's fields before them.
template <class RECORD> constexpr ULONG COUNTERS_AT = 0;
template <> constexpr ULONG COUNTERS_AT<NetSessionActivity> = 4;
template <> constexpr ULONG COUNTERS_AT<NetSessionStatus> = 16 + 56;

template <class RECORD> class NetCounterAccessTest : public testing::Test
{
protected:
    const std::vector<COUNTER_OPS<RECORD>> m_counters = AllCounters<RECORD>();
};

using RECORDS = testing::Types<NetSessionActivity, NetSessionStatus>;
TYPED_TEST_SUITE(NetCounterAccessTest, RECORDS);

TYPED_TEST(NetCounterAccessTest, Construct_Default_EveryCounterZero)
{
    const TypeParam record;
    for (const auto& counter : this->m_counters)
        EXPECT_EQ(counter.get(record), 0U) << counter.name;
}

TYPED_TEST(NetCounterAccessTest, Set_EachCounter_LittleEndianAtItsOffsetAndNowhereElse)
{
    for (const auto& counter : this->m_counters) {
        TypeParam record;
        counter.set(record, 0x8877665544332211ULL);
        std::vector<unsigned char> expected(record.GetRawSize(), 0);
        for (ULONG byte = 0; byte < (counter.wide ? 8U : 4U); ++byte)
            expected[COUNTERS_AT<TypeParam> + counter.offset + byte] = static_cast<unsigned char>(0x11 * (byte + 1));
        EXPECT_EQ(std::memcmp(record.GetRawData(), expected.data(), expected.size()), 0) << counter.name;
        EXPECT_EQ(counter.get(record), counter.wide ? 0x8877665544332211ULL : 0x44332211ULL) << counter.name;
    }
}

TYPED_TEST(NetCounterAccessTest, Increase_Near32Bits_NarrowWrapsWideCarries)
{
    for (const auto& counter : this->m_counters) {
        if (!counter.increase)
            continue;
        TypeParam record;
        counter.set(record, MAX_32);
        counter.increase(record, 2);
        EXPECT_EQ(counter.get(record), counter.wide ? MAX_32 + 2 : 1) << counter.name;
        counter.increase(record, static_cast<ULONG>(MAX_32));
        EXPECT_EQ(counter.get(record), counter.wide ? 2 * MAX_32 + 2 : 0) << counter.name;
    }
}

TYPED_TEST(NetCounterAccessTest, Increase_Near64Bits_WideWraps)
{
    for (const auto& counter : this->m_counters) {
        if (!counter.wide)
            continue;
        TypeParam record;
        counter.set(record, MAX_64);
        counter.increase(record, 3);
        EXPECT_EQ(counter.get(record), 2U) << counter.name;
    }
}

TYPED_TEST(NetCounterAccessTest, Increase_AmountPast32Bits_LowPartCountsOnEverySystem)
{
    if (sizeof(ULONG) == 4)
        GTEST_SKIP() << "an amount cannot be larger than 32 bits on this system";
    TypeParam record;
    record.IncreaseDataInBytes(static_cast<ULONG>(MAX_32 + 6));
    EXPECT_EQ(record.GetDataInBytes(), 5U);
}

TYPED_TEST(NetCounterAccessTest, CurrentConnections_NoIncrease_OnlyTheseTwo)
{
    for (const auto& counter : this->m_counters)
        EXPECT_EQ(counter.increase == nullptr, std::strncmp(counter.name, "Current", 7) == 0) << counter.name;
}

TYPED_TEST(NetCounterAccessTest, GetCounter_EachPlace_SameAsNamedGetter)
{
    TypeParam record;
    ULONG8 value = 100;
    for (const auto& counter : this->m_counters)
        counter.set(record, value++);
    std::uint32_t place = 0;
    for (const auto& counter : this->m_counters)
        EXPECT_EQ(record.GetCounter(static_cast<NetCounterBlock::COUNTER>(place++)), counter.get(record))
            << counter.name;
    EXPECT_EQ(place, NetCounterBlock::COUNTER_COUNT);
}

TYPED_TEST(NetCounterAccessTest, MergeInto_CurrentConnections_LargerStaysOnPurpose)
{
    TypeParam source;
    TypeParam target;
    Messages messages;
    source.SetCurrentConnectionsIn(3);
    target.SetCurrentConnectionsIn(5);
    source.SetCurrentConnectionsOut(9);
    target.SetCurrentConnectionsOut(2);
    ASSERT_TRUE(source.MergeInto(target, messages));
    EXPECT_EQ(target.GetCurrentConnectionsIn(), 5U);
    EXPECT_EQ(target.GetCurrentConnectionsOut(), 9U);
}

TYPED_TEST(NetCounterAccessTest, SimpleCombineInto_CurrentConnections_Added)
{
    TypeParam source;
    TypeParam target;
    Messages messages;
    source.SetCurrentConnectionsIn(3);
    target.SetCurrentConnectionsIn(5);
    source.SetCurrentConnectionsOut(static_cast<ULONG>(MAX_32));
    target.SetCurrentConnectionsOut(2);
    ASSERT_TRUE(source.SimpleCombineInto(target, messages));
    EXPECT_EQ(target.GetCurrentConnectionsIn(), 8U);
    EXPECT_EQ(target.GetCurrentConnectionsOut(), 1U) << "wraps at 32 bits";
}

TYPED_TEST(NetCounterAccessTest, Fold_EveryOtherCounter_AddedInItsWidth)
{
    for (const bool combine : {false, true}) {
        for (const auto& counter : this->m_counters) {
            if (!counter.increase)
                continue;
            TypeParam source;
            TypeParam target;
            Messages messages;
            counter.set(source, MAX_32);
            counter.set(target, 1);
            ASSERT_TRUE(combine ? source.SimpleCombineInto(target, messages) : source.MergeInto(target, messages));
            EXPECT_EQ(counter.get(target), counter.wide ? 4294967296ULL : 0U) << counter.name;
            EXPECT_EQ(counter.get(source), MAX_32) << counter.name << ": the source stays";
        }
    }
}

TYPED_TEST(NetCounterAccessTest, MergeInto_WideAt64Bits_Wraps)
{
    TypeParam source;
    TypeParam target;
    Messages messages;
    source.SetCommandsOut(MAX_64);
    target.SetCommandsOut(2);
    ASSERT_TRUE(source.MergeInto(target, messages));
    EXPECT_EQ(target.GetCommandsOut(), 1U);
}

TYPED_TEST(NetCounterAccessTest, Spawn_CopyAndEmpty_SameClass)
{
    TypeParam record;
    record.SetFilesRead(7);
    const std::unique_ptr<TypeParam> copy(record.Spawn(true));
    const std::unique_ptr<TypeParam> empty(record.Spawn(false));
    EXPECT_TRUE(*copy == record);
    EXPECT_FALSE(*empty == record);
    EXPECT_TRUE(*empty == TypeParam());

    const std::unique_ptr<DataLogEntry> entryCopy(record.SpawnEntry(0, true));
    const std::unique_ptr<DataLogEntry> entryEmpty(record.SpawnEntry(12345, false));
    ASSERT_NE(dynamic_cast<TypeParam*>(entryCopy.get()), nullptr);
    EXPECT_TRUE(entryCopy->IsSame(record));
    EXPECT_TRUE(entryEmpty->IsSame(TypeParam()));
    EXPECT_EQ(entryEmpty->GetRawSize(), record.GetRawSize());
}

TYPED_TEST(NetCounterAccessTest, Assign_CopyOfCopy_IndependentBytes)
{
    TypeParam first;
    first.SetDirsRead(1);
    TypeParam second(first);
    second.IncreaseDirsRead(1);
    EXPECT_EQ(first.GetDirsRead(), 1U);
    first = second;
    EXPECT_TRUE(first == second);
}

TYPED_TEST(NetCounterAccessTest, Reset_Filled_AllBytesZero)
{
    TypeParam record;
    for (const auto& counter : this->m_counters)
        counter.set(record, MAX_64);
    record.Reset();
    EXPECT_TRUE(record == TypeParam());
    record.SetFilesRead(2);
    record.ResetDestroySelf();
    EXPECT_EQ(record.GetFilesRead(), 0U) << "usable again after its memory was given back";
}

TYPED_TEST(NetCounterAccessTest, Construct_FromStoredBytes_CopiesThemShortOnesPadded)
{
    TypeParam record;
    record.SetFilesRead(0x01020304);
    record.SetConnectionsIn(9);
    const BinaryStore whole(record.GetRawData(), record.GetRawSize());
    EXPECT_TRUE(TypeParam(&whole) == record);

    const BinaryStore cut(record.GetRawData(), COUNTERS_AT<TypeParam> + 12);
    const TypeParam padded(&cut);
    EXPECT_EQ(padded.GetConnectionsIn(), 9U);
    EXPECT_EQ(padded.GetFilesRead(), 0U);
    EXPECT_TRUE(TypeParam(static_cast<const BinaryStore*>(nullptr)) == TypeParam());
}

TEST(NetCounterAccessClassesTest, MergeInto_OtherClass_RefusedAndUnchanged)
{
    NetSessionActivity activity;
    activity.SetFilesRead(1);
    NetSessionStatus status;
    Messages messages;
    EXPECT_FALSE(activity.MergeInto(status, messages));
    EXPECT_TRUE(status == NetSessionStatus());
    EXPECT_FALSE(activity.IsSame(static_cast<const SettingsTransferable&>(status)));
}

} // namespace
} // namespace kqlib::test

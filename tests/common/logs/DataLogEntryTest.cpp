#include "common/DataLogEntry.h"

#include "common/SettingsTransportSet.h"
#include "tests/common/logs/TestEntries.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <vector>

namespace kqlib::test {
namespace {

TEST(DataLogEntry, New_AllBytesZero)
{
    const NameEntry entry;
    ASSERT_EQ(entry.GetRawSize(), 16U + NameEntry::BLOCK_SIZE);
    const std::vector<unsigned char> bytes(entry.GetRawData(), entry.GetRawData() + entry.GetRawSize());
    EXPECT_EQ(bytes, std::vector<unsigned char>(entry.GetRawSize(), 0));
    EXPECT_FALSE(entry.GetStartTime().IsSet());
    EXPECT_FALSE(entry.GetEndTime().IsSet());
}

TEST(DataLogEntry, RawData_Record_StartAndEndLittleEndianThenTheBlock)
{
    NameEntry entry(0x0102030405060708, 0x1112131415161718, "ab");
    entry.SetEndTime(TimePos(-1));
    const std::vector<unsigned char> head(entry.GetRawData(), entry.GetRawData() + 27);
    const std::vector<unsigned char> expected = {8,    7,    6,    5,    4,    3,    2,    1,    0xFF,
                                                 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x18, 0x17,
                                                 0x16, 0x15, 0x14, 0x13, 0x12, 0x11, 'a',  'b',  0};
    EXPECT_EQ(head, expected);
    EXPECT_EQ(entry.GetEndTime().GetMilliSeconds(), -1);
}

TEST(DataLogEntry, RawData_Time_UnitLittleEndianThenTheBlock)
{
    const CountEntry entry(0xA1B2C3D4, 5, 6);
    const std::vector<unsigned char> bytes(entry.GetRawData(), entry.GetRawData() + entry.GetRawSize());
    const std::vector<unsigned char> expected = {0xD4, 0xC3, 0xB2, 0xA1, 5, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(entry.GetTimeUnit(), 0xA1B2C3D4U);
}

TEST(DataLogEntry, OverStore_BytesAreCopied)
{
    const CountEntry source(7, 8, 9);
    BinaryStore store(source.GetRawData(), source.GetRawSize());
    const CountEntry entry(&store);
    store.ResetDeleteMemory();
    EXPECT_TRUE(entry.IsSame(source));
    EXPECT_EQ(entry.GetCount(), 9U);
}

TEST(DataLogEntry, OverStore_TooShort_RestIsZero)
{
    const CountEntry source(7, 8, 9);
    const BinaryStore store(source.GetRawData(), 6);
    const CountEntry entry(&store);
    EXPECT_EQ(entry.GetTimeUnit(), 7U);
    EXPECT_EQ(entry.GetLevel(), 8U);
    EXPECT_EQ(entry.GetCount(), 0U);
}

TEST(DataLogEntry, OverStore_TooLong_IsCut)
{
    const CountEntry source(7, 8, 9);
    BinaryStore store(source.GetRawData(), source.GetRawSize());
    store.Append("more", 4);
    const CountEntry entry(&store);
    EXPECT_EQ(entry.GetRawSize(), source.GetRawSize());
    EXPECT_TRUE(entry.IsSame(source));
}

TEST(DataLogEntry, OverStore_NullOrEmpty_AllZero)
{
    const BinaryStore empty;
    EXPECT_TRUE(CountEntry(&empty).IsSame(CountEntry()));
    EXPECT_TRUE(CountEntry(static_cast<const BinaryStore*>(nullptr)).IsSame(CountEntry()));
}

TEST(DataLogEntry, ResetKeepMemory_ZeroInPlace)
{
    CountEntry entry(7, 8, 9);
    const unsigned char* const before = entry.GetRawData();
    entry.ResetKeepMemory();
    EXPECT_EQ(entry.GetRawData(), before);
    EXPECT_TRUE(entry.IsSame(CountEntry()));
}

TEST(DataLogEntry, Reset_AllZero)
{
    NameEntry entry(7, 8, "x");
    entry.Reset();
    EXPECT_TRUE(entry.IsSame(NameEntry()));
}

TEST(DataLogEntry, ResetDestroySelf_StaysUsable)
{
    CountEntry entry(7, 8, 9);
    entry.ResetDestroySelf();
    EXPECT_EQ(entry.GetCount(), 0U);
    EXPECT_EQ(entry.GetTimeUnit(), 0U);
    entry.SetTimeUnit(3);
    EXPECT_EQ(entry.GetTimeUnit(), 3U);
}

TEST(DataLogEntry, IsSame_OtherClassOrBytes_False)
{
    EXPECT_TRUE(CountEntry(1, 2, 3).IsSame(CountEntry(1, 2, 3)));
    EXPECT_FALSE(CountEntry(1, 2, 3).IsSame(CountEntry(1, 2, 4)));
    EXPECT_FALSE(CountEntry().IsSame(WideEntry()));
    const CountEntry entry(1, 2, 3);
    const SettingsTransferable& base = entry;
    EXPECT_TRUE(CountEntry(1, 2, 3).IsSame(base));
    EXPECT_FALSE(NameEntry().IsSame(base));
}

TEST(DataLogEntry, Copy_IsIndependent)
{
    CountEntry entry(1, 2, 3);
    CountEntry copy(entry);
    copy.SetTimeUnit(9);
    EXPECT_EQ(entry.GetTimeUnit(), 1U);
    entry = copy;
    EXPECT_EQ(entry.GetTimeUnit(), 9U);
}

TEST(DataLogEntry, SpawnEntry_CopyOrEmpty)
{
    const CountEntry entry(1, 2, 3);
    const std::unique_ptr<DataLogEntry> copy(entry.SpawnEntry(0, true));
    const std::unique_ptr<DataLogEntry> empty(entry.SpawnEntry(77, false));
    EXPECT_TRUE(entry.IsSame(*copy));
    EXPECT_TRUE(empty->IsSame(CountEntry()));
}

TEST(DataLogEntry, MergeInto_CountersAddLevelTakesTheLarger)
{
    Messages messages;
    CountEntry target(10, 5, 100);
    EXPECT_TRUE(CountEntry(20, 3, 7).MergeInto(target, messages));
    EXPECT_EQ(target.GetLevel(), 5U);
    EXPECT_EQ(target.GetCount(), 107U);
    EXPECT_EQ(target.GetTimeUnit(), 10U);
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

TEST(DataLogEntry, SimpleCombineInto_EverythingAdds)
{
    Messages messages;
    CountEntry target(10, 5, 100);
    EXPECT_TRUE(CountEntry(20, 3, 7).SimpleCombineInto(target, messages));
    EXPECT_EQ(target.GetLevel(), 8U);
    EXPECT_EQ(target.GetCount(), 107U);
}

TEST(DataLogEntry, MergeInto_UnsetUnit_IsFilled)
{
    Messages messages;
    CountEntry target;
    EXPECT_TRUE(CountEntry(20, 3, 7).MergeInto(target, messages));
    EXPECT_EQ(target.GetTimeUnit(), 20U);
    CountEntry kept(10, 0, 0);
    EXPECT_TRUE(CountEntry().MergeInto(kept, messages));
    EXPECT_EQ(kept.GetTimeUnit(), 10U);
}

TEST(DataLogEntry, MergeInto_RecordTimes_StartKeptLaterEndStays)
{
    Messages messages;
    NameEntry target(1000, 1);
    target.SetEndTime(TimePos(5000));
    NameEntry source(500, 1);
    source.SetEndTime(TimePos(4000));
    ASSERT_TRUE(source.MergeInto(target, messages));
    EXPECT_EQ(target.GetStartTime().GetMilliSeconds(), 1000);
    EXPECT_EQ(target.GetEndTime().GetMilliSeconds(), 5000);
    source.SetEndTime(TimePos(6000));
    ASSERT_TRUE(source.MergeInto(target, messages));
    EXPECT_EQ(target.GetEndTime().GetMilliSeconds(), 6000);
}

TEST(DataLogEntry, MergeInto_UnsetRecordTimesOfTheSource_ChangeNothing)
{
    // Increments without times were merged into a running record once, and cleared its start.
    Messages messages;
    NameEntry target(1000, 1);
    target.SetEndTime(TimePos(5000));
    ASSERT_TRUE(NameEntry().MergeInto(target, messages));
    EXPECT_EQ(target.GetStartTime().GetMilliSeconds(), 1000);
    EXPECT_EQ(target.GetEndTime().GetMilliSeconds(), 5000);
    NameEntry unset;
    ASSERT_TRUE(target.MergeInto(unset, messages));
    EXPECT_EQ(unset.GetStartTime().GetMilliSeconds(), 1000);
    EXPECT_EQ(unset.GetEndTime().GetMilliSeconds(), 5000);
}

TEST(DataLogEntry, MergeInto_OtherClass_FalseNoMessageNothingChanged)
{
    Messages messages;
    WideEntry target(4);
    EXPECT_FALSE(CountEntry(1, 2, 3).MergeInto(target, messages));
    EXPECT_FALSE(CountEntry(1, 2, 3).SimpleCombineInto(target, messages));
    EXPECT_FALSE(target.CopyDataFrom(CountEntry(1, 2, 3), messages));
    EXPECT_EQ(target.GetTimeUnit(), 4U);
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

TEST(DataLogEntry, CopyDataFrom_TakesEverything)
{
    Messages messages;
    CountEntry target;
    EXPECT_TRUE(target.CopyDataFrom(CountEntry(1, 2, 3), messages));
    EXPECT_TRUE(target.IsSame(CountEntry(1, 2, 3)));
    EXPECT_TRUE(target.CopyDataFrom(target, messages));
    EXPECT_TRUE(target.IsSame(CountEntry(1, 2, 3)));
}

TEST(DataLogEntry, SetRawData_OnlyTheExactSize)
{
    CountEntry entry(1, 2, 3);
    const CountEntry other(4, 5, 6);
    EXPECT_FALSE(entry.SetRawData(other.GetRawData(), other.GetRawSize() - 1));
    EXPECT_TRUE(entry.IsSame(CountEntry(1, 2, 3)));
    EXPECT_TRUE(entry.SetRawData(other.GetRawData(), other.GetRawSize()));
    EXPECT_TRUE(entry.IsSame(other));
}

TEST(DataLogEntry, SetRawData_TextWithoutEndAndWithControlBytes_IsMadeSafe)
{
    NameEntry raw(1, 2);
    raw.SetText("a\nb\x7F"
                "\x80"
                "cdefghijklmnop");
    NameEntry entry;
    ASSERT_TRUE(entry.SetRawData(raw.GetRawData(), raw.GetRawSize()));
    EXPECT_EQ(entry.GetText(), "a_b_\x80"
                               "cdefghijkl");
}

TEST(DataLogEntry, SetRawData_TextAndBytesBehindItsEnd_BytesAreCleared)
{
    NameEntry raw(1, 2);
    raw.SetText(std::string("ab\0the tail", 11));
    NameEntry entry;
    ASSERT_TRUE(entry.SetRawData(raw.GetRawData(), raw.GetRawSize()));
    EXPECT_TRUE(entry.IsSame(NameEntry(1, 2, "ab")));
}

/// Calls for the making safe of places that are not, or not wholly, inside its block.
class MisplacedTextEntry : public NameEntry
{
protected:
    void xMakeStringsSafe() override
    {
        xMakeStringSafe(TEXT_OFFSET, 0);
        xMakeStringSafe(BLOCK_SIZE, 1);
        xMakeStringSafe(BLOCK_SIZE - 1, 2);
        xMakeStringSafe(TEXT_OFFSET, std::numeric_limits<ULONG>::max());
    }
};

TEST(DataLogEntry, SetRawData_TextFieldOutsideTheBlock_NothingChanged)
{
    NameEntry raw(1, 2);
    raw.SetText("a\nb\x7F"
                "cdefghijklmnop");
    MisplacedTextEntry entry;
    ASSERT_TRUE(entry.SetRawData(raw.GetRawData(), raw.GetRawSize()));
    EXPECT_EQ(entry.GetText(), raw.GetText());
}

TEST(DataLogEntry, Settings_RoundTripUnderOneKey)
{
    SettingsTransportSet set;
    const NameEntry entry(5, 6, "name");
    EXPECT_TRUE(entry.WriteTo(set));
    ASSERT_EQ(set.GetDataCount(), 1U);
    EXPECT_EQ(set.GetDataKey(0), "entrydata");
    NameEntry read;
    EXPECT_TRUE(read.ReadFrom(set));
    EXPECT_TRUE(read.IsSame(entry));
}

TEST(DataLogEntry, Settings_WrongSize_FalseAndUnchanged)
{
    SettingsTransportSet set;
    set.AddBinaryStore("entrydata", BinaryStore("short", 5));
    CountEntry entry(1, 2, 3);
    EXPECT_FALSE(entry.ReadFrom(set));
    EXPECT_TRUE(entry.IsSame(CountEntry(1, 2, 3)));
}

TEST(DataLogEntry, Settings_KeyAbsent_TrueAndUnchanged)
{
    const SettingsTransportSet set;
    CountEntry entry(1, 2, 3);
    EXPECT_TRUE(entry.ReadFrom(set));
    EXPECT_TRUE(entry.IsSame(CountEntry(1, 2, 3)));
}

TEST(DataLogEntryTime, sConvertToTimeUnit_WholeSecondsAndNoneOnlyForUnset)
{
    EXPECT_EQ(DataLogEntryTime::sConvertToTimeUnit(TimePos()), 0U);
    EXPECT_EQ(DataLogEntryTime::sConvertToTimeUnit(TimePos(1)), 1U);
    EXPECT_EQ(DataLogEntryTime::sConvertToTimeUnit(TimePos(-5000)), 1U);
    EXPECT_EQ(DataLogEntryTime::sConvertToTimeUnit(TimePos(1999)), 1U);
    EXPECT_EQ(DataLogEntryTime::sConvertToTimeUnit(TimePos(2000)), 2U);
    EXPECT_EQ(DataLogEntryTime::sConvertToTimeUnit(TimePos(1700000000999)), 1700000000U);
    EXPECT_EQ(DataLogEntryTime::sConvertToTimeUnit(TimePos(4294967295000)), 4294967295U);
    EXPECT_EQ(DataLogEntryTime::sConvertToTimeUnit(TimePos(4294967296000)), 4294967295U);
}

TEST(DataLogEntryTime, sConvertToTimePos_StartOfTheUnit)
{
    TimePos time;
    DataLogEntryTime::sConvertToTimePos(1700000000, time);
    EXPECT_EQ(time.GetMilliSeconds(), 1700000000000);
    DataLogEntryTime::sConvertToTimePos(4294967295U, time);
    EXPECT_EQ(time.GetMilliSeconds(), 4294967295000);
}

TEST(DataLogEntryTime, SetNow_TakesTheCalendar)
{
    FakeCalendar calendar(1700000000500);
    CountEntry unit;
    unit.SetTimeUnitNow();
    EXPECT_EQ(unit.GetTimeUnit(), 1700000000U);
    NameEntry record;
    record.SetStartTimeNow();
    calendar.Set(1700000001500);
    record.SetEndTimeNow();
    EXPECT_EQ(record.GetStartTime().GetMilliSeconds(), 1700000000500);
    EXPECT_EQ(record.GetEndTime().GetMilliSeconds(), 1700000001500);
}

} // namespace
} // namespace kqlib::test

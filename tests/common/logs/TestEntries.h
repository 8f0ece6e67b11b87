// The entries and the clock of the data-log tests.
#pragma once

#include "common/DataLogEntryRecord.h"
#include "common/DataLogEntryTime.h"
#include "common/DataLogResults.h"
#include "common/LittleEndian.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <vector>

namespace kqlib::test {

/// Activity of one time unit. Block of 12 bytes: a level (32 bits, merging keeps the larger, combining adds) and a
/// count (64 bits, adds).
class CountEntry : public DataLogEntryTime
{
public:
    static constexpr ULONG BLOCK_SIZE = 12;

    CountEntry()
        : DataLogEntryTime(BLOCK_SIZE)
    {
    }
    explicit CountEntry(const BinaryStore* store)
        : DataLogEntryTime(BLOCK_SIZE, store)
    {
    }
    CountEntry(ULONG unit, std::uint32_t level, std::uint64_t count)
        : CountEntry()
    {
        SetTimeUnit(unit);
        StoreLittleEndian(xGetData(), level);
        StoreLittleEndian(xGetData() + 4, count);
    }

    std::uint32_t GetLevel() const { return LoadLittleEndian<std::uint32_t>(xGetData()); }
    std::uint64_t GetCount() const { return LoadLittleEndian<std::uint64_t>(xGetData() + 4); }

    CountEntry* Spawn(bool copy) const override { return copy ? new CountEntry(*this) : new CountEntry(); }
    CountEntry* SpawnEntry(unsigned long, bool copy) const override { return Spawn(copy); }

protected:
    void xMergeInto(unsigned char* target) const override
    {
        DataLogEntryTime::xMergeInto(target);
        xFold(target, std::max(GetLevel(), LoadLittleEndian<std::uint32_t>(target + OWN_SIZE)));
    }
    void xSimpleCombineInto(unsigned char* target) const override
    {
        DataLogEntryTime::xSimpleCombineInto(target);
        xFold(target, GetLevel() + LoadLittleEndian<std::uint32_t>(target + OWN_SIZE));
    }
    ULONG xGetSizeReq() const override { return DataLogEntryTime::xGetSizeReq() + BLOCK_SIZE; }

private:
    void xFold(unsigned char* target, std::uint32_t level) const
    {
        unsigned char* const count = target + OWN_SIZE + 4;
        StoreLittleEndian(target + OWN_SIZE, level);
        StoreLittleEndian(count, LoadLittleEndian<std::uint64_t>(count) + GetCount());
    }
};

/// Activity of another class and size.
class WideEntry : public DataLogEntryTime
{
public:
    explicit WideEntry(ULONG unit = 0)
        : DataLogEntryTime(40)
    {
        SetTimeUnit(unit);
    }
    WideEntry* Spawn(bool copy) const override { return copy ? new WideEntry(*this) : new WideEntry(); }
    WideEntry* SpawnEntry(unsigned long, bool copy) const override { return Spawn(copy); }

protected:
    ULONG xGetSizeReq() const override { return DataLogEntryTime::xGetSizeReq() + 40; }
};

/// A record with a number (64 bits) and a text of 16 bytes.
class NameEntry : public DataLogEntryRecord
{
public:
    static constexpr ULONG TEXT_OFFSET = 8;
    static constexpr ULONG TEXT_SIZE = 16;
    static constexpr ULONG BLOCK_SIZE = TEXT_OFFSET + TEXT_SIZE;

    NameEntry()
        : DataLogEntryRecord(BLOCK_SIZE)
    {
    }
    explicit NameEntry(const BinaryStore* store)
        : DataLogEntryRecord(BLOCK_SIZE, store)
    {
    }
    NameEntry(SLONG8 startMs, std::uint64_t number, const String& text = "")
        : NameEntry()
    {
        SetStartTime(TimePos(startMs));
        StoreLittleEndian(xGetData(), number);
        SetText(text);
    }

    std::uint64_t GetNumber() const { return LoadLittleEndian<std::uint64_t>(xGetData()); }
    String GetText() const
    {
        const unsigned char* const text = xGetData() + TEXT_OFFSET;
        return String(text, static_cast<String::size_type>(std::find(text, text + TEXT_SIZE, 0) - text));
    }
    void SetText(const String& text)
    {
        std::copy_n(text.data(), std::min<std::size_t>(text.size(), TEXT_SIZE), xGetData() + TEXT_OFFSET);
    }

    NameEntry* Spawn(bool copy) const override { return copy ? new NameEntry(*this) : new NameEntry(); }
    NameEntry* SpawnEntry(unsigned long, bool copy) const override { return Spawn(copy); }

protected:
    void xMergeInto(unsigned char* target) const override
    {
        DataLogEntryRecord::xMergeInto(target);
        StoreLittleEndian(target + OWN_SIZE, LoadLittleEndian<std::uint64_t>(target + OWN_SIZE) + GetNumber());
    }
    void xSimpleCombineInto(unsigned char* target) const override { NameEntry::xMergeInto(target); }
    ULONG xGetSizeReq() const override { return DataLogEntryRecord::xGetSizeReq() + BLOCK_SIZE; }
    void xMakeStringsSafe() override { xMakeStringSafe(TEXT_OFFSET, TEXT_SIZE); }
};

/// The result at index, of its class.
template <class T> const T& GetAs(const DataLogResults& results, ULONG index)
{
    return dynamic_cast<const T&>(results.Get(index));
}

/// The sum of all counts.
inline std::uint64_t SumCounts(const DataLogResults& results)
{
    std::uint64_t sum = 0;
    for (ULONG index = 0; index < results.GetCount(); ++index)
        sum += GetAs<CountEntry>(results, index).GetCount();
    return sum;
}

/// Replaces the calendar for one test. Set it up before threads run; the time may be moved at any time.
class FakeCalendar
{
public:
    explicit FakeCalendar(SLONG8 milliSecs)
    {
        s_now = milliSecs;
        TimePos::sSetSource([]() -> SLONG8 { return s_now; });
    }
    ~FakeCalendar() { TimePos::sSetSource(nullptr); }
    FakeCalendar(const FakeCalendar&) = delete;
    FakeCalendar& operator=(const FakeCalendar&) = delete;

    void Set(SLONG8 milliSecs) { s_now = milliSecs; }

private:
    static inline std::atomic<SLONG8> s_now{0};
};

} // namespace kqlib::test

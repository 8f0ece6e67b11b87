#include "common/DataLogPurge.h"

#include "common/DataLogRecord.h"
#include "common/DataLogTime.h"
#include "common/ThreadPool.h"
#include "tests/common/logs/TestEntries.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace kqlib::test {
namespace {

/// 2023-11-14 22:00:00 UTC: the start of an hour.
constexpr SLONG8 NOW = 1699999200;
constexpr SLONG8 MINUTE = 60;
constexpr SLONG8 HOUR = 3600;
constexpr SLONG8 DAY = 86400;

class DataLogPurgeTest : public ::testing::Test
{
protected:
    DataLogPurgeTest()
    {
        // Looks every second, so that a test that moves the calendar need not wait long.
        m_units.SetSettings(true, 1, m_folder.GetFilePath(), "", "units");
        m_records.SetSettings(true, 1, m_folder.GetFilePath(), "", "records");
        m_purge.InitMonitorLog(m_records);
        m_purge.InitMonitorLog(m_units);
    }

    void xAdd(SLONG8 unit, std::uint64_t count, std::uint32_t level = 0)
    {
        Messages messages;
        ASSERT_TRUE(m_units.AddEntry(CountEntry(static_cast<ULONG>(unit), level, count), messages));
    }
    void xAddRecord(SLONG8 startSecs, std::uint64_t number)
    {
        Messages messages;
        ASSERT_TRUE(m_records.AddEntry(NameEntry(startSecs * 1000, number), messages));
    }
    /// The units held from..to (inclusive; 0 = open).
    std::vector<SLONG8> xUnits(SLONG8 from = 0, SLONG8 to = 0)
    {
        DataLogQuery query;
        query.SetStart(TimePos(from * 1000));
        query.SetEnd(TimePos(to * 1000));
        Messages messages;
        EXPECT_TRUE(m_units.Query(query, m_cancel, CountEntry(), m_results, messages));
        std::vector<SLONG8> units;
        for (ULONG index = 0; index < m_results.GetCount(); ++index)
            units.push_back(static_cast<SLONG8>(GetAs<CountEntry>(m_results, index).GetTimeUnit()));
        return units;
    }
    std::uint64_t xSum(SLONG8 from = 0, SLONG8 to = 0)
    {
        xUnits(from, to);
        return SumCounts(m_results);
    }
    ULONG xCountRecords()
    {
        Messages messages;
        EXPECT_TRUE(m_records.Query(DataLogQuery(), m_cancel, NameEntry(), m_results, messages));
        return m_results.GetCount();
    }
    /// Runs the purger until the units are as wanted.
    bool xPurgeUntil(const std::vector<SLONG8>& wanted)
    {
        EXPECT_TRUE(m_purge.Start());
        const bool reached = WaitFor([&] { return xUnits() == wanted; }, 20000);
        m_purge.Stop();
        return reached;
    }

    FakeCalendar m_calendar{NOW * 1000};
    TempFolder m_folder;
    ThreadEvent m_cancel;
    DataLogResults m_results;
    ThreadPool m_pool;
    DataLogRecord m_records;
    DataLogTime m_units;
    DataLogPurge m_purge{m_pool};
};

TEST_F(DataLogPurgeTest, StartStop_AnyOrder_Harmless)
{
    m_purge.Stop();
    EXPECT_TRUE(m_purge.Start());
    EXPECT_TRUE(m_purge.Start());
    m_purge.Stop();
    m_purge.Stop();
    EXPECT_TRUE(m_purge.Start());
    m_purge.Stop();
}

TEST_F(DataLogPurgeTest, Start_NoThreadToBeHad_False)
{
    ThreadPool pool(1);
    ThreadEvent goOn;
    ASSERT_TRUE(pool.Run([&] { goOn.Wait(10000); }));
    DataLogPurge purge(pool);
    EXPECT_FALSE(purge.Start());
    purge.Stop();
    goOn.Set();
}

TEST_F(DataLogPurgeTest, Stop_WhileItWaits_EndsSoon)
{
    ASSERT_TRUE(m_purge.Start());
    const auto start = std::chrono::steady_clock::now();
    m_purge.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(DataLogPurgeTest, StartAndStop_FromManyThreads_ItRunsAfterTheLastStart)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([this] {
            for (int round = 0; round < 50; ++round) {
                EXPECT_TRUE(m_purge.Start());
                m_purge.Stop();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    xAdd(NOW - 3 * DAY + 30, 5);
    EXPECT_TRUE(xPurgeUntil({NOW - 3 * DAY}));
}

TEST_F(DataLogPurgeTest, InitMonitorLog_WhileItRuns_LogIsLookedAtToo)
{
    DataLogTime late;
    late.SetSettings(true, 1, m_folder.GetFilePath(), "", "late");
    Messages messages;
    ASSERT_TRUE(late.AddEntry(CountEntry(static_cast<ULONG>(NOW - 500 * DAY), 0, 1), messages));
    ASSERT_TRUE(m_purge.Start());
    m_purge.InitMonitorLog(late);
    EXPECT_TRUE(WaitFor([&] {
        return late.Query(DataLogQuery(), m_cancel, CountEntry(), m_results, messages) && m_results.GetCount() == 0;
    }));
    m_purge.Stop();
}

TEST_F(DataLogPurgeTest, OlderThanTwoDays_MergedIntoMinutes)
{
    const SLONG8 minute = NOW - 2 * DAY - MINUTE;
    xAdd(minute, 1, 4);
    xAdd(minute + 1, 10, 9);
    xAdd(minute + 59, 100, 2);
    xAdd(minute + 60, 1000, 1); // two days ago exactly: stays
    xAdd(minute + 61, 10000, 1);
    ASSERT_TRUE(xPurgeUntil({minute, minute + 60, minute + 61}));
    xUnits();
    EXPECT_TRUE(m_results.Get(0).IsSame(CountEntry(static_cast<ULONG>(minute), 9, 111)));
    EXPECT_EQ(SumCounts(m_results), 11111U);
}

TEST_F(DataLogPurgeTest, OneRowInsideItsMinute_MovesToTheStartOfTheMinute)
{
    const SLONG8 minute = NOW - 10 * DAY;
    xAdd(minute + 17, 5, 6);
    ASSERT_TRUE(xPurgeUntil({minute}));
    xUnits();
    EXPECT_TRUE(m_results.Get(0).IsSame(CountEntry(static_cast<ULONG>(minute), 6, 5)));
}

TEST_F(DataLogPurgeTest, OlderThanSixtyDays_MergedIntoHours)
{
    const SLONG8 hour = NOW - 60 * DAY - HOUR;
    xAdd(hour, 1, 1);
    xAdd(hour + 60, 2, 7);
    xAdd(hour + 3599, 4, 3);
    xAdd(hour + 3600, 8, 1); // sixty days ago exactly: by the minute
    xAdd(hour + 3601, 16, 1);
    xAdd(hour + 3660, 32, 1);
    ASSERT_TRUE(xPurgeUntil({hour, hour + 3600, hour + 3660}));
    xUnits();
    EXPECT_TRUE(m_results.Get(0).IsSame(CountEntry(static_cast<ULONG>(hour), 7, 7)));
    EXPECT_EQ(GetAs<CountEntry>(m_results, 1).GetCount(), 24U);
    EXPECT_EQ(SumCounts(m_results), 63U);
}

TEST_F(DataLogPurgeTest, OlderThan400Days_DroppedInBothLogs)
{
    const SLONG8 border = NOW - 400 * DAY;
    xAdd(border - 1, 1);
    xAdd(border, 2);
    xAddRecord(border - 1, 1);
    xAddRecord(border, 2);
    xAddRecord(NOW, 3);
    ASSERT_TRUE(m_purge.Start());
    EXPECT_TRUE(WaitFor([&] { return xUnits() == std::vector<SLONG8>{border} && xCountRecords() == 2; }));
    m_purge.Stop();
    EXPECT_EQ(xSum(), 2U);
}

TEST_F(DataLogPurgeTest, ManyOldRecords_DroppedInSeveralSteps)
{
    for (std::uint64_t number = 0; number < 1200; ++number)
        xAddRecord(1000 + static_cast<SLONG8>(number), number);
    xAddRecord(NOW, 1);
    ASSERT_TRUE(m_purge.Start());
    EXPECT_TRUE(WaitFor([&] { return xCountRecords() == 1; }, 20000));
}

TEST_F(DataLogPurgeTest, CalendarMovesOn_SumsOfEveryPeriodStay)
{
    // Three hours of activity at changing distances, seen as seconds, minutes, hours, and gone.
    const SLONG8 begin = NOW - 3 * HOUR;
    std::uint64_t total = 0;
    for (SLONG8 unit = begin; unit < NOW; unit += 7) {
        xAdd(unit, static_cast<std::uint64_t>(unit % 1000 + 1), static_cast<std::uint32_t>(unit % 11));
        total += static_cast<std::uint64_t>(unit % 1000 + 1);
    }
    std::vector<std::uint64_t> byHour;
    std::vector<std::uint64_t> byMinute;
    const auto sums = [&](SLONG8 width) {
        std::vector<std::uint64_t> found;
        for (SLONG8 start = begin; start < NOW; start += width)
            found.push_back(xSum(start, start + width - 1));
        return found;
    };
    byHour = sums(HOUR);
    byMinute = sums(MINUTE);
    ASSERT_EQ(xSum(), total);

    ASSERT_TRUE(m_purge.Start());
    m_calendar.Set((NOW + 3 * DAY) * 1000);
    ASSERT_TRUE(WaitFor([&] { return xUnits().size() == 180; }, 30000));
    EXPECT_EQ(sums(HOUR), byHour);
    EXPECT_EQ(sums(MINUTE), byMinute);

    m_calendar.Set((NOW + 61 * DAY) * 1000);
    ASSERT_TRUE(WaitFor([&] { return xUnits().size() == 3; }, 30000));
    EXPECT_EQ(sums(HOUR), byHour);
    EXPECT_EQ(xSum(), total);

    m_calendar.Set((NOW + 401 * DAY) * 1000);
    ASSERT_TRUE(WaitFor([&] { return xUnits().empty(); }, 30000));
}

TEST_F(DataLogPurgeTest, LateEntryForAMergedMinute_IsMergedAtTheNextLook)
{
    const SLONG8 minute = NOW - 10 * DAY;
    xAdd(minute + 1, 1);
    xAdd(minute + 2, 2);
    ASSERT_TRUE(m_purge.Start());
    ASSERT_TRUE(WaitFor([&] { return xUnits() == std::vector<SLONG8>{minute}; }));
    xAdd(minute + 3, 4);
    ASSERT_TRUE(WaitFor([&] { return xUnits() == std::vector<SLONG8>{minute}; }));
    EXPECT_EQ(xSum(), 7U);
}

TEST_F(DataLogPurgeTest, LateEntryForAMergedHour_IsMergedAtTheNextLook)
{
    const SLONG8 hour = NOW - 60 * DAY - 10 * HOUR;
    xAdd(hour + 1, 1);
    xAdd(hour + 3000, 2);
    ASSERT_TRUE(m_purge.Start());
    ASSERT_TRUE(WaitFor([&] { return xUnits() == std::vector<SLONG8>{hour}; }));
    xAdd(hour + 1234, 4);
    ASSERT_TRUE(WaitFor([&] { return xUnits() == std::vector<SLONG8>{hour}; }));
    EXPECT_EQ(xSum(), 7U);
}

TEST_F(DataLogPurgeTest, ClockFarAhead_OneLookDropsTheOldestDayOnly)
{
    DataLogRecord held;
    DataLogTime heldUnits;
    held.SetSettings(true, 3600, m_folder.GetFilePath(), "", "held");
    heldUnits.SetSettings(true, 3600, m_folder.GetFilePath(), "", "held-units");
    Messages messages;
    constexpr SLONG8 DAYS = 30;
    for (SLONG8 day = 0; day < DAYS; ++day) {
        const SLONG8 time = NOW - 30 * DAY + day * (DAY + 1);
        ASSERT_TRUE(held.AddEntry(NameEntry(time * 1000, 1), messages));
        ASSERT_TRUE(heldUnits.AddEntry(CountEntry(static_cast<ULONG>(time), 0, 1), messages));
    }
    const auto count = [&](DataLog& log, const DataLogEntry& prototype) {
        EXPECT_TRUE(log.Query(DataLogQuery(), m_cancel, prototype, m_results, messages));
        return m_results.GetCount();
    };
    m_calendar.Set((NOW + 3650 * DAY) * 1000);
    m_purge.InitMonitorLog(held);
    m_purge.InitMonitorLog(heldUnits);
    ASSERT_TRUE(m_purge.Start());
    EXPECT_TRUE(
        WaitFor([&] { return count(held, NameEntry()) == DAYS - 1 && count(heldUnits, CountEntry()) == DAYS - 1; }));
    // The other log shows that rounds have passed since then.
    for (int round = 0; round < 2; ++round) {
        xAddRecord(NOW, 1);
        ASSERT_TRUE(WaitFor([&] { return xCountRecords() == 0; }));
    }
    m_purge.Stop();
    EXPECT_EQ(count(held, NameEntry()), static_cast<ULONG>(DAYS - 1));
    EXPECT_EQ(count(heldUnits, CountEntry()), static_cast<ULONG>(DAYS - 1));
}

TEST_F(DataLogPurgeTest, NoClassSeenYet_OnlyDropsAndMergesOnceItIs)
{
    const SLONG8 minute = NOW - 10 * DAY;
    xAdd(NOW - 401 * DAY, 8);
    xAdd(minute + 1, 1);
    xAdd(minute + 2, 2);
    // A new log on the same file knows no class until an entry or a query names one.
    m_units.SetSettings(false, 0, FilePath(), "", "");
    DataLogTime reopened;
    reopened.SetSettings(true, 1, m_folder.GetFilePath(), "", "units");
    DataLogPurge purge(m_pool);
    purge.InitMonitorLog(reopened);
    ASSERT_TRUE(purge.Start());

    m_units.SetSettings(true, 1, m_folder.GetFilePath(), "", "units");
    ASSERT_TRUE(WaitFor([&] { return xUnits() == (std::vector<SLONG8>{minute + 1, minute + 2}); }));
    Messages messages;
    ASSERT_TRUE(reopened.Query(DataLogQuery(), m_cancel, CountEntry(), m_results, messages));
    EXPECT_TRUE(WaitFor([&] { return xUnits() == std::vector<SLONG8>{minute}; }));
    EXPECT_EQ(xSum(), 3U);
    purge.Stop();
}

TEST_F(DataLogPurgeTest, RowsOfAnotherClass_StayAsTheyAre)
{
    const SLONG8 minute = NOW - 10 * DAY;
    xAdd(minute + 1, 1);
    Messages messages;
    ASSERT_TRUE(m_units.AddEntry(WideEntry(static_cast<ULONG>(minute + 2)), messages));
    xAdd(minute + 61, 2);
    ASSERT_TRUE(xPurgeUntil({minute + 1, minute + 60}));
    ASSERT_TRUE(m_units.Query(DataLogQuery(), m_cancel, WideEntry(), m_results, messages));
    EXPECT_EQ(m_results.GetCount(), 1U);
}

TEST_F(DataLogPurgeTest, PurgeSecondsZero_NeverLooks)
{
    const SLONG8 minute = NOW - 10 * DAY;
    m_units.SetSettings(true, 0, m_folder.GetFilePath(), "", "units");
    xAdd(minute + 1, 1);
    xAddRecord(NOW - 401 * DAY, 1);
    ASSERT_TRUE(m_purge.Start());
    // The other log shows when a look has passed.
    ASSERT_TRUE(WaitFor([&] { return xCountRecords() == 0; }));
    xAddRecord(NOW - 401 * DAY, 1);
    ASSERT_TRUE(WaitFor([&] { return xCountRecords() == 0; }));
    EXPECT_EQ(xUnits(), std::vector<SLONG8>{minute + 1});
}

TEST_F(DataLogPurgeTest, LogDisabled_NothingHappensUntilItIsEnabled)
{
    xAddRecord(NOW - 401 * DAY, 1);
    m_records.SetSettings(false, 1, FilePath(), "", "");
    const SLONG8 minute = NOW - 10 * DAY;
    xAdd(minute + 1, 1);
    ASSERT_TRUE(m_purge.Start());
    ASSERT_TRUE(WaitFor([&] { return xUnits() == std::vector<SLONG8>{minute}; }));
    m_records.SetSettings(true, 1, m_folder.GetFilePath(), "", "records");
    EXPECT_TRUE(WaitFor([&] { return xCountRecords() == 0; }));
}

TEST_F(DataLogPurgeTest, ManyEntriesAdded_FoldedIntoTheDatabaseByThePurger)
{
    const std::filesystem::path database = m_folder.GetPath() / "records.db";
    ASSERT_TRUE(m_purge.Start());
    const auto atFirst = std::filesystem::file_size(database);
    // Each entry writes a page or two, so this is far above what starts the folding and below what adding does itself.
    for (std::uint64_t number = 0; number < 2500; ++number)
        xAddRecord(NOW, number);
    EXPECT_TRUE(WaitFor([&] { return std::filesystem::file_size(database) > atFirst; }));
    m_purge.Stop();
}

TEST_F(DataLogPurgeTest, SixteenThreadsAdd_OneQueriesOnePurges_EverySumIsRight)
{
    constexpr int THREADS = 16;
    constexpr int ENTRIES = 60;
    // Each thread adds the same units, so that rows are merged at once and by the purger.
    const SLONG8 begin = NOW - 10 * DAY;
    ASSERT_TRUE(m_purge.Start());
    std::atomic<int> failures{0};
    std::atomic<int> running{THREADS};
    std::vector<std::thread> threads;
    for (int index = 0; index < THREADS; ++index)
        threads.emplace_back([&, index] {
            for (int entry = 0; entry < ENTRIES; ++entry) {
                Messages messages;
                const CountEntry activity(static_cast<ULONG>(begin + entry * 13), 1, 1);
                const NameEntry record((NOW + entry) * 1000, static_cast<std::uint64_t>(index * 1000 + entry));
                if (!m_units.AddEntry(activity, messages) || !m_records.AddEntry(record, messages))
                    ++failures;
            }
            --running;
        });
    std::uint64_t last = 0;
    while (running > 0) {
        const std::uint64_t sum = xSum();
        EXPECT_GE(sum, last);
        last = sum;
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_TRUE(WaitFor([&] { return xUnits().size() == 13; }, 20000));
    m_purge.Stop();
    EXPECT_EQ(xSum(), static_cast<std::uint64_t>(THREADS * ENTRIES));
    EXPECT_EQ(xCountRecords(), static_cast<ULONG>(THREADS * ENTRIES));
    std::set<std::uint64_t> numbers;
    for (ULONG index = 0; index < m_results.GetCount(); ++index)
        numbers.insert(GetAs<NameEntry>(m_results, index).GetNumber());
    EXPECT_EQ(numbers.size(), static_cast<std::size_t>(THREADS * ENTRIES));
}

} // namespace
} // namespace kqlib::test

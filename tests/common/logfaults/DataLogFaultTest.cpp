#include "common/DataLogPurge.h"
#include "common/DataLogRecord.h"
#include "common/DataLogTime.h"
#include "common/ThreadPool.h"
#include "tests/common/logfaults/FaultyDisk.h"
#include "tests/common/logs/TestEntries.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <set>

namespace kqlib::test {
namespace {

class DataLogFaultTest : public ::testing::TestWithParam<FaultyDisk::FAULT>
{
protected:
    ULONG xQuery(const DataLog& log, const DataLogEntry& prototype)
    {
        Messages messages;
        EXPECT_TRUE(log.Query(DataLogQuery(), m_cancel, prototype, m_results, messages));
        return m_results.GetCount();
    }

    FaultyDisk m_disk;
    TempFolder m_folder;
    ThreadEvent m_cancel;
    DataLogResults m_results;
};

TEST_P(DataLogFaultTest, AddRecord_WriteFailsAtAnyPoint_FalseNothingLostAndGoesOn)
{
    std::set<std::uint64_t> taken;
    std::uint64_t number = 0;
    Messages messages;
    DataLogRecord log;
    log.SetSettings(true, 3600, m_folder.GetFilePath(), "", "log");
    for (std::size_t allowed = 0; allowed < 12; ++allowed) {
        m_disk.FailAfter(allowed, GetParam());
        while (!m_disk.HasFailed()) {
            ++number;
            if (log.AddEntry(NameEntry(static_cast<SLONG8>(number), number), messages))
                taken.insert(number);
        }
        // While the disk stays as it is, nothing is taken.
        ++number;
        EXPECT_FALSE(log.AddEntry(NameEntry(static_cast<SLONG8>(number), number), messages));
        m_disk.Repair();
        ++number;
        ASSERT_TRUE(log.AddEntry(NameEntry(static_cast<SLONG8>(number), number), messages)) << allowed;
        taken.insert(number);
    }
    ASSERT_EQ(xQuery(log, NameEntry()), taken.size());
    for (ULONG index = 0; index < m_results.GetCount(); ++index)
        EXPECT_EQ(taken.count(GetAs<NameEntry>(m_results, index).GetNumber()), 1U);
    EXPECT_EQ(messages.GetMessageCount(), 0U);
}

TEST_P(DataLogFaultTest, AddUnit_WriteFailsAtAnyPoint_SumIsWhatWasTaken)
{
    std::uint64_t taken = 0;
    Messages messages;
    DataLogTime log;
    log.SetSettings(true, 3600, m_folder.GetFilePath(), "", "log");
    for (std::size_t allowed = 0; allowed < 12; ++allowed) {
        m_disk.FailAfter(allowed, GetParam());
        while (!m_disk.HasFailed())
            taken += log.AddEntry(CountEntry(77, 1, 1), messages) ? 1 : 0;
        m_disk.Repair();
        ASSERT_TRUE(log.AddEntry(CountEntry(77, 1, 1), messages));
        ++taken;
    }
    ASSERT_EQ(xQuery(log, CountEntry()), 1U);
    EXPECT_EQ(SumCounts(m_results), taken);
}

TEST_P(DataLogFaultTest, NewFile_CannotBeMade_FalseUntilItCan)
{
    Messages messages;
    for (std::size_t allowed = 0; allowed < 8; ++allowed) {
        const String name = String::sToString(static_cast<unsigned long>(allowed));
        DataLogRecord log;
        m_disk.FailAfter(allowed, GetParam());
        log.SetSettings(true, 3600, m_folder.GetFilePath(), "", name);
        std::size_t taken = 0;
        while (!m_disk.HasFailed())
            taken += log.AddEntry(NameEntry(1, 1), messages) ? 1U : 0U;
        m_disk.Repair();
        ASSERT_TRUE(log.AddEntry(NameEntry(2, 2), messages)) << allowed;
        EXPECT_EQ(xQuery(log, NameEntry()), taken + 1);
    }
}

TEST_P(DataLogFaultTest, Purge_WriteFailsOnTheWay_SumStaysAndItIsDoneLater)
{
    constexpr SLONG8 NOW = 1699999200;
    FakeCalendar calendar(NOW * 1000);
    Messages messages;
    DataLogTime log;
    log.SetSettings(true, 1, m_folder.GetFilePath(), "", "log");
    const SLONG8 begin = NOW - 10 * 86400;
    for (SLONG8 unit = begin; unit < begin + 600; unit += 5)
        ASSERT_TRUE(log.AddEntry(CountEntry(static_cast<ULONG>(unit), 1, 1), messages));

    ThreadPool pool;
    DataLogPurge purge(pool);
    purge.InitMonitorLog(log);
    m_disk.FailAfter(4, GetParam());
    ASSERT_TRUE(purge.Start());
    ASSERT_TRUE(WaitFor([&] { return m_disk.HasFailed(); }));
    m_disk.Repair();
    EXPECT_TRUE(WaitFor([&] { return xQuery(log, CountEntry()) == 10; }, 20000));
    EXPECT_EQ(SumCounts(m_results), 120U);
    purge.Stop();
}

// Rows of a group are deleted and their sum stored: both or neither, at whichever write the disk fails.
TEST_P(DataLogFaultTest, Purge_WriteFailsAtAnyPoint_NoRowIsLost)
{
    constexpr SLONG8 NOW = 1699999200;
    FakeCalendar calendar(NOW * 1000);
    Messages messages;
    ThreadPool pool;
    for (std::size_t allowed = 0; allowed < 20; ++allowed) {
        DataLogTime log;
        log.SetSettings(true, 1, m_folder.GetFilePath(), "", String::sToString(static_cast<unsigned long>(allowed)));
        const SLONG8 begin = NOW - 10 * 86400;
        for (SLONG8 unit = begin; unit < begin + 240; unit += 5)
            ASSERT_TRUE(log.AddEntry(CountEntry(static_cast<ULONG>(unit), 1, 1), messages));
        DataLogPurge purge(pool);
        purge.InitMonitorLog(log);
        m_disk.FailAfter(allowed, GetParam());
        ASSERT_TRUE(purge.Start());
        ASSERT_TRUE(WaitFor([&] { return m_disk.HasFailed() || xQuery(log, CountEntry()) == 4; }));
        purge.Stop();
        m_disk.Repair();
        xQuery(log, CountEntry());
        EXPECT_EQ(SumCounts(m_results), 48U) << allowed;
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, DataLogFaultTest,
                         ::testing::Values(FaultyDisk::FAULT::FULL, FaultyDisk::FAULT::BROKEN),
                         [](const ::testing::TestParamInfo<FaultyDisk::FAULT>& instance) {
                             return instance.param == FaultyDisk::FAULT::FULL ? "DiskFull" : "DiskBroken";
                         });

} // namespace
} // namespace kqlib::test

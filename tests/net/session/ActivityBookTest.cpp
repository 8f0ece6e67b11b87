#include "net/session/ActivityBook.h"

#include "platform/Threads.h"

#include "common/DataLogQuery.h"
#include "common/DataLogResults.h"
#include "common/DataLogTime.h"
#include "common/Messages.h"
#include "common/ThreadEvent.h"
#include "tests/peers/MovedClocks.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace kqlib::test {
namespace {

using C = NetCounterBlock;

constexpr SLONG8 START_MS = 2000000000000;
constexpr ULONG START_UNIT = 2000000000;

class ActivityBookTest : public testing::Test
{
protected:
    void SetUp() override { m_log.SetSettings(true, 3600, m_folder.GetFilePath(), "", "activity"); }

    /// The counters of each unit in the log.
    std::map<ULONG, ULONG> Written(C::COUNTER counter)
    {
        DataLogResults results;
        Messages messages;
        EXPECT_TRUE(m_log.Query(DataLogQuery(), ThreadEvent(), NetSessionActivity(), results, messages));
        std::map<ULONG, ULONG> units;
        for (ULONG index = 0; index < results.GetCount(); ++index) {
            const auto& entry = dynamic_cast<const NetSessionActivity&>(results.Get(index));
            units[entry.GetTimeUnit()] = static_cast<ULONG>(entry.GetCounter(counter));
        }
        return units;
    }

    MovedCalendar m_calendar{START_MS};
    TempFolder m_folder;
    DataLogTime m_log;
    ThreadGateway m_lock;
    ActivityBook m_book{m_log, m_lock, EventLogSessionID(7, 9)};
};

using UNITS = std::map<ULONG, ULONG>;

TEST_F(ActivityBookTest, Construct_Record_HasTheIdAndTheStart)
{
    EXPECT_TRUE(m_book.GetRecordPreLocked().GetSessionID() == EventLogSessionID(7, 9));
    EXPECT_EQ(m_book.GetRecordPreLocked().GetStartTime().GetMilliSeconds(), START_MS);
    m_book.StorePending();
    EXPECT_EQ(Written(C::CONNECTIONS_IN), UNITS{}) << "none waits";
}

TEST_F(ActivityBookTest, CountFirstConnection_Record_HasItAtOnceAndOnce)
{
    m_book.CountFirstConnection();
    EXPECT_EQ(m_book.GetRecordPreLocked().GetConnectionsIn(), 1U);
    m_book.StoreCurrent();
    m_book.CloseRecordPreLocked("");
    EXPECT_EQ(m_book.GetRecordPreLocked().GetConnectionsIn(), 1U);
    EXPECT_EQ(Written(C::CONNECTIONS_IN), (UNITS{{START_UNIT, 1}}));
}

TEST_F(ActivityBookTest, Count_UntilTheUnitChanges_TheRecordLags)
{
    m_book.UpdateAndCount(C::FILES_READ);
    m_book.Count(C::FILES_READ, 2);
    EXPECT_EQ(m_book.GetRecordPreLocked().GetFilesRead(), 0U);
    m_calendar.Set(START_MS + 1000);
    m_book.UpdateAndCount(C::FILES_READ, 10);
    EXPECT_EQ(m_book.GetRecordPreLocked().GetFilesRead(), 3U);
    m_book.StorePending();
    m_book.StorePending();
    EXPECT_EQ(Written(C::FILES_READ), (UNITS{{START_UNIT, 3}}));
    m_book.StoreCurrent();
    EXPECT_EQ(Written(C::FILES_READ), (UNITS{{START_UNIT, 3}, {START_UNIT + 1, 10}}));
}

TEST_F(ActivityBookTest, Update_InTheNextUnit_WritesTheLastOneAfterItsMomentOnly)
{
    m_book.UpdateAndCount(C::FILES_READ);
    platform::RandSeed(5);
    const SLONG8 moment = START_MS + 1000 + platform::RandNext() % 1000;
    platform::RandSeed(5);
    m_book.Update(TimePos(START_MS + 1000));
    m_book.Update(TimePos(moment));
    EXPECT_EQ(Written(C::FILES_READ), UNITS{});
    m_book.Update(TimePos(moment + 1));
    EXPECT_EQ(Written(C::FILES_READ), (UNITS{{START_UNIT, 1}}));
}

TEST_F(ActivityBookTest, CloseRecord_IncrementsLeft_AreInItWithUserAndEnd)
{
    m_book.UpdateAndCount(C::FILES_READ);
    m_calendar.Set(START_MS + 700);
    m_book.CloseRecordPreLocked("anna");
    EXPECT_EQ(m_book.GetRecordPreLocked().GetFilesRead(), 1U);
    EXPECT_EQ(m_book.GetRecordPreLocked().GetUser(), "anna");
    EXPECT_EQ(m_book.GetRecordPreLocked().GetEndTime().GetMilliSeconds(), START_MS + 700);
}

/// How evenly the moments of 1000 neighbours lie: the fullest tenth of the second.
template <class SEED> std::size_t FullestTenth(const SEED& seed)
{
    std::map<std::uint32_t, std::size_t> tenths;
    for (std::uint32_t index = 0; index < 1000; ++index) {
        seed(index);
        ++tenths[platform::RandNext() % 1000 / 100];
    }
    std::size_t fullest = 0;
    for (const auto& [tenth, count] : tenths)
        fullest = std::max(fullest, count);
    EXPECT_EQ(tenths.size(), 10U);
    return fullest;
}

TEST(ActivityBookSpread, SeedSpread_Neighbours_DrawMomentsAllOverTheSecond)
{
    constexpr std::uint32_t THREAD = 31415;
    constexpr std::uint32_t SECONDS = 2000000000;
    EXPECT_LT(FullestTenth([](std::uint32_t i) { ActivityBook::sSeedSpread(THREAD + i, SECONDS, 1); }), 160U);
    EXPECT_LT(FullestTenth([](std::uint32_t i) { ActivityBook::sSeedSpread(THREAD, SECONDS + i, 1); }), 160U);
    EXPECT_LT(FullestTenth([](std::uint32_t i) { ActivityBook::sSeedSpread(THREAD, SECONDS, i); }), 160U);
    EXPECT_LT(FullestTenth([](std::uint32_t i) { ActivityBook::sSeedSpread(THREAD + i, SECONDS - i, i); }), 160U);
}

TEST(ActivityBookSpread, SeedSpread_FewNeighbours_DifferByMoreThanAFewMilliseconds)
{
    std::set<std::uint32_t> moments;
    for (std::uint32_t index = 0; index < 16; ++index) {
        ActivityBook::sSeedSpread(1000 + index, 2000000000, 1 + index);
        moments.insert(platform::RandNext() % 1000);
    }
    EXPECT_GT(*moments.rbegin() - *moments.begin(), 500U);
}

} // namespace
} // namespace kqlib::test

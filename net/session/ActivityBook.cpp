#include "net/session/ActivityBook.h"

#include "platform/Threads.h"

#include "common/DataLogTime.h"
#include "common/Messages.h"

namespace kqlib {

namespace {

constexpr std::uint32_t WRITE_SPREAD_MS = 1000; // over which the writes of many sessions are spread

/// Spreads every bit of value over all 32: the finishing step of a hash.
std::uint32_t Mix(std::uint32_t value)
{
    value ^= value >> 16;
    value *= 0x85EBCA6BU;
    value ^= value >> 13;
    value *= 0xC2B2AE35U;
    return value ^ (value >> 16);
}

} // namespace

ActivityBook::ActivityBook(DataLogTime& log, const ThreadGateway& recordLock, const EventLogSessionID& id)
    : m_log(log)
    , m_recordLock(recordLock)
{
    m_current.SetTimeUnitNow();
    m_record.SetSessionID(id);
    m_record.SetStartTimeNow();
}

void ActivityBook::sSeedSpread(std::uint32_t threadId, std::uint32_t seconds, std::uint32_t sessionNumber)
{
    // Mixed one after the other: in a plain sum, a later start and a lower thread id make up for each other.
    platform::RandSeed(Mix(Mix(Mix(threadId) + seconds) + sessionNumber));
}

void ActivityBook::CountFirstConnection()
{
    m_current.IncreaseConnectionsIn(1);
    const ThreadGatewayGuard guard(m_recordLock);
    m_record.IncreaseConnectionsIn(1);
}

void ActivityBook::Update()
{
    Update(TimePos::sNow());
}

// 1. The unit of now. 2. Write the last unit's counters when they are due, or when their place is needed. 3. Mostly
// nothing more. 4. to 6. A new unit: this one's counters wait for their write, from 0 they count anew, and what others
// see of the record catches up.
void ActivityBook::Update(const TimePos& now)
{
    const ULONG unit = DataLogEntryTime::sConvertToTimeUnit(now);
    const bool sameUnit = unit == m_current.GetTimeUnit();
    if (m_pending.GetTimeUnit() != 0 && (!sameUnit || now > m_pendingWriteTime))
        xStore(m_pending);
    if (sameUnit)
        return;

    Messages messages;
    if (m_pending.CopyDataFrom(m_current, messages)) {
        DataLogEntryTime::sConvertToTimePos(unit, m_pendingWriteTime);
        m_pendingWriteTime.OffsetByMilliSeconds(platform::RandNext() % WRITE_SPREAD_MS);
    } else {
        m_pendingWriteTime.Reset();
    }
    m_current.Reset();
    m_current.SetTimeUnit(unit);

    const ThreadGatewayGuard guard(m_recordLock);
    xMergeIncrementsPreLocked();
}

void ActivityBook::Count(NetCounterBlock::COUNTER counter, ULONG amount)
{
    m_current.IncreaseCounter(counter, amount);
    m_increments.IncreaseCounter(counter, amount);
}

void ActivityBook::UpdateAndCount(NetCounterBlock::COUNTER counter, ULONG amount)
{
    Update();
    Count(counter, amount);
}

void ActivityBook::StorePending()
{
    if (m_pending.GetTimeUnit() != 0)
        xStore(m_pending);
}

void ActivityBook::StoreCurrent()
{
    xStore(m_current);
}

void ActivityBook::CloseRecordPreLocked(const String& user)
{
    xMergeIncrementsPreLocked();
    m_record.SetEndTimeNow();
    m_record.SetUser(user); // last, for merging takes over the increments' empty user
}

/// Writes a unit's counters to the data log. They are gone afterwards also when that failed: never written twice.
void ActivityBook::xStore(NetSessionActivity& activity)
{
    Messages messages;
    m_log.AddEntry(activity, messages);
    activity.Reset();
}

void ActivityBook::xMergeIncrementsPreLocked()
{
    Messages messages;
    m_increments.MergeInto(m_record, messages);
    m_increments.Reset();
}

} // namespace kqlib

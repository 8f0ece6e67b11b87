#include "common/DataLogPurge.h"

#include "common/DataLogEntryTime.h"
#include "common/DataLogState.h"
#include "common/WithinMemory.h"
#include "platform/Clock.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace kqlib {

namespace {

// Seconds, which are time units too.
constexpr SLONG8 MINUTE = 60;
constexpr SLONG8 HOUR = 3600;
constexpr SLONG8 DAY = 24 * HOUR;

/// Activity older than this is kept by the minute, by the hour; rows of both kinds older than the last are dropped.
constexpr SLONG8 KEEP_SECONDS = 2 * DAY;
constexpr SLONG8 KEEP_MINUTES = 60 * DAY;
constexpr SLONG8 KEEP_ALL = 400 * DAY;

/// Rows deleted in one step.
constexpr ULONG DROP_STEP = 500;

/// Between two steps, so that those who wait for the log get it.
constexpr std::uint32_t STEP_PAUSE_MS = 1;

/// Unfolded pages (4096 bytes) of a log at which the thread folds them in: it waits for the medium, so that those who
/// add entries need not.
constexpr int FOLD_IN_AT = 1000;

/// How long the thread sleeps before it looks whether a log is due.
constexpr ULONG PAUSE_MS = 200;

/// The border that lies age seconds before now, moved back to a multiple of width; 0 before 1970.
SLONG8 GetBorder(SLONG8 now, SLONG8 age, SLONG8 width)
{
    const SLONG8 border = std::max<SLONG8>(now - age, 0);
    return border - border % width;
}

} // namespace

/// One look at one log.
class DataLogPurge::Pass
{
public:
    Pass(DataLog& log, std::function<bool()> shouldEnd)
        : m_state(*log.m_state)
        , m_shouldEnd(std::move(shouldEnd))
    {
    }

    /// The seconds between two looks. Nothing when the log is not to be looked at.
    std::optional<ULONG> GetInterval() const
    {
        std::lock_guard lock(m_state.mutex);
        if (!m_state.enabled || m_state.purgeSeconds == 0)
            return std::nullopt;
        return m_state.purgeSeconds;
    }
    void Run();
    /// Folds the log's write-ahead file in when it has grown. foldedAt: the size at which that was done last.
    void FoldIn(int& foldedAt) const;

private:
    bool xMayGoOn() const;
    void xDropBefore(SLONG8 border, SLONG8 day);
    std::optional<SLONG8> xFindOldest(SLONG8 border);
    void xMergeUnits(std::uint32_t& mergedTo, SLONG8 from, SLONG8 to, SLONG8 width);
    bool xMergeGroupPreLocked(SLONG8 start, SLONG8 width);
    std::unique_ptr<DataLogEntryTime> xReadSumPreLocked(SLONG8 start, SLONG8 width);

    DataLog::STATE& m_state;
    const std::function<bool()> m_shouldEnd;
};

void DataLogPurge::Pass::Run()
{
    const SLONG8 now = static_cast<SLONG8>(DataLogEntryTime::sConvertToTimeUnit(TimePos::sNow()));
    const SLONG8 dropBorder = GetBorder(now, KEEP_ALL, HOUR);
    if (m_state.kind == DataLog::KIND::RECORD) {
        xDropBefore(dropBorder * 1000, DAY * 1000);
        return;
    }
    const SLONG8 hourBorder = GetBorder(now, KEEP_MINUTES, HOUR);
    xDropBefore(dropBorder, DAY);
    xMergeUnits(m_state.mergedHoursTo, dropBorder, hourBorder, HOUR);
    xMergeUnits(m_state.mergedMinutesTo, hourBorder, GetBorder(now, KEEP_SECONDS, MINUTE), MINUTE);
}

void DataLogPurge::Pass::FoldIn(int& foldedAt) const
{
    FilePath path;
    {
        std::lock_guard lock(m_state.mutex);
        const int pages = m_state.enabled && m_state.file ? m_state.file->GetUnfoldedPages() : 0;
        if (pages < FOLD_IN_AT || pages == foldedAt)
            return;
        foldedAt = pages;
        path = m_state.path;
    }
    // A failure loses nothing: the file only stays larger for now.
    if (const auto file = DataLogFile::sOpen(path, m_state.GetTable(), DataLogFile::ACCESS::WRITE))
        static_cast<void>(file->FoldIn());
}

/// Before each step: leaves the log to those who add entries for a moment. False: the thread is to end.
bool DataLogPurge::Pass::xMayGoOn() const
{
    platform::SleepMs(STEP_PAUSE_MS);
    return !m_shouldEnd();
}

/// The time of the oldest row before border; none when there is none, or it cannot be read.
std::optional<SLONG8> DataLogPurge::Pass::xFindOldest(SLONG8 border)
{
    std::lock_guard lock(m_state.mutex);
    SLONG8 time = 0;
    bool found = false;
    if (!m_state.OpenPreLocked() ||
        !m_state.file->FindFirst(std::numeric_limits<SLONG8>::min(), border - 1, 1, time, found) || !found)
        return std::nullopt;
    return time;
}

/// Deletes rows of the times before border, some at a time: those of one day, the oldest. day: its length, in the unit
/// of the times. A look that comes each hour is far ahead of a log that grows; a clock that is years ahead for a while
/// costs few days of it and not the log.
void DataLogPurge::Pass::xDropBefore(SLONG8 border, SLONG8 day)
{
    const std::optional<SLONG8> oldest = xFindOldest(border);
    if (!oldest)
        return;
    const SLONG8 last = std::min(border - 1, *oldest + day);
    ULONG deleted = DROP_STEP;
    while (deleted == DROP_STEP && xMayGoOn()) {
        std::lock_guard lock(m_state.mutex);
        if (!m_state.OpenPreLocked() ||
            !m_state.file->Delete(std::numeric_limits<SLONG8>::min(), last, DROP_STEP, deleted))
            return;
    }
}

/// Merges the rows of from..to (to excluded; both multiples of width) into one per width, a group at a time.
/// mergedTo: where to go on, of the log's state.
void DataLogPurge::Pass::xMergeUnits(std::uint32_t& mergedTo, SLONG8 from, SLONG8 to, SLONG8 width)
{
    while (xMayGoOn()) {
        std::lock_guard lock(m_state.mutex);
        if (!m_state.OpenPreLocked() || !m_state.prototype)
            return;
        // 1. Go to the next row.
        SLONG8 unit = 0;
        bool found = false;
        if (!m_state.file->FindFirst(std::max<SLONG8>(from, mergedTo), to - 1, 1, unit, found))
            return;
        if (!found) {
            mergedTo = std::max(mergedTo, static_cast<std::uint32_t>(to));
            return;
        }
        // 2. From there on, within a day, look for one that is not merged yet: it does not stand at a border.
        const SLONG8 last = std::min(unit + DAY, to) - 1;
        if (!m_state.file->FindFirst(unit, last, width, unit, found))
            return;
        // 3. Merge its group.
        const SLONG8 start = unit - unit % width;
        if (found && !xMergeGroupPreLocked(start, width))
            return;
        mergedTo = static_cast<std::uint32_t>(found ? start + width : last + 1);
    }
}

/// Merges the rows of one group in one transaction. False: a failure, nothing changed.
bool DataLogPurge::Pass::xMergeGroupPreLocked(SLONG8 start, SLONG8 width)
{
    DataLogFile& file = *m_state.file;
    DataLogFile::Transaction transaction(file);
    if (!transaction.HasBegun())
        return false;
    const auto sum = xReadSumPreLocked(start, width);
    // Rows of another class stay as they are.
    if (!sum)
        return !file.IsBroken();
    ULONG deleted = 0;
    return file.Delete(start, start + width - 1, 0, deleted) && file.Put(start, sum->GetRawData(), sum->GetRawSize()) &&
           transaction.Commit();
}

/// The sum of the group's rows, at its start. Null when a row is of another size, or cannot be read.
std::unique_ptr<DataLogEntryTime> DataLogPurge::Pass::xReadSumPreLocked(SLONG8 start, SLONG8 width)
{
    const auto spawn = [this] {
        return std::unique_ptr<DataLogEntryTime>(
            static_cast<DataLogEntryTime*>(m_state.prototype->SpawnEntry(0, false)));
    };
    Messages none;
    const auto row = spawn();
    std::unique_ptr<DataLogEntryTime> sum;
    const bool alike =
        m_state.file->Read(start, start + width - 1, 0, 0, 0, [&](SLONG8, const unsigned char* data, ULONG size) {
            if (!row->SetRawData(data, size))
                return false;
            if (sum)
                return row->MergeInto(*sum, none);
            sum = spawn();
            return sum->CopyDataFrom(*row, none);
        });
    if (!alike || !sum)
        return nullptr;
    sum->SetTimeUnit(static_cast<ULONG>(start));
    return sum;
}

DataLogPurge::DataLogPurge(ThreadPool& pool)
    : SingleThreadByPool(pool)
{
}

DataLogPurge::~DataLogPurge()
{
    Stop();
}

void DataLogPurge::InitMonitorLog(DataLog& log)
{
    const ThreadGatewayGuard guard(m_logsGateway);
    m_logs.push_back(&log);
}

bool DataLogPurge::Start()
{
    const ThreadGatewayGuard alone(m_runGateway);
    m_stop.Reset();
    return xRunThread();
}

void DataLogPurge::Stop()
{
    const ThreadGatewayGuard alone(m_runGateway);
    // Asked before it is woken: a thread that wakes up and is not asked to end would look at the logs once more.
    xEndThreadAsync();
    m_stop.Set();
    xEndThread();
}

std::vector<DataLog*> DataLogPurge::xGetLogs() const
{
    const ThreadGatewayGuard guard(m_logsGateway);
    return m_logs;
}

void DataLogPurge::xThread()
{
    using Clock = std::chrono::steady_clock;
    struct LOOK
    {
        std::optional<Clock::time_point> last;
        int foldedAt = 0;
    };
    std::vector<LOOK> looks; // one per log
    const auto lookAtAll = [&] {
        const std::vector<DataLog*> logs = xGetLogs();
        looks.resize(logs.size());
        for (std::size_t index = 0; index < logs.size(); ++index) {
            LOOK& look = looks[index];
            Pass pass(*logs[index], [this] { return xShouldThreadEnd(); });
            pass.FoldIn(look.foldedAt);
            const std::optional<ULONG> interval = pass.GetInterval();
            if (!interval || (look.last && Clock::now() - *look.last < std::chrono::seconds(*interval)))
                continue;
            pass.Run();
            look.last = Clock::now();
        }
    };
    while (!xShouldThreadEnd()) {
        // A look that finds no memory is made again.
        static_cast<void>(RunWithinMemory(lookAtAll));
        if (m_stop.Wait(PAUSE_MS))
            return;
    }
}

} // namespace kqlib

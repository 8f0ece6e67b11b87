#include "common/DataLog.h"

#include "common/DataLogEntryRecord.h"
#include "common/DataLogEntryTime.h"
#include "common/DataLogState.h"
#include "common/NativePath.h"

#include <algorithm>
#include <limits>

namespace kqlib {

namespace {

/// Where a record stands in the log: at its start, or else at its end, or else where it arrives.
SLONG8 GetRowTime(const DataLogEntryRecord& entry)
{
    if (entry.GetStartTime().IsSet())
        return entry.GetStartTime().GetMilliSeconds();
    if (entry.GetEndTime().IsSet())
        return entry.GetEndTime().GetMilliSeconds();
    return TimePos::sNow().GetMilliSeconds();
}

bool PutRecord(DataLogFile& file, const DataLogEntryRecord& entry)
{
    return file.Put(GetRowTime(entry), entry.GetRawData(), entry.GetRawSize());
}

/// Merges the entry into the row of its unit, where there is one. Inside a transaction.
bool MergeIntoUnit(DataLogFile& file, const DataLogEntryTime& entry)
{
    const SLONG8 unit = static_cast<SLONG8>(entry.GetTimeUnit());
    std::unique_ptr<DataLogEntry> merged;
    Messages none;
    const bool usable = file.Read(unit, unit, 0, 0, 1, [&](SLONG8, const unsigned char* data, ULONG size) {
        merged.reset(entry.SpawnEntry(0, false));
        return merged->SetRawData(data, size) && entry.MergeInto(*merged, none);
    });
    const DataLogEntry* const row = merged ? merged.get() : &entry;
    return usable && file.Put(unit, row->GetRawData(), row->GetRawSize());
}

bool PutUnit(DataLogFile& file, const DataLogEntryTime& entry)
{
    DataLogFile::Transaction transaction(file);
    return transaction.HasBegun() && MergeIntoUnit(file, entry) && transaction.Commit();
}

} // namespace

DataLog::DataLog(KIND kind)
    : m_state(std::make_unique<STATE>(kind))
{
}

DataLog::~DataLog() = default;

void DataLog::SetSettings(bool enabled, unsigned long purgeSeconds, const FilePath& folder, const String& filePrefix,
                          const String& logName)
{
    std::lock_guard lock(m_state->mutex);
    m_state->file.reset();
    m_state->enabled = enabled;
    m_state->purgeSeconds = purgeSeconds;
    m_state->folder = folder;
    m_state->path = folder;
    m_state->path.MakeSafeForFileAppend(true);
    m_state->path += filePrefix + logName + ".db";
    m_state->OpenPreLocked();
}

bool DataLog::IsEnabled() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->enabled;
}

bool DataLog::AddEntry(const DataLogEntry& entry, Messages& /*messages*/)
{
    if (!IsEnabled())
        return false;
    const auto* const record = dynamic_cast<const DataLogEntryRecord*>(&entry);
    const auto* const time = dynamic_cast<const DataLogEntryTime*>(&entry);
    if (m_state->kind == KIND::RECORD ? !record : !time || time->GetTimeUnit() == 0)
        return false;

    std::lock_guard lock(m_state->mutex);
    if (!m_state->OpenPreLocked())
        return false;
    m_state->LearnClassPreLocked(entry);
    if (m_state->kind == KIND::RECORD)
        return PutRecord(*m_state->file, *record);
    // An entry that comes late calls for merging its minute and hour again.
    const auto unit = static_cast<std::uint32_t>(time->GetTimeUnit());
    m_state->mergedMinutesTo = std::min(m_state->mergedMinutesTo, unit);
    m_state->mergedHoursTo = std::min(m_state->mergedHoursTo, unit);
    return PutUnit(*m_state->file, *time);
}

bool DataLog::Query(const DataLogQuery& query, const ThreadEvent& cancel, const DataLogEntry& prototype,
                    DataLogResults& results, Messages& /*messages*/) const
{
    results.Reset();
    FilePath path;
    {
        std::lock_guard lock(m_state->mutex);
        if (!m_state->OpenPreLocked())
            return false;
        m_state->LearnClassPreLocked(prototype);
        path = m_state->path;
    }

    // A connection of its own reads the log as it is now, while others add to it and purge it.
    const auto file = DataLogFile::sOpen(path, m_state->GetTable(), DataLogFile::ACCESS::READ);
    if (!file || cancel.IsSet())
        return false;
    SLONG8 from = std::numeric_limits<SLONG8>::min();
    SLONG8 to = std::numeric_limits<SLONG8>::max();
    const bool byUnit = m_state->kind == KIND::TIME;
    const auto toRowTime = [byUnit](const TimePos& time) {
        return byUnit ? static_cast<SLONG8>(DataLogEntryTime::sConvertToTimeUnit(time)) : time.GetMilliSeconds();
    };
    if (query.GetStart().IsSet())
        from = toRowTime(query.GetStart());
    if (query.GetEnd().IsSet())
        to = toRowTime(query.GetEnd());

    const auto take = [&](SLONG8, const unsigned char* data, ULONG size) {
        std::unique_ptr<DataLogEntry> entry(prototype.SpawnEntry(0, false));
        if (cancel.IsSet() || !entry->SetRawData(data, size))
            return false;
        results.Give(entry.release());
        return true;
    };
    if (file->Read(from, to, prototype.GetRawSize(), query.GetFirst(), query.GetMaxCount(), take))
        return true;
    results.Reset();
    return false;
}

bool DataLog::STATE::OpenPreLocked()
{
    if (!enabled) {
        file.reset();
        return false;
    }
    if (file && file->IsBroken())
        file.reset();
    if (file)
        return true;
    if (!MakeFolders(folder))
        return false;
    file = DataLogFile::sOpen(path, GetTable(), DataLogFile::ACCESS::WRITE);
    mergedMinutesTo = 0;
    mergedHoursTo = 0;
    return file != nullptr;
}

void DataLog::STATE::LearnClassPreLocked(const DataLogEntry& entry)
{
    const bool fits = kind == KIND::RECORD ? dynamic_cast<const DataLogEntryRecord*>(&entry) != nullptr
                                           : dynamic_cast<const DataLogEntryTime*>(&entry) != nullptr;
    if (!prototype && fits)
        prototype.reset(entry.SpawnEntry(0, false));
}

} // namespace kqlib

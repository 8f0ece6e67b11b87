#include "tools/kq/LogReader.h"

#include "common/DataLogRecord.h"
#include "common/DataLogResults.h"
#include "common/DataLogTime.h"
#include "common/Messages.h"
#include "common/ThreadEvent.h"

#include <array>
#include <filesystem>
#include <iterator>

namespace kq {

using namespace kqlib;

namespace {

const char* const SESSIONS_LOG = "sessions";
const char* const ACTIVITY_LOG = "activity";

constexpr std::array<const char*, NetCounterBlock::COUNTER_COUNT> COUNTER_NAMES = {
    "CurrentConnectionsIn",
    "CurrentConnectionsOut",
    "ConnectionsIn",
    "ConnectionsOutSuccesses",
    "ConnectionsOutFails",
    "DataInBytes",
    "DataOutBytes",
    "CommandsIn",
    "CommandsOut",
    "SSLSuccesses",
    "SSLFails",
    "LoginSuccesses",
    "LoginFails",
    "DirsCreated",
    "DirsDeleted",
    "DirsMoved",
    "DirsRead",
    "FilesCreated",
    "FilesAppended",
    "FilesDeleted",
    "FilesMoved",
    "FilesRead",
};

/// Runs the query over one log. A log that is not there is not made.
bool Query(DataLog& log, const LOGPLACE& place, const char* name, const DataLogQuery& query,
           const DataLogEntry& prototype, DataLogResults& results)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(std::filesystem::path(place.folder) / (place.prefix + name + ".db"), error))
        return false;
    log.SetSettings(true, 0, FilePath(String(place.folder)), String(place.prefix), String(name));
    const ThreadEvent never;
    Messages messages;
    return log.Query(query, never, prototype, results, messages);
}

bool IsWanted(const NetSessionStatus& session, const SESSIONFILTER& filter)
{
    if (!filter.user.empty() && session.GetUser() != String(filter.user))
        return false;
    return filter.address.empty() || session.GetRemoteIP() == NetIP(String(filter.address));
}

} // namespace

const char* CounterName(NetCounterBlock::COUNTER counter)
{
    return COUNTER_NAMES[counter];
}

bool CounterByName(const std::string& name, NetCounterBlock::COUNTER& counter)
{
    for (std::uint32_t index = 0; index < COUNTER_NAMES.size(); ++index) {
        if (name == COUNTER_NAMES[index]) {
            counter = static_cast<NetCounterBlock::COUNTER>(index);
            return true;
        }
    }
    return false;
}

bool ReadSessions(const LOGPLACE& place, const DataLogQuery& query, const SESSIONFILTER& filter,
                  std::vector<NetSessionStatus>& sessions)
{
    sessions.clear();
    DataLogQuery times;
    times.SetStart(query.GetStart());
    times.SetEnd(query.GetEnd());
    DataLogRecord log;
    DataLogResults results;
    if (!Query(log, place, SESSIONS_LOG, times, NetSessionStatus(), results))
        return false;
    ULONG passedOver = 0;
    for (ULONG index = 0; index < results.GetCount(); ++index) {
        const auto& session = static_cast<const NetSessionStatus&>(results.Get(index));
        if (!IsWanted(session, filter) || passedOver++ < query.GetFirst())
            continue;
        if (query.GetMaxCount() != 0 && sessions.size() == query.GetMaxCount())
            break;
        sessions.push_back(session);
    }
    return true;
}

bool ReadActivity(const LOGPLACE& place, const DataLogQuery& query, std::vector<NetSessionActivity>& entries)
{
    entries.clear();
    DataLogTime log;
    DataLogResults results;
    if (!Query(log, place, ACTIVITY_LOG, query, NetSessionActivity(), results))
        return false;
    for (ULONG index = 0; index < results.GetCount(); ++index)
        entries.push_back(static_cast<const NetSessionActivity&>(results.Get(index)));
    return true;
}

std::vector<NetSessionActivity> FoldActivity(const std::vector<NetSessionActivity>& entries, std::uint32_t step)
{
    std::vector<NetSessionActivity> periods;
    Messages none;
    for (const NetSessionActivity& entry : entries) {
        const ULONG start = entry.GetTimeUnit() / step * step;
        if (periods.empty() || periods.back().GetTimeUnit() != start) {
            periods.emplace_back();
            periods.back().SetTimeUnit(start);
        }
        entry.MergeInto(periods.back(), none);
    }
    return periods;
}

std::uint32_t ChooseStep(const std::vector<NetSessionActivity>& entries, std::uint32_t maxPeriods)
{
    constexpr std::uint32_t STEPS[] = {1,   5,    10,   15,    30,    60,    300,   600,
                                       900, 1800, 3600, 10800, 21600, 43200, 86400, 604800};
    for (const std::uint32_t step : STEPS)
        if (entries.empty() || entries.back().GetTimeUnit() / step - entries.front().GetTimeUnit() / step < maxPeriods)
            return step;
    return STEPS[std::size(STEPS) - 1];
}

} // namespace kq

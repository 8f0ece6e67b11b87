// LogReader: reads the session log and the activity log of a service that runs or has stopped.
#pragma once

#include "common/DataLogQuery.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kq {

/// Where the logs are: <folder>/<prefix>sessions.db and <folder>/<prefix>activity.db.
struct LOGPLACE
{
    std::string folder;
    std::string prefix = "kqftpd-";
};

/// Which sessions are wanted beyond their time. Empty texts and 0 mean any.
struct SESSIONFILTER
{
    std::string user;
    std::string address; ///< of the client, as text
};

/// The name of a counter in tables and files, for example "DataInBytes". Counts are in the order of the logs.
const char* CounterName(kqlib::NetCounterBlock::COUNTER counter);
/// The counter of that name; false when there is none.
bool CounterByName(const std::string& name, kqlib::NetCounterBlock::COUNTER& counter);

/// The sessions of the query's times, by their start, oldest first. The query's first and count apply to those that
/// pass the filter. False: the log is not there or cannot be read; nothing is made.
bool ReadSessions(const LOGPLACE& place, const kqlib::DataLogQuery& query, const SESSIONFILTER& filter,
                  std::vector<kqlib::NetSessionStatus>& sessions);

/// The activity of the query's times, oldest first, as it is kept: seconds, and minutes and hours once it is older.
/// False as above.
bool ReadActivity(const LOGPLACE& place, const kqlib::DataLogQuery& query,
                  std::vector<kqlib::NetSessionActivity>& entries);

/// Folds entries, which are in the order of their times, into periods of step seconds that start at multiples of it:
/// counters add, the current connections take the larger value. Periods in which nothing happened are left out.
std::vector<kqlib::NetSessionActivity> FoldActivity(const std::vector<kqlib::NetSessionActivity>& entries,
                                                    std::uint32_t step);

/// The shortest of the usual lengths (1 s to 7 days) by which the entries make at most maxPeriods periods.
std::uint32_t ChooseStep(const std::vector<kqlib::NetSessionActivity>& entries, std::uint32_t maxPeriods);

} // namespace kq

// DataLogTime: a data log with a row per time unit.
#pragma once

#include "common/DataLog.h"

namespace kqlib {

/// Takes DataLogEntryTime entries; an entry for a unit already held is merged into its row (counters add, the
/// current-connection counters take the larger value). Purging merges rows older than two days into minutes, older than
/// sixty days into hours, each at the first unit of its minute or hour, and drops those older than 400 days; sums over
/// any period that starts and ends at such a border stay what they were.
class KQCOMMON_API DataLogTime : public DataLog
{
public:
    /// Disabled until SetSettings.
    DataLogTime();
};

} // namespace kqlib

// DataLogRecord: a data log with a row per entry.
#pragma once

#include "common/DataLog.h"

namespace kqlib {

/// Takes DataLogEntryRecord entries, ordered by start time; rows older than 400 days are purged.
class KQCOMMON_API DataLogRecord : public DataLog
{
public:
    /// Disabled until SetSettings.
    DataLogRecord();
};

} // namespace kqlib

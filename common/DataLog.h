// DataLog: the append-only log of binary records, a database file.
#pragma once

#include "common/DataLogEntry.h"
#include "common/DataLogQuery.h"
#include "common/DataLogResults.h"
#include "common/FilePath.h"
#include "common/ThreadEvent.h"

#include <memory>

namespace kqlib {

class DataLogPurge;

/// One SQLite database <folder>/<prefix><name>.db. Disabled until SetSettings.
///
/// Ownership: owns the connection. Threads: any thread. Errors: by result; AddEntry that answered true is safe against
/// the death of the process; a write that fails loses nothing that was stored. Another process may read meanwhile.
class KQCOMMON_API DataLog
{
public:
    virtual ~DataLog();
    DataLog(const DataLog&) = delete;
    DataLog& operator=(const DataLog&) = delete;

    /// enabled: false closes the file. purgeSeconds: how often a DataLogPurge looks at this log. The file is opened, or
    /// made, here; when that fails every AddEntry tries again.
    void SetSettings(bool enabled, unsigned long purgeSeconds, const FilePath& folder, const String& filePrefix,
                     const String& logName);
    bool IsEnabled() const;

    /// Stores a copy of the entry. False, without a message, when the log is disabled or the write failed.
    bool AddEntry(const DataLogEntry& entry, Messages& messages);

    /// Gives every entry that matches, oldest first, to results as entries of prototype's class; sees all entries added
    /// before the call. True also when none matches. False: disabled, unreadable, or cancel was set on the way.
    bool Query(const DataLogQuery& query, const ThreadEvent& cancel, const DataLogEntry& prototype,
               DataLogResults& results, Messages& messages) const;

protected:
    enum class KIND
    {
        RECORD,
        TIME
    };
    explicit DataLog(KIND kind);

private:
    friend class DataLogPurge;
    struct STATE;
    std::unique_ptr<STATE> m_state;
};

} // namespace kqlib

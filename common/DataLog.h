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

/// One SQLite database `<folder>/<prefix><name>.db`. Disabled until SetSettings. A file that is made can be read by its
/// owner and group only.
///
/// Ownership: owns the connection. Threads: any thread; a query does not hinder those that add. Errors: by result;
/// AddEntry that answered true is safe against the death of the process (a power failure may take the last entries); a
/// write that fails loses nothing that was stored. Another process may read meanwhile.
/// The log learns the class of its entries, which it needs to merge stored rows, from the first entry added or the
/// first query's prototype: all entries of one log are of one class.
class KQCOMMON_API DataLog
{
public:
    /// Closes the file.
    virtual ~DataLog();
    DataLog(const DataLog&) = delete;
    DataLog& operator=(const DataLog&) = delete;

    /// enabled: false closes the file. purgeSeconds: how often a DataLogPurge looks at this log, 0 = never. The file is
    /// opened here, it and its folder are made when missing; when that fails every AddEntry and Query tries again.
    void SetSettings(bool enabled, unsigned long purgeSeconds, const FilePath& folder, const String& filePrefix,
                     const String& logName);
    /// Whether it was enabled last; not whether its file could be opened.
    bool IsEnabled() const;

    /// Stores a copy of the entry. False, without a message, when the log is disabled, the entry is not of the log's
    /// kind or without a time unit, or the write failed.
    bool AddEntry(const DataLogEntry& entry, Messages& messages);

    /// Fills results, emptied first, with every entry that matches, oldest first, as entries of prototype's class; rows
    /// of another size are none. Sees all entries added before the call, and the log as it was at one moment. True also
    /// when none matches. False: disabled, unreadable, or cancel was set on the way; results is empty.
    bool Query(const DataLogQuery& query, const ThreadEvent& cancel, const DataLogEntry& prototype,
               DataLogResults& results, Messages& messages) const;

protected:
    /// What the entries are, and so how they are stored; set once at construction.
    enum class KIND
    {
        RECORD, ///< DataLogEntryRecord: one row per entry
        TIME    ///< DataLogEntryTime: one row per time unit
    };
    /// Disabled: the constructor opens nothing.
    explicit DataLog(KIND kind);

private:
    friend class DataLogPurge;
    struct STATE;

    std::unique_ptr<STATE> m_state;
};

} // namespace kqlib

// DataLogState: the inside of a data log, shared with the purger. Inside the library only.
#pragma once

#include "common/DataLog.h"
#include "common/DataLogFile.h"

#include <cstdint>
#include <memory>
#include <mutex>

namespace kqlib {

/// Everything but the kind is guarded by the mutex, which is held for one short transaction at a time.
struct DataLog::STATE
{
    /// Disabled.
    explicit STATE(KIND kindOfLog)
        : kind(kindOfLog)
    {
    }

    /// The table that this kind of log uses.
    DataLogFile::TABLE GetTable() const
    {
        return kind == KIND::RECORD ? DataLogFile::TABLE::RECORDS : DataLogFile::TABLE::UNITS;
    }
    /// True when the log is enabled and its file open, which is tried once where it is not.
    bool OpenPreLocked();
    /// Keeps an empty entry of the class of the first one seen.
    void LearnClassPreLocked(const DataLogEntry& entry);

    const KIND kind;                         ///< set once at construction
    std::mutex mutex;                        ///< guards what follows
    bool enabled = false;                    ///< as of the last SetSettings, as the next three
    ULONG purgeSeconds = 0;                  ///< how often a purger looks at the log, 0 = never
    FilePath folder;                         ///< of the file
    FilePath path;                           ///< the file: folder, prefix, name, ".db"
    std::unique_ptr<DataLogFile> file;       ///< null when it is not open
    std::unique_ptr<DataLogEntry> prototype; ///< null until a class is known

    /// Time units before these need not be looked at any more: they are merged into minutes, and into hours.
    ///@{
    std::uint32_t mergedMinutesTo = 0;
    std::uint32_t mergedHoursTo = 0;
    ///@}
};

} // namespace kqlib

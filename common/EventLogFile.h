// EventLogFile: the file behind an event log. Inside the library only.
#pragma once

#include "common/FilePath.h"
#include "common/Types.h"
#include "platform/Clock.h"
#include "platform/Files.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kqlib {

/// Appends whole lines to one file, and names the old files of a log.
///
/// Ownership: owns the handle. Threads: one at a time. Errors: by result.
class EventLogFile
{
public:
    /// Opens the file for appending. One that is made can be read by its owner and group only. Null when it cannot be
    /// had.
    static std::unique_ptr<EventLogFile> sOpen(const FilePath& path);
    /// Closes the file.
    ~EventLogFile();
    EventLogFile(const EventLogFile&) = delete;
    EventLogFile& operator=(const EventLogFile&) = delete;

    /// Appends the line and an LF. Where the file ends within a line, because its volume was full or its writer died,
    /// an LF goes first. False: the line is not there, or only its beginning.
    bool WriteLine(std::string line);
    /// Bytes in the file, as far as this object has seen.
    ULONG8 GetSize() const { return m_size; }
    /// The local day (see sGetDay) on which the file was written last; 0 when it is empty or that is unknown.
    int GetDay() const { return m_day; }
    /// Tells the day of the line that comes next.
    void SetDay(int day) { m_day = day; }
    /// Whether the path still names this file.
    bool IsInPlace() const { return platform::IsFileAt(m_handle, m_path.c_str()); }

    /// A day as a number that grows: 20261122.
    static int sGetDay(const platform::CalendarTime& time) { return (time.year * 100 + time.month) * 100 + time.day; }
    /// Moves the file out of the way: it becomes path.1, path.1 becomes path.2 and so on; those past number keep are
    /// deleted; with keep 0 the file itself is emptied. False: nothing was lost, the file is where it was.
    static bool sRotate(const FilePath& path, ULONG keep);

private:
    explicit EventLogFile(const FilePath& path);

    bool xOpen();
    bool xEndsWithinLine() const;

    const FilePath m_path;
    platform::FileHandle m_handle = platform::INVALID_FILE_HANDLE;
    std::uint64_t m_size = 0;
    int m_day = 0;
    bool m_withinLine = false; ///< the file does not end with an LF
};

} // namespace kqlib

// LineLog: lines of a host's own form in a file that is rotated and reopened.
#pragma once

#include "common/EventLogSettings.h"
#include "common/TimePos.h"

#include <functional>
#include <memory>

namespace kqlib {

/// Appends lines to a file, for logs that other programs read: the form of the lines is the host's, everything about
/// the file is as EventLogSettings say, rotation and reopening included. EventLog writes its own lines by this class.
/// Call SetSettings first; nothing is written before.
///
/// A file that is made can be read by its owner and group only. A line goes to the system at once. One that finds the
/// volume full may lose its end; the next one begins on a line of its own all the same.
///
/// Ownership: owns the file. Threads: any thread. Errors: a line that cannot be written is dropped; nothing throws.
class KQCOMMON_API LineLog
{
public:
    /// Makes a line without its end, for the moment that it is written at. It must not hold a line feed that a peer may
    /// have chosen, and must not use the log: its lock is held.
    using MAKE_LINE = std::function<String(const TimePos& now)>;

    /// Disabled.
    LineLog();
    /// Closes the file.
    ~LineLog();
    LineLog(const LineLog&) = delete;
    LineLog& operator=(const LineLog&) = delete;

    /// Appends a line. makeLine is called when the line's turn has come, so that lines stand in the order of their
    /// times; it is not called while the log is disabled or has no file.
    void Print(const MAKE_LINE& makeLine);
    /// Returns after every line printed before it has gone to the system.
    void Purge();

    /// Closes the file in use and goes on as told, in the file `<folder>/<file name>`, the folder made when missing. A
    /// file that cannot be had drops the lines and is tried again every five seconds while lines come. Debug lines are
    /// the host's affair.
    void SetSettings(const EventLogSettings& settings);
    /// The settings last given.
    void GetSettings(EventLogSettings& out) const;
    /// Goes on in the file that the path names now, made when missing: call it after the file was moved. True when it
    /// could be had. False: lines go on to the file in use before, if there was one, or the log is disabled. No line
    /// that other threads print meanwhile is lost.
    bool Reopen();
    /// Whether there is a file that lines go to. False also for a disabled log.
    bool IsOpen() const;
    /// Whether the settings ask for lines. Takes no lock.
    bool IsEnabled() const;

private:
    struct STATE;
    std::unique_ptr<STATE> m_state;
};

} // namespace kqlib

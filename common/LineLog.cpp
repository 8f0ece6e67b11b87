// LineLog: lines of a host's own form in a file that is rotated and reopened.
#include "common/LineLog.h"

#include "common/EventLogFile.h"
#include "common/LocalTime.h"
#include "common/NativePath.h"
#include "common/TimedEvent.h"
#include "common/WithinMemory.h"

#include <atomic>
#include <cstddef>
#include <mutex>
#include <utility>

namespace kqlib {

namespace {

/// After a failure to open or rotate the file, it is not tried again for this long.
constexpr ULONG REOPEN_PAUSE_MS = 5000;

FilePath GetPath(const EventLogSettings& settings)
{
    FilePath path = settings.GetFolder();
    path.MakeSafeForFileAppend(true);
    path += settings.GetFileName();
    return path;
}

/// Opens the file for appending, its folder made when missing. Null when it cannot be had.
std::unique_ptr<EventLogFile> OpenFile(const EventLogSettings& settings)
{
    std::unique_ptr<EventLogFile> file;
    static_cast<void>(RunWithinMemory([&] {
        if (!settings.GetFileName().empty() && MakeFolders(settings.GetFolder()))
            file = EventLogFile::sOpen(GetPath(settings));
    }));
    return file;
}

} // namespace

/// Everything but the switch is guarded by the mutex; a line is written under it, so that the lines stand in the
/// order of their times.
struct LineLog::STATE
{
    void UsePreLocked(const EventLogSettings& newSettings);
    bool ReopenPreLocked();
    bool OpenPreLocked();
    bool RotatePreLocked(std::size_t lineSize, int day);
    void Write(const MAKE_LINE& makeLine);

    std::atomic<bool> enabled = false; ///< as in settings, asked for without the lock
    std::mutex mutex;
    EventLogSettings settings;
    std::unique_ptr<EventLogFile> file;         ///< null when it is not open
    TimedEvent retry{0, REOPEN_PAUSE_MS, true}; ///< whether opening and rotating may be tried; restarted by a failure
};

void LineLog::STATE::UsePreLocked(const EventLogSettings& newSettings)
{
    file.reset();
    retry = TimedEvent(0, REOPEN_PAUSE_MS, true);
    settings = newSettings;
    enabled = settings.GetEnabled();
    OpenPreLocked();
}

/// Goes on in the file that the path names now. False: the file in use stays, if there is one.
bool LineLog::STATE::ReopenPreLocked()
{
    auto opened = OpenFile(settings);
    if (!opened) {
        retry.Restart(TimedEvent::sGetNow());
        return false;
    }
    file = std::move(opened);
    return true;
}

/// True when lines can be written.
bool LineLog::STATE::OpenPreLocked()
{
    if (!settings.GetEnabled())
        return false;
    if (file && !settings.GetReopenWhenMoved())
        return true;
    if (retry.IsTriggered(TimedEvent::sGetNow()) && (!file || !file->IsInPlace()))
        ReopenPreLocked();
    return file != nullptr;
}

/// Moves a file out of the way that has no room for a line of lineSize bytes, or is of a day before. False: that would
/// be due, and could not be done.
bool LineLog::STATE::RotatePreLocked(std::size_t lineSize, int day)
{
    const ULONG8 most = settings.GetRotateBytes();
    const bool full = most != 0 && file->GetSize() + lineSize > most;
    const bool old = settings.GetRotateDaily() && file->GetDay() < day;
    if (file->GetSize() == 0 || (!full && !old))
        return true;
    if (!retry.IsTriggered(TimedEvent::sGetNow()))
        return false;
    // Where the file was moved already, by somebody else or by a try before, there is only a new one to be begun.
    if (!file->IsInPlace() || EventLogFile::sRotate(GetPath(settings), settings.GetOldFiles()))
        return ReopenPreLocked();
    retry.Restart(TimedEvent::sGetNow());
    return false;
}

/// Writes what makeLine gives, or nothing where there is no memory for it.
void LineLog::STATE::Write(const MAKE_LINE& makeLine)
{
    static_cast<void>(RunWithinMemory([&] {
        const std::lock_guard lock(mutex);
        if (!OpenPreLocked())
            return;
        const TimePos now = TimePos::sNow();
        const int day = EventLogFile::sGetDay(GetLocalTime(now));
        const String line = makeLine(now);
        if (RotatePreLocked(line.size() + 1, day))
            file->SetDay(day);
        // It goes to the system at once, so that the death of the process takes no line. One that cannot be written is
        // dropped.
        static_cast<void>(file->WriteLine(line.str()));
    }));
}

LineLog::LineLog()
    : m_state(std::make_unique<STATE>())
{
}

LineLog::~LineLog() = default;

void LineLog::Print(const MAKE_LINE& makeLine)
{
    if (m_state->enabled)
        m_state->Write(makeLine);
}

void LineLog::Purge()
{
    // Each line has gone to the system when the lock is free again.
    const std::lock_guard lock(m_state->mutex);
}

void LineLog::SetSettings(const EventLogSettings& settings)
{
    const std::lock_guard lock(m_state->mutex);
    m_state->UsePreLocked(settings);
}

void LineLog::GetSettings(EventLogSettings& out) const
{
    const std::lock_guard lock(m_state->mutex);
    out = m_state->settings;
}

bool LineLog::Reopen()
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->settings.GetEnabled() && m_state->ReopenPreLocked();
}

bool LineLog::IsOpen() const
{
    const std::lock_guard lock(m_state->mutex);
    return m_state->file != nullptr;
}

bool LineLog::IsEnabled() const
{
    return m_state->enabled;
}

} // namespace kqlib

#include "common/EventLog.h"

#include "common/EventLogFile.h"
#include "common/NativePath.h"
#include "common/TimePos.h"
#include "common/TimedEvent.h"
#include "common/WithinMemory.h"
#include "platform/Clock.h"

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace kqlib {

namespace {

/// After a failure to open or rotate the file, it is not tried again for this long.
constexpr ULONG REOPEN_PAUSE_MS = 5000;

constexpr char FIELD_SEPARATOR = '\t';

/// Appends a separator and the text, its control characters as "%" and two hexadecimal digits.
void AppendField(std::string& line, const String& text)
{
    line += FIELD_SEPARATOR;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte != 0x7F) {
            line += character;
            continue;
        }
        char high = 0;
        char low = 0;
        String::sToHex(character, high, low);
        line += '%';
        line += high;
        line += low;
    }
}

/// "address:port", an IPv6 address in brackets; empty for the unset address with port 0.
String GetEndText(const NetIP& ip, USHORT port)
{
    if (ip == NetIP() && port == 0)
        return {};
    const String address = ip.IsIP4() ? ip.GetText() : "[" + ip.GetText() + "]";
    return address + ":" + String::sToString(port);
}

String GetSessionText(const EventLogSessionID& id)
{
    char text[2 * 8 + 2];
    std::snprintf(text, sizeof text, "%08lX-%08lX", id.GetSession(), id.GetThread());
    return text;
}

/// The current local time, or UTC when the system cannot tell the local one.
platform::CalendarTime GetTime()
{
    const SLONG8 now = TimePos::sNow().GetMilliSeconds();
    platform::CalendarTime time = {};
    if (!platform::ToLocalTime(now, time))
        platform::ToUtcTime(now, time);
    return time;
}

/// The first field.
std::string GetTimeText(const platform::CalendarTime& time)
{
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", time.year, time.month, time.day, time.hour,
                  time.minute, time.second, time.millisecond);
    return text;
}

/// What follows the time: the other seven fields.
std::string MakeFields(const char* kind, const String& session, const String& remote, const String& local,
                       const String& event, const String& detail, const String& comment)
{
    std::string fields;
    fields.reserve(128 + event.size() + detail.size() + comment.size());
    AppendField(fields, kind);
    AppendField(fields, session);
    AppendField(fields, remote);
    AppendField(fields, local);
    AppendField(fields, event);
    AppendField(fields, detail);
    AppendField(fields, comment);
    return fields;
}

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

/// Everything but the two switches is guarded by the mutex; a line is written under it, so that the lines stand in the
/// order of their times.
struct EventLog::STATE
{
    void UsePreLocked(const EventLogSettings& newSettings);
    bool ReopenPreLocked();
    bool OpenPreLocked();
    bool RotatePreLocked(std::size_t lineSize, int day);
    template <class MAKE_FIELDS> void Write(const MAKE_FIELDS& makeFields);

    /// As in settings, asked for without the lock: a line that nobody keeps is not even put together.
    ///@{
    std::atomic<bool> enabled = false;
    std::atomic<bool> debug = false;
    ///@}
    std::mutex mutex;
    EventLogSettings settings;
    std::unique_ptr<EventLogFile> file;         ///< null when it is not open
    TimedEvent retry{0, REOPEN_PAUSE_MS, true}; ///< whether opening and rotating may be tried; restarted by a failure
};

void EventLog::STATE::UsePreLocked(const EventLogSettings& newSettings)
{
    file.reset();
    retry = TimedEvent(0, REOPEN_PAUSE_MS, true);
    settings = newSettings;
    enabled = settings.GetEnabled();
    debug = settings.GetUsePrintDebug();
    OpenPreLocked();
}

/// Goes on in the file that the path names now. False: the file in use stays, if there is one.
bool EventLog::STATE::ReopenPreLocked()
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
bool EventLog::STATE::OpenPreLocked()
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
bool EventLog::STATE::RotatePreLocked(std::size_t lineSize, int day)
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

/// Writes what makeFields gives, or nothing where there is no memory for it.
template <class MAKE_FIELDS> void EventLog::STATE::Write(const MAKE_FIELDS& makeFields)
{
    static_cast<void>(RunWithinMemory([&] {
        const std::string fields = makeFields();
        std::lock_guard lock(mutex);
        if (!OpenPreLocked())
            return;
        const platform::CalendarTime time = GetTime();
        std::string line = GetTimeText(time) + fields;
        const int day = EventLogFile::sGetDay(time);
        if (RotatePreLocked(line.size() + 1, day))
            file->SetDay(day);
        // It goes to the system at once, so that the death of the process takes no line. One that cannot be written is
        // dropped.
        static_cast<void>(file->WriteLine(std::move(line)));
    }));
}

EventLog::EventLog()
    : m_state(std::make_unique<STATE>())
{
}

EventLog::~EventLog() = default;

void EventLog::PrintServiceNormal(const String& event, const String& detail, const String& comment)
{
    if (m_state->enabled)
        m_state->Write([&] { return MakeFields("Service", {}, {}, {}, event, detail, comment); });
}

void EventLog::PrintIPNormal(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local,
                             USHORT localPort, const String& event, const String& detail, const String& comment)
{
    if (m_state->enabled)
        m_state->Write([&] {
            return MakeFields("Normal", GetSessionText(id), GetEndText(remote, remotePort),
                              GetEndText(local, localPort), event, detail, comment);
        });
}

void EventLog::PrintIPDebug(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local, USHORT localPort,
                            const String& event, const String& detail, const String& comment)
{
    if (m_state->enabled && m_state->debug)
        m_state->Write([&] {
            return MakeFields("Debug", GetSessionText(id), GetEndText(remote, remotePort), GetEndText(local, localPort),
                              event, detail, comment);
        });
}

void EventLog::PrintPurge()
{
    // Each line has gone to the system when the lock is free again.
    const std::lock_guard lock(m_state->mutex);
}

void EventLog::SetSettings(const EventLogSettings& settings)
{
    std::lock_guard lock(m_state->mutex);
    m_state->UsePreLocked(settings);
}

void EventLog::GetSettings(EventLogSettings& out) const
{
    std::lock_guard lock(m_state->mutex);
    out = m_state->settings;
}

bool EventLog::Reopen()
{
    std::lock_guard lock(m_state->mutex);
    return m_state->settings.GetEnabled() && m_state->ReopenPreLocked();
}

bool EventLog::IsOpen() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->file != nullptr;
}

} // namespace kqlib

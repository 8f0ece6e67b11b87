#include "common/EventLog.h"

// The file is not inherited by child processes; its name may hold any character on Windows.
#define SPDLOG_PREVENT_CHILD_FD
#define SPDLOG_WCHAR_FILENAMES

#include "common/NativePath.h"
#include "common/TimePos.h"
#include "common/TimedEvent.h"
#include "common/WithinMemory.h"
#include "platform/Clock.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <atomic>
#include <cstdio>
#include <exception>
#include <mutex>
#include <string>
#include <utility>

namespace kqlib {

namespace {

/// After a failure to open the file, lines are dropped for this long before it is tried again.
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

/// The first field: the current local time, or UTC when the system cannot tell the local one.
std::string GetTimeText()
{
    const TimePos now = TimePos::sNow();
    platform::CalendarTime local = {};
    if (!platform::ToLocalTime(now.GetMilliSeconds(), local))
        return now.GetText().str();
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", local.year, local.month, local.day,
                  local.hour, local.minute, local.second, local.millisecond);
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

/// Opens the file for appending, its folder made when missing. Null when it cannot be had.
std::unique_ptr<spdlog::logger> OpenLogger(const EventLogSettings& settings)
{
    FilePath path = settings.GetFolder();
    path.MakeSafeForFileAppend(true);
    path += settings.GetFileName();
    try {
        if (settings.GetFileName().empty() || !MakeFolders(settings.GetFolder()))
            return nullptr;
        const spdlog::filename_t name = ToNativePath(path).native();
        // Not registered by name: any number of logs may be open. The log's own mutex guards the sink.
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_st>(name);
        sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, "\n"));
        auto logger = std::make_unique<spdlog::logger>(std::string(), std::move(sink));
        // A line that cannot be written is dropped.
        logger->set_error_handler([](const std::string&) {});
        // Every line goes to the system at once, so that the death of the process takes none.
        logger->flush_on(spdlog::level::trace);
        return logger;
    } catch (const std::exception&) {
        return nullptr;
    }
}

} // namespace

/// Everything but enabled is guarded by the mutex; a line is written under it, so that the lines stand in the order of
/// their times.
struct EventLog::STATE
{
    bool OpenPreLocked();
    template <class MAKE_FIELDS> void Write(const MAKE_FIELDS& makeFields);

    std::atomic<bool> enabled = false; ///< as in settings: a line that nobody keeps is not even put together
    std::mutex mutex;
    EventLogSettings settings;
    std::unique_ptr<spdlog::logger> logger;     ///< null when the file is not open
    TimedEvent retry{0, REOPEN_PAUSE_MS, true}; ///< whether opening may be tried; restarted when it failed
};

/// True when lines can be written.
bool EventLog::STATE::OpenPreLocked()
{
    if (logger || !settings.GetEnabled())
        return logger != nullptr;
    if (!retry.IsTriggered(TimedEvent::sGetNow()))
        return false;
    logger = OpenLogger(settings);
    if (!logger)
        retry.Restart(TimedEvent::sGetNow());
    return logger != nullptr;
}

/// Writes what makeFields gives, or nothing where there is no memory for it.
template <class MAKE_FIELDS> void EventLog::STATE::Write(const MAKE_FIELDS& makeFields)
{
    static_cast<void>(RunWithinMemory([&] {
        const std::string fields = makeFields();
        std::lock_guard lock(mutex);
        if (!OpenPreLocked())
            return;
        const std::string line = GetTimeText() + fields;
        // This form takes the text as it is: it is no format.
        logger->log(spdlog::level::info, spdlog::string_view_t(line));
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
    if (!m_state->enabled)
        return;
    {
        std::lock_guard lock(m_state->mutex);
        if (!m_state->settings.GetUsePrintDebug())
            return;
    }
    m_state->Write([&] {
        return MakeFields("Debug", GetSessionText(id), GetEndText(remote, remotePort), GetEndText(local, localPort),
                          event, detail, comment);
    });
}

void EventLog::PrintPurge()
{
    std::lock_guard lock(m_state->mutex);
    if (m_state->logger)
        m_state->logger->flush();
}

void EventLog::SetSettings(const EventLogSettings& settings)
{
    std::lock_guard lock(m_state->mutex);
    m_state->logger.reset();
    m_state->retry = TimedEvent(0, REOPEN_PAUSE_MS, true);
    m_state->settings = settings;
    m_state->enabled = settings.GetEnabled();
    m_state->OpenPreLocked();
}

void EventLog::GetSettings(EventLogSettings& out) const
{
    std::lock_guard lock(m_state->mutex);
    out = m_state->settings;
}

} // namespace kqlib

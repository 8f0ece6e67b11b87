#include "common/EventLog.h"

#include "common/LineLog.h"
#include "common/LocalTime.h"
#include "common/TimePos.h"
#include "common/WithinMemory.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>

namespace kqlib {

namespace {

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

} // namespace

struct EventLog::STATE
{
    template <class MAKE_FIELDS> void Write(const MAKE_FIELDS& makeFields);

    LineLog lines;
    std::atomic<bool> debug = false; ///< as in the settings: a line that nobody keeps is not even put together
};

/// Writes what makeFields gives, or nothing where there is no memory for it.
template <class MAKE_FIELDS> void EventLog::STATE::Write(const MAKE_FIELDS& makeFields)
{
    static_cast<void>(RunWithinMemory([&] {
        const std::string fields = makeFields();
        lines.Print([&fields](const TimePos& now) { return String(GetTimeText(GetLocalTime(now)) + fields); });
    }));
}

EventLog::EventLog()
    : m_state(std::make_unique<STATE>())
{
}

EventLog::~EventLog() = default;

void EventLog::PrintServiceNormal(const String& event, const String& detail, const String& comment)
{
    if (m_state->lines.IsEnabled())
        m_state->Write([&] { return MakeFields("Service", {}, {}, {}, event, detail, comment); });
}

void EventLog::PrintIPNormal(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local,
                             USHORT localPort, const String& event, const String& detail, const String& comment)
{
    if (m_state->lines.IsEnabled())
        m_state->Write([&] {
            return MakeFields("Normal", GetSessionText(id), GetEndText(remote, remotePort),
                              GetEndText(local, localPort), event, detail, comment);
        });
}

void EventLog::PrintIPDebug(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local, USHORT localPort,
                            const String& event, const String& detail, const String& comment)
{
    if (m_state->lines.IsEnabled() && m_state->debug)
        m_state->Write([&] {
            return MakeFields("Debug", GetSessionText(id), GetEndText(remote, remotePort), GetEndText(local, localPort),
                              event, detail, comment);
        });
}

void EventLog::PrintPurge()
{
    m_state->lines.Purge();
}

void EventLog::SetSettings(const EventLogSettings& settings)
{
    m_state->debug = settings.GetUsePrintDebug();
    m_state->lines.SetSettings(settings);
}

void EventLog::GetSettings(EventLogSettings& out) const
{
    m_state->lines.GetSettings(out);
}

bool EventLog::Reopen()
{
    return m_state->lines.Reopen();
}

bool EventLog::IsOpen() const
{
    return m_state->lines.IsOpen();
}

} // namespace kqlib

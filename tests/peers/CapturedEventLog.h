// CapturedEventLog: an event log that keeps its events in memory, for tests.
#pragma once

#include "common/EventLog.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace kqlib::test {

/// Keeps every event in the order of arrival. Any thread.
class CapturedEventLog : public EventLog
{
public:
    struct EVENT
    {
        char kind; ///< 'S'ervice, 'N'ormal, 'D'ebug, 'P'urge
        EventLogSessionID id;
        NetIP remote;
        USHORT remotePort = 0;
        NetIP local;
        USHORT localPort = 0;
        String event;
        String detail;
        String comment;
    };

    void PrintServiceNormal(const String& event, const String& detail, const String& comment) override
    {
        xKeep({'S', {}, {}, 0, {}, 0, event, detail, comment});
    }
    void PrintIPNormal(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local, USHORT localPort,
                       const String& event, const String& detail, const String& comment) override
    {
        xKeep({'N', id, remote, remotePort, local, localPort, event, detail, comment});
    }
    void PrintIPDebug(const EventLogSessionID& id, NetIP remote, USHORT remotePort, NetIP local, USHORT localPort,
                      const String& event, const String& detail, const String& comment) override
    {
        xKeep({'D', id, remote, remotePort, local, localPort, event, detail, comment});
    }
    void PrintPurge() override { xKeep({'P', {}, {}, 0, {}, 0, "Purge", "", ""}); }

    std::vector<EVENT> GetEvents() const
    {
        const std::lock_guard lock(m_mutex);
        return m_events;
    }
    /// "event|detail|comment" of the service events, in order.
    std::vector<std::string> GetServiceTexts() const
    {
        std::vector<std::string> texts;
        for (const EVENT& event : GetEvents())
            if (event.kind == 'S')
                texts.push_back(event.event.str() + "|" + event.detail.str() + "|" + event.comment.str());
        return texts;
    }
    /// How many events have that text.
    std::size_t Count(const String& text) const
    {
        const std::lock_guard lock(m_mutex);
        return static_cast<std::size_t>(
            std::count_if(m_events.begin(), m_events.end(), [&](const EVENT& event) { return event.event == text; }));
    }
    void Clear()
    {
        const std::lock_guard lock(m_mutex);
        m_events.clear();
    }

private:
    void xKeep(const EVENT& event)
    {
        const std::lock_guard lock(m_mutex);
        m_events.push_back(event);
    }

    mutable std::mutex m_mutex;
    std::vector<EVENT> m_events;
};

} // namespace kqlib::test

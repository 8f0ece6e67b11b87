// EventLogSessionID: the identity of a session in logs and control messages.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <cstdint>

namespace kqlib {

/// The service's session number and the id of the listener thread that counted it. A plain value; equal when both
/// numbers are.
class KQCOMMON_API EventLogSessionID
{
public:
    /// The stored form, 12 bytes; reserved is always 0.
    struct DATA
    {
        std::uint32_t session;  ///< offset 0: the service's session number
        std::uint32_t thread;   ///< offset 4: the id of the listener thread
        std::uint32_t reserved; ///< offset 8
    };

    /// No session: both numbers 0.
    EventLogSessionID()
        : m_data{0, 0, 0}
    {
    }
    /// Only the low 32 bits of each count.
    EventLogSessionID(ULONG session, ULONG thread)
        : m_data{static_cast<std::uint32_t>(session), static_cast<std::uint32_t>(thread), 0}
    {
    }
    /// From the stored form; its reserved word is not taken over.
    explicit EventLogSessionID(const DATA& data)
        : m_data{data.session, data.thread, 0}
    {
    }

    /// The session's number, counted by its service.
    ULONG GetSession() const { return m_data.session; }
    /// The system's id of the listener thread.
    ULONG GetThread() const { return m_data.thread; }
    /// The stored form, valid as long as the object.
    const DATA& GetDataDirect() const { return m_data; }

    /// Both numbers are equal.
    friend bool operator==(const EventLogSessionID& left, const EventLogSessionID& right)
    {
        return left.m_data.session == right.m_data.session && left.m_data.thread == right.m_data.thread;
    }

private:
    DATA m_data;
};

static_assert(sizeof(EventLogSessionID::DATA) == 12, "stored session records hold ids of 12 bytes");

} // namespace kqlib

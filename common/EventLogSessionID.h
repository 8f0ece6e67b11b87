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
        std::uint32_t session;
        std::uint32_t thread;
        std::uint32_t reserved;
    };

    EventLogSessionID() : m_data{0, 0, 0} {}
    EventLogSessionID(ULONG session, ULONG thread)
        : m_data{static_cast<std::uint32_t>(session), static_cast<std::uint32_t>(thread), 0}
    {
    }
    explicit EventLogSessionID(const DATA& data) : m_data{data.session, data.thread, 0} {}

    ULONG GetSession() const { return m_data.session; }
    ULONG GetThread() const { return m_data.thread; }
    const DATA& GetDataDirect() const { return m_data; }

    friend bool operator==(const EventLogSessionID& left, const EventLogSessionID& right)
    {
        return left.m_data.session == right.m_data.session && left.m_data.thread == right.m_data.thread;
    }

private:
    DATA m_data;
};

static_assert(sizeof(EventLogSessionID::DATA) == 12, "stored session records hold ids of 12 bytes");

} // namespace kqlib

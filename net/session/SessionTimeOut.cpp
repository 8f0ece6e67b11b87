#include "net/session/SessionTimeOut.h"

#include <cstdint>

namespace kqlib {

namespace {

std::uint32_t SecondsToMs(ULONG seconds)
{
    return static_cast<std::uint32_t>(seconds) * 1000U;
}

} // namespace

SessionTimeOut::SessionTimeOut(ULONG seconds)
    : m_timer(TimedEvent::sGetNow(), SecondsToMs(seconds), false)
{
}

void SessionTimeOut::SetSeconds(ULONG seconds)
{
    m_timer.SetIntervalMS(SecondsToMs(seconds));
}

void SessionTimeOut::NoteRecv()
{
    if (m_restartOnRecv)
        Restart(TimedEvent::sGetNow());
}

void SessionTimeOut::NoteSend()
{
    if (m_restartOnSend)
        Restart(TimedEvent::sGetNow());
}

} // namespace kqlib

// Requests to stop or reload, on Windows: the console's control events. They arrive on a thread of the system's own,
// which only notes them.
#include "platform/Signals.h"

#include "platform/windows/SystemHeaders.h"

namespace kqlib::platform {

namespace {

// How long the system is kept from ending the process after a console was closed or the user signs off: it gives about
// five seconds anyway, and ends the process as soon as the handler returns.
constexpr DWORD CLOSING_GRACE_MS = 10000;

// Made once by HoldProcessRequests and kept until the process ends.
HANDLE g_stopAsked = nullptr;
HANDLE g_reloadAsked = nullptr;

BOOL WINAPI NoteRequest(DWORD event)
{
    switch (event) {
    case CTRL_C_EVENT:
        SetEvent(g_stopAsked);
        return TRUE;
    case CTRL_BREAK_EVENT:
        SetEvent(g_reloadAsked);
        return TRUE;
    case CTRL_CLOSE_EVENT:
    case CTRL_LOGOFF_EVENT:
    case CTRL_SHUTDOWN_EVENT:
        SetEvent(g_stopAsked);
        Sleep(CLOSING_GRACE_MS);
        return TRUE;
    default:
        return FALSE;
    }
}

} // namespace

void HoldProcessRequests()
{
    // Events that reset themselves: each request is taken once.
    g_stopAsked = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    g_reloadAsked = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    // A parent may have had Ctrl-C ignored, which is inherited: ask for it again.
    SetConsoleCtrlHandler(nullptr, FALSE);
    SetConsoleCtrlHandler(NoteRequest, TRUE);
}

ProcessRequest WaitForProcessRequest(std::uint32_t waitMs)
{
    HANDLE const requests[] = {g_stopAsked, g_reloadAsked};
    switch (WaitForMultipleObjects(2, requests, FALSE, waitMs == INFINITE ? INFINITE - 1 : waitMs)) {
    case WAIT_OBJECT_0:
        return ProcessRequest::STOP;
    case WAIT_OBJECT_0 + 1:
        return ProcessRequest::RELOAD;
    default:
        return ProcessRequest::NONE;
    }
}

} // namespace kqlib::platform

#include "platform/Threads.h"

#include "platform/windows/SystemHeaders.h"

#include <algorithm>
#include <memory>
#include <new>
#include <process.h>

namespace kqlib::platform {

namespace {

constexpr std::size_t SMALLEST_STACK = std::size_t{64} * 1024;

struct Start
{
    void (*body)(void*);
    void* argument;
};

unsigned __stdcall RunThread(void* start)
{
    const Start begin = *std::unique_ptr<Start>(static_cast<Start*>(start));
    begin.body(begin.argument);
    return 0;
}

HANDLE ToHandle(ThreadHandle thread)
{
    return reinterpret_cast<HANDLE>(thread); // NOLINT(performance-no-int-to-ptr): a handle, not an address
}

} // namespace

std::uint32_t CurrentThreadId()
{
    return GetCurrentThreadId();
}

bool StartThread(void (*body)(void*), void* argument, std::size_t stackBytes, ThreadHandle& thread)
{
    std::unique_ptr<Start> start(new (std::nothrow) Start{body, argument});
    if (!start)
        return false;
    const auto stack = static_cast<unsigned>(stackBytes == 0 ? 0 : std::max(stackBytes, SMALLEST_STACK));
    // The size is one of address space; memory comes as it is used.
    const ThreadHandle started =
        _beginthreadex(nullptr, stack, RunThread, start.get(), STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (started == 0)
        return false;
    static_cast<void>(start.release()); // the thread's now
    thread = started;
    return true;
}

void JoinThread(ThreadHandle thread)
{
    WaitForSingleObject(ToHandle(thread), INFINITE);
    CloseHandle(ToHandle(thread));
}

} // namespace kqlib::platform

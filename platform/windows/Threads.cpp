#include "platform/Threads.h"

#include "platform/windows/SystemHeaders.h"

namespace kqlib::platform {

std::uint32_t CurrentThreadId()
{
    return GetCurrentThreadId();
}

} // namespace kqlib::platform

#include "platform/Threads.h"

#include <unistd.h>

namespace kqlib::platform {

std::uint32_t CurrentThreadId()
{
    return static_cast<std::uint32_t>(::gettid());
}

} // namespace kqlib::platform

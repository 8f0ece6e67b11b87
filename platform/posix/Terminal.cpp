#include "platform/Terminal.h"

#include <unistd.h>

namespace kqlib::platform {

bool IsOutputTerminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}

} // namespace kqlib::platform

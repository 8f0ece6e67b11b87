#include "platform/windows/SystemHeaders.h"

#include "platform/Terminal.h"

namespace kqlib::platform {

bool IsOutputTerminal()
{
    DWORD mode = 0; // only consoles have one
    return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != FALSE;
}

} // namespace kqlib::platform

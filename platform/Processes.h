// Starting another program or document.
// Inside the library only.
#pragma once

#include "platform/Export.h"
#include "platform/Window.h"

namespace kqlib::platform {

/// Opens the file at path as a user would by a double click, for the given window (may be null): a program is started,
/// on systems where files carry that right after it was made executable for its owner. Returns at once, does not wait
/// for the program and leaves nothing behind when it ends. The program starts with the system's own signal handling.
/// False when it could not be started. Any thread.
KQCOMMON_API bool OpenWithShell(HWND window, const char* path);

} // namespace kqlib::platform

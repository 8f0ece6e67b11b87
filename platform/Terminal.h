// Where the process's output goes.
// Inside the library only.
#pragma once

#include "platform/Export.h"

namespace kqlib::platform {

/// True when the standard output is a terminal that a person looks at, false for a file or a pipe. Any thread.
KQCOMMON_API bool IsOutputTerminal();

} // namespace kqlib::platform

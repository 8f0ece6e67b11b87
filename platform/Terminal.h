// Where the process's output goes, and its input comes from.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <string>

namespace kqlib::platform {

/// True when the standard output is a terminal that a person looks at, false for a file or a pipe. Any thread.
KQCOMMON_API bool IsOutputTerminal();

/// The same of the standard input: a person types it.
KQCOMMON_API bool IsInputTerminal();

/// Reads one line from the standard input, without its end (LF or CR LF), byte by byte: what follows stays for others.
/// What a person types is not shown. The terminal is set back afterwards, also when Ctrl-C or another request to end
/// ends the process meanwhile. False: the input ended, or failed, before anything came. One thread at a time, with no
/// other reader of the standard input; Ctrl-C ends the process only if nothing holds it (see HoldProcessRequests).
KQCOMMON_API bool ReadHiddenLine(std::string& line);

} // namespace kqlib::platform

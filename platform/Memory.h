// How the process handles its memory.
// Inside the library only.
#pragma once

#include "platform/Export.h"

namespace kqlib::platform {

/// Asks the system to take back large blocks (a mebibyte and more) as soon as they are freed, instead of keeping them
/// for the thread that freed them. A server with many threads calls it once at its start: buffers of a few mebibytes
/// that each thread used once would stay otherwise. Does nothing where blocks are given back anyway.
KQCOMMON_API void GiveBackLargeBlocks();

} // namespace kqlib::platform

// Being asked to stop or to read the settings again, from outside the process.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <cstdint>

namespace kqlib::platform {

enum class ProcessRequest : std::uint8_t
{
    NONE,  ///< nothing was asked in time
    STOP,  ///< end in order (a stop of the service manager, Ctrl-C, the closing of a console)
    RELOAD ///< take over changed settings
};

/// From now on the requests above no longer end the process: they wait to be taken. Called once, on the main thread,
/// before any other thread is started.
KQCOMMON_API void HoldProcessRequests();

/// Waits at most waitMs milliseconds for a request and takes it. One thread at a time.
KQCOMMON_API ProcessRequest WaitForProcessRequest(std::uint32_t waitMs);

} // namespace kqlib::platform

// What the standard library does not say about threads: the system's thread id and a per-thread random generator.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <cstdint>

namespace kqlib::platform {

/// The system's 32-bit id of the calling thread, the one shown by its own tools. Any thread.
KQCOMMON_API std::uint32_t CurrentThreadId();

/// Seeds the calling thread's own generator. Other threads are not touched.
KQCOMMON_API void RandSeed(std::uint32_t seed);

/// The next number of the calling thread's generator, 0 to 32767. Not for secrets: it only spreads work over time.
KQCOMMON_API std::uint32_t RandNext();

} // namespace kqlib::platform

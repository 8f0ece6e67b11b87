// What the standard library does not say about threads: the system's thread id, threads with a stack of a given size,
// and a per-thread random generator.
#pragma once

#include "platform/Export.h"

#include <cstddef>
#include <cstdint>

namespace kqlib::platform {

/// The system's 32-bit id of the calling thread, the one shown by its own tools. Any thread.
KQCOMMON_API std::uint32_t CurrentThreadId();

/// A thread that StartThread has started and JoinThread has not ended.
using ThreadHandle = std::uintptr_t;

/// Starts a thread that calls body with the argument. Nothing may be thrown out of the body. stackBytes: the address
/// space kept for its stack, at least 64 KiB whatever is asked for; 0 = as large as the system makes them. False: no
/// thread is to be had; body is not called. Any thread.
KQCOMMON_API bool StartThread(void (*body)(void*), void* argument, std::size_t stackBytes, ThreadHandle& thread);

/// Waits until the thread is over, and gives back what the system keeps of it. Once for each thread, on another one.
KQCOMMON_API void JoinThread(ThreadHandle thread);

/// Seeds the calling thread's own generator. Other threads are not touched.
KQCOMMON_API void RandSeed(std::uint32_t seed);

/// The next number of the calling thread's generator, 0 to 32767. Not for secrets: it only spreads work over time.
KQCOMMON_API std::uint32_t RandNext();

} // namespace kqlib::platform

// The part of the threads contract that needs no system: the generator that each thread has for itself.
#include "platform/Threads.h"

namespace kqlib::platform {

namespace {

// The state before the first seed is the same in every thread, kept on purpose: an unseeded thread repeats itself.
thread_local std::uint32_t t_state = 1;

} // namespace

void RandSeed(std::uint32_t seed)
{
    t_state = seed;
}

std::uint32_t RandNext()
{
    // A linear congruential step; its upper bits are the better ones.
    t_state = t_state * 214013U + 2531011U;
    return (t_state >> 16) & 0x7FFFU;
}

} // namespace kqlib::platform

// TryFor: attempts for a short time before anything waits. Inside the library only.
#pragma once

#include <chrono>
#include <cstdint>

namespace kqlib {

/// Makes attempt, a call that answers whether it is decided, again and again until it is or micros have passed. With
/// micros 0 there is none. It keeps the processor between two attempts: given away on a busy machine, it would be back
/// later than from a wait.
template <class ATTEMPT> void TryFor(std::uint32_t micros, const ATTEMPT& attempt)
{
    if (micros == 0)
        return;
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::microseconds(micros);
    while (!attempt() && Clock::now() < end) {
        // once more
    }
}

} // namespace kqlib

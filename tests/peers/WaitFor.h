// WaitFor: waiting for a condition with a deadline, for tests.
#pragma once

#include <chrono>
#include <thread>

/// Asks cond until it is true, at most ms milliseconds. False: it never was. The time is one that a machine busy with
/// other things does not need either: only a test that fails waits so long.
template <class F> bool WaitFor(F cond, unsigned ms = 20000)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!cond()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return cond();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

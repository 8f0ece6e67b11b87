// WaitFor: waiting for a condition with a deadline, for tests.
#pragma once

#include <chrono>
#include <thread>

/// How long WaitFor waits unless it is told, milliseconds: a time that a machine busy with other things does not need
/// either, so that only a test that fails waits so long. May be changed before the first test.
inline unsigned waitForMs = 20000;

/// Asks cond until it is true, at most ms milliseconds. False: it never was.
template <class F> bool WaitFor(F cond, unsigned ms = waitForMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!cond()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return cond();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// RunAllSteps: steps of which each follows, whatever became of those before it. Inside the libraries only.
#pragma once

#include <exception>

namespace kqlib {

/// Runs the steps one after the other, the later ones also when one has thrown. The first exception then goes on to the
/// caller; those of later steps are dropped.
template <class... STEPS> void RunAllSteps(STEPS&&... steps)
{
    std::exception_ptr first;
    const auto run = [&first](auto& step) {
        try {
            step();
        } catch (...) {
            if (!first)
                first = std::current_exception();
        }
    };
    (run(steps), ...);
    if (first)
        std::rethrow_exception(first);
}

} // namespace kqlib

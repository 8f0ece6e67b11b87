// FaultRun: a whole test program under one plan.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace kqlib::test {

/// What the process holds of the system.
struct HOLDINGS
{
    std::size_t descriptors = 0;
    std::size_t threads = 0;

    static HOLDINGS sCount();
    /// Whether, within twenty seconds, the process holds no more than this any longer.
    [[nodiscard]] bool IsBackTo() const;
};

/// main of every program that the wrapper is linked into. Without KQ_FAULT_PLAN in the environment it runs the tests as
/// any other program does. With KQ_FAULT_PLAN=gentle or harsh it runs them under that plan, from the seed
/// KQ_FAULT_SEED, which it draws itself when there is none:
///
/// - gentle: every test is to succeed, but for those that tests/faults/exclusions.txt names.
/// - harsh: what a test expects is not judged, for its own connections fail too. But it has to end, by itself, without
///   a report of a sanitizer.
///
/// Under both no test may leave a descriptor or a thread behind. When a run fails, how to run it again is printed.
int RunTestsWithFaults(int argc, char** argv);

} // namespace kqlib::test

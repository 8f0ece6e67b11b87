// Missing: what a test does when the machine lacks something that it needs.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string_view>

namespace kqlib::test {

/// True where everything that a test needs has to be there: the environment says CI=true, as .ci/run does. Any value but
/// "", "0" and "false" counts.
inline bool MustRunEverything()
{
    const char* const ci = std::getenv("CI");
    const std::string_view value = ci != nullptr ? ci : "";
    return !value.empty() && value != "0" && value != "false";
}

} // namespace kqlib::test

/// Ends the current test for want of something that another machine has (a port, a program, a right): as skipped, with
/// the reason printed, and as failed where everything must run. Whatever no machine of this system can have is skipped by
/// GTEST_SKIP alone.
#define KQ_MISSING(reason)                                                                                             \
    do {                                                                                                               \
        if (kqlib::test::MustRunEverything())                                                                          \
            GTEST_FAIL() << "missing, though CI is set: " << reason;                                                   \
        GTEST_SKIP() << reason;                                                                                        \
    } while (false)

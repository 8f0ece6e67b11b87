// Port53: lets a test program serve port 53 on loopback whoever runs it.
#pragma once

#include "tests/peers/Missing.h"

namespace kqlib::test {

/// True when this process may bind port 53 of a loopback address. Asked anew at each call.
bool CanServePort53();

/// The main function of a test program that needs port 53: runs all tests when the port can be had; otherwise starts
/// the program again inside a user and network namespace of its own, where it can. When that is not possible either, it
/// says so loudly and runs the tests: those that need the port then skip themselves, or fail where everything must run.
int RunTestsWithPort53(int argc, char** argv);

/// The main function of a test program that needs a loopback for itself: runs all tests inside such namespaces when
/// they can be made, and in place otherwise.
int RunTestsWithPrivateLoopback(int argc, char** argv);

} // namespace kqlib::test

/// Ends the current test when port 53 cannot be had.
#define KQ_NEED_PORT_53()                                                                                              \
    if (!kqlib::test::CanServePort53())                                                                                \
    KQ_MISSING("port 53 of loopback cannot be bound: needs root, or unshare(1) and ip(8) and user namespaces")

#include "tests/peers/Port53.h"

#include "platform/Sockets.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

namespace kqlib::test {

namespace {

/// Set in the environment of the program inside the namespace, so that it does not start itself yet again.
constexpr const char* INSIDE_MARK = "KQ_TEST_INSIDE_NAMESPACE";

std::string Quote(std::string_view argument)
{
    std::string quoted = "'";
    for (const char character : argument)
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return quoted + "'";
}

/// A command that runs what follows as root of new user and network namespaces, with loopback up.
std::string NamespaceCommand()
{
    return "unshare -rn sh -c 'ip link set lo up && exec \"$@\"' sh";
}

bool CanMakeNamespace()
{
    return std::system((NamespaceCommand() + " true >/dev/null 2>&1").c_str()) == 0;
}

int RunInsideNamespace(int argc, char** argv)
{
    std::string command = std::string(INSIDE_MARK) + "=1 " + NamespaceCommand();
    for (int i = 0; i < argc; ++i)
        command += " " + Quote(argv[i]);
    return std::system(command.c_str()) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Keeps the system's sockets started for a scope.
class SOCKETS
{
public:
    SOCKETS() { platform::StartSockets(); }
    ~SOCKETS() { platform::EndSockets(); }
    SOCKETS(const SOCKETS&) = delete;
    SOCKETS& operator=(const SOCKETS&) = delete;
};

int RunTests(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

bool OnlyLists(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]).starts_with("--gtest_list_tests"))
            return true;
    }
    return false;
}

} // namespace

bool CanServePort53()
{
    const platform::SocketHandle handle = platform::OpenSocket(false, platform::Family::IP4);
    platform::Endpoint endpoint;
    endpoint.port = 53;
    const unsigned char address[] = {127, 251, 251, 251};
    for (int i = 0; i < 4; ++i)
        endpoint.bytes[i] = address[i];
    // Another test that asks at this very moment holds the address for an instant only.
    bool bound = false;
    for (int attempt = 0; attempt < 5 && !bound; ++attempt) {
        endpoint.bytes[3] = static_cast<unsigned char>(251 - attempt);
        bound = handle != platform::INVALID_SOCKET_HANDLE && platform::BindSocket(handle, endpoint, false);
    }
    platform::CloseSocket(handle);
    return bound;
}

int RunTestsWithPort53(int argc, char** argv)
{
    const SOCKETS sockets;
    if (!OnlyLists(argc, argv) && !CanServePort53() && std::getenv(INSIDE_MARK) == nullptr) {
        if (CanMakeNamespace())
            return RunInsideNamespace(argc, argv);
        std::cerr << "\n*** PORT 53 CANNOT BE BOUND AND NO NETWORK NAMESPACE CAN BE MADE ***\n"
                     "*** Run as root, or install util-linux and iproute2 and allow user namespaces. ***\n"
                     "*** The tests that serve DNS do not run below. ***\n\n";
    }
    return RunTests(argc, argv);
}

int RunTestsWithPrivateLoopback(int argc, char** argv)
{
    const SOCKETS sockets;
    if (!OnlyLists(argc, argv) && std::getenv(INSIDE_MARK) == nullptr && CanMakeNamespace())
        return RunInsideNamespace(argc, argv);
    return RunTests(argc, argv);
}

} // namespace kqlib::test

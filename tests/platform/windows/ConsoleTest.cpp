// Tests of what a console gives to a process on Windows: requests to stop, and whether the output is seen by a person.
#include "platform/windows/SystemHeaders.h"

#include "platform/Signals.h"
#include "platform/Terminal.h"

#include <chrono>
#include <gtest/gtest.h>

namespace kqlib::platform {

namespace {

constexpr std::uint32_t AT_ONCE = 0;
constexpr std::uint32_t SOON_MS = 5000;
constexpr std::uint32_t MOMENT_MS = 50;

class ConsoleTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { HoldProcessRequests(); }

    /// What Ctrl-C does on the keyboard.
    static bool PressCtrlC() { return GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0) != FALSE; }
};

/// The standard output leads elsewhere for as long as it lives.
class OutputTo
{
public:
    explicit OutputTo(const wchar_t* name)
        : m_before(GetStdHandle(STD_OUTPUT_HANDLE))
        , m_handle(CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, 0, nullptr))
    {
        SetStdHandle(STD_OUTPUT_HANDLE, m_handle);
    }

    ~OutputTo()
    {
        SetStdHandle(STD_OUTPUT_HANDLE, m_before);
        CloseHandle(m_handle);
    }

    OutputTo(const OutputTo&) = delete;
    OutputTo& operator=(const OutputTo&) = delete;

    [[nodiscard]] bool IsOpen() const { return m_handle != INVALID_HANDLE_VALUE; }

private:
    HANDLE m_before;
    HANDLE m_handle;
};

} // namespace

TEST_F(ConsoleTest, IsOutputTerminal_Console_True)
{
    const OutputTo console(L"CONOUT$");
    ASSERT_TRUE(console.IsOpen());
    EXPECT_TRUE(IsOutputTerminal());
}

TEST_F(ConsoleTest, IsOutputTerminal_NullDevice_False)
{
    const OutputTo nowhere(L"NUL");
    ASSERT_TRUE(nowhere.IsOpen());
    EXPECT_FALSE(IsOutputTerminal());
}

TEST_F(ConsoleTest, WaitForProcessRequest_NothingAsked_NoneAfterTheTime)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForProcessRequest(MOMENT_MS), ProcessRequest::NONE);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(MOMENT_MS / 2)); // ticks of 16 ms
}

TEST_F(ConsoleTest, WaitForProcessRequest_CtrlC_StopOnce)
{
    ASSERT_TRUE(PressCtrlC());
    EXPECT_EQ(WaitForProcessRequest(SOON_MS), ProcessRequest::STOP);
    EXPECT_EQ(WaitForProcessRequest(AT_ONCE), ProcessRequest::NONE);
}

TEST_F(ConsoleTest, WaitForProcessRequest_CtrlCAgain_StopAgain)
{
    for (int time = 0; time < 3; ++time) {
        ASSERT_TRUE(PressCtrlC());
        EXPECT_EQ(WaitForProcessRequest(SOON_MS), ProcessRequest::STOP) << time;
    }
}

TEST_F(ConsoleTest, WaitForProcessRequest_LongestWait_EndsWithTheRequest)
{
    ASSERT_TRUE(PressCtrlC());
    EXPECT_EQ(WaitForProcessRequest(0xFFFFFFFF), ProcessRequest::STOP);
}

TEST_F(ConsoleTest, WaitForProcessRequest_CtrlBreak_Reload)
{
    ASSERT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, 0));
    EXPECT_EQ(WaitForProcessRequest(SOON_MS), ProcessRequest::RELOAD);
    EXPECT_EQ(WaitForProcessRequest(AT_ONCE), ProcessRequest::NONE);
}

} // namespace kqlib::platform

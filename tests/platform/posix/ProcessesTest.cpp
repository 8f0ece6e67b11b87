#include "platform/Processes.h"

#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

namespace kqlib::platform {
namespace {

class PosixProcessesTest : public testing::Test
{
protected:
    /// A program that leaves a file behind.
    std::string MakeProgram() const
    {
        const std::filesystem::path program = m_temp / "program";
        std::ofstream(program) << "#!/bin/sh\necho ran > '" << (m_temp / "mark").string() << "'\n";
        return program.string();
    }

    bool HasRun() const
    {
        return WaitFor([this] { return std::filesystem::exists(m_temp / "mark"); });
    }

    test::TempFolder m_temp;
};

TEST_F(PosixProcessesTest, OpenWithShell_FileWithoutTheRightToRun_RunsAllTheSame)
{
    EXPECT_TRUE(OpenWithShell(nullptr, MakeProgram().c_str()));
    EXPECT_TRUE(HasRun());
}

TEST_F(PosixProcessesTest, OpenWithShell_NoProgram_False)
{
    std::ofstream(m_temp / "text") << std::string(4, '\0');
    EXPECT_FALSE(OpenWithShell(nullptr, (m_temp / "text").c_str()));
    EXPECT_FALSE(OpenWithShell(nullptr, (m_temp / "none").c_str()));
}

// Where the system takes the children's results away, there is none to be had.
TEST_F(PosixProcessesTest, OpenWithShell_ChildrenAreNotWaitedFor_RunsAndTrue)
{
    struct sigaction ignore = {};
    struct sigaction before = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &before), 0);
    EXPECT_TRUE(OpenWithShell(nullptr, MakeProgram().c_str()));
    EXPECT_TRUE(HasRun());
    sigaction(SIGCHLD, &before, nullptr);
}

} // namespace
} // namespace kqlib::platform

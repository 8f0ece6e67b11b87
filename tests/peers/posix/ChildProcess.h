// ChildProcess: a program that runs beside a test until the test stops it.
#pragma once

#include "tests/peers/WaitFor.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace kqlib::test {

/// Starts at construction, its output going to a file; ended by Stop or the destructor, by its process id alone.
/// One thread at a time.
class ChildProcess
{
public:
    /// command: path of the program, then its arguments.
    ChildProcess(const std::vector<std::string>& command, const std::filesystem::path& output)
    {
        std::vector<char*> arguments;
        for (const std::string& argument : command)
            arguments.push_back(const_cast<char*>(argument.c_str()));
        arguments.push_back(nullptr);
        const std::string outputPath = output.string();
        m_pid = fork();
        if (m_pid != 0)
            return;
        // The child: only calls that are safe after a fork of a threaded program.
        const int file = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(file, STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    ~ChildProcess() { Stop(); }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool IsRunning()
    {
        if (m_pid <= 0)
            return false;
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == 0)
            return true;
        m_pid = -1;
        return false;
    }

    /// Asks it to end (SIGTERM), and makes it end when it has not after five seconds.
    void Stop()
    {
        if (!IsRunning())
            return;
        kill(m_pid, SIGTERM);
        if (WaitFor([this] { return !IsRunning(); }))
            return;
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

private:
    pid_t m_pid = -1;
};

} // namespace kqlib::test

#include "platform/Terminal.h"

#include <cerrno>
#include <csignal>
#include <iterator>
#include <termios.h>
#include <unistd.h>

namespace kqlib::platform {

namespace {

/// What ends a process that waits for somebody to type.
constexpr int ENDINGS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

struct termios g_shown; // the terminal as it was; read by the handler while a HiddenInput lives

/// Sets the terminal back, then lets the signal do what it does by itself. Both are allowed in a handler.
void ShowAndEnd(int signal)
{
    ::tcsetattr(STDIN_FILENO, TCSANOW, &g_shown);
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

/// The terminal of the standard input does not show what is typed, as long as this lives.
class HiddenInput
{
public:
    HiddenInput()
        : m_isTerminal(::tcgetattr(STDIN_FILENO, &g_shown) == 0)
    {
        if (!m_isTerminal)
            return;
        struct sigaction action = {};
        action.sa_handler = ShowAndEnd;
        for (std::size_t i = 0; i < std::size(ENDINGS); ++i) {
            ::sigaction(ENDINGS[i], nullptr, &m_before[i]);
            if (m_before[i].sa_handler != SIG_IGN) // who started the process wants it to be ignored
                ::sigaction(ENDINGS[i], &action, nullptr);
        }
        struct termios hidden = g_shown;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        hidden.c_lflag |= ECHONL; // the line end is shown
        ::tcsetattr(STDIN_FILENO, TCSADRAIN, &hidden);
    }
    ~HiddenInput()
    {
        if (!m_isTerminal)
            return;
        ::tcsetattr(STDIN_FILENO, TCSANOW, &g_shown);
        for (std::size_t i = 0; i < std::size(ENDINGS); ++i)
            ::sigaction(ENDINGS[i], &m_before[i], nullptr);
    }
    HiddenInput(const HiddenInput&) = delete;
    HiddenInput& operator=(const HiddenInput&) = delete;

private:
    bool m_isTerminal;
    struct sigaction m_before[std::size(ENDINGS)] = {};
};

} // namespace

bool IsOutputTerminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}

bool IsInputTerminal()
{
    return ::isatty(STDIN_FILENO) == 1;
}

bool ReadHiddenLine(std::string& line)
{
    const HiddenInput hidden;
    line.clear();
    for (;;) {
        char byte = 0;
        const ssize_t got = ::read(STDIN_FILENO, &byte, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0 && line.empty())
            return false;
        if (got <= 0 || byte == '\n')
            break;
        line += byte;
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return true;
}

} // namespace kqlib::platform

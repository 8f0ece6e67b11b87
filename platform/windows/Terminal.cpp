#include "platform/windows/SystemHeaders.h"

#include "platform/Terminal.h"
#include "platform/windows/WideText.h"

namespace kqlib::platform {

namespace {

HANDLE Input()
{
    return GetStdHandle(STD_INPUT_HANDLE);
}

DWORD g_shown = 0; // the console's mode as it was; read by the handler while a HiddenInput lives

/// Sets the console back; what ends the process comes after.
BOOL WINAPI Show(DWORD)
{
    SetConsoleMode(Input(), g_shown);
    return FALSE;
}

/// The console of the standard input does not show what is typed, as long as this lives.
class HiddenInput
{
public:
    HiddenInput()
        : m_isConsole(GetConsoleMode(Input(), &g_shown) != FALSE)
    {
        if (!m_isConsole)
            return;
        SetConsoleCtrlHandler(Show, TRUE);
        SetConsoleMode(Input(), g_shown & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
    }
    ~HiddenInput()
    {
        if (!m_isConsole)
            return;
        SetConsoleMode(Input(), g_shown);
        SetConsoleCtrlHandler(Show, FALSE);
    }
    HiddenInput(const HiddenInput&) = delete;
    HiddenInput& operator=(const HiddenInput&) = delete;

    bool IsConsole() const { return m_isConsole; }

private:
    bool m_isConsole;
};

/// Reads one line up to its LF, which is left out. False: the end, or a failure, before anything came.
template <class CHARACTER, class READ> bool ReadUpToLineEnd(std::basic_string<CHARACTER>& line, const READ& read)
{
    for (;;) {
        CHARACTER character = 0;
        const bool isRead = read(character);
        if (!isRead && line.empty())
            return false;
        if (!isRead || character == CHARACTER('\n'))
            break;
        line += character;
    }
    if (!line.empty() && line.back() == CHARACTER('\r'))
        line.pop_back();
    return true;
}

/// A console gives 16-bit characters whatever code page is set.
bool ReadConsoleLine(std::string& line)
{
    std::wstring wide;
    const bool isRead = ReadUpToLineEnd(wide, [](wchar_t& character) {
        DWORD got = 0;
        return ReadConsoleW(Input(), &character, 1, &got, nullptr) != FALSE && got == 1;
    });
    static constexpr char LINE_END[] = "\r\n"; // nobody saw it being typed
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), LINE_END, sizeof LINE_END - 1, &written, nullptr);
    line = FromWide(wide.c_str());
    return isRead;
}

} // namespace

bool IsOutputTerminal()
{
    DWORD mode = 0; // only consoles have one
    return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != FALSE;
}

bool IsInputTerminal()
{
    DWORD mode = 0;
    return GetConsoleMode(Input(), &mode) != FALSE;
}

bool ReadHiddenLine(std::string& line)
{
    line.clear();
    const HiddenInput hidden;
    if (hidden.IsConsole())
        return ReadConsoleLine(line);
    return ReadUpToLineEnd(line, [](char& character) {
        DWORD got = 0;
        return ::ReadFile(Input(), &character, 1, &got, nullptr) != FALSE && got == 1;
    });
}

} // namespace kqlib::platform
